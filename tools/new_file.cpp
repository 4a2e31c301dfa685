// SPDX-License-Identifier: Apache-2.0
// A file that appears under its name when it is whole, or never.
#include "new_file.h"

#include "exit_codes.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr mode_t kForAll = 0666; // less what the user's mask takes away

[[noreturn]] void FailByErrno(const std::filesystem::path& path)
{
    throw std::system_error(errno, std::generic_category(), path.string());
}

/// Links what `descriptor` has open to `path`.
bool Link(int descriptor, const std::filesystem::path& path)
{
    const std::string open = "/proc/self/fd/" + std::to_string(descriptor);
    return linkat(AT_FDCWD, open.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

bool Rename(const std::filesystem::path& from, const std::filesystem::path& to, bool overwrite)
{
    if (overwrite)
    {
        return rename(from.c_str(), to.c_str()) == 0;
    }
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
    {
        return true;
    }
    if (errno != EINVAL)
    {
        return false;
    }
    // A file system that cannot do both at once.
    struct stat there
    {
    };
    if (lstat(to.c_str(), &there) == 0)
    {
        errno = EEXIST;
        return false;
    }
    return rename(from.c_str(), to.c_str()) == 0;
}

/// Where a link leads, as the kernel goes: it follows no link that somebody else may have laid in a shared folder.
std::filesystem::path EndOfLink(const std::filesystem::path& path)
{
    const int descriptor = open(path.c_str(), O_PATH | O_CLOEXEC);
    if (descriptor == -1)
    {
        throw ToolFailure(ExitCode::Failure, "cannot write " + path.string() + ": what this link leads to: " +
                                                 std::generic_category().message(errno));
    }
    std::error_code none;
    std::filesystem::path end = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none);
    close(descriptor);
    return end;
}

/// Gives the file owner and mode of the one whose place it takes; another user's owner only root can give.
void KeepRights(int descriptor, const struct stat& before)
{
    [[maybe_unused]] const int owned = fchown(descriptor, before.st_uid, before.st_gid);
    static_cast<void>(fchmod(descriptor, before.st_mode & 0777));
}

} // namespace

NewFile::NewFile(std::filesystem::path path) : m_path(std::move(path)), m_stream(nullptr, std::fclose)
{
    int descriptor = open(m_path.parent_path().c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, kForAll);
    if (descriptor == -1 && errno == EOPNOTSUPP)
    {
        const std::filesystem::path partial = m_path.string() + ".part";
        descriptor = open(partial.c_str(), O_CREAT | O_EXCL | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, kForAll);
        if (descriptor == -1)
        {
            FailByErrno(partial);
        }
        m_partial = partial;
    }
    if (descriptor == -1)
    {
        FailByErrno(m_path);
    }
    m_stream.reset(fdopen(descriptor, "wb"));
    if (!m_stream)
    {
        const std::system_error failure(errno, std::generic_category(), m_path.string());
        close(descriptor);
        unlink(m_partial.c_str());
        throw failure;
    }
}

NewFile::~NewFile()
{
    if (!m_partial.empty())
    {
        unlink(m_partial.c_str());
    }
}

void NewFile::Publish(bool overwrite)
{
    if (std::fflush(m_stream.get()) != 0)
    {
        FailByErrno(m_path);
    }
    if (m_partial.empty())
    {
        const int descriptor = fileno(m_stream.get());
        if (!Link(descriptor, m_path) &&
            (errno != EEXIST || !overwrite || unlink(m_path.c_str()) != 0 || !Link(descriptor, m_path)))
        {
            FailByErrno(m_path);
        }
        return;
    }
    if (std::fclose(m_stream.release()) != 0 || !Rename(m_partial, m_path, overwrite))
    {
        FailByErrno(m_path);
    }
    m_partial.clear();
}

void WriteFile(const std::string& path, std::string_view text, bool overwrite)
{
    try
    {
        std::filesystem::path target = std::filesystem::absolute(path);
        if (std::error_code none; overwrite && std::filesystem::is_symlink(target, none))
        {
            target = EndOfLink(path);
        }
        struct stat there
        {
        };
        const bool exists = stat(target.c_str(), &there) == 0;
        if (exists && !S_ISREG(there.st_mode))
        {
            throw ToolFailure(ExitCode::Failure, "cannot write " + path + ": it is no plain file, and stays as it is");
        }
        NewFile file(target);
        if (std::fwrite(text.data(), 1, text.size(), file.Stream()) != text.size())
        {
            FailByErrno(target);
        }
        if (exists && overwrite)
        {
            KeepRights(fileno(file.Stream()), there);
        }
        file.Publish(overwrite);
    }
    catch (const std::system_error& failure)
    {
        const char* const advice = failure.code() == std::errc::file_exists ? "; --overwrite replaces it" : "";
        throw ToolFailure(ExitCode::Failure, "cannot write " + path + ": " + failure.code().message() + advice);
    }
}

void RefuseExisting(const std::string& path)
{
    if (faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0)
    {
        throw ToolFailure(ExitCode::Failure, path + " is there already; --overwrite replaces it");
    }
}

void RefuseWithoutFolder(const std::string& path)
{
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (faccessat(AT_FDCWD, folder.empty() ? "." : folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0)
    {
        throw ToolFailure(ExitCode::Failure, "cannot write " + path + ": " + std::generic_category().message(errno));
    }
}

} // namespace nq::tool
