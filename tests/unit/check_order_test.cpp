// SPDX-License-Identifier: Apache-2.0
// Where two checks of an operation would both fail: the one that answers, and what the other then leaves alone.
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_event_error.h"
#include "gentl/nq_gentl_event_new_buffer.h"
#include "gev/nq_gev_controller.h"
#include "support/fake_module.h"
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <string>

using nq::test::FakeModule;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class StreamChecks : public nq::test::StreamFixture
{
};

TEST(PortChecks, PointersThenCommandThenIndex)
{
    FakeModule module;
    int type = 77;
    unsigned long size = 5;
    EXPECT_EQ(module.GetPortURLInfo(9, 99, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(module.GetPortURLInfo(9, 99, &type, nullptr, nullptr), -1009);
    EXPECT_EQ(module.GetPortURLInfo(9, 99, &type, nullptr, &size), -1003);
    EXPECT_EQ(module.GetPortURLInfo(9, 0, &type, nullptr, &size), -1017);
    EXPECT_EQ(type, 77);
    EXPECT_EQ(size, 5U);
}

TEST(PortChecks, PointersThenTheClearingThenTheCommand)
{
    FakeModule module;
    char buffer[4] = {'a', 'b', 'c', 'd'};
    unsigned long size = 3;
    EXPECT_EQ(module.GetPortInfo(99, nullptr, buffer, &size), -1009);
    EXPECT_EQ(std::string(buffer, 4), "abcd");
    int type = 0;
    EXPECT_EQ(module.GetPortInfo(99, &type, buffer, &size), -1003);
    EXPECT_EQ(std::string(buffer, 4), std::string("\0\0\0d", 4));
}

TEST(PortChecks, AStackWithoutEntriesOrCountIsRefusedBeforeItsCountIsLookedAt)
{
    FakeModule module;
    unsigned long none = 0;
    EXPECT_EQ(module.ReadPortStacked(nullptr, &none), -1009);
    EXPECT_EQ(module.WritePortStacked(nullptr, &none), -1009);
}

TEST(OpenChecks, TheStateComesBeforeTheSubclass)
{
    FakeModule module;
    module.closeResult = -1010;
    EXPECT_EQ(module.Close(), -1001);
    EXPECT_THAT(module.calls, IsEmpty());
    ASSERT_EQ(module.Open(), 0);
    module.openResult = -1010;
    EXPECT_EQ(module.Open(), -1004);
    EXPECT_THAT(module.calls, ElementsAre("DoOpen"));
    EXPECT_EQ(module.Close(), -1010);
    EXPECT_EQ(module.Open(), -1004) << "still open";
}

TEST(EventChecks, TheKindThenTheEventInUseThenTheKindsClass)
{
    FakeModule module;
    module.events = {5, 5000};
    void* event = nullptr;
    ASSERT_EQ(module.RegisterEvent(5, &event), 0);
    EXPECT_EQ(module.RegisterEvent(5, nullptr), -1004);
    EXPECT_EQ(module.UnregisterEvent(5000), -1002) << "offered, though there is no such event";
    EXPECT_EQ(module.RegisterEvent(5000, nullptr), -1003);
    module.events = {};
    EXPECT_EQ(module.RegisterEvent(5, &event), -1003) << "in use, but not offered any more";
    EXPECT_EQ(module.UnregisterEvent(5), -1003);
    EXPECT_NE(module.FindEventById(5, false), nullptr);
}

TEST(EventChecks, ArgumentsThenTheKillThenTheData)
{
    GigERDMA::NQGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    GigERDMA::NQGenTLEventNewBuffer event;
    event.Signal(&buffer);
    event.Kill();
    char data[16] = {'x'};
    unsigned long size = 15;
    EXPECT_EQ(event.GetData(data, nullptr, 0), -1009);
    EXPECT_EQ(event.GetData(data, &size, 0), -1016);
    EXPECT_EQ(size, 16U);
    EXPECT_EQ(event.GetData(data, &size, 0), -1012);
    EXPECT_EQ(data[0], 'x');
    EXPECT_EQ(event.GetNumInQueue(), 1U);
}

TEST(EventChecks, PointersThenTheRecordThenTheClearingThenTheCommand)
{
    GigERDMA::NQGenTLEventError event;
    const unsigned char record[1028] = {};
    char out[3] = {'a', 'b', 'c'};
    int type = 77;
    unsigned long size = 2;
    EXPECT_EQ(event.GetDataInfo(nullptr, 0, 99, nullptr, out, nullptr), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 4, 99, nullptr, out, &size), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 0, 99, &type, out, &size), -1009);
    EXPECT_EQ(event.GetDataInfo(nullptr, 4, 99, &type, out, &size), -1006);
    EXPECT_EQ(std::string(out, 3), "abc");
    EXPECT_EQ(event.GetDataInfo(record, 4, 99, &type, out, &size), -1003);
    EXPECT_EQ(std::string(out, 3), std::string("\0\0c", 3));
    EXPECT_EQ(event.GetInfo(99, nullptr, out, &size), -1009);
    EXPECT_EQ(out[2], 'c');
}

