// SPDX-License-Identifier: Apache-2.0
// The standard's answers of adapters whose address changed and of cameras whose status did.
#include "gev/nq_gev_remote_device.h"
#include "gev/nq_gev_thread_heartbeat.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fake_device.h"
#include "support/fake_module.h"
#include "support/gvcp_camera.h"
#include "support/system_module.h"

#include <gmock/gmock.h>

using namespace nq::test;

namespace
{

constexpr int kConnectionEvent = 4000;

TEST(StandardSystem, AnAdapterWithAnotherAddressIsRefreshed)
{
    SystemModule system(kStandardAnswers);
    EXPECT_TRUE(system.Merge({Entry("one", "10.1.2.3")}));
    EXPECT_FALSE(system.Merge({Entry("one", "10.1.2.3")}));
    EXPECT_TRUE(system.Merge({Entry("one", "10.1.2.4")}));
    EXPECT_EQ(system.InterfaceInfo("one", 1).text, "display 10.1.2.4");
    EXPECT_FALSE(system.Merge({Entry("one", "10.1.2.4")}));
    EXPECT_EQ(system.Ids(), std::vector<std::string>{"one"});
}

TEST(StandardSystem, AnAdapterWithSeveralAddressesKeepsItsFirst)
{
    SystemModule system(kStandardAnswers);
    EXPECT_TRUE(system.Merge({Entry("one", "10.1.2.3"), Entry("one", "10.1.2.4")}));
    EXPECT_FALSE(system.Merge({Entry("one", "10.1.2.3"), Entry("one", "10.1.2.4")}));
    EXPECT_EQ(system.InterfaceInfo("one", 1).text, "display 10.1.2.3");
}

TEST(StandardHeartbeat, EachCameraReportsItsOwnStatus)
{
    GvcpCamera camera;
    camera.SetRegister(0x0938, 600000);
    NQGevTL tl;
    FakeModule root(kStandardAnswers);
    FakeDevice first(&root);
    FakeDevice second(&root);
    RegisteredEvent firstEvent(first, kConnectionEvent);
    RegisteredEvent secondEvent(second, kConnectionEvent);
    NQGevRemoteDevice firstRemote(&tl, LoopbackCamera(), 3, &first);
    NQGevRemoteDevice secondRemote(&tl, LoopbackCamera(), 3, &second);
    ASSERT_EQ(firstRemote.Open(), 0);
    ASSERT_EQ(secondRemote.Open(), 0);
    NQGevThreadHeartbeat firstBeat(&firstRemote);
    NQGevThreadHeartbeat secondBeat(&secondRemote);
    for (int beat = 0; beat < 3; ++beat)
    {
        firstBeat.OnHeartBeat();
        secondBeat.OnHeartBeat();
    }
    EXPECT_EQ(firstEvent.Pending(), 1U);
    EXPECT_EQ(secondEvent.Pending(), 1U) << "though the other has told the same";
    // Records that nobody takes are never freed.
    EXPECT_THAT(firstEvent.Next(), testing::SizeIs(1024));
    EXPECT_THAT(secondEvent.Next(), testing::SizeIs(1024));
}

} // namespace
