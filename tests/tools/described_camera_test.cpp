// SPDX-License-Identifier: Apache-2.0
// The verbs for features on cameras that describe themselves oddly, and on those that stop in the middle.
#include "support/described_camera.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

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

/// Gain, the register 0x20004, of GainSelector, the register 0x20000.
std::string GainOfSelector()
{
    return Category("Root", {"GainSelector", "Gain"}) +
           "  <Enumeration Name=\"GainSelector\"><EnumEntry Name=\"AnalogAll\"><Value>0</Value></EnumEntry>"
           "<EnumEntry Name=\"DigitalAll\"><Value>1</Value></EnumEntry><pValue>GainSelectorReg</pValue>"
           "<pSelected>Gain</pSelected></Enumeration>\n" +
           Register("GainSelectorReg", "0x20000") + Register("Gain", "0x20004");
}

std::string Blanks(std::size_t count)
{
    return "<!--" + std::string(count, ' ') + "-->\n";
}

constexpr const char* kGainOne = "write 0x20004 = 0x00000001";

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

std::string Wide(const std::string& node, const std::string& name, const std::string& address, int length,
                 const std::string& more)
{
    return "  <" + node + " Name=\"" + name + "\"><Address>" + address + "</Address><Length>" + std::to_string(length) +
           "</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>" + more + "</" + node + ">\n";
}

TEST(ToolOnAnOddDescription, ValuesOfEverySizeAndSignAreAsPeopleWriteThem)
{
    const std::string big = "<Endianess>BigEndian</Endianess>";
    DescribedCamera described(
        Category("Root", {"Long", "Short", "Bits", "Heat", "Words"}) +
        Wide("IntReg", "Long", "0x20000", 8, "<Sign>Signed</Sign>" + big) +
        Wide("IntReg", "Short", "0x20008", 4, "<Sign>Signed</Sign>" + big) +
        Wide("IntReg", "BitsReg", "0x20010", 8, "<Sign>Unsigned</Sign>" + big) +
        "  <Integer Name=\"Bits\"><pValue>BitsReg</pValue><Representation>HexNumber</Representation></Integer>\n" +
        Wide("FloatReg", "HeatReg", "0x20018", 8, big) +
        "  <Float Name=\"Heat\"><pValue>HeatReg</pValue><Min>-40</Min><Max>85.5</Max><Unit>\u00b0C</Unit></Float>\n" +
        Wide("StringReg", "Words", "0x20020", 40, ""));
    const std::string words = "two  words, \"one\" \u00fcber, 'it' = $HOME";
    const Outcome set = RunTool({"set", "Long=-9223372036854775808", "Short=-5", "Bits=0x7FEDCBA987654321",
                                 "Heat=-12.25 \u00b0C", "Words=" + words});
    EXPECT_EQ(set.exitCode, 0);
    EXPECT_EQ(WithoutWait(set.output), "Long = -9223372036854775808\nShort = -5\nBits = 0x7FEDCBA987654321\n"
                                       "Heat = -12.25 \u00b0C\n"
                                       "Words = \"two  words, \\\"one\\\" \u00fcber, 'it' = $HOME\"\n");
    EXPECT_EQ(described.camera.GetMemory(0x20000, 12), (Bytes{0x80, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFB}));
    EXPECT_EQ(described.camera.GetMemory(0x20010, 8), (Bytes{0x7F, 0xED, 0xCB, 0xA9, 0x87, 0x65, 0x43, 0x21}));
    const Outcome json = RunTool({"--json", "get", "Long", "Short", "Words"});
    EXPECT_THAT(json.output, AllOf(HasSubstr("\"value\": -9223372036854775808,"), HasSubstr("\"value\": -5,"),
                                   HasSubstr("\"value\": \"two  words, \\\"one\\\" \\u00fcber, 'it' = $HOME\",")));
    for (const auto& [setting, limit] :
         {std::pair("Short=2147483648", "a whole number from -2147483648 to 2147483647"),
          {"Long=9223372036854775808", "a whole number"},
          {"Heat=-40.1", "a number from -40 to 85.5 \u00b0C"},
          {"Words=12345678901234567890123456789012345678901", "a text of at most 40 bytes"}})
    {
        const Outcome refused = RunTool({"set", setting});
        EXPECT_EQ(refused.exitCode, 2);
        EXPECT_EQ(WithoutWait(refused.output),
                  "nq-gev: " + std::string(setting) + ": takes " + limit + "; nothing was changed\n");
    }
}

