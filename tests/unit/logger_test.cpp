// SPDX-License-Identifier: Apache-2.0
// The trace facade on a fake logging library, on an incomplete one and on none.
#include "base/nq_logger.h"
#include "support/fake_logger.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdarg>
#include <dlfcn.h>
#include <map>
#include <string>
#include <thread>
#include <vector>

using nq::test::FakeLogger;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

void TraceThroughC(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    NQLTraceA("Module", 8, format, arguments);
    va_end(arguments);
}

void ExpectSlotsSet(bool set)
{
    EXPECT_EQ(g_pFnInit != nullptr, set);
    EXPECT_EQ(g_pFnClose != nullptr, set);
    EXPECT_EQ(g_pFnRegisterModule != nullptr, set);
    EXPECT_EQ(g_pFnEnableFileLogging != nullptr, set);
    EXPECT_EQ(g_pFnEnableWindbg != nullptr, set);
    EXPECT_EQ(g_pFnSetGlobalDebugLevel != nullptr, set);
    EXPECT_EQ(g_pFnTraceA != nullptr, set);
}

TEST(LoggerGlobals, AreZeroAtLoad)
{
    EXPECT_EQ(g_hModule, nullptr);
    ExpectSlotsSet(false);
}

TEST(LoggerC, ForwardsNothingBeforeAnyLoad)
{
    TraceThroughC("%d", 1);
    EXPECT_FALSE(NQLRegisterModule("m", 1));
    EXPECT_FALSE(NQLEnableFileLogging(true, "f"));
    EXPECT_FALSE(NQLEnableWindbg(true));
    EXPECT_FALSE(NQLSetGlobalDebugLevel(1));
    NQLClose();
    CloseDLL();
    EXPECT_EQ(g_hModule, nullptr);
}

// Deliberate(ConsoleLine)
TEST(LoggerC, WithoutTheLibraryInitPrintsOneLineAndGivesFalse)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(NQLInit());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\n");
    EXPECT_EQ(g_hModule, nullptr);
}

TEST(LoggerC, WithoutTheLibraryOpenDllGivesAllOnes)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(OpenDLL(), 0xFFFFFFFFU);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\n");
    ExpectSlotsSet(false);
}

TEST(LoggerC, OpenDllFindsAllSevenFunctionsAndPrintsNothing)
{
    FakeLogger fake;
    testing::internal::CaptureStdout();
    EXPECT_EQ(OpenDLL(), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(g_hModule, nullptr);
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnInit.load()), fake.Find("NQLInit"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnClose.load()), fake.Find("NQLClose"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnRegisterModule.load()), fake.Find("NQLRegisterModule"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnEnableFileLogging.load()), fake.Find("NQLEnableFileLogging"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnEnableWindbg.load()), fake.Find("NQLEnableWindbg"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnSetGlobalDebugLevel.load()), fake.Find("NQLSetGlobalDebugLevel"));
    EXPECT_EQ(reinterpret_cast<void*>(g_pFnTraceA.load()), fake.Find("NQLTraceA"));
    EXPECT_THAT(fake.Lines(), IsEmpty());
}

TEST(LoggerC, ForwardsEveryCallToTheLoadedLibrary)
{
    FakeLogger fake;
    EXPECT_TRUE(NQLInit());
    EXPECT_TRUE(NQLRegisterModule("mod", 42));
    EXPECT_TRUE(NQLEnableFileLogging(true, "file.log"));
    EXPECT_TRUE(NQLEnableWindbg(false));
    EXPECT_TRUE(NQLSetGlobalDebugLevel(0xFFFFFFFFFF));
    TraceThroughC("%s %d 0x%llx", "text", -3, 0x1234567890ULL);
    NQLClose();
    EXPECT_THAT(fake.Lines(),
                ElementsAre("call NQLInit", "call NQLRegisterModule mod 42", "call NQLEnableFileLogging true file.log",
                            "call NQLEnableWindbg false", "call NQLSetGlobalDebugLevel 1099511627775",
                            "Module 8 text -3 0x1234567890", "call NQLClose"));
}

TEST(LoggerC, ASecondInitUsesTheLibraryThatIsLoaded)
{
    FakeLogger fake;
    EXPECT_TRUE(NQLInit());
    void* const library = g_hModule;
    EXPECT_TRUE(NQLInit());
    EXPECT_EQ(g_hModule, library);
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLInit", "call NQLInit"));
}

