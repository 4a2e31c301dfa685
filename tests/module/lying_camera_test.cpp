// SPDX-License-Identifier: Apache-2.0
// Cameras and strangers that say what they should not, met by a consumer of the exported functions: every call comes
// back with the result that is due, in time, and touches no byte beyond its buffer.
#include "nq_gev_gentl.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/producer.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <gmock/gmock.h>
#include <iterator>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace nq::test;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;

namespace
{

constexpr int kControl = 3;
constexpr const char* kHostAddress = "10.9.0.1";

/// The library with its one interface open, and a scripted camera at 10.9.0.2 on a host of its own.
class LyingCamera : public testing::Test
{
  protected:
    LyingCamera()
    {
        far.Connect("cam0", "10.9.0.1/24", "eth0", "10.9.0.2/24");
        far.Shell("ip addr add 10.9.0.3/24 dev eth0");
        Shell("ip route add 255.255.255.255/32 dev cam0");
        camera = std::make_unique<GvcpCamera>(&far);
        camera->AwaitPath(kHostAddress);
        body.ipAddress = 0x0A090002;
        body.subnetMask = 0xFFFFFF00;
        body.deviceVersion = "3.0.0";
        camera->SetDiscovery(body);
        camera->SetRegister(0x0938, 600000); // no heartbeat disturbs a test
        camera->SetRegister(0x0900, 1);
        camera->SetRegister(0x0904, 1);
        EXPECT_EQ(producer.GCInitLib(), 0);
        EXPECT_EQ(producer.TLOpen(&system), 0);
        EXPECT_EQ(producer.TLUpdateInterfaceList(system, nullptr, 0), 0);
        char name[256] = {};
        std::size_t size = sizeof name;
        EXPECT_EQ(producer.TLGetInterfaceID(system, 0, name, &size), 0);
        EXPECT_EQ(producer.TLOpenInterface(system, name, &interface), 0);
    }
    ~LyingCamera() override { producer.GCCloseLib(); }

    std::uint32_t Scan()
    {
        EXPECT_EQ(producer.IFUpdateDeviceList(interface, nullptr, 1000), 0);
        std::uint32_t count = 99;
        EXPECT_EQ(producer.IFGetNumDevices(interface, &count), 0);
        return count;
    }

    std::string Id()
    {
        char id[600] = {};
        std::size_t size = sizeof id;
        EXPECT_EQ(producer.IFGetDeviceID(interface, 0, id, &size), 0);
        return id;
    }

    /// Opens the listed camera. The 100 ms of the question who controls it may be too short for a busy machine, so it
    /// is asked again.
    int OpenListed(const std::string& id)
    {
        int result = -1005;
        for (int attempt = 0; attempt < 20 && result == -1005; ++attempt)
        {
            result = producer.IFOpenDevice(interface, id.c_str(), kControl, &device);
        }
        return result;
    }

    /// Scans, opens the camera for control and forgets what was asked of it.
    void Open()
    {
        ASSERT_EQ(Scan(), 1U);
        ASSERT_EQ(OpenListed(Id()), 0);
        ASSERT_EQ(producer.DevGetPort(device, &port), 0);
        camera->Forget();
    }

    std::string Listed(int command)
    {
        char text[600] = {};
        std::size_t size = sizeof text;
        int type = 0;
        EXPECT_EQ(producer.IFGetDeviceInfo(interface, Id().c_str(), command, &type, text, &size), 0);
        EXPECT_EQ(size, std::strlen(text) + 1);
        return text;
    }

    /// The result of a read of `size` bytes and the bytes behind it, of which `guard` more belong to somebody else.
    int Read(std::uint64_t address, std::size_t size, Bytes& bytes)
    {
        constexpr std::size_t kGuard = 1024;
        bytes.assign(size + kGuard, 0xA5);
        const int result = producer.GCReadPort(port, address, bytes.data(), &size);
        EXPECT_THAT(Bytes(bytes.end() - kGuard, bytes.end()), Each(0xA5));
        bytes.resize(bytes.size() - kGuard);
        return result;
    }

    /// How many commands of that code the camera got since the last Forget(). One that was sent again because the
    /// answer came late, as it may on a busy machine, is the same packet and counts once.
    std::size_t Count(unsigned char code) const
    {
        const std::vector<Bytes> all = camera->ReceivedBytes();
        std::set<Bytes> commands;
        std::copy_if(all.begin(), all.end(), std::inserter(commands, commands.end()),
                     [code](const Bytes& datagram) { return datagram.size() > 3 && datagram[3] == code; });
        return commands.size();
    }

