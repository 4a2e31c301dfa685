// SPDX-License-Identifier: Apache-2.0
// The folder through which processes on the software RDMA find each other, one for each case.
#pragma once

#include "loopback/rdma_side.h"

#include <filesystem>
#include <iterator>
#include <string>

namespace nq::test
{

inline sockaddr_in Address(const char* host, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, host, &address.sin_addr);
    return address;
}

/// A folder of this case alone. To be made before the first RDMA call.
class Folder
{
  public:
    explicit Folder(const std::string& below = "")
    {
        char name[] = "/tmp/nq-loopback-test-XXXXXX";
        Require(mkdtemp(name) != nullptr, "mkdtemp");
        m_root = name;
        path = m_root + below;
        std::filesystem::create_directories(path);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        setenv("NQ_RDMA_LOOPBACK_DIR", path.c_str(), 1);
    }
    ~Folder() { std::filesystem::remove_all(m_root); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    /// The entry of the only socket bound to `port`.
    std::string EntryOf(uint16_t port) const
    {
        for (const auto& entry : std::filesystem::directory_iterator(path))
        {
            if (entry.path().filename().string().starts_with(std::to_string(port) + "_"))
            {
                return entry.path();
            }
        }
        throw std::runtime_error("nobody is bound to the port");
    }

    size_t Entries() const { return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(path), {})); }

    std::string path;

  private:
    std::string m_root;
};

/// Lets a peer be unreachable soon. To be called before the first RDMA call.
inline void GiveUpSoon()
{
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "100", 1);
}

} // namespace nq::test
