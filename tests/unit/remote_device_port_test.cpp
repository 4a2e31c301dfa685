// SPDX-License-Identifier: Apache-2.0
// The remote device's port and URLs: which commands of which size reach the camera for a read or write of any size.
#include "gev/nq_gev_remote_device.h"

#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fence.h"
#include "support/gvcp_camera.h"
#include "support/ramp.h"
#include "support/trace_capture.h"

#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using nq::test::Fence;
using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::Ramp;
using nq::test::TraceCapture;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = nq::test::Bytes;

namespace
{

/// What follows the header of a datagram.
Bytes Body(const Bytes& datagram)
{
    return Bytes(datagram.begin() + 8, datagram.end());
}

class RemoteDevicePort : public testing::Test
{
  protected:
    RemoteDevicePort()
    {
        camera.SetRegister(0x0938, 60000);
        device = std::make_unique<NQGevRemoteDevice>(&tl, LoopbackCamera(), 3, nullptr);
    }

    void Open()
    {
        ASSERT_EQ(device->Open(), 0);
        camera.Forget();
    }

    int Read(unsigned long address, void* buffer, unsigned long size)
    {
        const int result = device->ReadPort(address, buffer, &size);
        return result;
    }

    int Write(unsigned long address, const void* buffer, unsigned long size)
    {
        return device->WritePort(address, buffer, &size);
    }

    GvcpCamera camera;
    NQGevTL tl;
    std::unique_ptr<NQGevRemoteDevice> device;
};

TEST_F(RemoteDevicePort, ReadOfFourBytesIsAReadRegisterCommandInNetworkOrder)
{
    Open();
    camera.SetRegister(0xA000, 0x01020304);
    Bytes bytes(4);
    ASSERT_EQ(Read(0xA000, bytes.data(), 4), 0);
    EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4));
    ASSERT_EQ(camera.ReceivedBytes().size(), 1U);
    const Bytes datagram = camera.ReceivedBytes()[0];
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 6), (Bytes{0x42, 0x01, 0x00, 0x80, 0x00, 0x04}));
    EXPECT_EQ(Body(datagram), (Bytes{0x00, 0x00, 0xA0, 0x00}));
}

TEST_F(RemoteDevicePort, ReadOfOneToThreeBytesIsARegisterReadCutShort)
{
    Open();
    camera.SetRegister(0xA000, 0x01020304);
    for (unsigned long size = 1; size < 4; ++size)
    {
        Bytes bytes(4, 0xEE);
        ASSERT_EQ(Read(0xA000, bytes.data(), size), 0);
        Bytes expected = {1, 2, 3, 4};
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(size), expected.end(),
                  static_cast<unsigned char>(0xEE));
        EXPECT_EQ(bytes, expected);
    }
    EXPECT_THAT(camera.Accesses(), ElementsAre("read 0xA000", "read 0xA000", "read 0xA000"));
}

TEST_F(RemoteDevicePort, ReadOfFiveBytesReadsEightAndDeliversFive)
{
    Open();
    camera.SetMemory(0xA000, Ramp(16));
    Bytes bytes(8, 0xEE);
    ASSERT_EQ(Read(0xA000, bytes.data(), 5), 0);
    EXPECT_THAT(bytes, ElementsAre(0, 7, 14, 21, 28, 0xEE, 0xEE, 0xEE));
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0xA000, 8 bytes"));
}

TEST_F(RemoteDevicePort, ReadOfExactlyFiveHundredAndTwelveBytesIsOneCommand)
{
    Open();
    camera.SetMemory(0xA000, Ramp(512));
    Bytes bytes(512);
    ASSERT_EQ(Read(0xA000, bytes.data(), 512), 0);
    EXPECT_EQ(bytes, Ramp(512));
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0xA000, 512 bytes"));
}

