// SPDX-License-Identifier: Apache-2.0
// The standard's answers about who holds a camera that is not open here.
#include "support/fake_module.h"
#include "support/interface_module.h"

#include <atomic>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace nq::test;

namespace
{

constexpr char kEye[] = "Eye:02-0a-0b-01-02-03";

class StandardAccess : public testing::Test
{
  protected:
    void SetUp() override
    {
        ASSERT_EQ(module.Open(), 0);
        GvcpDiscovery camera = Camera();
        camera.model = "Eye";
        camera.macHigh = 0x020A;
        camera.macLow = 0x0B010203;
        camera.deviceVersion = "3.0.0";
        peer.SetDiscovery(camera);
        module.Scan();
        peer.Forget();
    }
    void TearDown() override { EXPECT_EQ(module.Close(), 0); }

    unsigned long Status()
    {
        const Info info = module.DeviceInfo(kEye, 5);
        EXPECT_EQ(info.result, 0);
        return info.number;
    }

    /// Asks again with `answer` when it came too late, as it may on a busy machine: the probe waits for 100 ms only.
    void ExpectStatus(unsigned long expected, const GvcpRule& answer)
    {
        unsigned long status = 0;
        for (int attempt = 0; attempt < 20 && status != expected; ++attempt)
        {
            peer.Next(answer);
            status = Status();
        }
        EXPECT_EQ(status, expected);
    }

    CameraNetwork network;
    GvcpCamera peer{&network.host};
    FakeModule root{kStandardAnswers};
    InterfaceModule module{Adapter(), &root};
};

TEST_F(StandardAccess, ACameraThatAnotherHoldsIsBusy)
{
    ExpectStatus(1, gvcp::Value(0));
    ExpectStatus(4, gvcp::Value(1));
    ExpectStatus(4, gvcp::Value(2));
}

TEST_F(StandardAccess, OnlyTheCameraAskedAnswersWithTheIdSent)
{
    ExpectStatus(4, gvcp::Sequence({gvcp::WrongId(gvcp::Value(0)), gvcp::WithCode(0x0003, gvcp::Value(0)),
                                    gvcp::Short(11, gvcp::Value(0)), gvcp::Value(2)}));
    GvcpCamera stranger(&network.host, "10.9.0.5", 3957);
    std::atomic<bool> spoke = false;
    ExpectStatus(4, [&](const Bytes& command) {
        const std::uint16_t port = peer.Received().back().senderPort;
        Bytes free = gvcp::Value(0)(command).front().bytes;
        stranger.Send(free, "10.9.0.1", port);
        spoke = true;
        return gvcp::Value(2)(command);
    });
    EXPECT_TRUE(spoke);
}

TEST_F(StandardAccess, EachProbeHasAnIdOfItsOwn)
{
    Status();
    Status();
    ASSERT_TRUE(peer.WaitForCount(2));
    EXPECT_EQ(peer.ReceivedBytes()[0], (Bytes{0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00}));
    EXPECT_EQ(peer.ReceivedBytes()[1], (Bytes{0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x02, 0x00, 0x00, 0x0A, 0x00}));
    EXPECT_EQ(peer.Received()[0].senderAddress, "10.9.0.1");
}

TEST_F(StandardAccess, ACameraThatDoesNotAnswerIsUnknown)
{
    peer.Otherwise(gvcp::Silent());
    EXPECT_EQ(Status(), 0U);
    EXPECT_TRUE(peer.WaitForCount(1));
    EXPECT_EQ(peer.Received().size(), 1U) << "one attempt";
}

/// The scan of an opening ends with the camera it is for; what others answered meanwhile is no answer to the next one.
TEST_F(StandardAccess, ACameraThatAnsweredAnOpeningAndIsGoneIsNotListed)
{
    GvcpDiscovery wanted = Camera();
    wanted.model = "Wanted";
    GvcpDiscovery gone = Camera();
    gone.model = "Gone";
    gone.macLow = 7;
    const GvcpRule first = gvcp::Acknowledge(wanted.Body());
    peer.Next(gvcp::Sequence({first, gvcp::Acknowledge(gone.Body())}));
    peer.Otherwise(first);
    const std::string id = "Wanted:02-0a-0b-01-02-03";
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    ASSERT_TRUE(module._discoverDevices(found, 20000, id.c_str()));
    ASSERT_EQ(found.size(), 1U);
    module.Scan(0);
    ASSERT_TRUE(peer.WaitForCount(2)) << "by now both answers to the first have left";
    module.Scan();
    EXPECT_EQ(module.Ids(), std::vector{id});
}

} // namespace
