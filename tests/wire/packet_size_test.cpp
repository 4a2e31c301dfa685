// SPDX-License-Identifier: Apache-2.0
// The search for the largest packet with the virtual camera at the other end of a real path, as it passes on the cable.
#include "gev/nq_gev_remote_device.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/capture.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <memory>
#include <set>
#include <string>
#include <vector>

using namespace nq::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

namespace
{

/// The library's own end, open for control, of a path whose links carry `linkSize` bytes.
class PacketSizeOnCable : public testing::Test
{
  protected:
    void Connect(unsigned int linkSize)
    {
        const std::string size = std::to_string(linkSize);
        Shell("ip link set dev host0 mtu " + size);
        camera.Machine().Shell("ip link set dev cam0 mtu " + size);
        _NQ_GEV_DEVICE_INFO record;
        record.ipAddress = 0x0A4D0002;
        record.interfaceIp = 0x0A4D0001;
        device = std::make_unique<NQGevRemoteDevice>(&tl, record, 3, nullptr);
        ASSERT_EQ(device->Open(), 0);
    }

    unsigned int Register(unsigned int address)
    {
        unsigned int value = 0;
        EXPECT_TRUE(device->_gvcpReadReg(address, &value, false));
        return value;
    }

    const VirtualCamera camera{{"--heartbeat", "60000"}};
    NQGevTL tl;
    std::unique_ptr<NQGevRemoteDevice> device;
};

/// What passed from the opener on: each packet by its ports and what it holds behind the GVCP header.
std::vector<std::string> Passed(const std::string& path)
{
    std::vector<std::string> passed;
    std::set<std::string> commands;
    for (const Packet& packet :
         Dissect(path, "udp.dstport != 9", {"udp.dstport", "udp.payload", "udp.length", "ip.flags.df", "gvcp.ack"}))
    {
        const bool acknowledge = !packet.at("gvcp.ack").empty();
        const std::string& port = packet.at("udp.dstport");
        if (port == "3500" && packet.at("udp.length") != "16")
        {
            passed.push_back("test packet of " + packet.at("udp.length") + ", df " + packet.at("ip.flags.df"));
        }
        // A command that is sent again, because a busy machine was late with the answer, has its old id.
        else if (const std::string& bytes = packet.at("udp.payload"); !acknowledge && commands.insert(bytes).second)
        {
            passed.push_back(port + " " + (bytes.size() < 24 ? bytes : bytes.substr(4, 4) + bytes.substr(16)));
        }
    }
    return passed;
}

} // namespace

TEST_F(PacketSizeOnCable, APathForNineThousandBytesCarriesTheTestPacketWhole)
{
    if (!Capture::Available())
    {
        GTEST_SKIP() << "tcpdump or tshark is not installed";
    }
    Connect(9000);
    Capture capture("host0", VirtualCamera::kAddress);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 9000U);
    std::vector<std::string> passed = Passed(capture.Finish());
    const std::string asked = "3956 008200000d04c0002328";
    const std::string packet = "test packet of 8980, df 1";
    const auto tests = std::count(passed.begin(), passed.end(), asked);
    EXPECT_THAT(tests, AllOf(Ge(1), Le(4)));
    EXPECT_EQ(std::count(passed.begin(), passed.end(), packet), tests);
    passed.erase(std::remove_if(passed.begin(), passed.end(),
                                [&](const std::string& line) { return line == asked || line == packet; }),
                 passed.end());
    EXPECT_THAT(passed, ElementsAre("3500 0000000000000000", "3956 008200000d0400002328", "3956 008200000d180a4d0001",
                                    "3956 008200000d0000000dac", "3956 008000000d04", "3956 008200000d0000000000",
                                    "3956 008200000d0400002328", "3956 008000000d04"));
    EXPECT_EQ(Register(0x0D00), 0U);
    EXPECT_EQ(Register(0x0D04), 9000U);
}

TEST_F(PacketSizeOnCable, AnOrdinaryPathLosesEveryTestPacket)
{
    if (!Capture::Available())
    {
        GTEST_SKIP() << "tcpdump or tshark is not installed";
    }
    Connect(1500);
    Capture capture("host0", VirtualCamera::kAddress);
    EXPECT_EQ(device->GetMaxSizeMTU(0, 16000), 1500U);
    EXPECT_THAT(Passed(capture.Finish()),
                ElementsAre("3500 0000000000000000", "3956 008200000d0400002328", "3956 008200000d180a4d0001",
                            "3956 008200000d0000000dac", "3956 008000000d04", "3956 008200000d04c0002328",
                            "3956 008200000d04c0002328", "3956 008200000d04c0002328", "3956 008200000d04c0002328",
                            "3956 008200000d0000000000", "3956 008200000d04000005dc", "3956 008000000d04"));
    EXPECT_EQ(Register(0x0D00), 0U);
    EXPECT_EQ(Register(0x0D04), 1500U);
}
