// SPDX-License-Identifier: Apache-2.0
// A thread that calls something, and the certainty that it sleeps in that call.
#pragma once

#include <atomic>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace nq::test
{

/// Runs a function on a thread of its own and joins it at the end. The kernel tells when the thread sleeps; nothing
/// else can tell that a wait has begun.
class CallingThread
{
  public:
    template <typename Function>
    explicit CallingThread(Function function)
        : m_thread([this, function] {
              m_tid = gettid();
              function();
              m_ended = true;
          })
    {
    }
    ~CallingThread() { Join(); }

    void Join()
    {
        if (m_thread.joinable())
        {
            m_thread.join();
        }
    }

    /// Returns also when the function has ended without a wait.
    void AwaitAsleep() const
    {
        while (m_tid == 0)
        {
            std::this_thread::yield();
        }
        for (int seen = 0; seen < 3 && !m_ended; std::this_thread::yield())
        {
            seen = IsAsleep() ? seen + 1 : 0;
        }
    }

  private:
    bool IsAsleep() const
    {
        std::ifstream file("/proc/self/task/" + std::to_string(m_tid) + "/stat");
        std::string text;
        std::getline(file, text);
        const auto end = text.rfind(") ");
        return end != std::string::npos && text[end + 2] == 'S';
    }

    std::atomic<pid_t> m_tid = 0;
    std::atomic<bool> m_ended = false;
    std::thread m_thread;
};

} // namespace nq::test
