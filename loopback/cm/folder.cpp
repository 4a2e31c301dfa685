// SPDX-License-Identifier: Apache-2.0
// The folder through which processes find each other: one socket per bound address, named after it.
#include "cm/folder.h"

#include "base/error.h"
#include "base/log.h"
#include "cm/cm_channel.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace nq::loopback
{

namespace
{

constexpr int kBacklog = 128;
constexpr std::chrono::milliseconds kLongestPause{16};
constexpr const char* kUnfinished = "unfinished_";

UniqueFd OpenFolder(std::string path)
{
    // With a slash behind its name a link would be followed.
    while (path.size() > 1 && path.back() == '/')
    {
        path.pop_back();
    }
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    {
        Throw(errno);
    }
    UniqueFd folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status
    {
    };
    if (!folder || fstat(folder.Get(), &status) != 0)
    {
        const bool link = errno == ELOOP || errno == ENOTDIR;
        Throw(link ? EACCES : errno);
    }
    // Whoever could write here, or reach what lies here, could take part.
    if (status.st_uid != geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    {
        Log("%s is refused: it has to belong to the user alone, with mode 0700", path.c_str());
        Throw(EACCES);
    }
    return folder;
}

// A socket's path has little room; the way through the open folder is always short.
sockaddr_un PathOf(int folder, const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int length =
        std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", folder, name.c_str());
    if (length < 0 || static_cast<size_t>(length) >= sizeof address.sun_path)
    {
        Throw(ENAMETOOLONG);
    }
    return address;
}

UniqueFd NewSocket()
{
    UniqueFd made(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made)
    {
        Throw(errno);
    }
    return made;
}

} // namespace

std::string FolderEntry::NewName(const Endpoint& address, const NetScope& scope)
{
    static std::atomic<unsigned> last{0};
    return std::to_string(address.Port()) + "_" + std::to_string(scope.Identity()) + "_" +
           (address.IsAny() ? kAnyHost : address.HostText()) + "_" + std::to_string(getpid()) + "_" +
           std::to_string(++last);
}

std::optional<FolderEntry> FolderEntry::Parse(const char* name)
{
    FolderEntry entry;
    char host[64] = "";
    if (std::sscanf(name, "%u_%llu_%63[^_]_%d_", &entry.port, &entry.scope, host, &entry.process) != 4)
    {
        return std::nullopt;
    }
    entry.name = name;
    entry.host = host;
    return entry;
}

Folder::Folder() : m_fd(OpenFolder(Settings::Get().directory)) {}

Folder::Lock::Lock(const Folder& folder) : m_fd(folder.m_fd.Get())
{
    // A holder that was stopped must not hold up everybody for ever.
    const Clock::time_point end = Clock::now() + Settings::Get().connectTimeout;
    std::chrono::milliseconds pause(1);
    while (flock(m_fd, LOCK_EX | LOCK_NB) != 0)
    {
        if (errno != EWOULDBLOCK && errno != EINTR)
        {
            Throw(errno);
        }
        if (Clock::now() > end)
        {
            Throw(ETIMEDOUT);
        }
        // Hundreds that ask every millisecond would leave the holder no processor.
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, kLongestPause);
    }
}

Folder::Lock::~Lock()
{
    // Not by closing: a forked child may have a copy of the descriptor.
    flock(m_fd, LOCK_UN);
}

std::vector<std::string> Folder::Names() const
{
    std::vector<std::string> names;
    const int copy = openat(m_fd.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy < 0 ? nullptr : fdopendir(copy), closedir);
    if (!stream)
    {
        Throw(errno);
    }
    while (const dirent* found = readdir(stream.get()))
    {
        names.emplace_back(found->d_name);
    }
    return names;
}

std::vector<FolderEntry> Folder::Entries() const
{
    std::vector<FolderEntry> entries;
    for (const std::string& name : Names())
    {
        if (std::optional<FolderEntry> entry = FolderEntry::Parse(name.c_str()))
        {
            entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

int Folder::Connect(int socket, const std::string& name) const
{
    const sockaddr_un address = PathOf(m_fd.Get(), name);
    return connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

UniqueFd Folder::Reach(const FolderEntry& entry) const
{
    UniqueFd control = NewSocket();
    if (Connect(control.Get(), entry.name) != 0)
    {
        return UniqueFd();
    }
    if (!PeerIsSameUser(control.Get()))
    {
        Log("%s is another user's", entry.name.c_str());
        return UniqueFd();
    }
    return control;
}

void Folder::RemoveDead(const Lock& lock) const
{
    for (const std::string& name : Names())
    {
        const std::optional<FolderEntry> entry = FolderEntry::Parse(name.c_str());
        // What a process in another process namespace owns looks dead too; only the connection tells.
        const bool mayBeDead = entry && kill(entry->process, 0) != 0 && errno == ESRCH;
        // Whoever had begun and still lived would hold the lock.
        if (mayBeDead || name.starts_with(kUnfinished))
        {
            RemoveIfDead(name, lock);
        }
    }
}

void Folder::RemoveIfDead(const std::string& name, const Lock&) const
{
    if (Connect(NewSocket().Get(), name) == ECONNREFUSED)
    {
        Log("removing %s, whose process has ended", name.c_str());
        Remove(name);
    }
}

void Folder::Publish(int socket, const std::string& name, const Lock&) const
{
    const std::string hidden = kUnfinished + name;
    const sockaddr_un path = PathOf(m_fd.Get(), hidden);
    if (bind(socket, reinterpret_cast<const sockaddr*>(&path), sizeof path) != 0 || listen(socket, kBacklog) != 0 ||
        renameat(m_fd.Get(), hidden.c_str(), m_fd.Get(), name.c_str()) != 0)
    {
        const int error = errno;
        Remove(hidden);
        Throw(error);
    }
}

void Folder::Remove(const std::string& name) const
{
    unlinkat(m_fd.Get(), name.c_str(), 0);
}

} // namespace nq::loopback
