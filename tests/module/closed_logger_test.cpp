// SPDX-License-Identifier: Apache-2.0
// The exported functions while nobody traces: on a closed logger nothing is formatted, and a machine without the
// logging library gets one console line when the logger is to be opened, and nothing else.
#include "support/fake_logger.h"
#include "support/open_tree.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <cstdint>
#include <memory>
#include <string>

using namespace nq::test;

namespace
{

constexpr char kInstance[] = "_ZZN8NQLogger11getInstanceEvE8instance";

/// Nothing lies there.
char* const nowhere = reinterpret_cast<char*>(8);

TEST(ClosedLogger, ReadsNoTextOfARefusedCall)
{
    const Producer p;
    void* const wild = reinterpret_cast<void*>(0x1234);
    for (const int expected : {-1002, -1006})
    {
        size_t size = 64;
        int type = 0;
        EXPECT_EQ(p.TLGetInterfaceID(wild, 0, nowhere, &size), expected);
        EXPECT_EQ(p.TLGetInterfaceInfo(wild, nowhere, 0, &type, nullptr, &size), expected);
        EXPECT_EQ(p.TLOpenInterface(wild, nowhere, nullptr), expected);
        EXPECT_EQ(p.GCGetPortURL(wild, nowhere, &size), expected);
        EXPECT_EQ(p.IFGetDeviceInfo(wild, nowhere, 0, &type, nullptr, &size), expected);
        EXPECT_EQ(p.IFOpenDevice(wild, nowhere, 3, nullptr), expected);
        EXPECT_EQ(p.DevOpenDataStream(wild, nowhere, nullptr), expected);
        p.GCInitLib();
    }
}

TEST(ClosedLogger, BeforeInitialisationNoSizeIsReadEither)
{
    const Producer p;
    auto* const noSize = reinterpret_cast<size_t*>(nowhere);
    char text[8] = "";
    for (size_t* const size : {static_cast<size_t*>(nullptr), noSize})
    {
        for (char* const answer : {static_cast<char*>(nullptr), nowhere, text})
        {
            EXPECT_EQ(p.GCGetPortURL(nullptr, answer, size), -1002);
            EXPECT_EQ(p.TLGetInterfaceID(nullptr, 0, answer, size), -1002);
        }
    }
}

TEST(OpenLogger, BeforeInitialisationReadsNeitherTextNorSize)
{
    const Producer p;
    const FakeLogger fake;
    ProducerTrace trace(p);
    auto* const noSize = reinterpret_cast<size_t*>(nowhere);
    EXPECT_EQ(p.GCGetPortURL(nullptr, nowhere, noSize), -1002);
    EXPECT_THAT(trace.Take(),
                testing::ElementsAre("NQGenTL 32 GCGetPortURL Entry", "NQGenTL 2 GCGetPortURL GC_ERR_NOT_INITIALIZED"));
    EXPECT_EQ(p.TLGetInterfaceID(nullptr, 0, nowhere, noSize), -1002);
    EXPECT_THAT(trace.Take(), testing::ElementsAre("NQGenTL 32 TLGetInterfaceID Entry hTL:0x0 iIndex:0 sID:",
                                                   "NQGenTL 2 TLGetInterfaceID GC_ERR_NOT_INITIALIZED"));
}

TEST(ClosedLogger, FormatsNothing)
{
    const Producer p;
    const FakeLogger fake;
    p.GCGetLastError(nullptr, nullptr, nullptr); // constructs it
    auto* const trace = reinterpret_cast<void (*)(void*, const char*, unsigned long, const char*, ...)>(
        p.Find("_ZN8NQLogger6TraceAEPKcmS1_z"));
    trace(p.Find(kInstance), "NQGenTL", 2, "%s", nowhere);
    trace(p.Find(kInstance), nowhere, 2, nowhere);
    EXPECT_THAT(fake.Lines(), testing::IsEmpty());
}

TEST(ClosedLogger, WritesNoLineOfAnyFunctionOnceItIsClosedAgain)
{
    const Producer p;
    const OpenTree tree(p);
    const FakeLogger fake;
    {
        ProducerTrace trace(p);
        p.GCGetInfo(0, nullptr, nullptr, nullptr);
        EXPECT_EQ(trace.Take().size(), 4U);
    }
    fake.Clear();
    for (void* const handle : {tree.system, tree.interface, tree.device, tree.stream, static_cast<void*>(nullptr)})
    {
        for (const NamedCall& one : CallsOn(p, handle))
        {
            if (one.name.find("Close") == std::string::npos)
            {
                one.call();
            }
        }
    }
    EXPECT_EQ(p.GCCloseLib(), 0);
    EXPECT_EQ(p.GCInitLib(), 0);
    EXPECT_THAT(fake.Lines(), testing::IsEmpty());
}

TEST(MissingLogger, GivesOneConsoleLineForEachAttemptAndNothingElse)
{
    const Producer p;
    p.GCGetLastError(nullptr, nullptr, nullptr); // constructs it
    auto* const open = reinterpret_cast<bool (*)(void*)>(p.Find("_ZN8NQLogger4OpenEv"));
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(open(p.Find(kInstance)));
    {
        const OpenTree tree(p);
        for (const NamedCall& one : CallsOn(p, tree.stream))
        {
            one.call();
        }
        EXPECT_EQ(p.GCCloseLib(), 0);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    testing::internal::CaptureStdout();
    EXPECT_FALSE(open(p.Find(kInstance)));
    EXPECT_FALSE(open(p.Find(kInstance)));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "return GetLastError();\nreturn GetLastError();\n");
}

} // namespace
