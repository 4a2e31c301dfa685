// SPDX-License-Identifier: Apache-2.0
// Discovery against scripted cameras: what goes out, what counts as an answer, and what is made of it.
#include "support/interface_module.h"

#include <arpa/inet.h>
#include <atomic>
#include <cstring>
#include <future>
#include <gmock/gmock.h>
#include <memory>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// One camera behind an open interface.
class Discovery : public testing::Test
{
  protected:
    Discovery() { peer.SetDiscovery(Camera()); }

    void SetUp() override { ASSERT_EQ(module.Open(), 0); }
    void TearDown() override { EXPECT_EQ(module.Close(), 0); }

    /// The answer of a camera as one literal datagram, its header included.
    static Bytes Acknowledge(const GvcpDiscovery& camera)
    {
        Bytes datagram = {0, 0, 0, 3, 0, 248, 0, 1};
        const Bytes body = camera.Body();
        datagram.insert(datagram.end(), body.begin(), body.end());
        return datagram;
    }

    void Answer(const std::vector<Bytes>& datagrams)
    {
        std::vector<GvcpRule> rules;
        for (const Bytes& datagram : datagrams)
        {
            rules.push_back(gvcp::Literal(datagram));
        }
        peer.Otherwise(gvcp::Sequence(rules));
    }

    /// Sends one more datagram to the peer, so that whatever was sent before has arrived when it has.
    std::vector<GvcpCamera::Datagram> ReceivedSoFar()
    {
        const int sender = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(3956);
        to.sin_addr.s_addr = inet_addr("10.9.0.5");
        sendto(sender, "mark", 4, 0, reinterpret_cast<sockaddr*>(&to), sizeof to);
        close(sender);
        for (;;)
        {
            std::vector<GvcpCamera::Datagram> received = peer.Received();
            if (!received.empty() && received.back().bytes == Bytes{'m', 'a', 'r', 'k'})
            {
                received.pop_back();
                return received;
            }
            if (!peer.WaitForCount(received.size() + 1))
            {
                ADD_FAILURE() << "the mark never came";
                return received;
            }
        }
    }

    CameraNetwork network;
    GvcpCamera peer{&network.host};
    InterfaceModule module;
};

GvcpDiscovery CameraNumber(unsigned int number)
{
    GvcpDiscovery camera = Camera();
    camera.macLow = number;
    camera.ipAddress = 0x0A090100 + number;
    return camera;
}

GvcpDiscovery CameraOfVersion(unsigned int number, const std::string& version)
{
    GvcpDiscovery camera = CameraNumber(number);
    camera.deviceVersion = version;
    camera.model = "V" + version;
    return camera;
}

} // namespace

// Deliberate(RequestIdIsFixed)
TEST_F(Discovery, OneBroadcastOfEightBytesGoesOut)
{
    module.Scan();
    const std::vector<GvcpCamera::Datagram> received = ReceivedSoFar();
    ASSERT_EQ(received.size(), 1u);
    EXPECT_EQ(received[0].bytes, (Bytes{0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01}));
    EXPECT_EQ(received[0].senderAddress, "10.9.0.1");
}

