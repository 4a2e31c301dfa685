// SPDX-License-Identifier: Apache-2.0
// The parent's side of a process that tries rules: it waits, with a limit for each rule, and tells how it ended.
#include "child.h"

#include "trial.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <optional>
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
constexpr std::chrono::seconds kCallTime{20}; // a rule of many rounds has longer, each of its calls has not

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

/// When a child has had its time: for the rule it is at, and for the call.
class Patience
{
  public:
    /// How long it took too long; nothing while there is time.
    std::optional<std::chrono::seconds> Over(const Record& record, const std::vector<const Rule*>& rules)
    {
        const Clock::time_point now = Clock::now();
        if (const size_t rule = record.rule; rule != m_rule && rule <= rules.size())
        {
            m_rule = rule;
            m_limit = std::chrono::seconds(rules[rule - 1]->seconds);
            m_ruleBegan = now;
        }
        if (const size_t begun = record.begun; begun != m_begun)
        {
            m_begun = begun;
            m_callBegan = now;
        }
        const bool called = m_begun > 0 && now >= m_callBegan + kCallTime;
        return now >= m_ruleBegan + m_limit ? std::optional(m_limit) : called ? std::optional(kCallTime) : std::nullopt;
    }

  private:
    size_t m_rule = 0;
    size_t m_begun = 0;
    std::chrono::seconds m_limit = kLoadTime;
    Clock::time_point m_ruleBegan = Clock::now();
    Clock::time_point m_callBegan = Clock::now();
};

ChildEnd Watch(pid_t process, const Record& record, const std::vector<const Rule*>& rules,
               const std::function<void()>& progress)
{
    Patience patience;
    int status = 0;
    while (!WaitFor(process, status, Clock::now() + std::chrono::milliseconds(50)))
    {
        progress();
        if (const auto over = patience.Over(record, rules))
        {
            const std::string where = EndHanging(process, record);
            return {false, fmt::format("hung in {} for {} s", where, over->count()), record.backtrace.Text()};
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
