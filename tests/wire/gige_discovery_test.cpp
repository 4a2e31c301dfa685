// SPDX-License-Identifier: Apache-2.0
// Discovery by GigETL::Camera over a virtual cable.
#include "gige/gige_camera.h"
#include "gige/gige_camera_map.h"
#include "gige/nqgige.h"
#include "support/gvcp_camera.h"
#include "support/network.h"

#include <gmock/gmock.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using GigETL::Camera;
using GigETL::Command;
using GigETL::Network;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using nq::test::GvcpDiscovery;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace nq::test::gvcp;
using namespace std::chrono_literals;

constexpr unsigned int kLocal = 0x0A090001;

std::string Text(const char* field, std::size_t width)
{
    return std::string(field, strnlen(field, width));
}

/// A host with a camera's control port at the other end of a cable.
class Discovery : public testing::Test
{
  protected:
    void SetUp() override
    {
        m_there.Connect("nq0", "10.9.0.1/24", "cam0", "10.9.0.2/24");
        m_peer = std::make_unique<GvcpCamera>(&m_there);
        m_record.ipAddress = 0x0A090002;
        m_record.subnetMask = 0xFFFFFF00;
        m_record.gateway = 0x0A0900FE;
        Answers({Acknowledge(m_record.Body())});
        m_peer->AwaitPath("10.9.0.1");
    }

    /// Has the peer answer every discovery with these and then end its time, so that no case waits for nothing.
    void Answers(std::vector<nq::test::GvcpRule> rules)
    {
        rules.push_back(Pending(0));
        m_peer->Otherwise(Sequence(std::move(rules)));
    }

    NQGigE_RETURN Discover(unsigned long timeoutMs = 10000, unsigned int port = 3956, unsigned int local = kLocal)
    {
        return Camera::discoverCameras(port, local, timeoutMs, &Take, this);
    }

    static NQGigE_RETURN Take(NQGigE_SIGNAL* signal, void* context)
    {
        auto* self = static_cast<Discovery*>(context);
        EXPECT_EQ(signal->type, 14U);
        EXPECT_EQ(signal->size, 280U);
        self->m_found.push_back(*static_cast<const NQGigE_CAMERA*>(signal->data));
        if (self->m_onFound)
        {
            self->m_onFound(*static_cast<NQGigE_CAMERA*>(signal->data));
        }
        return NQGigE_TIMEOUT; // dropped
    }

    nq::test::Host m_there;
    std::unique_ptr<GvcpCamera> m_peer;
    GvcpDiscovery m_record;
    std::vector<NQGigE_CAMERA> m_found;
    std::function<void(NQGigE_CAMERA&)> m_onFound;
};

