// SPDX-License-Identifier: Apache-2.0
// Features by name: what features, get, describe, set and exec print, and how they refuse.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// A camera, and the tool on it.
class ToolFeatures : public testing::Test
{
  protected:
    Outcome Run(const std::vector<std::string>& arguments) const
    {
        Outcome outcome = Heard([&] { return RunTool(arguments, m_camera.Environment()); });
        outcome.output = WithoutWait(outcome.output);
        return outcome;
    }

    /// The line and the code of a refusal.
    void ExpectRefused(const std::vector<std::string>& arguments, int code, const std::string& line) const
    {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.exitCode, code) << outcome.output;
        EXPECT_EQ(outcome.output, "nq-gev: " + line + "\n");
    }

    void ExpectPrints(const std::vector<std::string>& arguments, const std::string& output) const
    {
        const Outcome outcome = Run(arguments);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.output, output);
    }

    VirtualCamera m_camera{{"--width", "640", "--height", "480", "--fps", "50", "--heartbeat", "60000"}};
};

TEST_F(ToolFeatures, ShowListsAndDescriptions)
{
    ExpectPrints({"features", "gain"}, "AnalogControl\n"
                                       "  GainSelector  RW  AnalogAll\n"
                                       "  Gain          RW  0 dB\n"
                                       "  GainAuto      RW  Off\n");
    const Outcome all = Run({"features"});
    EXPECT_EQ(all.exitCode, 0);
    EXPECT_THAT(all.output, AllOf(StartsWith("DeviceControl\n  DeviceType "), HasSubstr("\nImageFormatControl\n"),
                                  ContainsRegex("\n  GevMACAddress +RO  02:00:0A:4D:00:02\n"),
                                  ContainsRegex("\n  GevCurrentIPAddress +RO  10\\.77\\.0\\.2\n"),
                                  ContainsRegex("\n  DeviceReset +WO  \\(command\\)\n"),
                                  ContainsRegex("\n  ExposureMode +--  \\(not available now\\)\n"),
                                  ContainsRegex("\n  EventFrameEnd +RO  \\(its value comes with events alone\\)\n")));
    ExpectPrints({"describe", "Gain", "GainSelector", "Width"},
                 "Gain\n"
                 "  value        0 dB\n"
                 "  type         float\n"
                 "  access       RW\n"
                 "  takes        a number from 0 to 48 dB\n"
                 "  selected by  GainSelector\n"
                 "  category     AnalogControl\n"
                 "  visibility   Beginner\n"
                 "  description  Amplification. 6 dB are twice as bright; both gains add up.\n"
                 "GainSelector\n"
                 "  value        AnalogAll\n"
                 "  type         enumeration\n"
                 "  access       RW\n"
                 "  takes        AnalogAll, DigitalAll\n"
                 "  selects      Gain\n"
                 "  category     AnalogControl\n"
                 "  visibility   Beginner\n"
                 "  description  The gain that is meant.\n"
                 "Width\n"
                 "  value        640\n"
                 "  type         integer\n"
                 "  access       RW\n"
                 "  takes        a whole number from 1 to 640\n"
                 "  category     ImageFormatControl\n"
                 "  visibility   Beginner\n"
                 "  description  Pixels per line. WidthMax less OffsetX at most.\n");
}

TEST_F(ToolFeatures, AreSetInOrderAsPeopleWriteThem)
{
    ExpectPrints({"set", "Width=320", "OffsetX=0x140", "Gain[DigitalAll]=6.5 dB", "DeviceUserID=my left one",
                  "PixelFormat=mono12", "ReverseX=on", "ExposureTime=250us"},
                 "Width = 320\n"
                 "OffsetX = 320\n"
                 "Gain[DigitalAll] = 6.5 dB\n"
                 "DeviceUserID = \"my left one\"\n"
                 "PixelFormat = Mono12\n"
                 "ReverseX = true\n"
                 "ExposureTime = 250 us\n");
    // The selector is where it was.
    ExpectPrints({"get", "GainSelector", "Gain", "Gain[DigitalAll]", "Width"},
                 "GainSelector = AnalogAll\nGain = 0 dB\nGain[DigitalAll] = 6.5 dB\nWidth = 320\n");
    ExpectPrints({"exec", "TimestampLatch"}, "TimestampLatch executed\n");
    ExpectPrints({"get", "--module", "stream", "StreamType"}, "StreamType = GigEVision\n");
    ExpectPrints({"get", "--module", "system", "GenTLVersionMinor"}, "GenTLVersionMinor = 5\n");
    ExpectPrints({"get", "--module", "interface", "DeviceModelName"}, "DeviceModelName = \"NQ-GEV-Camera\"\n");
    ExpectPrints({"get", "--module", "device", "DeviceType"}, "DeviceType = GigEVision\n");
}

TEST_F(ToolFeatures, AreJsonThatFitsTheSchema)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"features"},
                                                      {"get", "Width", "Gain[DigitalAll]", "DeviceUserID"},
                                                      {"describe", "PixelFormat", "AcquisitionStart"},
                                                      {"set", "Width=320", "ReverseX=true", "ExposureTime=250.5"},
                                                      {"exec", "TimestampLatch"}})
    {
        const Outcome outcome = Run(Joined({"--json"}, arguments));
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        ExpectFitsSchema(arguments.front(), outcome.output);
    }
    const Outcome width = Run({"--json", "get", "Width"});
    EXPECT_THAT(width.output,
                HasSubstr("\"name\": \"Width\",\n      \"type\": \"integer\",\n      \"access\": \"RW\",\n "
                          "     \"value\": 320,\n      \"text\": \"320\",\n      \"unit\": \"\",\n      "
                          "\"min\": 1,\n      \"max\": 640,\n      \"step\": 1,\n"));
}

