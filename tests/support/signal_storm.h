// SPDX-License-Identifier: Apache-2.0
// A signal handler that runs again and again on every thread of the process.
#pragma once

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <unistd.h>

namespace nq::test
{

/// From construction to destruction each thread of the process, but for the one that sends them, gets a signal every
/// 5 ms. Its handler does nothing.
class SignalStorm
{
  public:
    /// `flags` are those of sigaction(): 0, or SA_RESTART.
    explicit SignalStorm(int flags)
    {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        action.sa_flags = flags;
        sigaction(SIGUSR1, &action, nullptr);
        m_thread = std::thread([this] { Send(); });
    }

    ~SignalStorm()
    {
        m_over = true;
        m_thread.join();
    }

    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

  private:
    void Send() const
    {
        const std::string own = std::to_string(gettid());
        while (!m_over)
        {
            for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
            {
                const std::string thread = task.path().filename();
                if (thread != own)
                {
                    tgkill(getpid(), std::stoi(thread), SIGUSR1);
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }

    std::atomic<bool> m_over = false;
    std::thread m_thread;
};

} // namespace nq::test
