// SPDX-License-Identifier: Apache-2.0
// Wakes a thread that waits in poll.
#pragma once

#include "unique_fd.h"

#include <cerrno>
#include <sys/eventfd.h>
#include <system_error>

namespace nq::camera
{

/// A descriptor that is readable from Signal until Clear. Any thread may call.
class WakeEvent
{
  public:
    WakeEvent() : m_fd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (m_fd.Get() < 0)
        {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    // Both calls only fail when there is nothing left to do: the counter is at its limit, or it is zero.
    void Signal() { static_cast<void>(eventfd_write(m_fd.Get(), 1)); }
    void Clear()
    {
        eventfd_t value = 0;
        static_cast<void>(eventfd_read(m_fd.Get(), &value));
    }
    int Fd() const { return m_fd.Get(); }

  private:
    UniqueFd m_fd;
};

} // namespace nq::camera
