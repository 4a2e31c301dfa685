// SPDX-License-Identifier: Apache-2.0
// The verbs for features on cameras that describe themselves oddly, and on those that stop in the middle.
#include "support/described_camera.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::ContainsRegex;

std::string Category(const std::string& name, const std::vector<std::string>& features)
{
    std::string text = "  <Category Name=\"" + name + "\">";
    for (const std::string& feature : features)
    {
        text += "<pFeature>" + feature + "</pFeature>";
    }
    return text + "</Category>\n";
}

std::string Register(const std::string& name, const std::string& address, const std::string& more = "")
{
    return "  <IntReg Name=\"" + name + "\"><Address>" + address +
           "</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort><Sign>Unsigned</Sign>"
           "<Endianess>BigEndian</Endianess>" +
           more + "</IntReg>\n";
}

TEST(ToolOnAnOddDescription, CategoriesThatNameEachOtherAreWalkedOnceEach)
{
    std::vector<std::string> all;
    for (int at = 0; at < 12; ++at)
    {
        all.push_back("C" + std::to_string(at));
    }
    std::string nodes = Category("Root", {"C0"});
    for (int at = 0; at < 12; ++at)
    {
        const std::string own = "Value" + std::to_string(at);
        nodes += Category(all[static_cast<std::size_t>(at)], Joined(all, {own})) + Register(own, "0x20000");
    }
    const DescribedCamera described(nodes);
    const Outcome features = RunTool({"features"});
    EXPECT_EQ(features.exitCode, 0) << features.output;
    for (int at = 0; at < 12; ++at)
    {
        EXPECT_THAT(features.output, ContainsRegex("\n  Value" + std::to_string(at) + " +RW  0\n"));
    }
}

} // namespace
