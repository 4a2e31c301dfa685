// SPDX-License-Identifier: Apache-2.0
// The trace lines of the library's own code, on a logger that takes all and on a closed one.
#include "base/nq_trace.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

TEST(Trace, EachLevelReachesTheLoggingLibraryAsItsNumberInTheOneModule)
{
    const TraceCapture lines;
    NQTrace(NQTraceLevel::Failure, "%s failed! %d", "Open", -1001);
    NQTrace(NQTraceLevel::Expected, "%s Failed! GC_ERR_TIMEOUT", "EventGetData");
    NQTrace(NQTraceLevel::CallFlow, "%s Entry", "TLOpen");
    NQTrace(NQTraceLevel::EventQueue, "%s Entry! Queue:%d", "Signal", 3);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("Open failed! -1001"));
    EXPECT_THAT(TraceCapture::At(8), ElementsAre("EventGetData Failed! GC_ERR_TIMEOUT"));
    EXPECT_THAT(TraceCapture::At(32), ElementsAre("TLOpen Entry"));
    EXPECT_THAT(TraceCapture::At(0x10000000), ElementsAre("Signal Entry! Queue:3"));
}

TEST(Trace, AFailureIsTracedAtLevel2AndItsCodeGivenBack)
{
    const TraceCapture lines;
    EXPECT_EQ(NQFailed(-1006, "%s GC_ERR_INVALID_HANDLE 0x%x", "CloseDevice", 0x12U), -1006);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CloseDevice GC_ERR_INVALID_HANDLE 0x12"));
}

TEST(Trace, AClosedLoggerTakesNothingAndTheCodeIsGivenBackAllTheSame)
{
    {
        const TraceCapture closedAgain;
    }
    EXPECT_EQ(NQFailed(-1001, "%s GC_ERR_ERROR", "Close"), -1001);
    NQTrace(NQTraceLevel::Failure, "%s ret", "Close");
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
}

} // namespace