TEST_F(Discovery, EachFieldOfTheAcknowledgeReachesTheRecord)
{
    GvcpDiscovery camera = Camera();
    camera.specMajor = 2;
    camera.specMinor = 3;
    camera.deviceMode = 0x80010203;
    camera.ipConfigOptions = 0x80000007;
    camera.ipConfigCurrent = 0x00000005;
    camera.serialNumber = "SN-42";
    camera.userDefinedName = "left";
    peer.SetDiscovery(camera);
    EXPECT_TRUE(module.Scan());
    ASSERT_EQ(module.Devices().size(), 1u);
    const _NQ_GEV_DEVICE_INFO info = module.Devices()[0];
    EXPECT_EQ(info.id, "Eye:02-0a-0b-01-02-03");
    EXPECT_EQ(info.vendorName, "Nerquil");
    EXPECT_EQ(info.modelName, "Eye");
    EXPECT_EQ(info.displayName, "Eye");
    EXPECT_EQ(info.tlType, "GEV");
    EXPECT_EQ(info.accessStatus, 0u);
    EXPECT_EQ(info.userDefinedName, "left");
    EXPECT_EQ(info.serialNumber, "SN-42");
    EXPECT_EQ(info.deviceVersion, "3.1.0");
    EXPECT_EQ(info.spareQuad, 0u);
    EXPECT_EQ(info.spareWord, 0u);
    EXPECT_EQ(info.specVersion, 0x00020003u);
    EXPECT_EQ(info.deviceMode, 0x80010203u);
    EXPECT_EQ(info.spareWord2, 0u);
    EXPECT_EQ(info.macHigh, 0x020Au);
    EXPECT_EQ(info.macLow, 0x0B010203u);
    EXPECT_EQ(info.ipConfigOptions, 0x80000007u);
    EXPECT_EQ(info.ipConfigCurrent, 0x00000005u);
    EXPECT_EQ(info.ipAddress, 0x0A090005u);
    EXPECT_EQ(info.subnetMask, 0xFFFFFF00u);
    EXPECT_EQ(info.gateway, 0x0A0900FEu);
    EXPECT_EQ(info.interfaceIp, 0x0A090001u);
    EXPECT_EQ(info.interfaceMask, 0xFFFFFF00u);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(3956);
    address.sin_addr.s_addr = inet_addr("10.9.0.5");
    EXPECT_EQ(std::memcmp(&info.controlAddress, &address, sizeof address), 0);
}

TEST_F(Discovery, A255ByteAcknowledgeIsIgnoredAndA256ByteOneAccepted)
{
    Bytes tooShort = Acknowledge(CameraNumber(1));
    tooShort.resize(255);
    const Bytes enough = Acknowledge(CameraNumber(2));
    ASSERT_EQ(enough.size(), 256u);
    Answer({tooShort, enough});
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-00-00-00-02"));
}

TEST_F(Discovery, AnotherAcknowledgeCodeIsIgnored)
{
    Bytes other = Acknowledge(CameraNumber(1));
    other[3] = 0x81;
    Bytes command = Acknowledge(CameraNumber(2));
    command[3] = 0x02;
    Answer({other, command, Acknowledge(CameraNumber(3))});
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-00-00-00-03"));
}

TEST_F(Discovery, StatusLengthAndIdAreNotLookedAt)
{
    Bytes odd = Acknowledge(CameraNumber(1));
    odd[0] = 0x80;
    odd[1] = 0x06;
    odd[4] = 0xFF;
    odd[5] = 0xFF;
    odd[6] = 0x12;
    odd[7] = 0x34;
    Answer({odd});
    module.Scan();
    EXPECT_EQ(module.Ids().size(), 1u);
}

TEST_F(Discovery, TheSenderIsNotLookedAt)
{
    network.host.Shell("ip addr add 10.9.0.99/24 dev eth0");
    const auto stranger = std::make_shared<GvcpCamera>(&network.host, "10.9.0.99", std::uint16_t{4000});
    peer.Otherwise([this, stranger](const Bytes&) -> std::vector<GvcpReply> {
        stranger->Send(Acknowledge(CameraNumber(1)), "10.9.0.1", peer.Received().back().senderPort);
        return {};
    });
    module.Scan();
    ASSERT_EQ(module.Ids().size(), 1u);
    EXPECT_EQ(module.Devices()[0].controlAddress.sin_addr.s_addr, inet_addr("10.9.1.1"));
}

