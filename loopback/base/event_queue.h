// SPDX-License-Identifier: Apache-2.0
// A queue whose descriptor is readable while it holds something, as the event channels of RDMA are.
#pragma once

#include "base/unique_fd.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <fcntl.h>
#include <linux/futex.h>
#include <mutex>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace nq::loopback
{

/// First in, first out. The descriptor is for poll() and for O_NONBLOCK only; nobody else reads it. All threads.
template <typename Item>
class EventQueue
{
  public:
    EventQueue() : m_fd(eventfd(0, EFD_CLOEXEC))
    {
        if (!m_fd)
        {
            throw std::system_error(errno, std::generic_category(), "eventfd");
        }
    }

    int Fd() const { return m_fd.Get(); }

    void Push(Item item)
    {
        const std::lock_guard lock(m_mutex);
        m_items.push_back(std::move(item));
        Signal();
    }

    /// Takes the front into `item`; `taken` runs before anybody else can look at the queue.
    template <typename Taken>
    bool TryPop(Item& item, Taken&& taken)
    {
        const std::lock_guard lock(m_mutex);
        if (m_items.empty())
        {
            return false;
        }
        item = std::move(m_items.front());
        m_items.pop_front();
        taken(item);
        ClearWhenEmpty();
        return true;
    }

    /// Takes out all items that `matches`, in order.
    template <typename Matches>
    std::vector<Item> Extract(Matches&& matches)
    {
        const std::lock_guard lock(m_mutex);
        std::vector<Item> taken;
        std::deque<Item> kept;
        for (Item& item : m_items)
        {
            if (matches(item))
            {
                taken.push_back(std::move(item));
            }
            else
            {
                kept.push_back(std::move(item));
            }
        }
        m_items.swap(kept);
        ClearWhenEmpty();
        return taken;
    }

    /// Sleeps until something may have been pushed after `seen` was read. 0, or EAGAIN when the descriptor is
    /// non-blocking, or EINTR.
    int Wait(uint32_t seen) const
    {
        const int flags = fcntl(m_fd.Get(), F_GETFL);
        if (flags < 0 || (flags & O_NONBLOCK) != 0)
        {
            return flags < 0 ? errno : EAGAIN;
        }
        // A futex, because like a read(2) it goes on after a signal whose handler was installed with SA_RESTART.
        const long result = syscall(SYS_futex, &m_pushes, FUTEX_WAIT_PRIVATE, seen, nullptr, nullptr, 0);
        return result != 0 && errno == EINTR ? EINTR : 0;
    }

    /// To be read before TryPop and given to Wait.
    uint32_t Pushes() const { return m_pushes.load(std::memory_order_acquire); }

  private:
    void Signal()
    {
        const uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_fd.Get(), &one, sizeof one);
        m_pushes.fetch_add(1, std::memory_order_release);
        syscall(SYS_futex, &m_pushes, FUTEX_WAKE_PRIVATE, INT32_MAX, nullptr, nullptr, 0);
    }

    void ClearWhenEmpty()
    {
        if (!m_items.empty())
        {
            return;
        }
        // Only this class reads, under the lock. Without something to clear a blocking descriptor would sleep.
        uint64_t value = 0;
        if (m_pushesCleared != m_pushes.load(std::memory_order_relaxed))
        {
            [[maybe_unused]] const ssize_t got = read(m_fd.Get(), &value, sizeof value);
            m_pushesCleared = m_pushes.load(std::memory_order_relaxed);
        }
    }

    UniqueFd m_fd;
    mutable std::mutex m_mutex;
    std::deque<Item> m_items;
    std::atomic<uint32_t> m_pushes{0};
    uint32_t m_pushesCleared = 0;
};

} // namespace nq::loopback