    Host far;
    std::unique_ptr<GvcpCamera> other; ///< Ends after the camera, whose thread may send through it.
    std::unique_ptr<GvcpCamera> camera;
    GvcpDiscovery body;
    Producer producer;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    void* port = nullptr;
};

/// An event packet whose event id is `id`.
Bytes EventPacket(unsigned int id)
{
    Bytes packet(24);
    packet[0] = 0x42;
    packet[3] = 0xC0;
    packet[5] = 0x10;
    packet[10] = static_cast<unsigned char>(id >> 8);
    packet[11] = static_cast<unsigned char>(id & 0xFF);
    return packet;
}

/// The datagrams that no camera should answer a discovery with: too short by one byte or more, of another code, of a
/// device too old, of nothing at all.
std::vector<Bytes> MalformedAnswers()
{
    Bytes shortAnswer(255, 0x33);
    shortAnswer[2] = 0x00;
    shortAnswer[3] = 0x03;
    Bytes otherCode(256, 0x33);
    Bytes noVersion(256);
    noVersion[3] = 0x03;
    Bytes endless(1400, 0xFF);
    endless[2] = 0x00;
    endless[3] = 0x83;
    return {{}, {0x00}, shortAnswer, otherCode, noVersion, endless, {0, 0, 0, 3, 0, 248, 0, 1}};
}

TEST_F(LyingCamera, NamesWithoutAnEndStopWithTheDatagram)
{
    body.manufacturer = std::string(32, 'M');
    body.model = std::string(32, 'm');
    body.deviceVersion = std::string(32, '9');
    body.manufacturerInfo = std::string(48, 'i');
    body.serialNumber = std::string(16, 's');
    body.userDefinedName = std::string(16, 'u');
    camera->SetDiscovery(body);
    ASSERT_EQ(Scan(), 1U);
    const std::string user = body.userDefinedName;
    const std::string serial = body.serialNumber + user;
    const std::string version = body.deviceVersion + body.manufacturerInfo + serial;
    const std::string model = body.model + version;
    EXPECT_EQ(Id(), model + ":02-11-22-33-44-55");
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_VENDOR), body.manufacturer + model);
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_MODEL), model);
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_DISPLAYNAME), model);
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_VERSION), version);
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_SERIAL_NUMBER), serial);
    EXPECT_EQ(Listed(GenTL::DEVICE_INFO_USER_DEFINED_NAME), user);

    Open();
    camera->SetMemory(0x00E8, Bytes(512, 'n'));
    char text[600] = {};
    std::size_t size = sizeof text;
    int type = 0;
    EXPECT_EQ(producer.DevGetInfo(device, GenTL::DEVICE_INFO_USER_DEFINED_NAME, &type, text, &size), 0);
    EXPECT_EQ(text, std::string(512, 'n'));
    camera->SetMemory(0x0200, Bytes(1024, 'l'));
    std::uint32_t urls = 0;
    EXPECT_EQ(producer.GCGetNumPortURLs(port, &urls), 0);
    EXPECT_EQ(urls, 2U);
    char url[2000] = {};
    size = sizeof url;
    EXPECT_EQ(producer.GCGetPortURL(port, url, &size), 0);
    EXPECT_EQ(std::string(url), std::string(512, 'l'));
}

TEST_F(LyingCamera, SixtyFiveThousandChannelsOfEachKindAre512)
{
    camera->SetRegister(0x0904, 65535);
    camera->SetRegister(0x0900, 65535);
    Open();
    std::uint32_t count = 0;
    EXPECT_EQ(producer.DevGetNumDataStreams(device, &count), 0);
    EXPECT_EQ(count, 512U);
    char id[64] = {};
    std::size_t size = sizeof id;
    EXPECT_EQ(producer.DevGetDataStreamID(device, 511, id, &size), 0);
    EXPECT_STREQ(id, "Stream:511");
    EXPECT_EQ(producer.DevGetDataStreamID(device, 512, id, &size), -1017);
    EXPECT_EQ(producer.DevClose(device), 0);
    EXPECT_EQ(Count(0x82), 3U) << "one message port is closed and the privilege given back twice";
}