TEST_F(Discovery, CommandIsABroadcastOfSixteenBytes)
{
    EXPECT_EQ(Discover(), 0);
    EXPECT_THAT(m_peer->ReceivedBytes(),
                ElementsAre(Bytes{0x42, 0x11, 0x00, 0x02, 0x00, 0x08, 0x00, 0x01, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(m_peer->Received()[0].senderAddress, "10.9.0.1");
}

TEST_F(Discovery, RecordHoldsEveryFieldOfTheAnswer)
{
    m_record.specMajor = 0x0002;
    m_record.specMinor = 0x0001;
    m_record.macHigh = 0x02AB;
    m_record.macLow = 0x0C0D0E0F;
    m_record.manufacturer = "Maker";
    m_record.model = "Model";
    m_record.deviceVersion = "Version";
    m_record.manufacturerInfo = "Information";
    m_record.serialNumber = "Serial";
    m_record.userDefinedName = "Name";
    Answers({Acknowledge(m_record.Body())});
    ASSERT_EQ(Discover(), 0);
    ASSERT_THAT(m_found, SizeIs(1));
    const NQGigE_CAMERA& camera = m_found[0];
    EXPECT_EQ(camera.ipAddress, 0x0A090002U);
    EXPECT_EQ(camera.subnetMask, 0xFFFFFF00U);
    EXPECT_EQ(camera.defaultGateway, 0x0A0900FEU);
    EXPECT_EQ(camera.macUpper, 0x02ABU);
    EXPECT_EQ(camera.macLower, 0x0C0D0E0FU);
    EXPECT_STREQ(camera.ipAddressText, "10.9.0.2");
    EXPECT_STREQ(camera.subnetMaskText, "255.255.255.0");
    EXPECT_STREQ(camera.macText, "02:ab:0c:0d:0e:0f");
    EXPECT_STREQ(camera.manufacturer, "Maker");
    EXPECT_STREQ(camera.model, "Model");
    EXPECT_STREQ(camera.manufacturerInfo, "Information");
    EXPECT_STREQ(camera.deviceVersion, "Version");
    EXPECT_STREQ(camera.serialNumber, "Serial");
    EXPECT_STREQ(camera.userDefinedName, "Name");
    EXPECT_EQ(camera.specVersionMinor, 1);
    EXPECT_EQ(camera.specVersionMajor, 2);
    EXPECT_EQ(camera.adapterIpAddress, kLocal);
    EXPECT_EQ(camera.reserved, 0U);
}

TEST_F(Discovery, TextsThatFillTheirFieldsAreUnterminatedAndKeptWithinThem)
{
    m_record.manufacturer = std::string(32, 'a');
    m_record.model = std::string(32, 'b');
    m_record.deviceVersion = std::string(32, 'c');
    m_record.manufacturerInfo = std::string(48, 'd');
    m_record.serialNumber = std::string(16, 'e');
    m_record.userDefinedName = std::string(16, 'f');
    Answers({Acknowledge(m_record.Body())});
    ASSERT_EQ(Discover(), 0);
    ASSERT_THAT(m_found, SizeIs(1));
    const NQGigE_CAMERA& camera = m_found[0];
    EXPECT_EQ(Text(camera.manufacturer, 32), std::string(32, 'a'));
    EXPECT_EQ(Text(camera.model, 32), std::string(32, 'b'));
    EXPECT_EQ(Text(camera.deviceVersion, 32), std::string(32, 'c'));
    EXPECT_EQ(Text(camera.manufacturerInfo, 48), std::string(48, 'd'));
    EXPECT_EQ(Text(camera.serialNumber, 16), std::string(16, 'e'));
    EXPECT_EQ(Text(camera.userDefinedName, 16), std::string(16, 'f'));
    EXPECT_EQ(camera.specVersionMinor, 1);
}

TEST_F(Discovery, BytesBehindTheEndOfATextAreNotKept)
{
    m_record.manufacturer = std::string("ab\0cd", 5);
    m_record.userDefinedName = std::string("\0rest of an older name", 16);
    Answers({Acknowledge(m_record.Body())});
    ASSERT_EQ(Discover(), 0);
    ASSERT_THAT(m_found, SizeIs(1));
    const NQGigE_CAMERA& camera = m_found[0];
    EXPECT_EQ(std::string(camera.manufacturer, 32), "ab" + std::string(30, '\0'));
    EXPECT_EQ(std::string(camera.userDefinedName, 16), std::string(16, '\0'));
}

TEST_F(Discovery, ShortAnswerReadsAsZeroBehindItsEnd)
{
    Answers({Short(60, Acknowledge(m_record.Body()))});
    ASSERT_EQ(Discover(), 0);
    ASSERT_THAT(m_found, SizeIs(1));
    EXPECT_EQ(m_found[0].ipAddress, 0x0A090002U);
    EXPECT_EQ(m_found[0].subnetMask, 0U);
    EXPECT_STREQ(m_found[0].subnetMaskText, "0.0.0.0");
    EXPECT_EQ(Text(m_found[0].manufacturer, 32), "");
}

TEST_F(Discovery, ShorterTextOfTheNextCameraLeavesNothingOfTheOneBefore)
{
    GvcpDiscovery second = m_record;
    second.ipAddress = 0x0A090003;
    second.model = "M";
    m_record.model = "LongModelName";
    Answers({Acknowledge(m_record.Body()), Acknowledge(second.Body())});
    ASSERT_EQ(Discover(), 0);
    ASSERT_THAT(m_found, SizeIs(2));
    EXPECT_EQ(std::string(m_found[1].model, 32), "M" + std::string(31, '\0'));
}

TEST_F(Discovery, BadAnswersAreSkipped)
{
    const auto good = Acknowledge(m_record.Body());
    // A bad answer swallows the one that waits behind it, so one is given for each.
    Answers({WrongId(good), good, WithCode(0x0081, good), good, Acknowledge(m_record.Body(), 0x8006), good, Literal({}),
             good, good});
    EXPECT_EQ(Discover(), 0);
    EXPECT_THAT(m_found, testing::Not(IsEmpty()));
    EXPECT_THAT(m_found, testing::Each(testing::Field(&NQGigE_CAMERA::ipAddress, 0x0A090002U)));
}

TEST_F(Discovery, StatusOtherThanZeroIsNoCamera)
{
    m_peer->Otherwise(Acknowledge(m_record.Body(), 0x8006));
    EXPECT_EQ(Discover(50), -212);
    EXPECT_THAT(m_found, IsEmpty());
}

TEST_F(Discovery, WithoutAnyAnswerItTimesOut)
{
    m_peer->Otherwise(Silent());
    EXPECT_EQ(Discover(20), -212);
    EXPECT_THAT(m_found, IsEmpty());
    EXPECT_EQ(GigETL::cameras.find(0x0A090002), nullptr);
}

TEST_F(Discovery, TimeoutIsOneBudgetForAllAnswers)
{
    // An answer every 300 ms would go on for 3 s; one second in all lets in three at most.
    const auto good = Acknowledge(m_record.Body());
    std::vector<nq::test::GvcpRule> answers;
    for (int answer = 1; answer <= 10; ++answer)
    {
        answers.push_back(Late(answer * 300ms, good));
    }
    std::size_t found = 10;
    for (int attempt = 0; attempt < 5 && found > 3; ++attempt) // time in which a machine stands still is not counted
    {
        m_found.clear();
        m_peer->Next(Sequence(answers));
        EXPECT_EQ(Discover(1000), 0);
        found = m_found.size();
    }
    EXPECT_LE(found, 3U);
}

// Deliberate(EarlierCamerasCount)
TEST_F(Discovery, SecondDiscoveryWithoutAnAnswerSucceedsWhenTheFirstFoundACamera)
{
    ASSERT_EQ(Discover(), 0);
    m_peer->Otherwise(Silent());
    EXPECT_EQ(Discover(20), 0);
    EXPECT_THAT(m_found, SizeIs(1));
    EXPECT_EQ(Camera::shutdownCameras(), 0);
    EXPECT_EQ(Discover(20), -212);
}

TEST_F(Discovery, FailedBroadcastCountsLikeAnyOtherEnd)
{
    nq::test::Shell("ip route add unreachable 255.255.255.255/32");
    EXPECT_EQ(Discover(20, 3956, 0), -212);
    ASSERT_EQ(Discover(), 0);
    EXPECT_EQ(Discover(20, 3956, 0), 0);
}

TEST_F(Discovery, NegativeTimeIsASocketError)
{
    EXPECT_EQ(Discover(static_cast<unsigned long>(-1000)), -10);
}

TEST_F(Discovery, ForeignLocalAddressGivesNoLocalPort)
{
    EXPECT_EQ(Discover(20, 3956, 0x0B000001), -102);
}

// Deliberate(PortlessNetworkStays)
TEST_F(Discovery, NetworkWithoutALocalPortIsNotFreed)
{
    EXPECT_EQ(Discover(20, 3956, 0x0B000001), -102);
    EXPECT_EQ(Network::mInstanceCounter.load(), 1);
    EXPECT_EQ(Discover(), 0);
    EXPECT_EQ(Network::mInstanceCounter.load(), 1);
}

TEST_F(Discovery, StoredRecordIsACopyWithItsLastEightBytesZero)
{
    m_onFound = [](NQGigE_CAMERA& camera) { camera.reserved = 0x1122334455667788; };
    ASSERT_EQ(Discover(), 0);
    const NQGigE_CAMERA* stored = GigETL::cameras.find(0x0A090002);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->reserved, 0U);
    EXPECT_STREQ(stored->model, "Model");
}

TEST_F(Discovery, NewerRecordReplacesTheOneOfTheSameAddress)
{
    ASSERT_EQ(Discover(), 0);
    m_record.model = "Newer";
    Answers({Acknowledge(m_record.Body())});
    ASSERT_EQ(Discover(), 0);
    EXPECT_STREQ(GigETL::cameras.find(0x0A090002)->model, "Newer");
}

TEST_F(Discovery, OpenCameraFindsItsRecordByItsAddress)
{
    const Camera camera(0x0A090002, 3956, kLocal, MULTICAST_OFF);
    EXPECT_EQ(camera.findByIP_FromCameraNetworkParameter(), nullptr);
    ASSERT_EQ(Discover(), 0);
    ASSERT_NE(camera.findByIP_FromCameraNetworkParameter(), nullptr);
    EXPECT_STREQ(camera.findByIP_FromCameraNetworkParameter()->ipAddressText, "10.9.0.2");
    const Camera other(0x0A090003, 3956, kLocal, MULTICAST_OFF);
    EXPECT_EQ(other.findByIP_FromCameraNetworkParameter(), nullptr);
}

TEST_F(Discovery, CommandBuiltMeanwhileMakesItSkipItsAnswers)
{
    const auto good = Acknowledge(m_record.Body());
    m_peer->Next(
        Sequence({good, Late(50ms, good), Late(100ms, good), Late(200ms, Pending(0)), Late(250ms, Pending(0))}));
    m_onFound = [](NQGigE_CAMERA&) { const Command command(0x0080, 4, 0x01); };
    EXPECT_EQ(Discover(), 0);
    EXPECT_THAT(m_found, SizeIs(1));
}

TEST_F(Discovery, CamerasCanBeDiscoveredOnSeveralThreadsWhileRecordsAreForgotten)
{
    const auto discover = [] {
        for (int round = 0; round < 5; ++round)
        {
            Camera::discoverCameras(
                3956, kLocal, 20, [](NQGigE_SIGNAL*, void*) { return NQGigE_SUCCESS; }, nullptr);
        }
    };
    std::thread first(discover);
    std::thread second(discover);
    for (int round = 0; round < 100; ++round)
    {
        EXPECT_EQ(Camera::shutdownCameras(), 0);
    }
    first.join();
    second.join();
}

TEST_F(Discovery, FlatFunctionsNeedACallback)
{
    EXPECT_EQ(discoverCamerasExt(3956, kLocal, 10, nullptr, nullptr), -218);
    EXPECT_EQ(discoverCameras(kLocal, 10, nullptr, nullptr), -218);
    EXPECT_THAT(m_peer->ReceivedBytes(), IsEmpty());
}

TEST_F(Discovery, FlatFunctionsUseTheGivenOrTheStandardPort)
{
    GvcpCamera elsewhere(&m_there, "0.0.0.0", 3999);
    elsewhere.Otherwise(Sequence({Acknowledge(m_record.Body()), Pending(0)}));
    EXPECT_EQ(discoverCameras(kLocal, 10000, &Take, this), 0);
    EXPECT_THAT(m_peer->ReceivedBytes(), SizeIs(1));
    EXPECT_THAT(elsewhere.ReceivedBytes(), IsEmpty());
    EXPECT_EQ(discoverCamerasExt(3999, kLocal, 10000, &Take, this), 0);
    EXPECT_THAT(m_peer->ReceivedBytes(), SizeIs(1));
    EXPECT_THAT(elsewhere.ReceivedBytes(), SizeIs(1));
    EXPECT_THAT(m_found, SizeIs(2));
    EXPECT_EQ(shutdownCameras(), 0);
    EXPECT_TRUE(GigETL::cameras.empty());
}

} // namespace
