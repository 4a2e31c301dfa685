// SPDX-License-Identifier: Apache-2.0
// Records the calls that a test's stand-in receives, and lets chosen ones fail or run a hook.
#pragma once

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace nq::test
{

/// Calls are known by the names of the functions called. Any thread.
class CallRecorder
{
  public:
    /// Lets the `nth` call of `function` (from 1) fail with `error`.
    void Fail(const std::string& function, int error, int nth = 1)
    {
        const std::lock_guard lock(m_mutex);
        m_faults[{function, nth}] = error;
    }

    /// Calls `hook` when `function` is called for the `nth` time, on the calling thread, before it takes effect.
    void OnCall(const std::string& function, std::function<void()> hook, int nth = 1)
    {
        const std::lock_guard lock(m_mutex);
        m_hooks[{function, nth}] = std::move(hook);
    }

    std::vector<std::string> Calls() const
    {
        const std::lock_guard lock(m_mutex);
        return m_calls;
    }

    int Count(const std::string& function) const
    {
        const std::lock_guard lock(m_mutex);
        return static_cast<int>(std::count(m_calls.begin(), m_calls.end(), function));
    }

    /// Sleeps until `function` was called `count` times.
    void WaitForCalls(const std::string& function, int count)
    {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return std::count(m_calls.begin(), m_calls.end(), function) >= count; });
    }

    void ForgetCalls()
    {
        const std::lock_guard lock(m_mutex);
        m_calls.clear();
    }

  protected:
    /// Records the call and runs its hook; the errno it is to fail with, or 0.
    int EnterWithError(const std::string& function)
    {
        std::function<void()> hook;
        int error = 0;
        {
            const std::lock_guard lock(m_mutex);
            m_calls.push_back(function);
            const std::pair key{function, ++m_counts[function]};
            if (const auto found = m_hooks.find(key); found != m_hooks.end())
            {
                hook = found->second;
            }
            if (const auto found = m_faults.find(key); found != m_faults.end())
            {
                error = found->second;
            }
            m_changed.notify_all();
        }
        if (hook)
        {
            hook();
        }
        errno = error != 0 ? error : errno;
        return error;
    }

    bool Enter(const std::string& function) { return EnterWithError(function) == 0; }

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;

  private:
    std::vector<std::string> m_calls;
    std::map<std::string, int> m_counts;
    std::map<std::pair<std::string, int>, int> m_faults;
    std::map<std::pair<std::string, int>, std::function<void()>> m_hooks;
};

} // namespace nq::test