TEST_F(LyingCamera, RegistersThatChangeBetweenReadsAreBelievedOnceEach)
{
    // The camera's thread may hold on to it for longer than this function runs.
    const auto reads = std::make_shared<std::atomic<unsigned int>>(0);
    const auto changing = [this, reads](const Bytes& command) -> std::vector<GvcpReply> {
        const bool heartbeatTimeout = command.size() == 12 && command[10] == 0x09 && command[11] == 0x38;
        if (command.size() != 12 || command[3] != 0x80 || heartbeatTimeout)
        {
            return camera->AnswerFromMemory(command);
        }
        return gvcp::Value(++*reads % 2 == 0 ? 0 : 2)(command);
    };
    ASSERT_EQ(Scan(), 1U);
    const std::string id = Id();
    ++*reads; // the probe reads 0, which is a free camera
    camera->Otherwise(changing);
    ASSERT_EQ(OpenListed(id), 0);
    std::uint32_t before = 99;
    EXPECT_EQ(producer.DevGetNumDataStreams(device, &before), 0);
    std::vector<int> statuses;
    for (int query = 0; query < 4; ++query)
    {
        int status = 99;
        std::size_t size = sizeof status;
        int type = 0;
        EXPECT_EQ(producer.DevGetInfo(device, GenTL::DEVICE_INFO_ACCESS_STATUS, &type, &status, &size), 0);
        statuses.push_back(status);
    }
    EXPECT_TRUE((statuses == std::vector<int>{0, 5, 0, 5} || statuses == std::vector<int>{5, 0, 5, 0}));
    std::uint32_t after = 99;
    EXPECT_EQ(producer.DevGetNumDataStreams(device, &after), 0);
    EXPECT_EQ(after, before) << "streams are made once";
    EXPECT_EQ(producer.DevClose(device), 0);
}

TEST_F(LyingCamera, AMemoryAnswerOneByteTooShortIsAFailureThatLeavesTheBufferAlone)
{
    Open();
    camera->Otherwise(gvcp::Memory(Bytes(511, 0x11)));
    Bytes bytes;
    EXPECT_EQ(Read(0x0200, 512, bytes), -1010);
    EXPECT_THAT(bytes, Each(0xA5));
    EXPECT_EQ(Count(0x84), 1U) << "it is not asked again";
    camera->Otherwise(gvcp::Memory({}));
    EXPECT_EQ(Read(0x0200, 8, bytes), -1010);
    camera->Otherwise(gvcp::Short(3, gvcp::Memory(Bytes(8, 0x11))));
    EXPECT_EQ(Read(0x0200, 8, bytes), -1010);
}

TEST_F(LyingCamera, AMemoryAnswerLongerThanAskedIsCutToWhatWasAsked)
{
    Open();
    camera->Otherwise(gvcp::Memory(Bytes(536, 0x22)));
    Bytes bytes;
    EXPECT_EQ(Read(0x0200, 5, bytes), 0);
    EXPECT_THAT(bytes, ElementsAre(0x22, 0x22, 0x22, 0x22, 0x22));
    camera->Otherwise(gvcp::Oversized(9000, gvcp::Memory(Bytes(536, 0x33))));
    EXPECT_EQ(Read(0x0200, 1025, bytes), 0);
    EXPECT_THAT(bytes, Each(0x33));
}

TEST_F(LyingCamera, ARegisterAnswerWithoutAValueReadsZero)
{
    Open();
    camera->Otherwise(gvcp::Acknowledge());
    Bytes bytes;
    EXPECT_EQ(Read(0x0938, 4, bytes), 0);
    EXPECT_THAT(bytes, ElementsAre(0, 0, 0, 0));
}

TEST_F(LyingCamera, EveryStatusButSuccessIsAnIoFailureWithoutASecondAttempt)
{
    Open();
    std::size_t asked = 0;
    for (const unsigned int status : {0x8001U, 0x8002U, 0x8003U, 0x8006U, 0x800FU, 0x0001U, 0xFFFFU})
    {
        camera->Otherwise(gvcp::Acknowledge({0, 0, 0, 0}, static_cast<std::uint16_t>(status)));
        Bytes bytes;
        EXPECT_EQ(Read(0x0938, 4, bytes), -1010) << status;
        EXPECT_EQ(Count(0x80), ++asked);
    }
}