TEST_F(RemoteDevicePort, ReadOfAThousandAndTwentyFiveBytesIsThreeChunksTheLastAMemoryReadOfFour)
{
    Open();
    camera.SetMemory(0xA000, Ramp(1028));
    Bytes bytes(1026, 0xEE);
    ASSERT_EQ(Read(0xA000, bytes.data(), 1025), 0);
    Bytes expected = Ramp(1025);
    expected.push_back(0xEE);
    EXPECT_EQ(bytes, expected);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0xA000, 512 bytes", "read memory 0xA200, 512 bytes",
                                               "read memory 0xA400, 4 bytes"));
}

TEST_F(RemoteDevicePort, ReadOfNoBytesSendsAMemoryReadOfNone)
{
    Open();
    unsigned char byte = 0xEE;
    EXPECT_EQ(Read(0xA000, &byte, 0), 0);
    EXPECT_EQ(byte, 0xEE);
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0xA000, 0 bytes"));
}

TEST_F(RemoteDevicePort, AReadNeverChangesTheSize)
{
    Open();
    unsigned long size = 5;
    Bytes bytes(8);
    ASSERT_EQ(device->ReadPort(0xA000, bytes.data(), &size), 0);
    EXPECT_EQ(size, 5U);
}

TEST_F(RemoteDevicePort, ARefusedChunkFailsTheReadAndLeavesTheBufferAlone)
{
    Open();
    camera.SetStatus(0xA200, 0x8003);
    Bytes bytes(1025, 0xEE);
    EXPECT_EQ(Read(0xA000, bytes.data(), 1025), -1010);
    EXPECT_THAT(bytes, Each(0xEE));
    camera.SetStatus(0xB000, 0x8003);
    EXPECT_EQ(Read(0xB000, bytes.data(), 4), -1010);
    EXPECT_EQ(Read(0xB000, bytes.data(), 8), -1010);
    EXPECT_THAT(bytes, Each(0xEE));
}

TEST_F(RemoteDevicePort, OnAClosedModuleAWriteIsNotInitializedWhileAReadGoesOnToFail)
{
    unsigned int value = 0;
    EXPECT_EQ(Write(0xA000, &value, 4), -1002);
    EXPECT_EQ(Write(0xA000, nullptr, 4), -1002) << "the handle is looked at before the buffer";
    EXPECT_EQ(Read(0xA000, &value, 4), -1010);
    EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST_F(RemoteDevicePort, SizesThatNoCameraAccessCanHaveAreInvalidParameters)
{
    Open();
    unsigned int value = 0;
    EXPECT_EQ(Read(0xA000, &value, 0x80000000UL), -1009);
    EXPECT_EQ(Write(0xA000, &value, 0x80000000UL), -1009);
    EXPECT_EQ(Write(0xA000, &value, 0x100000004UL), -1009);
    EXPECT_THAT(camera.Accesses(), IsEmpty());
}

TEST_F(RemoteDevicePort, WriteOfFourBytesIsAWriteRegisterCommandWithTheCallersBytes)
{
    Open();
    const Fence bytes({1, 2, 3, 4});
    ASSERT_EQ(Write(0xA000, bytes.Data(), 4), 0);
    const Bytes datagram = camera.ReceivedBytes().at(0);
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 6), (Bytes{0x42, 0x01, 0x00, 0x82, 0x00, 0x08}));
    EXPECT_EQ(Body(datagram), (Bytes{0x00, 0x00, 0xA0, 0x00, 1, 2, 3, 4}));
    EXPECT_EQ(camera.GetRegister(0xA000), 0x01020304U);
}

// Deliberate(WholeWordsGoOut)
TEST_F(RemoteDevicePort, DeliberatelyAWriteOfTwoBytesIsAWriteRegisterCommandWithFourBytesOfTheCallersBuffer)
{
    Open();
    const Fence bytes({0x11, 0x22, 0x33, 0x44});
    ASSERT_EQ(Write(0xA000, bytes.Data(), 2), 0);
    const Bytes datagram = camera.ReceivedBytes().at(0);
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 6), (Bytes{0x42, 0x01, 0x00, 0x82, 0x00, 0x08}));
    EXPECT_EQ(Body(datagram), (Bytes{0x00, 0x00, 0xA0, 0x00, 0x11, 0x22, 0x33, 0x44}));
}