TEST_F(Discovery, AVersionFrom300OnIsListedByPlainTextComparison)
{
    const std::string listed[] = {"3.0.0", "3.0.0-beta", "4.1", "3.1", "beta"};
    const std::string dropped[] = {"2.9.9", "3.0", "10.0.0", ""};
    std::vector<Bytes> answers;
    unsigned int number = 0;
    for (const std::string& version : dropped)
    {
        answers.push_back(Acknowledge(CameraOfVersion(++number, version)));
    }
    for (const std::string& version : listed)
    {
        answers.push_back(Acknowledge(CameraOfVersion(++number, version)));
    }
    Answer(answers);
    module.Scan();
    std::vector<std::string> versions;
    for (const _NQ_GEV_DEVICE_INFO& info : module.Devices())
    {
        versions.push_back(info.deviceVersion);
    }
    EXPECT_THAT(versions, testing::ElementsAreArray(listed));
}

// Deliberate(TextsRunOn)
TEST_F(Discovery, DeliberateANameThatFillsItsFieldRunsIntoTheNext)
{
    GvcpDiscovery camera = Camera();
    camera.manufacturer = std::string(32, 'M');
    camera.model = "Eye";
    camera.serialNumber = "0123456789ABCDEF";
    camera.userDefinedName = "right";
    peer.SetDiscovery(camera);
    module.Scan();
    ASSERT_EQ(module.Devices().size(), 1u);
    EXPECT_EQ(module.Devices()[0].vendorName, std::string(32, 'M') + "Eye");
    EXPECT_EQ(module.Devices()[0].modelName, "Eye");
    EXPECT_EQ(module.Devices()[0].serialNumber, "0123456789ABCDEFright");
}

TEST_F(Discovery, ATextWithoutAnyEndStopsWithTheDatagram)
{
    Bytes endless = Acknowledge(Camera());
    std::fill(endless.begin() + 80, endless.end(), static_cast<unsigned char>('x'));
    Bytes longest = endless;
    longest.resize(548, 'y');
    longest[20] = 0x77; // another camera
    Answer({endless, longest});
    module.Scan();
    ASSERT_EQ(module.Devices().size(), 2u);
    EXPECT_EQ(module.Devices()[0].vendorName, std::string(256 - 80, 'x'));
    EXPECT_EQ(module.Devices()[0].userDefinedName, std::string(16, 'x'));
    EXPECT_EQ(module.Devices()[1].userDefinedName, std::string(16, 'x') + std::string(548 - 256, 'y'));
    EXPECT_EQ(module.Devices()[1].id.size(), 548u - 112 + 18);
}

TEST_F(Discovery, ADatagramLongerThanThePacketIsCutOff)
{
    Bytes longer = Acknowledge(Camera());
    std::fill(longer.begin() + 240, longer.end(), static_cast<unsigned char>('x'));
    longer.resize(1400, 'z');
    Answer({longer});
    module.Scan();
    ASSERT_EQ(module.Devices().size(), 1u);
    EXPECT_EQ(module.Devices()[0].userDefinedName.size(), 548u - 240);
}

TEST_F(Discovery, MalformedDatagramsAreSkipped)
{
    Answer({Bytes{}, Bytes{0}, Bytes{0, 0, 0, 3}, Bytes(7, 0xFF), Bytes(548, 0xFF), Acknowledge(CameraNumber(5))});
    module.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-00-00-00-05"));
}

TEST_F(Discovery, TimeoutZeroSendsOnePacketReadsNothingAndEmptiesTheList)
{
    EXPECT_TRUE(module.Scan());
    ASSERT_EQ(module.Ids().size(), 1u);
    peer.Forget();
    EXPECT_TRUE(module.Scan(0)) << "it held a device";
    EXPECT_TRUE(peer.WaitForCount(1));
    EXPECT_THAT(module.Ids(), IsEmpty());
    EXPECT_FALSE(module.Scan(0)) << "it held none";
    EXPECT_EQ(ReceivedSoFar().size(), 2u);
}

TEST_F(Discovery, ATimeoutShorterThanOneWaitStillHearsAnAnswer)
{
    // The one wait of 100 ms may be too short for a peer on a busy machine, but not every time.
    for (int attempt = 0; attempt < 20 && module.Ids().empty(); ++attempt)
    {
        module.Scan(50);
    }
    EXPECT_EQ(module.Ids().size(), 1u);
}