TEST_F(ToolFeatures, RefuseWhatTheyCannotTake)
{
    ExpectRefused({"get", "Widht"}, 2, "Widht: there is no such feature; near to it: Width");
    ExpectRefused({"features", "--", "--foo"}, 2, "no feature has \"--foo\" in its name");
    ExpectRefused({"set", "OffsetX=4", "Widht=3"}, 2,
                  "Widht: there is no such feature; near to it: Width; nothing was changed");
    ExpectRefused({"set", "OffsetX=4", "Width=abc"}, 2,
                  "Width=abc: takes a whole number from 1 to 640; nothing was changed");
    ExpectRefused({"set", "GainSelector=Left"}, 2,
                  "GainSelector=Left: takes AnalogAll, DigitalAll; nothing was changed");
    ExpectRefused({"set", "Gain[Left]=3"}, 2,
                  "Gain[Left]: GainSelector takes AnalogAll, DigitalAll; nothing was changed");
    ExpectRefused({"set", "Width[Left]=3"}, 2, "Width[Left]: Width has no selector; nothing was changed");
    ExpectRefused({"set", "SensorWidth=3"}, 2, "SensorWidth=3: SensorWidth is read-only; nothing was changed");
    ExpectRefused({"set", "Width"}, 2, "\"Width\" is not NAME=VALUE");
    ExpectRefused({"set", "DeviceUserID=12345678901234567"}, 2,
                  "DeviceUserID=12345678901234567: takes a text of at most 16 bytes; nothing was changed");
    ExpectRefused({"exec", "Width"}, 2, "Width: it is no command, but takes a whole number from 1 to 640");
    ExpectRefused({"set", "ExposureMode=Timed"}, 1,
                  "ExposureMode=Timed: ExposureMode is not available now; nothing was changed");
    // The last digit is not its unit: that would be 576.
    ExpectRefused(
        {"set", "GevSCPSPacketSize=0x240B"}, 2,
        "GevSCPSPacketSize=0x240B: takes a whole number from 576 to 9000 B in steps of 4; nothing was changed");
    // A limit that moves with what was set before.
    ExpectRefused({"set", "OffsetX=0", "Width=640", "OffsetX=4"}, 2,
                  "OffsetX=4: takes a whole number from 0 to 0; set before it: OffsetX=0, Width=640");
    ExpectRefused({"set", "TLParamsLocked=1", "Width=320"}, 1,
                  "Width=320: Width is locked now, as features are while the camera streams; set before it: "
                  "TLParamsLocked=1");
}

TEST_F(ToolFeatures, AreReadWhileAnotherProgramControlsTheCamera)
{
    ChildProcess owner(
        {NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--count", "1000000000", "--frame-timeout", "60000"},
        m_camera.Environment());
    while (Run({"--timeout", "200", "list"}).output.find("access busy") == std::string::npos)
    {
        ASSERT_EQ(owner.WaitForExit(std::chrono::milliseconds(20)), -1) << owner.Output();
    }
    ExpectPrints({"get", "Width", "Gain[AnalogAll]"}, "Width = 640\nGain[AnalogAll] = 0 dB\n");
    ExpectRefused({"get", "Gain[DigitalAll]"}, 8,
                  "Gain[DigitalAll]: GainSelector is AnalogAll, and only the program that controls the camera can "
                  "change it");
    const Outcome set = Run({"set", "Width=320"});
    EXPECT_EQ(set.exitCode, 8);
    EXPECT_THAT(set.output, HasSubstr("is controlled by 10.77.0.1, UDP port "));
    owner.Signal(SIGINT);
    EXPECT_EQ(owner.WaitForExit(kLongTime), 130);
}

TEST_F(ToolFeatures, AreSetBeforeAGrab)
{
    const Outcome grab = Run({"grab", "Width=320", "Height=200", "--count", "2", "--verify"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("wrong      0 bytes"));
    ExpectPrints({"get", "Width", "Height"}, "Width = 320\nHeight = 200\n");
    const Outcome refused = Run({"grab", "Height=100", "Width=9999"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_EQ(refused.output, "nq-gev: Width=9999: takes a whole number from 1 to 640; set before it: Height=100\n");
}

TEST(ToolFeaturesWithoutEngine, SayWhatToInstall)
{
    const TemporaryFolder folder;
    std::filesystem::copy_file(NQ_TOOL_PATH, folder / "nq-gev");
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"features"},
                                                      {"get", "Width"},
                                                      {"set", "Width=1"},
                                                      {"exec", "Stop"},
                                                      {"describe", "Width"},
                                                      {"events", "Width=1"},
                                                      {"save", "file"},
                                                      {"load", "/dev/null"}})
    {
        const Outcome outcome = RunProgram(Joined({folder / "nq-gev", "--producer", NQ_FAKE_PRODUCER_PATH}, arguments));
        EXPECT_EQ(outcome.exitCode, 1);
        EXPECT_EQ(outcome.output, "nq-gev: features by name need " + (folder / "nq-gev-features.so") +
                                      ", which this build left out: install libaravis-dev (`apt-get install "
                                      "libaravis-dev`) and build again\n");
    }
}

} // namespace
