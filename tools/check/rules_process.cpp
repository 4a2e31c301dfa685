// SPDX-License-Identifier: Apache-2.0
// Rules: threads, many rounds, and a library's manners in somebody else's process.
#include "acquisition.h"
#include "families.h"
#include "other_process.h"
#include "trial.h"

#include <atomic>
#include <dlfcn.h>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace nq::check
{

namespace
{

using namespace GenTL;

constexpr int kRounds = 200;
constexpr long kMostGrowth = 10000000; // bytes of all rounds; allocators keep some

/// How many of 800 calls from eight threads are not kept.
int BrokenInEightThreads(const std::function<bool()>& kept)
{
    std::atomic<int> broken{0};
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int index = 0; index < 8; ++index)
    {
        threads.emplace_back([&] {
            for (int call = 0; call < 100; ++call)
            {
                broken += kept() ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return broken;
}

void EightThreads(Context& c)
{
    const Tree tree(c, Depth::System);
    const auto ask = [&c, &tree] {
        return TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return c.gentl.TLGetInfo(tree.system, TL_INFO_PATHNAME, type, buffer, size);
        });
    };
    const auto expected = ask();
    const int broken = BrokenInEightThreads([&] { return ask() == expected; });
    c.Expect(broken == 0, fmt::format("{} of 800 answers differ between threads", broken));
}

void EightThreadsOnPortsAndEvents(Context& c)
{
    const Acquisition tree(c, 1);
    const auto url = ParseLocalUrl(FirstUrl(c, tree.stream).value_or(""));
    if (!url || url->length < 64)
    {
        Context::NotTried("the stream has no description in its registers");
    }
    const auto expected = ReadBytes(c, tree.stream, url->address, 64);
    const int other = BrokenInEightThreads([&] { return ReadBytes(c, tree.stream, url->address, 64) == expected; });
    c.Expect(other == 0, fmt::format("{} of 800 reads of a port differ between threads", other));
    const int ended = BrokenInEightThreads([&] {
        NewBuffer data{};
        size_t size = sizeof data;
        return c.gentl.EventGetData(tree.event, &data, &size, 0) == GC_ERR_TIMEOUT && tree.InQueue() == 0U;
    });
    c.Expect(ended == 0, fmt::format("{} of 800 looks at an event without data give something else", ended));
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

void Compare(Context& c, const Surroundings& before, const Surroundings& after, std::string_view what)
{
    c.Expect(after.threads <= before.threads, fmt::format("{} leave {} threads", what, after.threads - before.threads));
    c.Expect(after.descriptors.size() <= before.descriptors.size(),
             fmt::format("{} leave {} descriptors", what, after.descriptors.size() - before.descriptors.size()));
    c.Expect(after.memory - before.memory < kMostGrowth,
             fmt::format("{} leave {} bytes", what, after.memory - before.memory));
}

/// Rounds until what is kept for the first ones is there, then more, which are not to add to it.
void NothingGrows(Context& c, int rounds, std::string_view what, const std::function<void()>& round)
{
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
    Compare(c, before, after, fmt::format("{} {}", rounds, what));
}

void SessionsLeaveNothing(Context& c)
{
    NothingGrows(c, kRounds, "sessions", [&] { const Tree tree(c, Depth::System); });
}

void SessionsWithStreamLeaveNothing(Context& c)
{
    NothingGrows(c, 10, "sessions with a stream", [&] { const Tree tree(c, Depth::Stream); });
}

/// With memory of the producer's: this program's own would grow.
void StreamsLeaveNothing(Context& c)
{
    Tree tree(c, Depth::Stream);
    NothingGrows(c, kRounds, "streams", [&] {
        EVENT_HANDLE event = nullptr;
        BUFFER_HANDLE buffer = nullptr;
        c.gentl.GCRegisterEvent(tree.stream, EVENT_NEW_BUFFER, &event);
        c.gentl.DSAllocAndAnnounceBuffer(tree.stream, 65536, nullptr, &buffer);
        c.gentl.DSQueueBuffer(tree.stream, buffer);
        Context::Needs(c.gentl.DSClose(tree.stream), "DSClose");
        Context::Needs(c.gentl.DevOpenDataStream(tree.device, tree.streamId.c_str(), &tree.stream),
                       "DevOpenDataStream after DSClose");
    });
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

/// A stream that sends, with something beside it that must not disturb it.
class Undisturbed : public Acquisition
{
  public:
    explicit Undisturbed(Context& c) : Acquisition(c, 4)
    {
        QueueAll();
        Start();
        Run(3);
    }

    /// Frames still come, and the stream still stops.
    void ExpectFrames(std::string_view what)
    {
        for (int frame = 0; frame < 10; ++frame)
        {
            const auto next = Next();
            m_context.Expect(next.has_value(), fmt::format("no frame comes any more after {}", what));
            if (!next || m_context.gentl.DSQueueBuffer(stream, next->BufferHandle) != GC_ERR_SUCCESS)
            {
                break;
            }
        }
        m_context.Code(Stop(), {GC_ERR_SUCCESS}, fmt::format("DSStopAcquisition after {}", what));
    }
};

/// The child does what alone is safe in one, and runs another program.
void Fork(Context& c)
{
    Undisturbed stream(c);
    const pid_t child = fork();
    if (child < 0)
    {
        Context::NotTried("fork fails");
    }
    if (child == 0)
    {
        execl("/bin/true", "true", static_cast<char*>(nullptr));
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    stream.ExpectFrames("a fork");
}

void SecondProcess(Context& c)
{
    Undisturbed stream(c);
    {
        const OtherProcess other(c.target);
    }
    stream.ExpectFrames("another process came and went");
}

#if defined(__SANITIZE_ADDRESS__)
/// The sanitizer takes what both copies define for a mistake.
void UseCopy(Context&) {}
#else
/// The loader gives the same library again for the same file, so this takes a copy, in memory.
void* LoadCopy(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    const int copy = memfd_create("copy", MFD_CLOEXEC);
    const bool whole = write(copy, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    SetFunctionOfThisThread("dlopen");
    void* library = whole ? dlopen(fmt::format("/proc/self/fd/{}", copy).c_str(), RTLD_LAZY | RTLD_LOCAL) : nullptr;
    SetFunctionOfThisThread(nullptr);
    close(copy);
    return library;
}

void UseCopy(Context& c)
{
    void* const copy = LoadCopy(c.target.path);
    if (copy == nullptr)
    {
        Context::NotTried("a copy of the library cannot be loaded");
    }
    Producer second;
    second.Resolve(copy);
    const GC_ERROR code = second.GCInitLib();
    c.Code(code, {GC_ERR_SUCCESS, GC_ERR_RESOURCE_IN_USE}, "GCInitLib of a copy of the library");
    if (code == GC_ERR_SUCCESS)
    {
        c.Code(second.GCCloseLib(), {GC_ERR_SUCCESS}, "GCCloseLib of a copy of the library");
    }
}
#endif

void TwoCopies(Context& c)
{
    const Tree tree(c, Depth::System);
    void* const same = dlopen(c.target.path.c_str(), RTLD_LAZY | RTLD_LOCAL);
    c.Expect(same != nullptr, "a second dlopen fails");
    c.Expect(same == nullptr || dlclose(same) == 0, "the dlclose of a second dlopen fails");
    UseCopy(c);
    uint32_t count = 0;
    c.Code(c.gentl.TLGetNumInterfaces(tree.system, &count), {GC_ERR_SUCCESS},
           "TLGetNumInterfaces after a copy of the library was used");
}

constexpr Rule kRules[] = {
    {"TH-001", "eight threads get the same infos", "6.1.4", Severity::Must, Needs::Nothing, EightThreads},
    {"TH-002", "a wait for an event blocks no other call", "4.2.2", Severity::Must, Needs::Camera, WaitBlocksNothing},
    {"TH-003", "eight threads read the same from a port, and look at an event at once", "6.1.4, 4.2.2", Severity::Must,
     Needs::Camera, EightThreadsOnPortsAndEvents},
    {"PR-001",
     "200 sessions leave no thread, descriptor or memory behind",
     "3.1",
     Severity::Should,
     Needs::Nothing,
     SessionsLeaveNothing,
     {},
     60},
    {"PR-002",
     "10 sessions with a stream leave no thread, descriptor or memory behind",
     "3.1",
     Severity::Should,
     Needs::Camera,
     SessionsWithStreamLeaveNothing,
     {},
     120},
    {"PR-003", "nothing is printed", "", Severity::Hint, Needs::Nothing, PrintsNothing},
    {"PR-004", "the descriptors of the process are left alone", "", Severity::Hint, Needs::Nothing, LeavesDescriptors},
    {"PR-005", "the signal handlers of the process are left alone", "", Severity::Hint, Needs::Nothing, LeavesSignals},
    {"PR-006", "locale, folder and file mask of the process are left alone", "", Severity::Hint, Needs::Nothing,
     LeavesSettings},
    {"PR-007", "the library unloads, and loads again", "", Severity::May, Needs::Nothing, Unloads},
    {"PR-008",
     "200 streams with a buffer leave no thread, descriptor or memory behind",
     "3.5",
     Severity::Should,
     Needs::Camera,
     StreamsLeaveNothing,
     {},
     60},
    {"PR-009", "a fork whose child runs another program disturbs no stream", "", Severity::Hint, Needs::Stream, Fork,
     "fork is not in the text"},
    {"PR-010",
     "a second process that opens the camera, or is refused, disturbs no stream",
     "6.1.4",
     Severity::Must,
     Needs::Stream,
     SecondProcess,
     {},
     40},
    {"PR-011", "a second load, and a second copy of the library, harm no session", "", Severity::Hint, Needs::Nothing,
     TwoCopies, "two loads are not in the text"},
};

} // namespace

std::span<const Rule> ProcessRules()
{
    return kRules;
}

} // namespace nq::check
