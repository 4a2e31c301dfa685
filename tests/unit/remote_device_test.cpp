// SPDX-License-Identifier: Apache-2.0
// The remote device module against a camera that is a map of registers: life cycle, registers, status.
#include "gev/nq_gev_remote_device.h"

#include "gige/nq_gev_tl_linux.h"
#include "rdma/rdma_records.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"
#include "support/trace_capture.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <set>
#include <string>
#include <vector>

using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::TraceCapture;
using testing::ElementsAre;
using Texts = std::vector<std::string>;

namespace
{

constexpr int kReadOnly = 2;
constexpr int kControl = 3;
constexpr int kExclusive = 4;

std::set<std::string> OpenDescriptors()
{
    std::set<std::string> names;
    DIR* directory = opendir("/proc/self/fd");
    const std::string own = std::to_string(dirfd(directory));
    while (const dirent* entry = readdir(directory))
    {
        if (own != entry->d_name)
        {
            names.insert(entry->d_name);
        }
    }
    closedir(directory);
    return names;
}

class RemoteDevice : public testing::Test
{
  protected:
    RemoteDevice() { camera.SetRegister(0x0938, 60000); }

    GvcpCamera camera;
    NQGevTL tl;
};

TEST_F(RemoteDevice, OpenForControlWritesTwoToThePrivilegeAndReadsTimeoutAndCapability)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0A00 = 0x00000002", "read 0x0938", "read 0x0934", "read 0x0D3C"));
    EXPECT_EQ(device.GetDeviceInfo().spareWord, 60000U);
    camera.Forget();
    ASSERT_EQ(device.Close(), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(RemoteDevice, OpenForExclusiveAccessWritesOneToThePrivilege)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kExclusive, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0A00 = 0x00000001", "read 0x0938", "read 0x0934", "read 0x0D3C"));
}

TEST_F(RemoteDevice, OpenForReadingWritesNothingToThePrivilege)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kReadOnly, nullptr);
    ASSERT_EQ(device.Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 10)) << "the heartbeat runs without a pause";
    EXPECT_THAT(camera.AccessesBut("read 0x0A00"), ElementsAre("read 0x0D3C"));
    camera.Forget();
    ASSERT_EQ(device.Close(), 0);
    EXPECT_THAT(camera.AccessesBut("read 0x0A00"),
                ElementsAre("write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(RemoteDevice, OpenWithAnotherAccessModeWritesZeroToThePrivilege)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), 7, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_EQ(camera.Accesses().front(), "write 0x0A00 = 0x00000000");
}

TEST_F(RemoteDevice, CapabilityBitTwentyHexMakesOpenWriteTwoToTheConfiguration)
{
    camera.SetRegister(0x0934, 0x80000020);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0A00 = 0x00000002", "read 0x0938", "read 0x0934",
                                               "write 0x0954 = 0x00000002", "read 0x0D3C"));
    EXPECT_EQ(device.GetDeviceInfo().spareWord2, 0x80000020U);
}

// Deliberate(RefusedPrivilegeOpens)
TEST_F(RemoteDevice, DeliberatelyACameraThatRefusesThePrivilegeIsOpenedAllTheSame)
{
    camera.SetStatus(0x0A00, 0x8006);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_EQ(device.Open(), 0);
    EXPECT_EQ(camera.Accesses().back(), "read 0x0D3C");
}

TEST_F(RemoteDevice, CanBeClosedAndOpenedAgain)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    ASSERT_EQ(device.Close(), 0);
    camera.Forget();
    ASSERT_EQ(device.Open(), 0);
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("write 0x0A00 = 0x00000002", "read 0x0938", "read 0x0934", "read 0x0D3C"));
}

TEST_F(RemoteDevice, TheDestructorClosesAnOpenModule)
{
    const std::set<std::string> before = OpenDescriptors();
    {
        NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
        ASSERT_EQ(device.Open(), 0);
        camera.Forget();
    }
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(RemoteDevice, FixedAnswers)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_TRUE(device.IsPortImplemented());
    for (const int event : {0, 1, 4, 5, 4000, 5000, -1})
    {
        EXPECT_FALSE(device.IsEventImplemented(event)) << event;
    }
    EXPECT_EQ(device.GetName(), "Device");
    EXPECT_EQ(device.GetId(), "Temp Remote Device ID");
    const GigERDMA::_NQ_GENTL_XML_INFO xml = device.GetXMLInfo();
    EXPECT_EQ(xml.fileName, "");
    EXPECT_EQ(xml.xml, "");
    EXPECT_EQ(xml.size, 0U);
}