TEST_F(Discovery, AScanListensForItsWholeTime)
{
    peer.Otherwise(gvcp::Late(std::chrono::milliseconds(1000), gvcp::Literal(Acknowledge(Camera()))));
    const auto start = std::chrono::steady_clock::now();
    module.Scan(3000);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(3000));
    EXPECT_EQ(module.Ids().size(), 1u);
    EXPECT_EQ(ReceivedSoFar().size(), 1u) << "nothing is sent again";
}

TEST_F(Discovery, FiftyCamerasAtOnceAreListedInTheOrderOfTheirAnswers)
{
    std::vector<Bytes> answers;
    std::vector<std::string> ids;
    for (unsigned int number = 50; number > 0; --number)
    {
        answers.push_back(Acknowledge(CameraNumber(number)));
        char id[32];
        std::snprintf(id, sizeof id, "Eye:02-0a-00-00-00-%02x", number);
        ids.push_back(id);
    }
    Answer(answers);
    EXPECT_TRUE(module.Scan(2000));
    EXPECT_EQ(module.Ids(), ids);
    EXPECT_FALSE(module.Scan(2000));
}

TEST_F(Discovery, TwoAcksWithOneIdGiveOneEntryAndOnALaterScanTheValuesOfTheLast)
{
    GvcpDiscovery first = Camera();
    first.serialNumber = "first";
    GvcpDiscovery second = Camera();
    second.serialNumber = "second";
    GvcpDiscovery third = Camera();
    third.serialNumber = "third";
    Answer({Acknowledge(first), Acknowledge(second), Acknowledge(third)});
    EXPECT_TRUE(module.Scan());
    ASSERT_EQ(module.Devices().size(), 1u);
    EXPECT_EQ(module.Devices()[0].serialNumber, "first");
    EXPECT_FALSE(module.Scan()) << "a refresh is no change";
    ASSERT_EQ(module.Devices().size(), 1u);
    EXPECT_EQ(module.Devices()[0].serialNumber, "third");
}

TEST_F(Discovery, ACameraThatAnswersAgainAndAgainIsKeptTwiceAtMost)
{
    Answer(std::vector<Bytes>(40, Acknowledge(Camera())));
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    EXPECT_TRUE(module._discoverDevices(found, 1000));
    EXPECT_EQ(found.size(), 2u);
}

TEST_F(Discovery, AFloodEndsInTime)
{
    std::atomic<bool> stop = false;
    std::promise<std::uint16_t> target;
    peer.Otherwise([&](const Bytes&) -> std::vector<GvcpReply> {
        target.set_value(peer.Received().back().senderPort);
        return {};
    });
    std::thread flood([&] {
        const std::uint16_t port = target.get_future().get();
        for (unsigned int number = 0; !stop; ++number)
        {
            peer.Send(Acknowledge(CameraNumber(number)), "10.9.0.1", port);
        }
    });
    const auto start = std::chrono::steady_clock::now();
    module.Scan();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    stop = true;
    flood.join();
    EXPECT_FALSE(module.Ids().empty());
    EXPECT_LE(module.Ids().size(), 4096u);
}

TEST_F(Discovery, TheListAnswersWhileAScanRuns)
{
    // A query that had to wait for the end of the scan would hold back the answer until nobody listens.
    peer.Otherwise([this](const Bytes& command) {
        unsigned int count = 99;
        EXPECT_EQ(module.GetNumDevices(&count), 0);
        EXPECT_EQ(count, 0u);
        EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60410), 0u);
        return gvcp::Literal(Acknowledge(Camera()))(command);
    });
    EXPECT_TRUE(module.Scan());
    EXPECT_EQ(module.Ids().size(), 1u);
}

TEST_F(Discovery, AVanishedCameraIsErasedAndAChangeTold)
{
    EXPECT_TRUE(module.Scan());
    peer.Otherwise(gvcp::Silent());
    EXPECT_TRUE(module.Scan());
    EXPECT_THAT(module.Ids(), IsEmpty());
    EXPECT_FALSE(module.Scan());
}

