// SPDX-License-Identifier: Apache-2.0
// A folder of a test's own under a name that nobody can know before, gone with the object.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace nq::test
{

/// Makes the folder, with rights for its owner alone. Throws std::system_error.
class TemporaryFolder
{
  public:
    TemporaryFolder()
    {
        std::string path = (std::filesystem::temp_directory_path() / "nq-test-XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr)
        {
            throw std::system_error(errno, std::generic_category(), path);
        }
        m_path = path;
    }
    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::string& Path() const { return m_path; }

    /// The path of what has that name in the folder.
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }

    std::vector<std::filesystem::path> Files() const
    {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
        {
            files.push_back(entry.path());
        }
        return files;
    }

  private:
    std::string m_path;
};

} // namespace nq::test
