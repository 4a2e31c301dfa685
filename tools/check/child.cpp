// SPDX-License-Identifier: Apache-2.0
// The parent's side of a process that tries rules: it waits, with a limit for each rule, and tells how it ended.
#include "child.h"

#include "trial.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace nq::check
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kLoadTime{10};

struct Unmap
{
    void operator()(Record* record) const { munmap(record, sizeof(Record)); }
};

std::unique_ptr<Record, Unmap> MakeRecord()
{
    void* memory = mmap(nullptr, sizeof(Record), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
    {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    return std::unique_ptr<Record, Unmap>(static_cast<Record*>(memory));
}

/// Waits until the process has ended or `until` has come.
bool WaitFor(pid_t process, int& status, Clock::time_point until)
{
    for (;;)
    {
        if (waitpid(process, &status, WNOHANG) == process)
        {
            return true;
        }
        if (Clock::now() >= until)
        {
            return false;
        }
        poll(nullptr, 0, 1);
    }
}

/// Ends a process that hangs; its main thread tells first where it is.
std::string EndHanging(pid_t process, const Record& record)
{
    std::string calls = CallsIn(record);
    syscall(SYS_tgkill, process, process, SIGUSR2);
    int status = 0;
    if (!WaitFor(process, status, Clock::now() + std::chrono::seconds(2)))
    {
        kill(process, SIGKILL);
        waitpid(process, &status, 0);
    }
    return calls.empty() ? "no function of the producer" : calls;
}

std::string HowItEnded(int status, const Record& record)
{
    const char* died = record.died;
    const std::string calls = died != nullptr ? died : CallsIn(record);
    const std::string where = calls.empty() ? "outside any call" : "in " + calls;
    if (WIFSIGNALED(status))
    {
        return fmt::format("crashed {} ({})", where, strsignal(WTERMSIG(status)));
    }
    return fmt::format("ended the process with exit code {} {}", WEXITSTATUS(status), where);
}

ChildEnd Watch(pid_t process, const Record& record, const std::vector<const Rule*>& rules,
               const std::function<void()>& progress)
{
    size_t rule = 0;
    int status = 0;
    std::chrono::seconds limit = kLoadTime;
    Clock::time_point deadline = Clock::now() + limit;
    while (!WaitFor(process, status, Clock::now() + std::chrono::milliseconds(50)))
    {
        progress();
        const size_t now = record.rule;
        if (now != rule && now <= rules.size())
        {
            rule = now;
            limit = std::chrono::seconds(rules[now - 1]->seconds);
            deadline = Clock::now() + limit;
        }
        if (Clock::now() >= deadline)
        {
            const std::string where = EndHanging(process, record);
            return {false, fmt::format("hung in {} for {} s", where, limit.count()), record.backtrace.Text()};
        }
    }
    if (record.ended && WIFEXITED(status))
    {
        const bool loaded = WEXITSTATUS(status) != kCannotLoad;
        return {loaded, loaded ? "" : "cannot be loaded: " + record.backtrace.Text(), {}};
    }
    return {false, HowItEnded(status, record), record.backtrace.Text()};
}

} // namespace

ChildRun RunChild(const Target& target, const std::vector<const Rule*>& rules, const std::function<void()>& progress)
{
    const auto record = MakeRecord();
    std::fflush(nullptr); // the child would print it again
    const pid_t process = fork();
    if (process < 0)
    {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (process == 0)
    {
        CurrentRecord() = record.get();
        TryRules(target, rules);
    }
    ChildRun run;
    run.end = Watch(process, *record, rules, progress);
    for (size_t index = 0; index < rules.size() && record->results[index].outcome != Outcome::None; ++index)
    {
        const Record::Result& result = record->results[index];
        run.results.push_back({result.outcome, result.text.Text(), result.seconds});
    }
    run.lines = record->lines.Text();
    return run;
}

} // namespace nq::check