TEST_F(Discovery, ACameraKeepsItsIdentityAcrossAddressChanges)
{
    EXPECT_TRUE(module.Scan());
    GvcpDiscovery moved = Camera();
    moved.ipAddress = 0x0A090063;
    peer.SetDiscovery(moved);
    EXPECT_FALSE(module.Scan());
    ASSERT_EQ(module.Devices().size(), 1u);
    EXPECT_EQ(module.Devices()[0].ipAddress, 0x0A090063u);
    EXPECT_EQ(module.Devices()[0].controlAddress.sin_addr.s_addr, inet_addr("10.9.0.99"));
}

// Deliberate(FailedScanEmptiesTheList)
TEST_F(Discovery, AFailedSendEmptiesTheList)
{
    EXPECT_TRUE(module.Scan());
    Shell("ip link del cam0");
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    EXPECT_FALSE(module._discoverDevices(found, 200));
    EXPECT_TRUE(module.Scan());
    EXPECT_THAT(module.Ids(), IsEmpty());
}

TEST_F(Discovery, OnlyTheCamerasOfItsOwnAdapterAreFound)
{
    Host other;
    other.Connect("cam1", "10.7.0.1/16", "eth0", "10.7.0.5/16");
    WaitForCarrier(other, "cam1", "eth0");
    GvcpCamera neighbour(&other);
    GvcpDiscovery camera = Camera();
    camera.model = "Neighbour";
    camera.ipAddress = 0x0A070005;
    camera.subnetMask = 0xFFFF0000;
    neighbour.SetDiscovery(camera);
    InterfaceModule second(Adapter("10.7.0.1", "255.255.0.0"));
    ASSERT_EQ(second.Open(), 0);
    module.Scan();
    second.Scan();
    EXPECT_THAT(module.Ids(), ElementsAre("Eye:02-0a-0b-01-02-03"));
    EXPECT_THAT(second.Ids(), ElementsAre("Neighbour:02-0a-0b-01-02-03"));
    EXPECT_EQ(second.Devices()[0].interfaceIp, 0x0A070001u);
    EXPECT_EQ(second.Devices()[0].interfaceMask, 0xFFFF0000u);
    EXPECT_EQ(second.Close(), 0);
}

TEST_F(Discovery, ScansOnSeveralThreadsDoNotDisturbTheList)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
    {
        threads.emplace_back([this] {
            module.UpdateDeviceList(nullptr, 100);
            module.Ids();
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    module.Scan();
    EXPECT_EQ(module.Ids().size(), 1u);
}

TEST(DiscoveryAddresses, TheExcludedAddressesSendNothing)
{
    const CameraNetwork network;
    Shell("ip route add default dev cam0");
    GvcpCamera peer(&network.host);
    for (const char* address : {"0.0.0.0", "127.0.0.1"})
    {
        InterfaceModule module(Adapter(address));
        ASSERT_EQ(module.Open(), 0);
        std::vector<_NQ_GEV_DEVICE_INFO> found;
        EXPECT_FALSE(module._discoverDevices(found, 100)) << address;
        EXPECT_EQ(module.Close(), 0);
    }
    InterfaceModule good;
    ASSERT_EQ(good.Open(), 0);
    good.Scan(0);
    EXPECT_TRUE(peer.WaitForCount(1));
    EXPECT_EQ(peer.Received()[0].senderAddress, "10.9.0.1") << "the first that came";
    EXPECT_EQ(good.Close(), 0);
}

TEST(DiscoveryAddresses, AnEmptyAddressTextPassesTheCheck)
{
    const CameraNetwork network;
    Shell("ip route add default dev cam0");
    GvcpCamera peer(&network.host);
    peer.SetDiscovery(Camera());
    InterfaceModule module(Adapter(""));
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    EXPECT_EQ(module.Ids().size(), 1u);
    EXPECT_EQ(module.Close(), 0);
}