// Deliberate(WholeWordsGoOut)
TEST_F(RemoteDevicePort, DeliberatelyTheLastChunkOfALongWriteReachesPastTheSize)
{
    Open();
    const Fence bytes(Ramp(1028));
    ASSERT_EQ(Write(0xA000, bytes.Data(), 1025), 0);
    EXPECT_EQ(camera.GetMemory(0xA000, 1028), Ramp(1028));
}

TEST_F(RemoteDevicePort, AWriteAtTheEndOfTheCallersMemoryIsFilledUpWithZerosInstead)
{
    Open();
    for (unsigned long size = 1; size < 4; ++size)
    {
        camera.Forget();
        Bytes sent = {9, 8, 7};
        sent.resize(size);
        const Fence bytes(sent);
        ASSERT_EQ(Write(0xA000, bytes.Data(), size), 0);
        sent.resize(4);
        Bytes body = {0x00, 0x00, 0xA0, 0x00};
        body.insert(body.end(), sent.begin(), sent.end());
        EXPECT_EQ(Body(camera.ReceivedBytes().at(0)), body);
    }
}

TEST_F(RemoteDevicePort, WriteOfFiveBytesIsAMemoryWriteOfEightFilledUpWithZeros)
{
    Open();
    const Fence bytes({1, 2, 3, 4, 5});
    ASSERT_EQ(Write(0xA000, bytes.Data(), 5), 0);
    const Bytes datagram = camera.ReceivedBytes().at(0);
    EXPECT_EQ(Bytes(datagram.begin(), datagram.begin() + 6), (Bytes{0x42, 0x01, 0x00, 0x86, 0x00, 0x0C}));
    EXPECT_EQ(Body(datagram), (Bytes{0x00, 0x00, 0xA0, 0x00, 1, 2, 3, 4, 5, 0, 0, 0}));
}

TEST_F(RemoteDevicePort, WriteOfFiveHundredAndTwelveBytesIsOneChunk)
{
    Open();
    const Fence bytes(Ramp(512));
    ASSERT_EQ(Write(0xA000, bytes.Data(), 512), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write memory 0xA000, 512 bytes"));
    EXPECT_EQ(camera.GetMemory(0xA000, 512), Ramp(512));
}

TEST_F(RemoteDevicePort, AWritesLastChunkIsRoundedUpAndFilledWithZerosAtTheEndOfMemory)
{
    Open();
    const Fence bytes(Ramp(1025));
    ASSERT_EQ(Write(0xA000, bytes.Data(), 1025), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes",
                                               "write memory 0xA400, 4 bytes"));
    Bytes expected = Ramp(1025);
    expected.resize(1028);
    EXPECT_EQ(camera.GetMemory(0xA000, 1028), expected);
}

TEST_F(RemoteDevicePort, AWriteThatRoundsUpToTwoChunksSendsTwoFullOnes)
{
    Open();
    const Fence bytes(Ramp(1022));
    ASSERT_EQ(Write(0xA000, bytes.Data(), 1022), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes"));
    Bytes expected = Ramp(1022);
    expected.resize(1024);
    EXPECT_EQ(camera.GetMemory(0xA000, 1024), expected);
}

TEST_F(RemoteDevicePort, WriteOfNoBytesSendsAMemoryWriteOfNone)
{
    Open();
    const unsigned char byte = 1;
    EXPECT_EQ(Write(0xA000, &byte, 0), 0);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write memory 0xA000, 0 bytes"));
}

TEST_F(RemoteDevicePort, ARefusedWriteIsAnIoFailureAndEndsTheChunks)
{
    Open();
    camera.SetStatus(0xA200, 0x8006);
    const Bytes bytes = Ramp(1536);
    EXPECT_EQ(Write(0xA000, bytes.data(), 1536), -1010);
    EXPECT_THAT(camera.Accesses(), ElementsAre("write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes"));
    camera.SetStatus(0xB000, 0x8006);
    EXPECT_EQ(Write(0xB000, bytes.data(), 4), -1010);
    EXPECT_EQ(Write(0xB000, bytes.data(), 8), -1010);
}

TEST_F(RemoteDevicePort, OneFailureGivesTwoTraceLines)
{
    Open();
    camera.SetStatus(0xB000, 0x8006);
    const TraceCapture trace;
    Bytes bytes(8);
    Read(0xB000, bytes.data(), 8);
    Write(0xB000, bytes.data(), 8);
    Write(0xB000, bytes.data(), 4);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraReadMemory failed! m_Camera_readGigECameraMemory 32774",
                                                 "_gvcpReadMem failed! Address:0xb000",
                                                 "CameraWriteMemory failed! m_Camera_writeGigECameraMemory 32774",
                                                 "_gvcpWriteMem failed! Address:0xb000",
                                                 "CameraWriteRegister failed! m_Camera_setGigECameraRegister 32774",
                                                 "_gvcpWritereg failed! Address:0xb000"));
}

