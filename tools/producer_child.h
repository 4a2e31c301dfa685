// SPDX-License-Identifier: Apache-2.0
// One producer, asked for its cameras in a process of its own.
#pragma once

#include "producers.h"

#include <chrono>
#include <string>
#include <sys/types.h>

namespace nq::tool
{

/// Ended with the object, whatever it does.
class ProducerChild
{
  public:
    using Clock = std::chrono::steady_clock;

    /// Starts the process, which scans as often as the plan says and then ends. Throws std::system_error.
    ProducerChild(const std::string& path, const SearchPlan& plan);
    ~ProducerChild();
    ProducerChild(const ProducerChild&) = delete;
    ProducerChild& operator=(const ProducerChild&) = delete;

    /// To poll for; -1 once the process has ended.
    int Pipe() const { return m_pipe; }

    /// Takes what the process has said, which changes the entry. Blocks if that is nothing.
    void Hear(ProducerEntry& entry);

    /// When a process that says nothing more is to be given up.
    Clock::time_point Deadline() const { return m_deadline; }
    void GiveUp(ProducerEntry& entry);

  private:
    void Take(const std::string& message, ProducerEntry& entry);
    void SetDeadline();
    std::string HowItEnded();
    void End();

    std::chrono::milliseconds m_patience;
    Clock::time_point m_deadline;
    pid_t m_process = -1;
    int m_pipe = -1;
    std::string m_heard; ///< the beginning of a message that is not whole
};

} // namespace nq::tool