TEST(BufferChecks, PointersThenTheCommandThenTheImageThenTheValueThenTheSpace)
{
    unsigned char memory[4] = {};
    GigERDMA::NQGenTLBuffer buffer(memory, sizeof memory, false, nullptr, nullptr);
    unsigned char value = 9;
    int type = 77;
    unsigned long size = 1;
    EXPECT_EQ(buffer.GetInfo(99, nullptr, &value, &size), -1009);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(buffer.GetInfo(10, &type, &value, &size), -1014) << "and not -1003 for a width of 0, nor too small";
    EXPECT_EQ(buffer.GetInfo(16, &type, &value, &size), -1014);
    unsigned char frame[4] = {};
    buffer.UpdateData(4, 1, 1, 0, 0, 0, frame);
    EXPECT_EQ(buffer.GetInfo(10, &type, &value, &size), -1003) << "and not too small";
    EXPECT_EQ(type, 77);
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(buffer.GetInfo(16, &type, &value, &size), -1016);
    EXPECT_EQ(size, 8U);
}

TEST_F(StreamChecks, AnnouncingLooksAtItsPointersBeforeTheMemoryInUse)
{
    Announce(1);
    EXPECT_EQ(stream.AnnounceBuffer(memory[0], 8, nullptr, nullptr), -1009);
    EXPECT_EQ(stream.GetBufferID(99, nullptr), -1009);
    EXPECT_EQ(stream.GetBufferInfo(&stream, 99, nullptr, nullptr, nullptr), -1006);
}

TEST_F(StreamChecks, ARefusedRevocationHandsNothingBack)
{
    Announce(1);
    Queue(1);
    void* data = &stream;
    void* userPointer = &stream;
    EXPECT_EQ(stream.RevokeBuffer(handles[0], &data, &userPointer), -1022);
    EXPECT_EQ(stream.RevokeBuffer(handles[1], &data, &userPointer), -1006);
    EXPECT_EQ(data, &stream);
    EXPECT_EQ(userPointer, &stream);
}

TEST_F(StreamChecks, ABufferStillFlaggedIsRefusedBeforeItsBlockIsGivenBack)
{
    Announce(1);
    Queue(1);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1);
    EXPECT_EQ(stream.QueueBuffer(handles[0]), -1004);
    EXPECT_THAT(stream.requeued, IsEmpty());
    EXPECT_EQ(Number(4), 0U);
    ASSERT_EQ(Take(), handles[0]);
    EXPECT_EQ(stream.QueueBuffer(handles[0]), 0);
    EXPECT_THAT(stream.requeued, ElementsAre(&blocks[0]));
}

TEST_F(StreamChecks, AStartForNoFramesIsRefusedBeforeTheLimitIsReplaced)
{
    Announce(2);
    Queue(2);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, 1), 0);
    Frame(0, 1);
    EXPECT_EQ(stream.StartAcquisition(0, 0), -1009);
    Frame(1, 2);
    EXPECT_EQ(Number(1), 1U) << "the limit of one frame stands, and that frame was acquired";
    EXPECT_THAT(stream.calls, ElementsAre("start 8 2", "stop 1"));
}