TEST_F(RemoteDevicePort, UrlsAreTheCamerasTextsReadOnceAndKept)
{
    camera.SetMemory(0x0200, "Local:a.zip;C0000;1234");
    camera.SetMemory(0x0400, "http://example/a.zip");
    Open();
    EXPECT_THAT(device->GetURLList(), ElementsAre("Local:a.zip;C0000;1234", "http://example/a.zip"));
    EXPECT_THAT(camera.Accesses(), ElementsAre("read memory 0x0200, 512 bytes", "read memory 0x0400, 512 bytes"));
    camera.SetMemory(0x0200, "Local:b.zip;C0000;1234");
    EXPECT_THAT(device->GetURLList(), ElementsAre("Local:a.zip;C0000;1234", "http://example/a.zip"));
    EXPECT_EQ(camera.Accesses().size(), 2U);
}

// Deliberate(EmptyUrlIsAnEntry)
TEST_F(RemoteDevicePort, DeliberatelyAnEmptySecondUrlIsAnEntry)
{
    camera.SetMemory(0x0200, "Local:a.zip;C0000;1234");
    Open();
    EXPECT_THAT(device->GetURLList(), ElementsAre("Local:a.zip;C0000;1234", ""));
}

TEST_F(RemoteDevicePort, AFailedFirstUrlDoesNotPreventTheSecond)
{
    camera.SetStatus(0x0200, 0x8003);
    camera.SetMemory(0x0400, "http://example/a.zip");
    Open();
    EXPECT_THAT(device->GetURLList(), ElementsAre("http://example/a.zip"));
}

TEST_F(RemoteDevicePort, ACameraThatFailedBothUrlsIsAskedAgain)
{
    camera.SetStatus(0x0200, 0x8003);
    camera.SetStatus(0x0400, 0x8003);
    Open();
    EXPECT_THAT(device->GetURLList(), IsEmpty());
    camera.SetStatus(0x0200, 0);
    camera.SetMemory(0x0200, "Local:a.zip;C0000;1234");
    EXPECT_THAT(device->GetURLList(), ElementsAre("Local:a.zip;C0000;1234"));
}

TEST_F(RemoteDevicePort, AUrlWithoutAZeroByteEndsWithTheFieldOfFiveHundredAndTwelveBytes)
{
    camera.SetMemory(0x0200, std::string(1024, 'u'));
    Open();
    EXPECT_THAT(device->GetURLList(), ElementsAre(std::string(512, 'u'), std::string(512, 'u')));
}

TEST_F(RemoteDevicePort, SeveralThreadsMayUseTheCameraAtOnce)
{
    camera.SetMemory(0x0200, "Local:a.zip;C0000;1234");
    camera.SetMemory(0xA000, Ramp(1024));
    device = std::make_unique<NQGevRemoteDevice>(&tl, LoopbackCamera(), 2, nullptr); // its heartbeat never pauses
    Open();
    std::vector<std::thread> consumers;
    for (int number = 0; number < 3; ++number)
    {
        consumers.emplace_back([this] {
            for (int count = 0; count < 50; ++count)
            {
                Bytes bytes(1024);
                EXPECT_EQ(Read(0xA000, bytes.data(), bytes.size()), 0);
                EXPECT_EQ(bytes, Ramp(1024));
                EXPECT_EQ(device->GetURLList().size(), 2U);
                EXPECT_EQ(device->GetAccessStatus(), 0);
            }
        });
    }
    for (std::thread& consumer : consumers)
    {
        consumer.join();
    }
    ASSERT_EQ(device->Close(), 0);
}

