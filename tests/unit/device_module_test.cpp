// SPDX-License-Identifier: Apache-2.0
// The device module's life cycle: what opening and closing do at the camera and in the list of handles.
#include "gev/nq_gev_device.h"

#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_remote_device.h"
#include "support/device_record.h"
#include "support/fake_device.h"
#include "support/gvcp_camera.h"
#include "support/process_counts.h"
#include "support/trace_capture.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

using nq::test::Descriptors;
using nq::test::GvcpCamera;
using nq::test::LivingThreads;
using nq::test::LoopbackCamera;
using nq::test::RegisteredEvent;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::Not;

namespace
{

bool IsHandle(void* handle)
{
    unsigned int count = 0;
    return g_Controller.GetNumPortURLs(handle, &count) != -1006;
}

class DeviceModule : public testing::Test
{
  protected:
    DeviceModule()
    {
        camera.SetRegister(0x0938, 60000);
        camera.SetRegister(0x0904, 1);
        camera.SetRegister(0x0900, 1);
    }

    std::unique_ptr<NQGevDevice> Device(int accessMode = 3)
    {
        return std::make_unique<NQGevDevice>(g_Controller.GetTL(), LoopbackCamera(), accessMode, nullptr);
    }

    GvcpCamera camera;
};

TEST_F(DeviceModule, OpenForControlReachesTheCameraInThisOrder)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0A00 = 0x00000002", "read 0x0938", "read 0x0934", "read 0x0D3C", "read 0x0904",
                            "read 0x0900", "write 0x0B10 = 0x7F000002", "write 0x0B00 = 0x00000D80", "read 0x0B1C"));
    camera.Forget();
    ASSERT_EQ(device->Close(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(DeviceModule, OpenForExclusiveAccessReachesTheCameraInThisOrder)
{
    const auto device = Device(4);
    ASSERT_EQ(device->Open(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0A00 = 0x00000001", "read 0x0938", "read 0x0934", "read 0x0D3C", "read 0x0904",
                            "read 0x0900", "write 0x0B10 = 0x7F000002", "write 0x0B00 = 0x00000D80", "read 0x0B1C"));
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, OpenForReadingReachesTheCameraInThisOrder)
{
    const auto device = Device(2);
    ASSERT_EQ(device->Open(), 0);
    EXPECT_THAT(camera.AccessesBut("read 0x0A00"),
                ElementsAre("read 0x0D3C", "read 0x0904", "read 0x0900", "write 0x0B10 = 0x7F000002",
                            "write 0x0B00 = 0x00000D80", "read 0x0B1C"));
    camera.Forget();
    ASSERT_EQ(device->Close(), 0);
    EXPECT_THAT(camera.AccessesBut("read 0x0A00"),
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(DeviceModule, OpenRegistersDeviceRemoteDeviceAndStreamsAndCloseRemovesThem)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    void* port = nullptr;
    ASSERT_EQ(device->GetPort(&port), 0);
    void* stream = nullptr;
    camera.SetRegister(0x092C, 0x04000000);
    ASSERT_EQ(device->OpenDataStream("Stream:0", &stream), 0);
    EXPECT_EQ(g_Controller.GetDeviceModule(device.get()), device.get());
    EXPECT_EQ(g_Controller.GetRemoteDeviceModule(port), port);
    EXPECT_EQ(g_Controller.GetDataStreamModule(stream), stream);
    ASSERT_EQ(device->Close(), 0);
    EXPECT_FALSE(IsHandle(device.get()));
    EXPECT_FALSE(IsHandle(port));
    EXPECT_FALSE(IsHandle(stream));
}

TEST_F(DeviceModule, NothingIsLeftBehindByOpenAndClose)
{
    const long descriptors = Descriptors();
    const long threads = LivingThreads();
    {
        const auto device = Device();
        ASSERT_EQ(device->Open(), 0);
        EXPECT_EQ(LivingThreads(), threads + 2) << "heartbeat and message channel";
        ASSERT_EQ(device->Close(), 0);
    }
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_EQ(LivingThreads(), threads);
}

TEST_F(DeviceModule, ADeviceThatWasNeverOpenedLeavesNothingBehind)
{
    const long descriptors = Descriptors();
    Device().reset();
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_TRUE(camera.Accesses().empty());
}

TEST_F(DeviceModule, CanBeOpenedAgainAfterClosing)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(device->Close(), 0);
    camera.Forget();
    ASSERT_EQ(device->Open(), 0);
    unsigned int count = 0;
    EXPECT_EQ(device->GetNumDataStreams(&count), 0);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(camera.Accesses().front(), "write 0x0A00 = 0x00000002");
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, AClosedDeviceAnswersWithoutACamera)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(device->Close(), 0);
    camera.Forget();
    void* port = &camera;
    EXPECT_EQ(device->GetPort(&port), 0);
    EXPECT_EQ(port, nullptr);
    unsigned int value = 7;
    unsigned long size = sizeof value;
    EXPECT_EQ(device->ReadPort(0x70300, &value, &size), 0);
    EXPECT_EQ(value, 0U);
    int type = 0;
    EXPECT_EQ(device->GetInfo(0xB006, &type, &value, &size), -1010);
    size = sizeof value;
    EXPECT_EQ(device->ReadPort(0x70410, &value, &size), 0);
    EXPECT_EQ(value, 0x7F000001U);
    EXPECT_TRUE(camera.Accesses().empty());
}

TEST_F(DeviceModule, SixtyFiveThousandClaimedChannelsEndAtTheLimitOfGigEVision)
{
    camera.SetRegister(0x0904, 65535);
    camera.SetRegister(0x0900, 65535);
    camera.SetRegister(0x0938, 600000); // No beat falls into the accesses of the close, however long that takes.
    const long threads = LivingThreads();
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    unsigned int count = 0;
    ASSERT_EQ(device->GetNumDataStreams(&count), 0);
    EXPECT_EQ(count, 512U);
    EXPECT_EQ(LivingThreads(), threads + 1 + 512);
    camera.Forget();
    ASSERT_EQ(device->Close(), 0);
    // 512 threads can keep the cores from an answer for 200 ms; then the command is sent again, with the same id.
    auto sent = camera.ReceivedBytes();
    sent.erase(std::unique(sent.begin(), sent.end()), sent.end());
    std::vector<std::string> commands;
    std::transform(sent.begin(), sent.end(), std::back_inserter(commands), nq::test::gvcp::Describe);
    EXPECT_THAT(commands,
                ElementsAre("write 0x0B00 = 0x00000000", "write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
    EXPECT_EQ(LivingThreads(), threads);
}

TEST_F(DeviceModule, EachMessageChannelTakesItsOwnPortAndTheCameraKeepsTheLast)
{
    camera.SetRegister(0x0900, 3);
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    EXPECT_EQ(camera.Count("write 0x0B00 = 0x00000D80"), 1U);
    EXPECT_EQ(camera.Count("write 0x0B00 = 0x00000D81"), 1U);
    EXPECT_EQ(camera.GetRegister(0x0B00), 3458U);
    ASSERT_EQ(device->Close(), 0);
    EXPECT_EQ(camera.GetRegister(0x0B00), 0U);
}

TEST_F(DeviceModule, ACameraWithoutChannelsHasNeitherStreamsNorAMessageThread)
{
    camera.SetRegister(0x0904, 0);
    camera.SetRegister(0x0900, 0);
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    unsigned int count = 7;
    EXPECT_EQ(device->GetNumDataStreams(&count), 0);
    EXPECT_EQ(count, 0U);
    camera.Forget();
    ASSERT_EQ(device->Close(), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(DeviceModule, AMessageOfTheCameraArrivesAtTheDevicesEvent)
{
    const auto device = Device();
    RegisteredEvent event(*device, 4);
    ASSERT_EQ(device->Open(), 0);
    camera.Send({0x42, 0x01, 0x00, 0xC0, 0x00, 0x10, 0x00, 0x07, 0x00, 0x00, 0x90, 0x01,
                 0xFF, 0xFF, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88},
                "127.0.0.1", 3456);
    EXPECT_FALSE(event.Next().empty());
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, ALostCameraArrivesAtTheDevicesEvent)
{
    camera.SetRegister(0x0938, 100);
    const auto device = Device();
    RegisteredEvent event(*device, 4000);
    ASSERT_EQ(device->Open(), 0);
    std::vector<unsigned char> record = event.Next();
    ASSERT_FALSE(record.empty());
    EXPECT_EQ(record[0], 5);
    camera.SetSilent(true);
    record = event.Next();
    ASSERT_FALSE(record.empty());
    EXPECT_EQ(record[0], 3);
    camera.SetSilent(false);
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, StreamsAreNamedByTheirIndexAndOpenedById)
{
    camera.SetRegister(0x0904, 2);
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    char id[32];
    std::fill(id, id + sizeof id, 'x');
    unsigned long size = sizeof id;
    ASSERT_EQ(device->GetDataStreamID(1, id, &size), 0);
    EXPECT_STREQ(id, "Stream:1");
    EXPECT_EQ(size, 9U);
    EXPECT_EQ(id[31], '\0') << "the whole buffer is cleared first";

    const TraceCapture trace;
    size = sizeof id;
    EXPECT_EQ(device->GetDataStreamID(2, id, &size), -1017);
    EXPECT_EQ(device->GetDataStreamID(0, id, nullptr), -1009);
    void* stream = nullptr;
    EXPECT_EQ(device->OpenDataStream(nullptr, &stream), -1009);
    EXPECT_EQ(device->OpenDataStream("Stream:0", nullptr), -1009);
    EXPECT_EQ(device->OpenDataStream("Stream:2", &stream), -1007);
    EXPECT_EQ(device->GetPort(nullptr), -1009);
    EXPECT_EQ(device->GetNumDataStreams(nullptr), -1009);
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("GetDataStreamID GC_ERR_INVALID_INDEX", "GetDataStreamID GC_ERR_INVALID_PARAMETER",
                            "OpenDataStream GC_ERR_INVALID_PARAMETER", "OpenDataStream GC_ERR_INVALID_PARAMETER",
                            "OpenDataStream GC_ERR_INVALID_ID", "GetPort GC_ERR_INVALID_PARAMETER",
                            "GetNumDataStreams GC_ERR_INVALID_PARAMETER"));
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, AStreamIdWithANullBufferAsksForTheSize)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    unsigned long size = 0;
    EXPECT_EQ(device->GetDataStreamID(0, nullptr, &size), 0);
    EXPECT_EQ(size, 9U);
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceModule, AStreamThatDoesNotOpenGivesItsCodeAndNoHandle)
{
    const auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    void* stream = nullptr;
    EXPECT_EQ(device->OpenDataStream("Stream:0", &stream), -1014) << "the camera has no RDMA stream";
    EXPECT_EQ(stream, nullptr);
    camera.SetRegister(0x092C, 0x04000000);
    ASSERT_EQ(device->OpenDataStream("Stream:0", &stream), 0);
    EXPECT_NE(stream, nullptr);
    EXPECT_EQ(device->OpenDataStream("Stream:0", &stream), -1004);
    ASSERT_EQ(device->Close(), 0);
}

} // namespace
