// SPDX-License-Identifier: Apache-2.0
// Cameras that answer a broadcast on the cable, on whatever subnet they are, and the command that moves one.
#include "heard_cameras.h"

#include "exit_codes.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool
{

namespace
{

using Clock = std::chrono::steady_clock;
using Octets = std::vector<uint8_t>;

constexpr uint16_t kControlPort = 3956;
constexpr uint16_t kDiscovery = 0x0002;
constexpr uint16_t kForceIp = 0x0004;
constexpr size_t kHeader = 8;
constexpr size_t kDiscoveryBody = 248;

uint32_t Big(const Octets& bytes, size_t at, size_t count)
{
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
    {
        value = value << 8 | bytes.at(at + i);
    }
    return value;
}

void PutBig(Octets& bytes, size_t at, uint64_t value, size_t count)
{
    for (size_t i = 0; i < count; ++i)
    {
        bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
    }
}

/// The text of a register up to its first 0.
std::string Text(const Octets& bytes, size_t at, size_t size)
{
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, std::find(begin, begin + static_cast<std::ptrdiff_t>(size), 0)};
}

/// A UDP socket that sends and hears on one adapter alone, broadcasts of other subnets too.
class AdapterSocket
{
  public:
    explicit AdapterSocket(const Adapter& adapter) : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        const auto size = static_cast<socklen_t>(adapter.name.size());
        if (m_fd < 0 || setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
            setsockopt(m_fd, SOL_SOCKET, SO_BINDTODEVICE, adapter.name.c_str(), size) != 0)
        {
            m_problem = std::generic_category().message(errno);
        }
    }
    ~AdapterSocket()
    {
        if (m_fd >= 0)
        {
            close(m_fd);
        }
    }
    AdapterSocket(const AdapterSocket&) = delete;
    AdapterSocket& operator=(const AdapterSocket&) = delete;

    int Fd() const { return m_fd; }

    /// Empty when all went well so far.
    const std::string& Problem() const { return m_problem; }

    void Send(const Octets& bytes, uint32_t address, uint16_t port)
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(port);
        to.sin_addr.s_addr = htonl(address);
        if (sendto(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to) <
            0)
        {
            m_problem = std::generic_category().message(errno);
        }
    }

    std::optional<Octets> Receive() const
    {
        Octets bytes(1500);
        const ssize_t size = recv(m_fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size < 0)
        {
            return std::nullopt;
        }
        bytes.resize(static_cast<size_t>(size));
        return bytes;
    }

  private:
    int m_fd;
    std::string m_problem;
};

/// A command that may be answered by broadcast.
Octets Command(uint16_t code, uint16_t id, const Octets& body)
{
    Octets bytes{0x42, 0x11};
    bytes.resize(kHeader);
    PutBig(bytes, 2, code, 2);
    PutBig(bytes, 4, body.size(), 2);
    PutBig(bytes, 6, id, 2);
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

/// A good answer to the command of this code and id.
bool IsAnswer(const Octets& bytes, uint16_t code, uint16_t id)
{
    return bytes.size() >= kHeader && Big(bytes, 0, 2) == 0 && Big(bytes, 2, 2) == code + 1U && Big(bytes, 6, 2) == id;
}

HeardCamera CameraOf(const Adapter& adapter, const Octets& answer)
{
    const Octets body(answer.begin() + kHeader, answer.end());
    HeardCamera camera;
    camera.adapter = adapter;
    camera.mac = uint64_t{Big(body, 0x0A, 2)} << 32 | Big(body, 0x0C, 4);
    camera.supported = Big(body, 0x10, 4);
    camera.configured = Big(body, 0x14, 4);
    camera.network = {Big(body, 0x24, 4), Big(body, 0x34, 4)};
    camera.gateway = Big(body, 0x44, 4);
    camera.model = Text(body, 0x68, 32);
    camera.serial = Text(body, 0xD8, 16);
    camera.userName = Text(body, 0xE8, 16);
    return camera;
}

void Take(const Adapter& adapter, const AdapterSocket& socket, std::vector<HeardCamera>& cameras)
{
    while (const std::optional<Octets> answer = socket.Receive())
    {
        if (answer->size() < kHeader + kDiscoveryBody || !IsAnswer(*answer, kDiscovery, 1))
        {
            continue;
        }
        HeardCamera camera = CameraOf(adapter, *answer);
        const bool known = std::any_of(cameras.begin(), cameras.end(), [&](const HeardCamera& one) {
            return one.mac == camera.mac && one.adapter.name == adapter.name;
        });
        if (!known)
        {
            cameras.push_back(std::move(camera));
        }
    }
}

} // namespace