/// One port access by its size and the commands it has to become.
struct SizeRow
{
    unsigned long size;
    std::vector<std::string> accesses;
};

TEST_F(RemoteDevicePort, EverySizeOfAReadBecomesTheseCommandsAndDeliversThatManyBytes)
{
    const std::vector<SizeRow> rows = {
        {0, {"read memory 0xA000, 0 bytes"}},
        {1, {"read 0xA000"}},
        {3, {"read 0xA000"}},
        {4, {"read 0xA000"}},
        {5, {"read memory 0xA000, 8 bytes"}},
        {508, {"read memory 0xA000, 508 bytes"}},
        {509, {"read memory 0xA000, 512 bytes"}},
        {511, {"read memory 0xA000, 512 bytes"}},
        {512, {"read memory 0xA000, 512 bytes"}},
        {513, {"read memory 0xA000, 512 bytes", "read memory 0xA200, 4 bytes"}},
        {1023, {"read memory 0xA000, 512 bytes", "read memory 0xA200, 512 bytes"}},
        {1024, {"read memory 0xA000, 512 bytes", "read memory 0xA200, 512 bytes"}},
        {1025, {"read memory 0xA000, 512 bytes", "read memory 0xA200, 512 bytes", "read memory 0xA400, 4 bytes"}},
    };
    Open();
    camera.SetMemory(0xA000, Ramp(1100));
    camera.SetRegister(0xA000, 0x00070E15); // the ramp's first four bytes
    for (const SizeRow& row : rows)
    {
        SCOPED_TRACE(row.size);
        camera.Forget();
        Bytes bytes(1100, 0xEE);
        ASSERT_EQ(Read(0xA000, bytes.data(), row.size), 0);
        EXPECT_EQ(camera.Accesses(), row.accesses);
        Bytes expected = Ramp(1100);
        std::fill(expected.begin() + static_cast<std::ptrdiff_t>(row.size), expected.end(),
                  static_cast<unsigned char>(0xEE));
        EXPECT_EQ(bytes, expected);
    }
}

TEST_F(RemoteDevicePort, EverySizeOfAWriteBecomesTheseCommands)
{
    const std::vector<SizeRow> rows = {
        {0, {"write memory 0xA000, 0 bytes"}},
        {1, {"write 0xA000 = 0x00000000"}},
        {3, {"write 0xA000 = 0x00070E00"}},
        {4, {"write 0xA000 = 0x00070E15"}},
        {5, {"write memory 0xA000, 8 bytes"}},
        {508, {"write memory 0xA000, 508 bytes"}},
        {509, {"write memory 0xA000, 512 bytes"}},
        {511, {"write memory 0xA000, 512 bytes"}},
        {512, {"write memory 0xA000, 512 bytes"}},
        {513, {"write memory 0xA000, 512 bytes", "write memory 0xA200, 4 bytes"}},
        {1023, {"write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes"}},
        {1024, {"write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes"}},
        {1025, {"write memory 0xA000, 512 bytes", "write memory 0xA200, 512 bytes", "write memory 0xA400, 4 bytes"}},
    };
    Open();
    for (const SizeRow& row : rows)
    {
        SCOPED_TRACE(row.size);
        camera.Forget();
        const Fence bytes(Ramp(row.size));
        ASSERT_EQ(Write(0xA000, bytes.Data(), row.size), 0);
        EXPECT_EQ(camera.Accesses(), row.accesses);
        if (row.size > 4)
        {
            EXPECT_EQ(camera.GetMemory(0xA000, row.size), Ramp(row.size));
        }
    }
}

} // namespace
