// SPDX-License-Identifier: Apache-2.0
// Loading the library: what it does to the process, in which ways it loads, and its logger on a machine without one.
#include "support/fake_logger.h"
#include "support/process_counts.h"
#include "support/temporary_folder.h"

#include <gmock/gmock.h>

#include <atomic>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace nq::test;

namespace
{

constexpr const char* kLoggerInstance = "_ZZN8NQLogger11getInstanceEvE8instance";

TEST(Load, StartsNoThreadAndOpensNoDescriptor)
{
    const long threads = LivingThreads();
    const long descriptors = Descriptors();
    const Producer producer;
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
}

TEST(Load, PrintsNothing)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        const Producer producer;
        void* system = nullptr;
        producer.GCInitLib();
        producer.TLOpen(&system);
        producer.TLUpdateInterfaceList(system, nullptr, 0);
        producer.GCCloseLib();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Load, WorksWithEveryWayOfBinding)
{
    for (const int flags : {RTLD_LAZY, RTLD_NOW, RTLD_LAZY | RTLD_GLOBAL, RTLD_NOW | RTLD_GLOBAL})
    {
        const Producer producer(NQ_CTI_PATH, flags);
        void* system = nullptr;
        EXPECT_EQ(producer.GCInitLib(), 0);
        EXPECT_EQ(producer.TLOpen(&system), 0);
        EXPECT_EQ(producer.GCCloseLib(), 0);
    }
}

TEST(Load, WorksWithItsOwnSymbolsFirst)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers refuse RTLD_DEEPBIND";
#else
    const Producer producer(NQ_CTI_PATH, RTLD_NOW | RTLD_DEEPBIND);
    void* system = nullptr;
    EXPECT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.TLOpen(&system), 0);
    EXPECT_EQ(producer.GCCloseLib(), 0);
#endif
}

TEST(Load, TwiceGivesOneLibrary)
{
    const Producer first;
    const Producer second;
    ASSERT_EQ(first.GCInitLib(), 0);
    EXPECT_EQ(second.GCInitLib(), -1004);
    EXPECT_EQ(second.Find("g_Controller"), first.Find("g_Controller"));
}

TEST(Load, ByAnotherNameOfTheSameFileGivesOneLibrary)
{
    const Producer first;
    const Producer second(std::filesystem::canonical(NQ_CTI_PATH).string());
    ASSERT_EQ(first.GCInitLib(), 0);
    EXPECT_EQ(second.GCInitLib(), -1004);
}

/// A copy of the library's file, gone again once it is loaded.
struct LibraryCopy
{
    explicit LibraryCopy(int flags) : producer(Make(), flags) { std::filesystem::remove(path); }

    std::string Make() const
    {
        std::filesystem::copy_file(NQ_CTI_PATH, path);
        return path;
    }

    const TemporaryFolder folder;
    const std::string path = folder / "copy.cti";
    const Producer producer;
};

TEST(Load, ASecondCopyOfTheFileIsALibraryOfItsOwnThatSharesTheLogger)
{
    const Producer first(NQ_CTI_PATH, RTLD_NOW | RTLD_GLOBAL);
    const LibraryCopy copy(RTLD_NOW | RTLD_GLOBAL);
    const Producer& second = copy.producer;
    EXPECT_NE(second.Find("g_Controller"), first.Find("g_Controller"));
    EXPECT_EQ(first.GCInitLib(), 0);
    EXPECT_EQ(second.GCInitLib(), 0);
    EXPECT_EQ(first.GCCloseLib(), 0);
    void* system = nullptr;
    EXPECT_EQ(second.TLOpen(&system), 0);
    EXPECT_EQ(first.TLOpen(&system), -1002);
#if !defined(__clang__)
    EXPECT_EQ(second.Find(kLoggerInstance), first.Find(kLoggerInstance));
#endif
}

