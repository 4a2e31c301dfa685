// SPDX-License-Identifier: Apache-2.0
// A place in the code where the first thread that comes by is held until the test lets it go.
#pragma once

#include <condition_variable>
#include <mutex>

namespace nq::test
{

class Gate
{
  public:
    /// The first caller waits for Open(); every later one passes.
    void Pass()
    {
        std::unique_lock lock(m_mutex);
        if (m_came)
        {
            return;
        }
        m_came = true;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }

    /// Returns once a thread waits.
    void AwaitCaller()
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_came; });
    }

    void Open()
    {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_came = false;
    bool m_open = false;
};

} // namespace nq::test
