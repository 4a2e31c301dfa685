// SPDX-License-Identifier: Apache-2.0
// Owner of one file descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace nq::loopback
{

/// Closes its descriptor when it goes. -1 means none.
class UniqueFd
{
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { Reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other)
        {
            Reset();
            m_fd = std::exchange(other.m_fd, -1);
        }
        return *this;
    }

    int Get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    int Release() { return std::exchange(m_fd, -1); }

    void Reset()
    {
        if (m_fd >= 0)
        {
            close(std::exchange(m_fd, -1));
        }
    }

  private:
    int m_fd = -1;
};

} // namespace nq::loopback
