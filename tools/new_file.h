// SPDX-License-Identifier: Apache-2.0
// A file that appears under its name when it is whole, or never.
#pragma once

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace nq::tool
{

/// A file being written. Until Publish() it has no name, and no signal leaves it behind. A file system that knows no
/// files without a name gets NAME.part, which must not be there yet; that one the object removes. Links are not
/// followed. Failures are std::system_error.
class NewFile
{
  public:
    explicit NewFile(std::filesystem::path path);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    std::FILE* Stream() const { return m_stream.get(); }

    /// Gives the file its name. What has that name already is replaced if `overwrite`; else it stays, and the failure
    /// is EEXIST. Call it once, when everything is written.
    void Publish(bool overwrite);

  private:
    std::filesystem::path m_path;
    std::filesystem::path m_partial; ///< empty while the file has no name
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_stream;
};

/// Writes the whole text under a new name, or in the place of the plain file that has it if `overwrite`: of the one
/// that a link leads to, with the rights that it had. Folders, devices and pipes stay. Throws ToolFailure.
void WriteFile(const std::string& path, std::string_view text, bool overwrite);

/// Throws ToolFailure when something has that name already, be it a link that leads nowhere.
void RefuseExisting(const std::string& path);

/// Throws ToolFailure when no new file can come into the folder of that name.
void RefuseWithoutFolder(const std::string& path);

} // namespace nq::tool