TEST_F(RemoteDevice, PortInfoTellsTheCamerasEndiannessAndTheAccessMode)
{
    _NQ_GEV_DEVICE_INFO record = LoopbackCamera();
    record.deviceMode = 0x80000001;
    NQGevRemoteDevice big(&tl, record, kControl, nullptr);
    GigERDMA::_NQ_GENTL_PORT_INFO info = big.GetPortInfo();
    EXPECT_EQ(info.id, "NQGenTLGevRDMA");
    EXPECT_EQ(info.vendor, "Nerquil Optic");
    EXPECT_EQ(info.model, "GEVRDMATL");
    EXPECT_EQ(info.tlType, "GEV");
    EXPECT_EQ(info.module, "Device");
    EXPECT_EQ(info.portName, "Device");
    EXPECT_EQ(info.version, "2.5.5");
    EXPECT_TRUE(info.bigEndian);
    EXPECT_FALSE(info.littleEndian);
    EXPECT_TRUE(info.accessRead);
    EXPECT_TRUE(info.accessWrite);
    EXPECT_FALSE(info.accessNA);
    EXPECT_FALSE(info.accessNI);

    record.deviceMode = 0x00000001;
    NQGevRemoteDevice little(&tl, record, kReadOnly, nullptr);
    info = little.GetPortInfo();
    EXPECT_FALSE(info.bigEndian);
    EXPECT_TRUE(info.littleEndian);
    EXPECT_TRUE(info.accessRead);
    EXPECT_FALSE(info.accessWrite);
}

TEST_F(RemoteDevice, AccessStatusMapsThePrivilegeRegister)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_EQ(device.GetAccessStatus(), 0) << "a camera never opened is unknown";
    EXPECT_TRUE(camera.Accesses().empty());
    ASSERT_EQ(device.Open(), 0);
    camera.SetRegister(0x0A00, 2);
    EXPECT_EQ(device.GetAccessStatus(), 5);
    camera.SetRegister(0x0A00, 1);
    EXPECT_EQ(device.GetAccessStatus(), 3);
    camera.SetRegister(0x0A00, 0);
    EXPECT_EQ(device.GetAccessStatus(), 0);
    camera.SetRegister(0x0A00, 77);
    EXPECT_EQ(device.GetAccessStatus(), 77);
}

// Deliberate(ExclusiveIsNoAccess)
TEST_F(RemoteDevice, DeliberatelyExclusiveAccessCountsAsNoAccess)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kExclusive, nullptr);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_EQ(camera.GetRegister(0x0A00), 1U);
    EXPECT_EQ(device.GetAccessStatus(), 3);
}

TEST_F(RemoteDevice, AccessStatusOfACameraThatDoesNotAnswerIsNoAccess)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    const TraceCapture trace;
    EXPECT_EQ(device.GetAccessStatus(), 5);
    EXPECT_TRUE(TraceCapture::Has(8, "GetAccessStatus currentAccessStatus:2"));
    camera.SetSilent(true);
    EXPECT_EQ(device.GetAccessStatus(), 3);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraReadRegister failed! m_Camera_getGigECameraRegister -212",
                                                 "_gvcpReadReg failed! Address:0xa00",
                                                 "GetAccessStatus failed! ReadPort: address:0xa00 error:-1010"));
    camera.SetSilent(false);
}

TEST_F(RemoteDevice, ChannelCountsComeFromTheirRegistersAndAreZeroWithoutACamera)
{
    camera.SetRegister(0x0904, 3);
    camera.SetRegister(0x0900, 2);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_EQ(device.GetStreamChannelCount(), 0U);
    EXPECT_EQ(device.GetMessageChannelCount(), 0U);
    ASSERT_EQ(device.Open(), 0);
    EXPECT_EQ(device.GetStreamChannelCount(), 3U);
    EXPECT_EQ(device.GetMessageChannelCount(), 2U);
    camera.SetStatus(0x0904, 0x8003);
    camera.SetStatus(0x0900, 0x8003);
    EXPECT_EQ(device.GetStreamChannelCount(), 0U);
    EXPECT_EQ(device.GetMessageChannelCount(), 0U);
}

TEST_F(RemoteDevice, EnableStreamWritesTheHighestBitOrZero)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_FALSE(device.EnableStream(true)) << "no camera is open";
    ASSERT_EQ(device.Open(), 0);
    camera.Forget();
    EXPECT_TRUE(device.EnableStream(true));
    EXPECT_TRUE(device.EnableStream(false));
    EXPECT_THAT(camera.Accesses(), ElementsAre("write 0xE030 = 0x80000000", "write 0xE030 = 0x00000000"));
    camera.SetStatus(0xE030, 0x8006);
    EXPECT_FALSE(device.EnableStream(true));
}

TEST_F(RemoteDevice, MessageRegistersNeedAnOpenCamera)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_EQ(device.GetSourcePort(), 0U);
    EXPECT_FALSE(device.SetMessagePort(3456));
    EXPECT_FALSE(device.SetMessageAddress(0x7F000001));
    EXPECT_TRUE(camera.Accesses().empty());
}