TEST(Load, ASecondCopyInAScopeOfItsOwnTracesThroughTheSameLogger)
{
#if defined(__clang__)
    GTEST_SKIP() << "this compiler has no unique symbols";
#else
    const Producer first;
    const LibraryCopy copy(RTLD_NOW | RTLD_LOCAL);
    const Producer& second = copy.producer;
    EXPECT_NE(second.Find("g_Controller"), first.Find("g_Controller"));
    ASSERT_EQ(second.Find(kLoggerInstance), first.Find(kLoggerInstance));
    ASSERT_EQ(first.GCInitLib(), 0);
    void* system = nullptr;
    EXPECT_EQ(second.GCInitLib(), 0);
    EXPECT_EQ(second.TLOpen(&system), 0);
    uint32_t count = 0;
    EXPECT_EQ(first.TLGetNumInterfaces(system, &count), -1006) << "a handle of the other copy";
    EXPECT_EQ(first.GCCloseLib(), 0);
    EXPECT_EQ(second.TLGetNumInterfaces(system, &count), 0);
    EXPECT_EQ(second.LastErrorCode(), 0) << "last errors are the copies' own";
#endif
}

TEST(Load, ASecondCopyLoadedGloballyTracesUntilTheFirstClosesTheLogger)
{
    const Producer first(NQ_CTI_PATH, RTLD_NOW | RTLD_GLOBAL);
    const LibraryCopy copy(RTLD_NOW | RTLD_GLOBAL);
    const Producer& second = copy.producer;
    {
        ProducerTrace trace(first);
        EXPECT_EQ(second.TLClose(nullptr), -1002);
        EXPECT_THAT(trace.Take(),
                    testing::ElementsAre("NQGenTL 32 TLClose Entry", "NQGenTL 2 TLClose GC_ERR_NOT_INITIALIZED"));
    }
    EXPECT_EQ(second.TLClose(nullptr), -1002);
    auto* const registerModule =
        reinterpret_cast<bool (*)(const char*, unsigned int)>(second.Find("NQLRegisterModule"));
    EXPECT_FALSE(registerModule("m", 1)) << "the logging library is gone";
}

TEST(Load, ASecondCopyLoadedGloballyClosesTheLoggerWhileTheFirstUsesIt)
{
    const auto isLoaded = [] {
        void* const library = dlopen("libNQLogLinux.so.1", RTLD_LAZY | RTLD_NOLOAD);
        return library != nullptr && dlclose(library) == 0;
    };
    const Producer first(NQ_CTI_PATH, RTLD_NOW | RTLD_GLOBAL);
    const LibraryCopy copy(RTLD_NOW | RTLD_GLOBAL);
    FakeLogger fake;
    for (const Producer* const producer : {&first, &copy.producer})
    {
        ASSERT_TRUE(reinterpret_cast<bool (*)()>(producer->Find("NQLInit"))());
    }
    fake.LetGo();
    reinterpret_cast<void (*)()>(copy.producer.Find("NQLClose"))();
    auto* const registerModule = reinterpret_cast<bool (*)(const char*, unsigned int)>(first.Find("NQLRegisterModule"));
    EXPECT_EQ(registerModule("m", 1), isLoaded());
    reinterpret_cast<void (*)()>(first.Find("NQLClose"))();
    EXPECT_FALSE(isLoaded()) << "nobody needs it any more";
}

TEST(Load, MayBeGivenBackOpenAndLoadedAgain)
{
    {
        const Producer producer;
        void* system = nullptr;
        ASSERT_EQ(producer.GCInitLib(), 0);
        ASSERT_EQ(producer.TLOpen(&system), 0);
    }
    const Producer again;
    EXPECT_EQ(again.GCInitLib(), -1004);
    EXPECT_EQ(again.GCCloseLib(), 0);
}

TEST(Load, WorksOnAThreadThatEnds)
{
    std::thread([] {
        const Producer producer;
        EXPECT_EQ(producer.GCInitLib(), 0);
        EXPECT_EQ(producer.TLOpen(nullptr), -1009);
    }).join();
    const Producer producer;
    EXPECT_EQ(producer.GCCloseLib(), 0);
}

TEST(Load, TheLoadHookDoesNothingAndReturnsOne)
{
    const Producer producer;
    auto* const hook = reinterpret_cast<int (*)(void*, unsigned long, void*)>(producer.Find("DllMain"));
    ASSERT_NE(hook, nullptr);
    EXPECT_EQ(hook(nullptr, 0, nullptr), 1);
    EXPECT_EQ(hook(nullptr, 1, nullptr), 1);
    EXPECT_EQ(producer.GCCloseLib(), -1002);
}