TEST(LoggerC, InitGivesWhatTheLibraryAnswers)
{
    FakeLogger fake;
    fake.SetInitResult(false);
    EXPECT_FALSE(NQLInit());
    EXPECT_NE(g_hModule, nullptr);
    fake.SetInitResult(true);
    EXPECT_TRUE(NQLInit());
}

// Deliberate(CloseKeepsTheSlots)
TEST(LoggerC, TheSlotsKeepTheirValuesAfterCloseDll)
{
    FakeLogger fake;
    ASSERT_EQ(OpenDLL(), 0U);
    CloseDLL();
    EXPECT_EQ(g_hModule, nullptr);
    ExpectSlotsSet(true);
    CloseDLL();
    EXPECT_EQ(g_hModule, nullptr);
}

TEST(LoggerC, CloseUnloadsTheLibraryAndALaterInitLoadsItAgain)
{
    FakeLogger fake;
    ASSERT_TRUE(NQLInit());
    fake.LetGo();
    NQLClose();
    EXPECT_EQ(g_hModule, nullptr);
    EXPECT_EQ(dlopen(NQ_FAKE_LOGGER_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);

    const FakeLogger again;
    EXPECT_TRUE(NQLInit());
    EXPECT_NE(g_hModule, nullptr);
    EXPECT_THAT(again.Lines(), ElementsAre("call NQLInit"));
}

TEST(LoggerC, NothingIsReachedThroughTheSlotsOfAnUnloadedLibrary)
{
    FakeLogger fake;
    ASSERT_TRUE(NQLInit());
    fake.LetGo();
    NQLClose();
    ASSERT_EQ(dlopen(NQ_FAKE_LOGGER_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
    TraceThroughC("%d", 1);
    EXPECT_FALSE(NQLRegisterModule("m", 1));
    EXPECT_FALSE(NQLEnableFileLogging(true, "f"));
    EXPECT_FALSE(NQLEnableWindbg(true));
    EXPECT_FALSE(NQLSetGlobalDebugLevel(1));
    NQLClose();
}

bool IsLoaded()
{
    void* const library = dlopen(NQ_FAKE_LOGGER_PATH, RTLD_NOW | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
}

TEST(LoggerC, CallsGoOnAfterCloseDllWhileOthersKeepTheLibrary)
{
    const FakeLogger fake;
    ASSERT_EQ(OpenDLL(), 0U);
    CloseDLL();
    EXPECT_TRUE(NQLRegisterModule("mod", 42));
    EXPECT_TRUE(NQLEnableFileLogging(true, "file.log"));
    EXPECT_TRUE(NQLEnableWindbg(false));
    EXPECT_TRUE(NQLSetGlobalDebugLevel(3));
    TraceThroughC("%d", 1);
    NQLClose();
    NQLClose();
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLRegisterModule mod 42", "call NQLEnableFileLogging true file.log",
                                          "call NQLEnableWindbg false", "call NQLSetGlobalDebugLevel 3", "Module 8 1",
                                          "call NQLClose", "call NQLClose"));
}

TEST(LoggerC, CallsGoOnAfterAFailedLoadWhileOthersKeepTheLibrary)
{
    const FakeLogger incomplete(NQ_INCOMPLETE_FAKE_LOGGER_PATH);
    ASSERT_EQ(OpenDLL(), 0xFFFFFFFFU);
    EXPECT_TRUE(NQLInit()) << "the handle is set, so nothing is loaded again";
    EXPECT_TRUE(NQLRegisterModule("m", 1));
    EXPECT_FALSE(NQLSetGlobalDebugLevel(1));
    CloseDLL();
    EXPECT_TRUE(NQLEnableWindbg(true));
    EXPECT_THAT(incomplete.Lines(),
                ElementsAre("call NQLInit", "call NQLRegisterModule m 1", "call NQLEnableWindbg true"));
}

TEST(LoggerC, TheLastCallerInsideGivesTheLibraryBackAndNobodyWaitsForIt)
{
    FakeLogger fake;
    ASSERT_EQ(OpenDLL(), 0U);
    fake.HoldTraces(true);
    std::thread first(TraceThroughC, "first");
    std::thread second(TraceThroughC, "second");
    fake.AwaitHeld(2);
    fake.LetGo();
    CloseDLL();
    EXPECT_EQ(g_hModule, nullptr);
    EXPECT_TRUE(IsLoaded()) << "by those inside";
    FakeLogger release; // which is a call into the library, too
    release.HoldTraces(false);
    first.join();
    second.join();
    release.LetGo();
    EXPECT_FALSE(IsLoaded());
    EXPECT_FALSE(NQLRegisterModule("m", 1));
}

TEST(LoggerC, ALoadWhileACallerOfTheLastOneIsInsideKeepsTheLibrary)
{
    FakeLogger fake;
    ASSERT_EQ(OpenDLL(), 0U);
    fake.HoldTraces(true);
    std::thread inside(TraceThroughC, "inside");
    fake.AwaitHeld(1);
    CloseDLL();
    ASSERT_EQ(OpenDLL(), 0U);
    fake.HoldTraces(false);
    inside.join();
    fake.LetGo();
    EXPECT_TRUE(NQLRegisterModule("m", 1));
    CloseDLL();
    EXPECT_FALSE(IsLoaded());
}

TEST(LoggerC, EveryThreadMayTraceWhileTheLibraryIsLoadedAndGivenBack)
{
    std::atomic<bool> stop = false;
    std::vector<std::thread> tracing;
    for (int thread = 0; thread < 3; ++thread)
    {
        tracing.emplace_back([&stop] {
            while (!stop)
            {
                TraceThroughC("%d", 1);
            }
        });
    }
    for (int round = 0; round < 200; ++round)
    {
        FakeLogger fake;
        EXPECT_EQ(OpenDLL(), 0U);
        fake.LetGo();
        CloseDLL();
    }
    stop = true;
    for (std::thread& thread : tracing)
    {
        thread.join();
    }
    EXPECT_FALSE(IsLoaded());
}

unsigned long g_levelOfTheHost = 0;

bool SetLevelOfTheHost(unsigned long level)
{
    g_levelOfTheHost = level;
    return true;
}

TEST(LoggerC, AFunctionThatAHostStoredIsCalledWithAndWithoutTheLibrary)
{
    g_pFnSetGlobalDebugLevel = SetLevelOfTheHost;
    EXPECT_TRUE(NQLSetGlobalDebugLevel(7));
    EXPECT_EQ(g_levelOfTheHost, 7U);
    FakeLogger fake;
    ASSERT_EQ(OpenDLL(), 0U);
    fake.LetGo();
    CloseDLL();
    ASSERT_FALSE(IsLoaded());
    g_pFnSetGlobalDebugLevel = SetLevelOfTheHost;
    EXPECT_TRUE(NQLSetGlobalDebugLevel(8));
    EXPECT_EQ(g_levelOfTheHost, 8U);
}

std::string LibraryWithout(const std::string& function)
{
    return NQ_BINARY_DIR "/tests/support/fake_logger/" + function + "/libNQLogLinux.so.1";
}

TEST(LoggerC, ALibraryThatLacksAnyOfTheSevenFunctionsIsRefused)
{
    const auto slots = [] {
        return std::map<std::string, bool>{{"NQLInit", g_pFnInit != nullptr},
                                           {"NQLClose", g_pFnClose != nullptr},
                                           {"NQLRegisterModule", g_pFnRegisterModule != nullptr},
                                           {"NQLEnableFileLogging", g_pFnEnableFileLogging != nullptr},
                                           {"NQLEnableWindbg", g_pFnEnableWindbg != nullptr},
                                           {"NQLSetGlobalDebugLevel", g_pFnSetGlobalDebugLevel != nullptr},
                                           {"NQLTraceA", g_pFnTraceA != nullptr}};
    };
    for (const auto& [lacking, unused] : slots())
    {
        const FakeLogger incomplete(LibraryWithout(lacking));
        EXPECT_EQ(OpenDLL(), 0xFFFFFFFFU) << lacking;
        for (const auto& [name, found] : slots())
        {
            EXPECT_EQ(found, name != lacking) << name << " of a library without " << lacking;
        }
        CloseDLL();
    }
}

// Deliberate(FailedLoadKeepsTheSlots)
TEST(LoggerC, HandleAndSlotsKeepTheirValuesAfterAFailedLoad)
{
    FakeLogger incomplete(NQ_INCOMPLETE_FAKE_LOGGER_PATH);
    testing::internal::CaptureStdout();
    EXPECT_EQ(OpenDLL(), 0xFFFFFFFFU);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_NE(g_hModule, nullptr);
    EXPECT_NE(g_pFnInit, nullptr);
    EXPECT_EQ(g_pFnSetGlobalDebugLevel, nullptr);
    EXPECT_NE(g_pFnTraceA, nullptr);
}

TEST(LoggerC, AfterAFailedLoadTheLibraryIsGivenBackAndNotReached)
{
    FakeLogger incomplete(NQ_INCOMPLETE_FAKE_LOGGER_PATH);
    ASSERT_FALSE(NQLInit());
    incomplete.LetGo();
    EXPECT_EQ(dlopen(NQ_INCOMPLETE_FAKE_LOGGER_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr);
    EXPECT_FALSE(NQLInit());
    EXPECT_FALSE(NQLRegisterModule("m", 1));
    TraceThroughC("%d", 1);
    NQLClose();
    CloseDLL();
    EXPECT_EQ(g_hModule, nullptr);
}

TEST(Logger, IsClosedFromTheStart)
{
    EXPECT_FALSE(NQLogger::getInstance().IsLoaded());
}

TEST(Logger, HasOneInstanceForAllThreads)
{
    NQLogger* other = nullptr;
    std::thread([&other] { other = &NQLogger::getInstance(); }).join();
    EXPECT_EQ(other, &NQLogger::getInstance());
}

TEST(Logger, WithoutTheLibraryItDoesNotOpen)
{
    testing::internal::CaptureStdout();
    NQLogger logger;
    EXPECT_FALSE(logger.Open());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\n");
    EXPECT_FALSE(logger.IsLoaded());
}

TEST(Logger, OpensOnceAndClosesOnce)
{
    FakeLogger fake;
    NQLogger logger;
    EXPECT_TRUE(logger.Open());
    EXPECT_TRUE(logger.IsLoaded());
    EXPECT_FALSE(logger.Open());
    EXPECT_TRUE(logger.IsLoaded());
    logger.Close();
    EXPECT_FALSE(logger.IsLoaded());
    logger.Close();
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLInit", "call NQLClose"));
}

TEST(Logger, CloseOfAClosedLoggerDoesNotReachTheLibrary)
{
    FakeLogger fake;
    ASSERT_TRUE(NQLInit());
    NQLogger logger;
    logger.Close();
    EXPECT_NE(g_hModule, nullptr);
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLInit"));
}

TEST(Logger, StaysClosedWhenTheLibraryRefuses)
{
    FakeLogger fake;
    fake.SetInitResult(false);
    NQLogger logger;
    EXPECT_FALSE(logger.Open());
    EXPECT_FALSE(logger.IsLoaded());
}

TEST(Logger, ForwardsWhileItIsOpen)
{
    FakeLogger fake;
    NQLogger logger;
    ASSERT_TRUE(logger.Open());
    fake.Clear();
    EXPECT_TRUE(logger.Register("mod", 7));
    EXPECT_TRUE(logger.EnableFileLogging(false, "f"));
    EXPECT_TRUE(logger.EnableWindbg(true));
    EXPECT_TRUE(logger.SetGlobalDebugLevel(34));
    logger.TraceA("NQGenTL", 0x10000000, "%s Entry! Queue:%d", "Signal", 3);
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLRegisterModule mod 7", "call NQLEnableFileLogging false f",
                                          "call NQLEnableWindbg true", "call NQLSetGlobalDebugLevel 34",
                                          "NQGenTL 268435456 Signal Entry! Queue:3"));
}

TEST(Logger, ForwardsNothingWhileItIsClosedEvenIfTheLibraryIsLoaded)
{
    FakeLogger fake;
    ASSERT_TRUE(NQLInit());
    fake.Clear();
    NQLogger logger;
    EXPECT_FALSE(logger.Register("mod", 7));
    EXPECT_FALSE(logger.EnableFileLogging(false, "f"));
    EXPECT_FALSE(logger.EnableWindbg(true));
    EXPECT_FALSE(logger.SetGlobalDebugLevel(34));
    logger.TraceA("NQGenTL", 2, "%s", "text");
    EXPECT_THAT(fake.Lines(), IsEmpty());
}

TEST(Logger, ClosesWhenItIsDestroyed)
{
    FakeLogger fake;
    {
        NQLogger logger;
        ASSERT_TRUE(logger.Open());
    }
    EXPECT_THAT(fake.Lines(), ElementsAre("call NQLInit", "call NQLClose"));
}

TEST(Logger, OpensAgainAfterAClose)
{
    FakeLogger fake;
    NQLogger logger;
    ASSERT_TRUE(logger.Open());
    logger.Close();
    EXPECT_TRUE(logger.Open());
    EXPECT_TRUE(logger.IsLoaded());
}

} // namespace
