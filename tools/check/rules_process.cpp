// SPDX-License-Identifier: Apache-2.0
// Rules: threads, many rounds, and a library's manners in somebody else's process.
#include "acquisition.h"
#include "families.h"
#include "trial.h"

#include <atomic>
#include <dlfcn.h>
#include <fmt/format.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace nq::check
{

namespace
{

using namespace GenTL;

constexpr int kRounds = 100;

void EightThreads(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto ask = [&c, &tree] {
        return TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.TLGetInfo(tree.system, TL_INFO_PATHNAME, type, buffer, size);
        });
    };
    const auto expected = ask();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int index = 0; index < 8; ++index)
    {
        threads.emplace_back([&] {
            for (int call = 0; call < 100; ++call)
            {
                wrong += ask() == expected ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    c.Expect(wrong == 0, fmt::format("{} of 800 answers differ between threads", wrong.load()));
}

void WaitBlocksNothing(Context& c)
{
    const Acquisition tree(c, 1);
    std::thread waiter([&] {
        char data[64];
        size_t size = sizeof data;
        c.gentl.EventGetData(tree.event, data, &size, 1500);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto began = std::chrono::steady_clock::now();
    tree.Stream(STREAM_INFO_NUM_ANNOUNCED);
    tree.Flush(ACQ_QUEUE_UNQUEUED_TO_INPUT);
    ReadBytes(c, tree.system, 0, 4);
    const auto took = std::chrono::steady_clock::now() - began;
    c.gentl.EventKill(tree.event);
    waiter.join();
    c.Expect(took < std::chrono::milliseconds(700), "calls wait for another thread's EventGetData");
}

/// Sessions until what is kept for the first ones is there, then more; what they add is told by `grown`.
void Rounds(Context& c, Depth depth, int rounds,
            const std::function<void(const Surroundings&, const Surroundings&)>& grown)
{
    const auto round = [&] { const Tree tree(c, depth); };
    for (int warm = 0; warm < 5; ++warm)
    {
        round();
    }
    ForgetNotes();
    const Surroundings before = Surroundings::Now();
    for (int count = 0; count < rounds; ++count)
    {
        round();
        ForgetNotes();
    }
    Surroundings after = Surroundings::Now();
    for (int tries = 0; tries < 50 && after.threads > before.threads; ++tries)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        after = Surroundings::Now();
    }
    grown(before, after);
}

void NothingGrows(Context& c, Depth depth, int rounds)
{
    Rounds(c, depth, rounds, [&](const Surroundings& before, const Surroundings& after) {
        c.Expect(after.threads <= before.threads,
                 fmt::format("{} sessions leave {} threads", rounds, after.threads - before.threads));
        c.Expect(after.descriptors.size() <= before.descriptors.size(),
                 fmt::format("{} sessions leave {} descriptors", rounds,
                             after.descriptors.size() - before.descriptors.size()));
        c.Expect(after.memory - before.memory < 10000000,
                 fmt::format("{} sessions leave {} bytes", rounds, after.memory - before.memory));
    });
}

void SessionsLeaveNothing(Context& c)
{
    NothingGrows(c, Depth::System, kRounds);
}

void StreamsLeaveNothing(Context& c)
{
    NothingGrows(c, Depth::Stream, 10);
}

/// One session as deep as the producer's camera allows.
void Session(Context& c)
{
    const Tree tree(c, c.target.deviceId.empty() ? Depth::System : Depth::Stream);
}

void PrintsNothing(Context& c)
{
    Session(c);
    const long printed = Surroundings::Now().printed - Before().printed;
    c.Expect(printed == 0, fmt::format("{} bytes are printed", printed));
}

void LeavesDescriptors(Context& c)
{
    Session(c);
    const Surroundings now = Surroundings::Now();
    for (const auto& [descriptor, target] : Before().descriptors)
    {
        const auto found = now.descriptors.find(descriptor);
        c.Expect(found != now.descriptors.end() && found->second == target,
                 fmt::format("descriptor {} of the process is closed, or another file", descriptor));
    }
}

void LeavesSignals(Context& c)
{
    Session(c);
    const Surroundings now = Surroundings::Now();
    for (const auto& [number, handler] : Before().handlers)
    {
        c.Expect(now.handlers.at(number) == handler, fmt::format("signal {} has another handler", number));
    }
}

void LeavesSettings(Context& c)
{
    Session(c);
    const Surroundings now = Surroundings::Now();
    c.Expect(now.locale == Before().locale, "the locale is " + now.locale);
    c.Expect(now.folder == Before().folder, "the folder of the process is " + now.folder);
    c.Expect(now.mask == Before().mask, "the mask of new files is another");
}

/// After a session, so that threads that are left run into what is gone.
void Unloads(Context& c)
{
    Session(c);
    SetFunctionOfThisThread("dlclose");
    const int code = dlclose(LoadedLibrary());
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    SetFunctionOfThisThread(nullptr);
    c.Expect(code == 0, "dlclose failed");
    c.gentl.Resolve(dlopen(c.target.path.c_str(), RTLD_NOW | RTLD_LOCAL));
    c.Code(c.gentl.GCInitLib(), {GC_ERR_SUCCESS}, "GCInitLib after the library was loaded anew");
    c.gentl.GCCloseLib();
}

constexpr Rule kRules[] = {
    {"TH-001", "eight threads get the same infos", "6.1.4", Severity::Must, Needs::Nothing, EightThreads},
    {"TH-002", "a wait for an event blocks no other call", "4.2.2", Severity::Must, Needs::Camera, WaitBlocksNothing},
    {"PR-001",
     "sessions leave no thread, descriptor or memory behind",
     "3.1",
     Severity::Should,
     Needs::Nothing,
     SessionsLeaveNothing,
     {},
     60},
    {"PR-002",
     "sessions with a stream leave no thread, descriptor or memory behind",
     "3.1",
     Severity::Should,
     Needs::Camera,
     StreamsLeaveNothing,
     {},
     120},
    {"PR-003", "nothing is printed", "", Severity::Hint, Needs::Nothing, PrintsNothing},
    {"PR-004", "the descriptors of the process are left alone", "", Severity::Hint, Needs::Nothing, LeavesDescriptors},
    {"PR-005", "the signal handlers of the process are left alone", "", Severity::Hint, Needs::Nothing, LeavesSignals},
    {"PR-006", "locale, folder and file mask of the process are left alone", "", Severity::Hint, Needs::Nothing,
     LeavesSettings},
    {"PR-007", "the library unloads, and loads again", "", Severity::May, Needs::Nothing, Unloads},
};

} // namespace

std::span<const Rule> ProcessRules()
{
    return kRules;
}

} // namespace nq::check