TEST_F(StreamChecks, FlagsOfAStopComeBeforeTheState)
{
    TraceCapture trace;
    EXPECT_EQ(stream.StopAcquisition(2), -1003);
    EXPECT_EQ(stream.StopAcquisition(0), -1004);
    EXPECT_THAT(trace.At(2), ElementsAre("StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:2",
                                         "StopAcquisition GC_ERR_NOT_IMPLEMENTED Flags:2",
                                         "StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:0",
                                         "StopAcquisition GC_ERR_RESOURCE_IN_USE"));
}

TEST_F(StreamChecks, TheLimitComesBeforeTheStatusAndTheStatusBeforeTheBuffer)
{
    Announce(1);
    Queue(1);
    RegisterNewBuffer();
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    Frame(0, 1, 2);
    EXPECT_EQ(Number(4), 1U) << "no buffer is taken for a frame that is dropped";
    EXPECT_EQ(Number(2), 0U);
    Frame(0, 1);
    EXPECT_EQ(stream.StartAcquisition(0, 1), -1004);
    Frame(1, 2, 2);
    EXPECT_EQ(Number(2), 0U) << "nor is it an underrun";
    EXPECT_THAT(stream.calls, ElementsAre("start 8 1"));
}

TEST_F(StreamChecks, AnInfoQueryLooksAtItsPointersBeforeItsCommand)
{
    char out[3] = {'a', 'b', 'c'};
    unsigned long size = 2;
    EXPECT_EQ(stream.GetInfo(99, nullptr, out, &size), -1009);
    EXPECT_EQ(std::string(out, 3), "abc");
    int type = 0;
    EXPECT_EQ(stream.GetInfo(99, &type, out, &size), -1001);
    EXPECT_EQ(std::string(out, 3), std::string("\0\0c", 3));
}

TEST(ControllerChecks, TheHandleComesBeforeTheStateOfTheSystem)
{
    ASSERT_EQ(g_Controller.Init(), 0);
    int other = 0;
    EXPECT_EQ(g_Controller.CloseSystemModule(&other), -1006) << "and not -1001, for it is closed";
    void* system = nullptr;
    ASSERT_EQ(g_Controller.OpenSystemModule(&system), 0);
    EXPECT_EQ(g_Controller.OpenSystemModule(nullptr), -1009) << "and not -1004, for it is open";
    EXPECT_EQ(g_Controller.Close(), 0);
}

TEST(ControllerChecks, HandleThenPortThenArguments)
{
    ASSERT_EQ(g_Controller.Init(), 0);
    GigERDMA::NQGenTLBuffer buffer(nullptr, 4, false, nullptr, nullptr);
    int other = 0;
    g_Controller.RegisterModule(buffer.GetModule());
    for (void* const handle : {static_cast<void*>(&other), static_cast<void*>(buffer.GetModule())})
    {
        const int expected = handle == &other ? -1006 : -1003;
        EXPECT_EQ(g_Controller.ReadPort(handle, 0, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.WritePort(handle, 0, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.ReadPortStacked(handle, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.WritePortStacked(handle, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.GetPortURL(handle, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.GetPortInfo(handle, 99, nullptr, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.GetNumPortURLs(handle, nullptr), expected);
        EXPECT_EQ(g_Controller.GetPortURLInfo(handle, 9, 9, nullptr, nullptr, nullptr), expected);
        EXPECT_EQ(g_Controller.RegisterEvent(handle, 1, nullptr), expected);
        EXPECT_EQ(g_Controller.UnregisterEvent(handle, 1), expected);
    }
    EXPECT_EQ(g_Controller.Close(), 0);
}

TEST(ControllerChecks, TheLastErrorNeedsItsPointersBeforeItLooksAtTheSpace)
{
    g_Controller.SetLastError(-1006);
    char text[2] = {'a', 'b'};
    int code = 77;
    unsigned long size = 1;
    EXPECT_EQ(g_Controller.GetLastError(nullptr, text, &size), -1009);
    EXPECT_EQ(g_Controller.GetLastError(&code, text, nullptr), -1009);
    EXPECT_EQ(g_Controller.GetLastError(&code, text, &size), -1016);
    EXPECT_EQ(std::string(text, 2), "ab");
    EXPECT_EQ(code, 77);
    EXPECT_EQ(size, 1U);
}

} // namespace
