// SPDX-License-Identifier: Apache-2.0
// The free-standing GVCP command builder.
#include "gev/nq_gev_util.h"

#include <gmock/gmock.h>

#include <array>
#include <vector>

namespace
{

using testing::ElementsAre;
using testing::IsEmpty;

TEST(CreateGVCPCommand, DiscoveryIsTheEightHeaderBytes)
{
    EXPECT_THAT(NQGevUtil::CreateGVCPCommand(0x0002, nullptr, 0, 0x11, 1),
                ElementsAre(0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01));
}

TEST(CreateGVCPCommand, AccessProbeIsHeaderAndAddress)
{
    std::array<unsigned char, 4> address{0x00, 0x00, 0x0A, 0x00};
    EXPECT_THAT(NQGevUtil::CreateGVCPCommand(0x0080, address.data(), 4, 0x01, 1),
                ElementsAre(0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00));
}

TEST(CreateGVCPCommand, NullPayloadOfLengthZeroGivesTheHeader)
{
    EXPECT_THAT(NQGevUtil::CreateGVCPCommand(0x1234, nullptr, 0, 0xAB, 0xFEDC),
                ElementsAre(0x42, 0xAB, 0x12, 0x34, 0x00, 0x00, 0xFE, 0xDC));
}

TEST(CreateGVCPCommand, PayloadOfLengthZeroGivesAnEmptyVector)
{
    unsigned char payload = 7;
    EXPECT_THAT(NQGevUtil::CreateGVCPCommand(0x0002, &payload, 0, 0x11, 1), IsEmpty());
}

// Deliberate(LengthWithoutAPayload)
TEST(CreateGVCPCommand, NullPayloadKeepsALengthThatClaimsABody)
{
    EXPECT_THAT(NQGevUtil::CreateGVCPCommand(0x0080, nullptr, 0x0104, 0x01, 1),
                ElementsAre(0x42, 0x01, 0x00, 0x80, 0x01, 0x04, 0x00, 0x01));
}

TEST(CreateGVCPCommand, LongestPayloadFollowsTheHeader)
{
    std::vector<unsigned char> payload(65535, 0x5A);
    const std::vector<unsigned char> packet = NQGevUtil::CreateGVCPCommand(0x0086, payload.data(), 65535, 0x01, 2);
    ASSERT_EQ(packet.size(), 65543U);
    EXPECT_EQ(packet[4], 0xFF);
    EXPECT_EQ(packet[5], 0xFF);
    EXPECT_EQ(packet[8], 0x5A);
    EXPECT_EQ(packet[65542], 0x5A);
}

TEST(CreateGVCPCommand, HasNoCounterOfItsOwn)
{
    const auto first = NQGevUtil::CreateGVCPCommand(0x0002, nullptr, 0, 0x11, 1);
    const auto second = NQGevUtil::CreateGVCPCommand(0x0002, nullptr, 0, 0x11, 1);
    EXPECT_EQ(first, second);
}

} // namespace
