// SPDX-License-Identifier: Apache-2.0
// Jobs done by threads of their own, behind a bounded queue.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace nq::tool
{

/// Takes jobs and does them on threads of its own. Jobs do not throw.
class WorkQueue
{
  public:
    /// `bound` is how many jobs may wait. Works with fewer threads where the system gives no more; throws ToolFailure
    /// when it gives none.
    WorkQueue(size_t threads, size_t bound);
    ~WorkQueue() { Finish(); }
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    /// Adds a job; waits while as many as may wait already do. False, without the job, if `givesUp` says so meanwhile.
    bool Add(std::function<void()> job, const std::function<bool()>& givesUp);

    /// How often a job had to wait for a place. For the only thread that adds.
    uint64_t Waits() const { return m_waits; }

    /// Does what is left and ends the threads. Nothing can be added afterwards.
    void Finish();

  private:
    void Work();

    const size_t m_bound;
    std::mutex m_mutex; ///< guards the jobs and m_finishing
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    bool m_finishing = false;
    uint64_t m_waits = 0;
    std::vector<std::thread> m_threads;
};

} // namespace nq::tool
