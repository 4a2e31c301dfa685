// SPDX-License-Identifier: Apache-2.0
// The certainty that a thread sleeps, which the kernel alone can give.
#pragma once

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>

namespace nq::test
{

/// What the kernel says of the thread whose folder in /proc that is: 'S' when it sleeps, 'T' when it is stopped; '?'
/// when it has gone.
inline char StateOf(const std::string& folder)
{
    std::ifstream file(folder + "/stat");
    std::string text;
    std::getline(file, text);
    const auto end = text.rfind(") ");
    return end == std::string::npos ? '?' : text[end + 2];
}

inline bool IsAsleep(const std::string& folder)
{
    return StateOf(folder) == 'S';
}

/// Returns once every other thread of this process sleeps. None is inside the allocator then, so a child of a process
/// with a sanitizer, whose allocator knows nothing of forks, finds it free.
inline void AwaitOthersAsleep()
{
    const std::string own = std::to_string(gettid());
    for (int seen = 0; seen < 3; std::this_thread::yield())
    {
        const std::filesystem::directory_iterator threads("/proc/self/task");
        seen =
            std::all_of(begin(threads), end(threads),
                        [&](const auto& thread) { return thread.path().filename() == own || IsAsleep(thread.path()); })
                ? seen + 1
                : 0;
    }
}

/// Returns once every thread of a process is in that state.
inline void AwaitState(pid_t process, char state)
{
    for (int seen = 0; seen < 3; std::this_thread::yield())
    {
        const std::filesystem::directory_iterator threads("/proc/" + std::to_string(process) + "/task");
        seen = std::all_of(begin(threads), end(threads),
                           [&](const auto& thread) { return StateOf(thread.path()) == state; })
                   ? seen + 1
                   : 0;
    }
}

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
            seen = IsAsleep("/proc/self/task/" + std::to_string(m_tid)) ? seen + 1 : 0;
        }
    }

  private:
    std::atomic<pid_t> m_tid = 0;
    std::atomic<bool> m_ended = false;
    std::thread m_thread;
};

} // namespace nq::test
