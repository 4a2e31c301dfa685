// SPDX-License-Identifier: Apache-2.0
// A listening UNIX socket with a place in the file system.
#pragma once

#include "unique_fd.h"

#include <string>
#include <sys/types.h>

namespace nq::camera
{

/// A UNIX stream socket that listens at a path, with rights for its user only (0600).
///
/// At the path nothing is replaced but a socket of this user that nobody listens on any more; cameras that look there
/// at once take turns by a lock of the folder. At the end the path is cleared if it is still this socket's.
class ListeningPath
{
  public:
    /// Throws std::system_error whose text names the path: with EADDRINUSE when somebody listens there, with EEXIST
    /// when something else lies there.
    explicit ListeningPath(std::string path);
    ~ListeningPath();
    ListeningPath(const ListeningPath&) = delete;
    ListeningPath& operator=(const ListeningPath&) = delete;

    /// Does not block.
    int Fd() const { return m_fd.Get(); }

  private:
    UniqueFd LockFolder() const;
    void Clear() const;
    void Listen();
    [[noreturn]] void Throw(int error) const;

    const std::string m_path;
    UniqueFd m_fd;
    /// Where the socket itself lies.
    dev_t m_device = 0;
    ino_t m_inode = 0;
};

} // namespace nq::camera