TEST_F(RemoteDevice, MessageRegistersAreWrittenAndReadInHostOrder)
{
    camera.SetRegister(0x0B1C, 0x0000C123);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    camera.Forget();
    EXPECT_EQ(device.GetSourcePort(), 0xC123U);
    EXPECT_TRUE(device.SetMessagePort(3456));
    EXPECT_TRUE(device.SetMessageAddress(0x0A090001));
    EXPECT_THAT(camera.Accesses(),
                ElementsAre("read 0x0B1C", "write 0x0B00 = 0x00000D80", "write 0x0B10 = 0x0A090001"));
}

TEST_F(RemoteDevice, EachFailedMessageRegisterIsTracedByEveryLayer)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    for (const unsigned int address : {0x0B1CU, 0x0B00U, 0x0B10U})
    {
        camera.SetStatus(address, 0x8003);
    }
    const TraceCapture trace;
    EXPECT_EQ(device.GetSourcePort(), 0U);
    EXPECT_FALSE(device.SetMessagePort(3456));
    EXPECT_FALSE(device.SetMessageAddress(0x0A090001));
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("CameraReadRegister failed! m_Camera_getGigECameraRegister 32771",
                            "_gvcpReadReg failed! Address:0xb1c", "GetSourcePort Failed! _gvcpReadReg",
                            "CameraWriteRegister failed! m_Camera_setGigECameraRegister 32771",
                            "_gvcpWritereg failed! Address:0xb00", "SetMessagePort Failed! _gvcpWritereg",
                            "CameraWriteRegister failed! m_Camera_setGigECameraRegister 32771",
                            "_gvcpWritereg failed! Address:0xb10", "SetMessageAddress Failed! _gvcpWritereg"));
}

TEST_F(RemoteDevice, StreamCapabilityIsTheRegisterInHostOrder)
{
    camera.SetRegister(0x092C, 0x04030201);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    _NQ_STREAM_CAPABILITY capability = {};
    EXPECT_FALSE(device.GetStreachannelCapability(&capability));
    ASSERT_EQ(device.Open(), 0);
    EXPECT_TRUE(device.GetStreachannelCapability(&capability));
    EXPECT_THAT(capability.bytes, ElementsAre(1, 2, 3, 4)) << "the RDMA bit is bit 2 of the fourth byte";
    camera.SetStatus(0x092C, 0x8003);
    EXPECT_FALSE(device.GetStreachannelCapability(&capability));
}

TEST_F(RemoteDevice, BufferSettingsAreTakenUnswappedFromOneReadOfTheSettingsBlock)
{
    nq::test::Bytes block(176);
    for (std::size_t index = 0; index < block.size(); ++index)
    {
        block[index] = static_cast<unsigned char>(index);
    }
    camera.SetMemory(0xE600, block);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    camera.Forget();
    gevrdmaBufferSettings settings = {};
    settings.bufferCount = 5;
    device.GetBufferSettings(&settings);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0xE600, 176 bytes"));
    EXPECT_EQ(settings.blockWord160, 0xA3A2A1A0U);
    EXPECT_EQ(settings.blockWord164, 0xA7A6A5A4U);
    EXPECT_EQ(settings.payloadSize, 0x2726252423222120U);
    EXPECT_EQ(settings.blockByte130, 0x82U);
    EXPECT_EQ(settings.bufferCount, 5U) << "left to the caller";
}

// Deliberate(UnreadSettingsAreZero)
TEST_F(RemoteDevice, DeliberatelyBufferSettingsThatCannotBeReadAreZero)
{
    camera.SetStatus(0xE600, 0x8003);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    gevrdmaBufferSettings settings = {1, 2, 3, 4, 5};
    device.GetBufferSettings(&settings);
    EXPECT_EQ(settings.blockWord160, 0U);
    EXPECT_EQ(settings.blockWord164, 0U);
    EXPECT_EQ(settings.payloadSize, 0U);
    EXPECT_EQ(settings.blockByte130, 0U);
    EXPECT_EQ(settings.bufferCount, 5U);
}

TEST_F(RemoteDevice, BufferLayoutIsReadFromWhereItsRegisterPoints)
{
    camera.SetRegister(0xE034, 0x0000F100);
    camera.SetMemory(0xF100, "0123456789abcdef");
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    ASSERT_EQ(device.Open(), 0);
    camera.Forget();
    const TraceCapture trace;
    buffer_Layout layout = {};
    device.GetbufferLayout(&layout);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read 0xE034", "read 0xE038", "read memory 0xF100, 16 bytes"));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(layout.bytes), 16), "0123456789abcdef");
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("GetbufferLayout  *bufferLayout = layoutt ENTER"));
}

TEST_F(RemoteDevice, NoStreamIsEverFoundInTheEmptyStreamList)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), kControl, nullptr);
    EXPECT_EQ(device._findStream(0), nullptr);
    EXPECT_EQ(device._findStream(0xFFFFFFFF), nullptr);
}

} // namespace
