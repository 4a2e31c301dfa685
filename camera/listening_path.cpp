// SPDX-License-Identifier: Apache-2.0
// A listening UNIX socket with a place in the file system.
#include "listening_path.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <thread>

namespace nq::camera
{

namespace
{

constexpr int kMostUnaccepted = 8;
constexpr std::chrono::seconds kLockWait{3};

/// False when the path is too long for a socket.
bool SetAddress(sockaddr_un& address, const std::string& path)
{
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path))
    {
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size());
    return true;
}

/// Why what lies at the path cannot be replaced; 0 for a dead socket of this user.
int Obstacle(const std::string& path)
{
    struct stat found = {};
    if (lstat(path.c_str(), &found) != 0)
    {
        return errno;
    }
    if (!S_ISSOCK(found.st_mode) || found.st_uid != geteuid())
    {
        return EEXIST;
    }
    sockaddr_un address{};
    const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool dead = SetAddress(address, path) && probe.Get() >= 0 &&
                      connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 &&
                      errno == ECONNREFUSED;
    return dead ? 0 : EADDRINUSE;
}

} // namespace

ListeningPath::ListeningPath(std::string path)
    : m_path(std::move(path)), m_fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
{
    // Between its bind and its listen a socket looks dead. Nobody looks before the lock is gone.
    const UniqueFd lock = LockFolder();
    Clear();
    Listen();
}

ListeningPath::~ListeningPath()
{
    // Nobody replaces a socket that listens, so what is found here stays until it is removed.
    struct stat found = {};
    if (lstat(m_path.c_str(), &found) == 0 && found.st_dev == m_device && found.st_ino == m_inode)
    {
        unlink(m_path.c_str());
    }
}

UniqueFd ListeningPath::LockFolder() const
{
    const std::string parent = std::filesystem::path(m_path).parent_path();
    UniqueFd folder(open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.Get() < 0)
    {
        Throw(errno);
    }
    const auto end = std::chrono::steady_clock::now() + kLockWait;
    while (flock(folder.Get(), LOCK_EX | LOCK_NB) != 0)
    {
        if (errno != EWOULDBLOCK || std::chrono::steady_clock::now() >= end)
        {
            Throw(errno == EWOULDBLOCK ? EBUSY : errno);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return folder;
}

void ListeningPath::Clear() const
{
    const int obstacle = Obstacle(m_path);
    if (obstacle != 0 && obstacle != ENOENT)
    {
        Throw(obstacle);
    }
    if (obstacle == 0 && unlink(m_path.c_str()) != 0)
    {
        Throw(errno);
    }
}

void ListeningPath::Listen()
{
    sockaddr_un address{};
    if (!SetAddress(address, m_path))
    {
        Throw(ENAMETOOLONG);
    }
    // The rights of a socket that is not bound yet become those of its file, whatever the umask lets through.
    struct stat placed = {};
    if (m_fd.Get() < 0 || fchmod(m_fd.Get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        lstat(m_path.c_str(), &placed) != 0 || listen(m_fd.Get(), kMostUnaccepted) != 0)
    {
        Throw(errno);
    }
    m_device = placed.st_dev;
    m_inode = placed.st_ino;
}

void ListeningPath::Throw(int error) const
{
    throw std::system_error(error, std::generic_category(), "control socket " + m_path);
}

} // namespace nq::camera
