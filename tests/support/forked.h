// SPDX-License-Identifier: Apache-2.0
// A forked child of the test, which makes its own checks.
#pragma once

#include <csignal>
#include <cstdio>
#include <exception>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nq::test
{

/// Runs a function in a forked child. Its EXPECTs print as ever; a failed one, an exception, a signal or no end
/// within that time fail the test that calls Join(). Other threads of the test do not exist in the child, and no object
/// of the test is destroyed there.
class Forked
{
  public:
    /// ThreadSanitizer ends a process that starts a thread where a thread of its parent was.
#if defined(__SANITIZE_THREAD__)
    static constexpr bool kMayStartThreads = false;
#else
    static constexpr bool kMayStartThreads = true;
#endif

    template <typename Function>
    explicit Forked(Function function, unsigned int mostSeconds = 30)
    {
        std::fflush(nullptr);
        m_pid = fork();
        if (m_pid == 0)
        {
            alarm(mostSeconds);
            try
            {
                function();
            }
            catch (const std::exception& error)
            {
                ADD_FAILURE() << error.what();
            }
            std::fflush(nullptr);
            _exit(testing::Test::HasFailure() ? 1 : 0);
        }
    }
    ~Forked() { Join(); }
    Forked(const Forked&) = delete;
    Forked& operator=(const Forked&) = delete;

    void Join()
    {
        if (m_pid <= 0)
        {
            return;
        }
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = 0;
        EXPECT_FALSE(WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) << "the child hangs";
        EXPECT_EQ(status, 0) << "the child has failed";
    }

  private:
    pid_t m_pid = -1;
};

} // namespace nq::test