TEST(ToolOnAnOddDescription, NamesAnEventBesideAFeatureWithBillionsOfWaysThroughIt)
{
    std::string nodes = Category("Root", {"Ways0", "EventMade"});
    for (int level = 0; level < 10; ++level)
    {
        const std::string next = "Ways" + std::to_string(level + 1);
        std::string variables;
        for (int way = 0; way < 16; ++way)
        {
            const std::string name = next + (way == 0 ? "" : "Of" + std::to_string(way));
            variables += "<pVariable Name=\"V" + std::to_string(way) + "\">" + name + "</pVariable>";
        }
        for (int way = 0; way < 16; ++way)
        {
            nodes += "  <IntSwissKnife Name=\"Ways" + std::to_string(level) +
                     (way == 0 ? "" : "Of" + std::to_string(way)) + "\">" + variables +
                     "<Formula>V0</Formula></IntSwissKnife>\n";
        }
    }
    DescribedCamera described(nodes + "  <IntReg Name=\"EventMade\"><Address>0</Address><Length>2</Length>"
                                      "<AccessMode>RO</AccessMode><pPort>EventPort</pPort><Sign>Unsigned</Sign>"
                                      "<Endianess>BigEndian</Endianess></IntReg>\n"
                                      "  <Port Name=\"EventPort\"><EventID>9001</EventID></Port>\n");
    described.camera.SetRegister(0x0900, 1);
    ChildProcess events({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "events"});
    ASSERT_TRUE(events.WaitForOutput("nq-gev: listening to the camera", kLongTime)) << events.Output();
    ASSERT_TRUE(described.camera.WaitFor("write 0x0B00 = 0x00000D80", 1, kLongTime)) << "where events are sent";
    described.camera.Send({0x42, 0, 0, 0xC0, 0, 16, 0, 1, 0, 0, 0x90, 0x01, 0xFF, 0xFF, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                          "10.77.0.1", 0x0D80);
    EXPECT_TRUE(events.WaitForOutput("  device  remote-device  0x9001  Made  00009001", kLongTime)) << events.Output();
}

TEST(ToolOnACameraThatFallsSilent, TellsSoWhileTheDescriptionIsRead)
{
    DescribedCamera described(GainOfSelector() + Blanks(8000));
    GvcpCamera& camera = described.camera;
    const auto expect = [&camera](const std::string& unanswered, const std::vector<std::string>& verb) {
        camera.Otherwise([&camera, unanswered](const Bytes& command) {
            const bool last = gvcp::Describe(command) == unanswered;
            camera.SetSilent(last);
            return last ? std::vector<GvcpReply>() : camera.AnswerFromMemory(command);
        });
        const Outcome outcome = RunTool(verb);
        EXPECT_EQ(outcome.exitCode, 6) << unanswered;
        EXPECT_EQ(
            WithoutWait(outcome.output),
            "nq-gev: its description: the camera Model:02-11-22-33-44-55 at 10.77.0.2 went silent. `nq-gev doctor "
            "--camera 10.77.0.2` tells more.\n");
        camera.SetSilent(false);
    };
    expect("read memory 0x0200, 512 bytes", {"get", "Gain"});
    expect("read memory 0x10200, 512 bytes", {"set", "Gain=1"});
}

TEST(ToolOnACameraThatFallsSilent, TellsWhichSelectorItLeavesMoved)
{
    DescribedCamera described(GainOfSelector());
    described.camera.OnWrite([&](std::uint32_t address, std::uint32_t) {
        if (address == 0x20000)
        {
            described.camera.SetSilent(true);
        }
    });
    const Outcome set = RunTool({"set", "Gain[DigitalAll]=1"});
    EXPECT_EQ(set.exitCode, 6) << set.output;
    EXPECT_THAT(
        WithoutWait(set.output),
        AllOf(
            StartsWith("nq-gev: Gain"),
            EndsWith(": the camera Model:02-11-22-33-44-55 at 10.77.0.2 went silent; GainSelector may stand elsewhere "
                     "now; this one may be set or not. `nq-gev doctor --camera 10.77.0.2` tells more.\n")));
    EXPECT_EQ(described.camera.GetRegister(0x20000), 1U);
}

/// Has a camera answer late where `isSlow` says so of the words of a command.
template <typename IsSlow>
void SlowDown(GvcpCamera& camera, std::chrono::milliseconds delay, const IsSlow& isSlow)
{
    camera.Otherwise([&camera, delay, isSlow](const Bytes& command) {
        const auto memory = [&camera](const Bytes& asked) { return camera.AnswerFromMemory(asked); };
        return isSlow(gvcp::Describe(command)) ? gvcp::Late(delay, memory)(command) : memory(command);
    });
}

/// Starts a verb, and asks it to stop once the camera has got that so often.
std::string OutputOfStopped(GvcpCamera& camera, const std::vector<std::string>& verb, const std::string& access,
                            std::size_t times)
{
    ChildProcess tool(Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH}, verb));
    EXPECT_TRUE(camera.WaitFor(access, times, kLongTime)) << tool.Output();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.WaitForExit(kLongTime), 130) << tool.Output();
    EXPECT_EQ(camera.GetRegister(0x0A00), 0U) << "the camera is given back";
    return WithoutWait(tool.Output());
}

