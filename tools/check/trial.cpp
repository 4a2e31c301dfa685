// SPDX-License-Identifier: Apache-2.0
// The child's side of a process that tries rules: it loads, tries, and tells of signals that would end it.
#include "trial.h"

#include <chrono>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace nq::check
{

namespace
{

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGUSR2};

Surroundings& BeforeLoading()
{
    static Surroundings before;
    return before;
}

void*& TheLibrary()
{
    static void* library = nullptr;
    return library;
}

std::vector<std::string>& TheMissing()
{
    static std::vector<std::string> missing;
    return missing;
}

/// Writes where the thread is. What it calls is not promised to work in a signal handler, and the process is lost
/// anyway.
void TellWhere(int number)
{
    Record& record = *CurrentRecord();
    record.died = FunctionOfThisThread();
    void* frames[48];
    const int count = backtrace(frames, 48);
    for (int index = 0; index < count; ++index)
    {
        Dl_info info{};
        char line[400];
        const bool known = dladdr(frames[index], &info) != 0 && info.dli_fname != nullptr;
        const char* file = known ? std::strrchr(info.dli_fname, '/') : nullptr;
        const auto base = reinterpret_cast<uintptr_t>(known ? info.dli_fbase : nullptr);
        std::snprintf(line, sizeof line, "%s%s %s +%#lx", index == 0 ? "" : "\n", file != nullptr ? file + 1 : "?",
                      known && info.dli_sname != nullptr ? info.dli_sname : "?",
                      static_cast<unsigned long>(reinterpret_cast<uintptr_t>(frames[index]) - base));
        record.backtrace.Append(line);
    }
    std::signal(number, SIG_DFL);
    raise(number);
}

void WatchSignals()
{
    void* frames[1];
    backtrace(frames, 1); // loads what it needs now
    static char stack[size_t{256} << 10];
    stack_t other{};
    other.ss_sp = stack;
    other.ss_size = sizeof stack;
    sigaltstack(&other, nullptr);
    for (const int number : kSignals)
    {
        struct sigaction action = {};
        action.sa_handler = TellWhere;
        action.sa_flags = static_cast<int>(SA_ONSTACK | SA_RESETHAND);
        sigaction(number, &action, nullptr);
    }
}

void Settle()
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int printed = memfd_create("printed", 0);
    const int nothing = open("/dev/null", O_RDONLY);
    dup2(nothing, STDIN_FILENO);
    dup2(printed, STDOUT_FILENO);
    dup2(printed, STDERR_FILENO);
    close(nothing);
    close(printed);
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    constexpr rlim_t kMostMemory = rlim_t{8} << 30; // a producer that eats more meets std::bad_alloc, not this machine
    const rlimit memory{kMostMemory, kMostMemory};
    setrlimit(RLIMIT_AS, &memory);
#endif
    WatchSignals();
}

/// The text of what the loader finds wrong; empty for nothing.
std::string Load(const std::string& path, Producer& producer)
{
    SetFunctionOfThisThread("dlopen");
    TheLibrary() = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    SetFunctionOfThisThread(nullptr);
    if (TheLibrary() == nullptr)
    {
        const char* why = dlerror();
        return why != nullptr ? why : "dlopen failed";
    }
    TheMissing() = producer.Resolve(TheLibrary());
    return {};
}

void TryOne(const Rule& rule, Context& context, Record::Result& result)
{
    const auto started = std::chrono::steady_clock::now();
    RuleEnded end{Outcome::Passed, {}};
    try
    {
        rule.run(context);
    }
    catch (const RuleEnded& ended)
    {
        end = ended;
    }
    catch (const std::exception& failure)
    {
        end = {Outcome::Failed, fmt::format("an exception left {}: {}", CallsIn(*CurrentRecord()), failure.what())};
        SetFunctionOfThisThread(nullptr);
    }
    catch (...)
    {
        end = {Outcome::Failed, fmt::format("an exception left {}", CallsIn(*CurrentRecord()))};
        SetFunctionOfThisThread(nullptr);
    }
    if (!context.Kept())
    {
        end = {Outcome::Failed, context.Findings() + (end.reason.empty() ? "" : "\nthen: " + end.reason)};
    }
    result.text.Append(end.reason);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    result.outcome = end.outcome;
}

std::string LinkOf(const std::filesystem::path& path)
{
    std::error_code error;
    return std::filesystem::read_symlink(path, error).string();
}

} // namespace

void TryRules(const Target& target, const std::vector<const Rule*>& rules)
{
    Settle();
    BeforeLoading() = Surroundings::Now();
    Record& record = *CurrentRecord();
    Producer producer;
    const std::string problem = Load(target.path, producer);
    if (!problem.empty())
    {
        record.backtrace.Append(problem);
        record.ended = true;
        _exit(kCannotLoad);
    }
    for (size_t index = 0; index < rules.size(); ++index)
    {
        ForgetNotes();
        record.rule = index + 1;
        Context context(producer, target);
        TryOne(*rules[index], context, record.results[index]);
        if (record.results[index].outcome == Outcome::Failed)
        {
            break;
        }
    }
    record.ended = true;
    _exit(0); // its threads and destructors are no concern of the rules, but of one
}

Surroundings Surroundings::Now()
{
    namespace fs = std::filesystem;
    Surroundings now;
    now.locale = setlocale(LC_ALL, nullptr);
    std::error_code error;
    now.folder = fs::current_path(error).string();
    now.mask = umask(0);
    umask(now.mask);
    for (int descriptor = 0; descriptor < 1024; ++descriptor)
    {
        if (fcntl(descriptor, F_GETFD) >= 0)
        {
            now.descriptors[descriptor] = LinkOf(fmt::format("/proc/self/fd/{}", descriptor));
        }
    }
    for (int number = 1; number < NSIG; ++number)
    {
        struct sigaction action = {};
        if (sigaction(number, nullptr, &action) == 0)
        {
            now.handlers[number] = reinterpret_cast<void*>(action.sa_handler);
        }
    }
    struct stat status = {};
    now.printed = fstat(STDOUT_FILENO, &status) == 0 ? status.st_size : 0;
    for (const auto& task : fs::directory_iterator("/proc/self/task", error))
    {
        now.threads += task.path().empty() ? 0 : 1;
    }
    long pages = 0;
    if (std::FILE* file = std::fopen("/proc/self/statm", "re"); file != nullptr)
    {
        now.memory = std::fscanf(file, "%*d %ld", &pages) == 1 ? pages * sysconf(_SC_PAGESIZE) : 0;
        std::fclose(file);
    }
    return now;
}

const Surroundings& Before()
{
    return BeforeLoading();
}

void* LoadedLibrary()
{
    return TheLibrary();
}

const std::vector<std::string>& MissingFunctions()
{
    return TheMissing();
}

} // namespace nq::check