bool Adapter::Reaches(const Ipv4Network& other) const
{
    return std::any_of(networks.begin(), networks.end(), [&](const Ipv4Network& own) {
        return own.Contains(other.address) && other.Contains(own.address);
    });
}

std::vector<Adapter> FindAdapters()
{
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
    {
        throw ToolFailure(ExitCode::Failure,
                          "the network adapters cannot be listed: " + std::generic_category().message(errno));
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> keep(list, &freeifaddrs);
    const auto number = [](const sockaddr* address) {
        sockaddr_in place{};
        std::memcpy(&place, address, sizeof place);
        return ntohl(place.sin_addr.s_addr);
    };
    std::vector<Adapter> adapters;
    for (const ifaddrs* one = list; one != nullptr; one = one->ifa_next)
    {
        const bool usable = (one->ifa_flags & IFF_UP) != 0 && (one->ifa_flags & IFF_BROADCAST) != 0 &&
                            one->ifa_addr != nullptr && one->ifa_netmask != nullptr &&
                            one->ifa_addr->sa_family == AF_INET;
        if (!usable)
        {
            continue;
        }
        // An alias is named "eth0:1"; the adapter itself carries the part before the colon.
        std::string name = one->ifa_name;
        name.resize(std::min(name.size(), name.find(':')));
        auto found = std::find_if(adapters.begin(), adapters.end(), [&](const Adapter& a) { return a.name == name; });
        if (found == adapters.end())
        {
            found = adapters.insert(adapters.end(), {name, {}});
        }
        found->networks.push_back({number(one->ifa_addr), number(one->ifa_netmask)});
    }
    return adapters;
}

std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time)
{
    std::vector<std::unique_ptr<AdapterSocket>> sockets;
    std::vector<pollfd> files;
    std::string problem;
    for (const Adapter& adapter : adapters)
    {
        auto& socket = sockets.emplace_back(std::make_unique<AdapterSocket>(adapter));
        if (socket->Problem().empty())
        {
            socket->Send(Command(kDiscovery, 1, {}), INADDR_BROADCAST, kControlPort);
        }
        files.push_back({socket->Problem().empty() ? socket->Fd() : -1, POLLIN, 0});
        problem += socket->Problem().empty() ? "" : fmt::format(" {}: {}.", adapter.name, socket->Problem());
    }
    if (std::none_of(files.begin(), files.end(), [](const pollfd& file) { return file.fd >= 0; }))
    {
        throw ToolFailure(ExitCode::Failure, "no adapter lets this program ask for cameras." + problem);
    }
    std::vector<HeardCamera> cameras;
    const auto end = Clock::now() + time;
    for (auto now = Clock::now(); now < end; now = Clock::now())
    {
        poll(files.data(), files.size(),
             static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
        for (size_t i = 0; i < files.size(); ++i)
        {
            if ((files[i].revents & POLLIN) != 0)
            {
                Take(adapters[i], *sockets[i], cameras);
            }
        }
    }
    return cameras;
}

bool ForceAddress(const HeardCamera& camera, const Ipv4Network& network, uint32_t gateway,
                  std::chrono::milliseconds time)
{
    constexpr uint16_t kId = 2;
    Octets body(56);
    PutBig(body, 2, camera.mac, 6);
    PutBig(body, 20, network.address, 4);
    PutBig(body, 36, network.mask, 4);
    PutBig(body, 52, gateway, 4);
    AdapterSocket socket(camera.adapter);
    if (socket.Problem().empty())
    {
        socket.Send(Command(kForceIp, kId, body), INADDR_BROADCAST, kControlPort);
    }
    if (!socket.Problem().empty())
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{}: {}", camera.adapter.name, socket.Problem()));
    }
    const auto end = Clock::now() + time;
    for (auto now = Clock::now(); now < end; now = Clock::now())
    {
        pollfd file{socket.Fd(), POLLIN, 0};
        poll(&file, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
        const std::optional<Octets> answer = socket.Receive();
        if (answer && IsAnswer(*answer, kForceIp, kId))
        {
            return true;
        }
    }
    return false;
}

std::string MacText(uint64_t mac)
{
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", mac >> 40 & 0xFF, mac >> 32 & 0xFF,
                       mac >> 24 & 0xFF, mac >> 16 & 0xFF, mac >> 8 & 0xFF, mac & 0xFF);
}

} // namespace nq::tool