TEST(ToolStop, WhileTheDescriptionIsReadGivesTheCameraBack)
{
    DescribedCamera described(GainOfSelector() + Blanks(400'000));
    SlowDown(described.camera, std::chrono::milliseconds(20),
             [](const std::string& access) { return access.starts_with("read memory 0x1"); });
    EXPECT_EQ(OutputOfStopped(described.camera, {"set", "Gain=1"}, "read memory 0x10200, 512 bytes", 1),
              "nq-gev: stopped while its description was read\n");
    EXPECT_EQ(described.camera.Count(kGainOne), 0U);
}

TEST(ToolStop, BetweenSettingsPutsTheSelectorAndTheCameraBackAndTellsWhatIsSet)
{
    DescribedCamera described(GainOfSelector());
    SlowDown(described.camera, std::chrono::milliseconds(50),
             [](const std::string& access) { return access == kGainOne; });
    std::vector<std::string> set = {"set"};
    set.insert(set.end(), 2000, "Gain[DigitalAll]=1");
    // A command comes twice at most, the second time when its answer is late: of five there are two behind one another.
    EXPECT_THAT(OutputOfStopped(described.camera, set, kGainOne, 5),
                StartsWith("nq-gev: stopped; set before it: Gain[DigitalAll]=1, Gain[DigitalAll]=1"));
    EXPECT_LT(described.camera.Count(kGainOne), 2000U);
    EXPECT_EQ(described.camera.GetRegister(0x20000), 0U);
}

TEST(ToolSettingsOfManySelections, AreLeftOutAndTold)
{
    const TemporaryFolder folder;
    const std::string file = folder / "settings.txt";
    const std::string range = "<Min>0</Min><Max>69</Max>";
    const DescribedCamera described(
        Category("Root", {"Row", "Column", "Value", "Few"}) + "  <Integer Name=\"Row\"><pValue>RowReg</pValue>" +
        range + "<pSelected>Value</pSelected></Integer>\n" + "  <Integer Name=\"Column\"><pValue>ColumnReg</pValue>" +
        range + "<pSelected>Value</pSelected></Integer>\n" + Register("RowReg", "0x20000") +
        Register("ColumnReg", "0x20004") + Register("Value", "0x20008") + Register("Few", "0x2000C"));
    const Outcome save = RunTool({"save", file});
    EXPECT_EQ(save.exitCode, 0);
    EXPECT_EQ(WithoutWait(save.output),
              "nq-gev: warning: Value is not saved: it has more than 4096 values, by Row, Column\n"
              "3 settings saved in " +
                  file + "\n");
    EXPECT_EQ(BytesOf(file), "# Settings of the camera Model:02-11-22-33-44-55, for `nq-gev load`\n"
                             "# Value is not saved: it has more than 4096 values, by Row, Column\n"
                             "\n# \nFew = 0\n\n# Selectors\nRow = 0\nColumn = 0\n");
    const Outcome again = RunTool({"--json", "save", "--overwrite", file});
    EXPECT_THAT(again.output, HasSubstr("\"all\": false"));
    EXPECT_EQ(RunTool({"load", file}).exitCode, 0);
}

} // namespace
