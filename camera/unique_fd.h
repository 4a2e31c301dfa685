// SPDX-License-Identifier: Apache-2.0
// A file descriptor that is closed with its owner.
#pragma once

#include <unistd.h>
#include <utility>

namespace nq::camera
{

/// Owns one descriptor, or none (-1). Movable, not copyable.
class UniqueFd
{
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~UniqueFd()
    {
        if (m_fd >= 0)
        {
            ::close(m_fd);
        }
    }

    int Get() const { return m_fd; }

  private:
    int m_fd = -1;
};

} // namespace nq::camera