TEST(Load, TheLoggersGlobalsAreZero)
{
    const Producer producer;
    for (const char* const name :
         {"g_hModule", "g_pFnInit", "g_pFnClose", "g_pFnRegisterModule", "g_pFnEnableFileLogging", "g_pFnEnableWindbg",
          "g_pFnSetGlobalDebugLevel", "g_pFnTraceA"})
    {
        auto* const value = static_cast<void**>(producer.Find(name));
        ASSERT_NE(value, nullptr) << name;
        EXPECT_EQ(*value, nullptr) << name;
    }
    EXPECT_EQ(*static_cast<int*>(producer.Find("g_mcMode")), 0);
}

bool OpenLogger(const Producer& producer)
{
    producer.GCGetLastError(nullptr, nullptr, nullptr); // constructs it
    return reinterpret_cast<bool (*)(void*)>(producer.Find("_ZN8NQLogger4OpenEv"))(producer.Find(kLoggerInstance));
}

bool LoggerIsLoaded(const Producer& producer)
{
    return reinterpret_cast<bool (*)(void*)>(producer.Find("_ZN8NQLogger8IsLoadedEv"))(producer.Find(kLoggerInstance));
}

TEST(LoadedLogger, StaysClosedOnAMachineWithoutTheLibrary)
{
    for (const int flags : {RTLD_NOW | RTLD_LOCAL, RTLD_NOW | RTLD_GLOBAL})
    {
        const Producer producer(NQ_CTI_PATH, flags);
        testing::internal::CaptureStdout();
        EXPECT_FALSE(OpenLogger(producer));
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\n");
        EXPECT_FALSE(LoggerIsLoaded(producer));
        EXPECT_EQ(producer.GCInitLib(), 0);
        EXPECT_EQ(producer.GCCloseLib(), 0);
    }
}

TEST(LoadedLogger, IsOpenedByAHostThroughItsInstance)
{
    const Producer producer;
    const FakeLogger fake;
    EXPECT_TRUE(OpenLogger(producer));
    EXPECT_TRUE(LoggerIsLoaded(producer));
    EXPECT_THAT(fake.Lines(), testing::ElementsAre("call NQLInit"));
}

TEST(LoadedLogger, OpensAlsoWhenTheHostHasTheLoggingLibraryInItsGlobalScope)
{
    void* const global = dlopen(NQ_FAKE_LOGGER_PATH, RTLD_NOW | RTLD_GLOBAL);
    ASSERT_NE(global, nullptr);
    const Producer producer(NQ_CTI_PATH, RTLD_NOW | RTLD_GLOBAL);
    EXPECT_TRUE(OpenLogger(producer));
    EXPECT_EQ(*static_cast<void**>(producer.Find("g_pFnInit")), dlsym(global, "NQLInit"));
    EXPECT_EQ(*static_cast<void**>(producer.Find("g_hModule")), global);
    dlclose(global);
}

TEST(LoadedLogger, ClosesAtTheEndOfTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            // Never given back, so that the library is still there when the process ends.
            static const Producer kProducer;
            static const FakeLogger kFake;
            if (!OpenLogger(kProducer))
            {
                _exit(1);
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(LoadedLogger, MayBeClosedWhileAnotherThreadTraces)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    std::atomic<bool> stop = false;
    std::thread tracing([&] {
        while (!stop)
        {
            EXPECT_EQ(producer.TLClose(nullptr), -1006);
        }
    });
    for (int round = 0; round < 200; ++round)
    {
        ProducerTrace trace(producer);
        while (trace.Take().empty())
        {
        }
    }
    stop = true;
    tracing.join();
}

TEST(LoadedLogger, TracesFromManyThreadsAtOnce)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ProducerTrace trace(producer);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back([&producer] {
            for (int round = 0; round < 50; ++round)
            {
                EXPECT_EQ(producer.TLClose(nullptr), -1006);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(trace.Take().size(), 4U * 50U * 4U);
}

} // namespace