TEST_F(LyingCamera, AcknowledgesFromAnotherAddressAreTakenByTheirIdAlone)
{
    Open();
    other = std::make_unique<GvcpCamera>(&far, "10.9.0.3", 0);
    camera->Otherwise([this](const Bytes& command) -> std::vector<GvcpReply> {
        for (const GvcpReply& reply : gvcp::Value(0x01020304)(command))
        {
            other->Send(reply.bytes, kHostAddress, camera->Received().back().senderPort);
        }
        return {};
    });
    Bytes bytes;
    EXPECT_EQ(Read(0x0938, 4, bytes), 0);
    EXPECT_THAT(bytes, ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(Count(0x80), 1U);
    camera->Otherwise([this](const Bytes& command) { return camera->AnswerFromMemory(command); });
}

TEST_F(LyingCamera, AForeignDatagramInFrontOfTheAnswerCostsOneAttempt)
{
    Open();
    camera->Next(gvcp::Sequence({gvcp::Literal({0xDE, 0xAD, 0xBE, 0xEF}), gvcp::Value(7)}));
    Bytes bytes;
    EXPECT_EQ(Read(0x0D04, 4, bytes), 0);
    ASSERT_EQ(Count(0x80), 2U);
    const std::vector<Bytes> asked = camera->ReceivedBytes();
    EXPECT_EQ(asked[1][7], static_cast<unsigned char>(asked[0][7] + 1)) << "the second one is a command of its own";
    camera->Forget();
    camera->Next(gvcp::Sequence({gvcp::Literal({0xDE, 0xAD, 0xBE, 0xEF}), gvcp::Memory(Bytes(8, 1))}));
    EXPECT_EQ(Read(0x0200, 8, bytes), -1010) << "memory is asked for once";
    EXPECT_EQ(Count(0x84), 1U);
}

TEST_F(LyingCamera, NothingButWrongIdsCostsFourCommands)
{
    Open();
    camera->Otherwise(gvcp::WrongId(gvcp::Value(7)));
    Bytes bytes;
    EXPECT_EQ(Read(0x0D04, 4, bytes), -1010);
    EXPECT_EQ(Count(0x80), 4U);
}

TEST_F(LyingCamera, ASilentCameraIsClosedAfterTwoDatagramsPerWrite)
{
    Open();
    camera->Otherwise(gvcp::Silent());
    EXPECT_EQ(producer.DevClose(device), 0);
    EXPECT_TRUE(camera->WaitForCount(6));
    EXPECT_THAT(camera->ReceivedBytes(), testing::SizeIs(6));
    EXPECT_EQ(Count(0x82), 3U) << "and each command a packet";
}

TEST_F(LyingCamera, TenThousandEventsInABurstArriveInTheirOrder)
{
    Open();
    void* event = nullptr;
    ASSERT_EQ(producer.GCRegisterEvent(device, GenTL::EVENT_REMOTE_DEVICE, &event), 0);
    for (unsigned int number = 1; number <= 10000; ++number)
    {
        camera->Send(EventPacket(number), kHostAddress, 3456);
    }
    // The kernel drops what its buffer cannot hold, so the one that tells the end is repeated until it arrives.
    constexpr std::uint32_t kLast = 10001;
    std::uint32_t before = 0;
    std::uint32_t count = 0;
    while (before != kLast)
    {
        camera->Send(EventPacket(kLast), kHostAddress, 3456);
        Bytes record(546);
        std::size_t size = record.size();
        const int result = producer.EventGetData(event, record.data(), &size, 10000);
        if (result == -1011)
        {
            continue; // dropped too, on a machine as busy as that
        }
        ASSERT_EQ(result, 0);
        ASSERT_EQ(size, 546U);
        std::uint32_t id = 0;
        std::memcpy(&id, record.data(), sizeof id);
        ASSERT_GT(id, before);
        before = id;
        ++count;
    }
    EXPECT_THAT(count, Ge(2U));
}

TEST_F(LyingCamera, AnEventStormDoesNotHoldUpTheClose)
{
    for (int turn = 0; turn < 3; ++turn)
    {
        camera->SetRegister(0x0A00, 0);
        Open();
        void* event = nullptr;
        ASSERT_EQ(producer.GCRegisterEvent(device, GenTL::EVENT_REMOTE_DEVICE, &event), 0);
        std::atomic<bool> storm = true;
        std::thread sender([this, &storm] {
            while (storm)
            {
                camera->Send(EventPacket(0x9001), kHostAddress, 3456);
            }
        });
        Bytes record(546);
        std::size_t size = record.size();
        EXPECT_EQ(producer.EventGetData(event, record.data(), &size, 10000), 0);
        EXPECT_EQ(producer.DevClose(device), 0);
        EXPECT_EQ(producer.EventGetData(event, record.data(), &size, 0), -1006);
        storm = false;
        sender.join();
    }
}

TEST_F(LyingCamera, AFloodOfMalformedDiscoveryAnswersHidesNoCamera)
{
    std::thread flood;
    std::atomic<bool> flooding = true;
    camera->Next([&](const Bytes& command) {
        const std::uint16_t to = camera->Received().back().senderPort;
        std::vector<nq::test::GvcpReply> good = camera->AnswerFromMemory(command);
        flood = std::thread([this, to, good, &flooding] {
            while (flooding)
            {
                for (const Bytes& datagram : MalformedAnswers())
                {
                    camera->Send(datagram, kHostAddress, to);
                }
                camera->Send(good.front().bytes, kHostAddress, to); // the socket may have been full
            }
        });
        return good;
    });
    EXPECT_EQ(Scan(), 1U);
    flooding = false;
    flood.join();
    EXPECT_EQ(Id(), "Model:02-11-22-33-44-55");
}

TEST_F(LyingCamera, ACameraThatAnswersAgainAndAgainIsOne)
{
    camera->Next([this](const Bytes& command) {
        std::vector<GvcpReply> replies;
        for (int turn = 0; turn < 100; ++turn)
        {
            replies.push_back(camera->AnswerFromMemory(command).front());
        }
        return replies;
    });
    EXPECT_EQ(Scan(), 1U);
}

} // namespace
