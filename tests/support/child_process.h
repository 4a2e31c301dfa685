// SPDX-License-Identifier: Apache-2.0
// A program started by a test, ended with the object.
#pragma once

#include <chrono>
#include <string>
#include <sys/types.h>
#include <vector>

namespace nq::test
{

class Host;

/// Starts a program, collects what it prints (standard output and standard error together) and ends it, by SIGTERM and
/// then SIGKILL, when the object goes. Used from one thread.
class ChildProcess
{
  public:
    /// `arguments` begins with the program's path. `environment` holds further "NAME=value" entries. With a `host` the
    /// program runs inside that namespace, else in the caller's.
    explicit ChildProcess(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {},
                          const Host* host = nullptr);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// True once the output holds `text`; false when the time is over or the program has ended without it.
    bool WaitForOutput(const std::string& text, std::chrono::milliseconds timeout);

    /// Waits for the end. The exit code, or 128 plus the signal's number; -1 when the time is over.
    int WaitForExit(std::chrono::milliseconds timeout);

    /// Sends a signal to the program.
    void Signal(int number) const;

    pid_t Pid() const { return m_pid; }

    /// All output so far.
    const std::string& Output() const { return m_output; }

  private:
    bool ReadMore(std::chrono::milliseconds timeout);

    pid_t m_pid = -1;
    int m_pipe = -1;
    int m_status = -1;
    bool m_ended = false;
    std::string m_output;
};

} // namespace nq::test
