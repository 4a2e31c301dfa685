// SPDX-License-Identifier: Apache-2.0
// Settings in a file, and the registers and the description of a module.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ToolSettings : public testing::Test
{
  protected:
    Outcome Run(const std::vector<std::string>& arguments) const
    {
        Outcome outcome = Heard([&] { return RunTool(arguments, m_camera.Environment()); });
        outcome.output = WithoutWait(outcome.output);
        return outcome;
    }

    std::string Written(const std::string& name, const std::string& text) const
    {
        std::ofstream(m_folder / name) << text;
        return m_folder / name;
    }

    /// A load that has begun and goes on for more than three minutes: each answer takes a millisecond.
    std::unique_ptr<ChildProcess> LongLoad()
    {
        m_camera.Fault("late-ack:1:0");
        std::string text;
        for (int at = 0; at < 200000; ++at)
        {
            text += "BlackLevel = " + std::to_string(at % 200) + "\n";
        }
        auto load = std::make_unique<ChildProcess>(
            std::vector<std::string>{NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "load", Written("long.txt", text)},
            m_camera.Environment());
        while (!testing::Value(Run({"get", "BlackLevel"}).output, ContainsRegex("^BlackLevel = [1-9]")))
        {
            if (load->WaitForExit(std::chrono::milliseconds(20)) != -1)
            {
                throw std::runtime_error(load->Output());
            }
        }
        return load;
    }

    const TemporaryFolder m_folder;
    VirtualCamera m_camera{{"--width", "640", "--height", "480"}};
};

TEST_F(ToolSettings, AreSavedAndLoadedWithEveryValueOfTheSelectors)
{
    const std::string file = m_folder / "left.txt";
    ASSERT_EQ(Run({"set", "Width=320", "OffsetX=320", "Gain[DigitalAll]=6.5", "GainSelector=DigitalAll",
                   "DeviceUserID=it's \"left\""})
                  .exitCode,
              0);
    const Outcome saved = Run({"save", file});
    EXPECT_EQ(saved.exitCode, 0) << saved.output;
    EXPECT_THAT(saved.output, ContainsRegex("^[1-9][0-9]+ settings saved in .*left.txt\n$"));
    const std::string text = BytesOf(file);
    EXPECT_THAT(text, AllOf(StartsWith("# Settings of the camera NQ-GEV-Camera:02-00-0a-4d-00-02, for `nq-gev load`\n"),
                            HasSubstr("\n# AnalogControl\nGain[AnalogAll] = 0 dB\nGain[DigitalAll] = 6.5 dB\n"),
                            HasSubstr("\nDeviceUserID = \"it's \\\"left\\\"\"\n"),
                            ContainsRegex("\n# Selectors\n(.*\n)*GainSelector = DigitalAll\n"),
                            Not(HasSubstr("SensorWidth")), Not(HasSubstr("TLParamsLocked"))));
    EXPECT_EQ(Run({"save", file}).exitCode, 1) << "it is there already";

    // OffsetX stands in the way of the Width that comes first.
    ASSERT_EQ(Run({"set", "OffsetX=0", "Width=100", "OffsetX=540", "Gain[DigitalAll]=1", "Gain[AnalogAll]=2",
                   "GainSelector=AnalogAll", "DeviceUserID=x"})
                  .exitCode,
              0);
    const Outcome loaded = Run({"load", file});
    EXPECT_EQ(loaded.exitCode, 0) << loaded.output;
    const std::string again = m_folder / "again.txt";
    ASSERT_EQ(Run({"save", again}).exitCode, 0);
    EXPECT_EQ(BytesOf(again), text);
}

TEST_F(ToolSettings, GoThroughPipesToo)
{
    const std::string file = m_folder / "file.txt";
    ASSERT_EQ(Run({"save", file}).exitCode, 0);
    const Outcome save =
        RunProgram({"/bin/sh", "-c", "cd '" + m_folder.Path() + "' && " + kOurLine + "save -"}, m_camera.Environment());
    EXPECT_EQ(save.exitCode, 0);
    EXPECT_EQ(WithoutWait(save.output), BytesOf(file));
    EXPECT_FALSE(std::filesystem::exists(m_folder / "-"));
    const Outcome json = Run({"--json", "save", "-"});
    EXPECT_THAT(json.output, HasSubstr("\"settings\": \"# Settings of the camera "));
    ExpectFitsSchema("save", json.output);
    const Outcome load =
        RunProgram({"/bin/sh", "-c", "echo Height = 50 | " + kOurLine + "load -"}, m_camera.Environment());
    EXPECT_EQ(load.exitCode, 0);
    EXPECT_EQ(WithoutWait(load.output), "1 of 1 settings set from -\n");
}

TEST_F(ToolSettings, ThatCannotBeSetAreTold)
{
    const std::string file = Written("bad.txt", "# by hand\n\nWidth = 99999\nNoSuch = 1\nHeight = 100\n");
    const Outcome load = Run({"load", file});
    EXPECT_EQ(load.exitCode, 1);
    EXPECT_EQ(load.output, "not set: Width=99999: takes a whole number from 1 to 640\n"
                           "not set: NoSuch: there is no such feature: `nq-gev features` lists all\n"
                           "1 of 3 settings set from " +
                               file + "\n");
    const Outcome json = Run({"--json", "load", file});
    EXPECT_EQ(json.exitCode, 1);
    ExpectFitsSchema("load", json.output);
    const Outcome broken = Run({"load", Written("broken.txt", "Height = 50\nWidth 640\n")});
    EXPECT_EQ(broken.exitCode, 2);
    EXPECT_EQ(broken.output, "nq-gev: line 2 is no setting: Width 640; nothing was changed\n");
    const Outcome open = Run({"load", Written("open.txt", "Height = 50\nGain[All = 1\n")});
    EXPECT_EQ(open.exitCode, 2);
    EXPECT_EQ(open.output,
              "nq-gev: line 2: \"Gain[All\" is no feature: NAME or NAME[SELECTION]; nothing was changed\n");
    const Outcome folder = Run({"load", m_folder / "."});
    EXPECT_EQ(folder.exitCode, 1);
    EXPECT_EQ(folder.output, "nq-gev: cannot read " + m_folder / "." + ": Is a directory\n");
    EXPECT_EQ(Run({"get", "Height"}).output, "Height = 100\n");
    const Outcome saved = Run({"--json", "save", m_folder / "good.txt"});
    EXPECT_EQ(saved.exitCode, 0) << saved.output;
    ExpectFitsSchema("save", saved.output);
}

TEST_F(ToolSettings, KeepEveryByteOfATextThatIsNoUtf8)
{
    const std::string name = "K\xE4m\x80ra";
    ASSERT_EQ(Run({"set", "DeviceUserID=" + name}).exitCode, 0);
    const std::string file = m_folder / "latin.txt";
    ASSERT_EQ(Run({"save", file}).exitCode, 0);
    EXPECT_THAT(BytesOf(file), HasSubstr("\nDeviceUserID = hex:4be46d807261\n"));
    ASSERT_EQ(Run({"set", "DeviceUserID=x"}).exitCode, 0);
    const Outcome load = Run({"load", file});
    EXPECT_EQ(load.exitCode, 0) << load.output;
    EXPECT_THAT(Run({"read", "0x00E8", "16"}).output, HasSubstr(" 4b e4 6d 80 72 61 00 00 00 00 00 00 00 00 00 00 "));
    const Outcome odd = Run({"load", Written("odd.txt", "Height = 50\nDeviceUserID = hex:4be\n")});
    EXPECT_EQ(odd.exitCode, 2);
    EXPECT_EQ(odd.output, "nq-gev: line 2 is no setting: DeviceUserID = hex:4be; nothing was changed\n");
}

TEST_F(ToolSettings, AreRefusedWithTheLineThatNoFeatureCanTake)
{
    const Outcome zero = Run({"load", Written("zero.txt", "Height = 50\n\nDeviceUserID = \"ab\\u0000cd\"\n")});
    EXPECT_EQ(zero.exitCode, 2);
    EXPECT_EQ(zero.output, "nq-gev: line 3: no feature takes a text with the character U+0000 in it: DeviceUserID = "
                           "\"ab\\u0000cd\"; nothing was changed\n");
    const Outcome bytes = Run({"load", Written("bytes.txt", "DeviceUserID = hex:610062\n")});
    EXPECT_EQ(bytes.exitCode, 2);
    EXPECT_THAT(bytes.output, StartsWith("nq-gev: line 1: no feature takes a text with the character U+0000"));
    const Outcome nothing = Run({"load", Written("nothing.txt", "Height = 50\nGain[] = 1\n")});
    EXPECT_EQ(nothing.exitCode, 2);
    EXPECT_EQ(nothing.output,
              "nq-gev: line 2: \"Gain[]\" selects nothing: NAME or NAME[SELECTION]; nothing was changed\n");
    for (const char* name : {"Gain[]", "Gain[,AnalogAll]", "Gain[AnalogAll,]"})
    {
        for (const std::vector<std::string>& verb :
             {std::vector<std::string>{"get", name}, {"set", name + std::string("=1")}})
        {
            const Outcome refused = Run(verb);
            EXPECT_EQ(refused.exitCode, 2);
            EXPECT_EQ(refused.output,
                      "nq-gev: \"" + std::string(name) + "\" selects nothing: NAME or NAME[SELECTION]\n");
        }
    }
    EXPECT_EQ(Run({"get", "Height"}).output, "Height = 480\n");
}

TEST_F(ToolSettings, MayBeginWithAByteOrderMark)
{
    const Outcome load = Run({"load", Written("mark.txt", "\xEF\xBB\xBFHeight = 50\n")});
    EXPECT_EQ(load.exitCode, 0) << load.output;
    EXPECT_EQ(Run({"get", "Height"}).output, "Height = 50\n");
}

TEST_F(ToolSettings, ThatAreOneCamerasOwnReachNoOther)
{
    ASSERT_EQ(Run({"set", "DeviceUserID=left", "GevPersistentIPAddress=10.77.0.9", "Height=100"}).exitCode, 0);
    const std::string file = m_folder / "left.txt";
    ASSERT_EQ(Run({"save", file}).exitCode, 0);
    std::string text = BytesOf(file);
    const std::string head = "# Settings of the camera NQ-GEV-Camera:02-00-0a-4d-00-02, for `nq-gev load`\n";
    ASSERT_THAT(text, AllOf(StartsWith(head), HasSubstr("\nGevPersistentIPAddress = 10.77.0.9\n"),
                            HasSubstr("\nGevPersistentSubnetMask = "), HasSubstr("\nGevPersistentDefaultGateway = "),
                            HasSubstr("\nGevCurrentIPConfigurationDHCP = ")));
    ASSERT_EQ(Run({"set", "DeviceUserID=right", "GevPersistentIPAddress=10.77.0.8", "Height=200"}).exitCode, 0);

    const std::string other = "# Settings of the camera NQ-GEV-Camera:02-00-0a-4d-00-07, for `nq-gev load`\n";
    const std::string foreign = Written("foreign.txt", text.replace(0, head.size(), other));
    const Outcome load = Run({"load", foreign});
    EXPECT_EQ(load.exitCode, 0) << load.output;
    EXPECT_THAT(load.output,
                HasSubstr("left out: DeviceUserID=left: it is for one camera alone, and the file is of the camera "
                          "NQ-GEV-Camera:02-00-0a-4d-00-07\n"));
    EXPECT_THAT(load.output, HasSubstr("left out: GevPersistentIPAddress=10.77.0.9: "));
    EXPECT_THAT(load.output, HasSubstr("left out: GevPersistentSubnetMask="));
    EXPECT_THAT(load.output, HasSubstr("left out: GevPersistentDefaultGateway="));
    EXPECT_THAT(load.output, HasSubstr("left out: GevCurrentIPConfigurationPersistentIP="));
    EXPECT_EQ(Run({"get", "DeviceUserID", "GevPersistentIPAddress", "Height"}).output,
              "DeviceUserID = \"right\"\nGevPersistentIPAddress = 10.77.0.8\nHeight = 100\n");
    const Outcome json = Run({"--json", "load", foreign});
    EXPECT_EQ(json.exitCode, 0) << json.output;
    ExpectFitsSchema("load", json.output);

    const Outcome unknown = Run({"load", Written("by hand.txt", "DeviceUserID = left\nHeight = 150\n")});
    EXPECT_EQ(unknown.exitCode, 0);
    EXPECT_EQ(unknown.output, "left out: DeviceUserID=left: it is for one camera alone, and the file does not say of "
                              "which camera it is\n1 of 2 settings set from " +
                                  (m_folder / "by hand.txt") + "\n");
    const Outcome own = Run({"load", file});
    EXPECT_EQ(own.exitCode, 0) << own.output;
    EXPECT_EQ(Run({"get", "DeviceUserID", "GevPersistentIPAddress"}).output,
              "DeviceUserID = \"left\"\nGevPersistentIPAddress = 10.77.0.9\n");
}

TEST_F(ToolSettings, OfACameraThatAnotherProgramTakesMeanwhileEndThere)
{
    for (const std::string fault : {"privilege-taken:2", "privilege-taken:1"}) // with the right to read, and without
    {
        const auto load = LongLoad();
        m_camera.Fault(fault);
        EXPECT_EQ(load->WaitForExit(kLongTime), 8) << load->Output();
        EXPECT_THAT(WithoutWait(load->Output()),
                    ContainsRegex("^nq-gev: BlackLevel(=[0-9]+)?: another program controls the camera "
                                  "NQ-GEV-Camera:02-00-0a-4d-00-02, or the control of this one has "
                                  "ended; `nq-gev list` tells who controls it; [1-9][0-9]* settings "
                                  "were set before it\n$"));
        m_camera.Kill();
        m_camera.Start();
    }
}

TEST_F(ToolSettings, OfACameraThatGaveUpItsHostEndThere)
{
    const auto load = LongLoad();
    load->Signal(SIGSTOP);
    while (Run({"read", "0x0A00"}).output.find("  00 00 00 00  ") == std::string::npos)
    {
        ASSERT_EQ(load->WaitForExit(std::chrono::milliseconds(50)), -1) << load->Output();
    }
    load->Signal(SIGCONT);
    EXPECT_EQ(load->WaitForExit(kLongTime), 8) << load->Output();
    EXPECT_THAT(load->Output(), HasSubstr("or the control of this one has ended; "));
}

TEST_F(ToolSettings, OfACameraThatGoesSilentHalfWayAreToldAsFarAsTheyCame)
{
    const auto load = LongLoad();
    m_camera.Process().Signal(SIGSTOP);
    EXPECT_EQ(load->WaitForExit(kLongTime), 6) << load->Output();
    m_camera.Process().Signal(SIGCONT);
    EXPECT_THAT(WithoutWait(load->Output()),
                ContainsRegex("^nq-gev: BlackLevel(=[0-9]+)?: the camera "
                              "NQ-GEV-Camera:02-00-0a-4d-00-02 at 10.77.0.2 went silent; [1-9][0-9]* "
                              "settings were set before it; this one may be set or not. `nq-gev doctor "
                              "--camera 10.77.0.2` tells more.\n$"));
}

TEST_F(ToolSettings, AreMissingInAFileThatIsEmpty)
{
    for (const std::string& file :
         {std::string("/dev/null"), Written("empty.txt", ""), Written("bare.txt", "# none\n")})
    {
        const Outcome load = Run({"load", file});
        EXPECT_EQ(load.exitCode, 2) << file;
        EXPECT_EQ(load.output, "nq-gev: " + file + " holds no setting; nothing was changed\n");
    }
}

TEST_F(ToolSettings, LieInRegistersThatCanBeReadAndWritten)
{
    const Outcome read = Run({"read", "0x0048", "32"});
    EXPECT_EQ(read.exitCode, 0) << read.output;
    EXPECT_EQ(read.output, "0x00000048  4e 51 20 56 69 72 74 75 61 6c 00 00 00 00 00 00  NQ Virtual......\n"
                           "0x00000058  00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00  ................\n");
    EXPECT_EQ(Run({"write", "0x0938", "5000"}).output, "0x00000938  00 00 13 88                                      "
                                                       "....\n");
    EXPECT_EQ(Run({"get", "GevHeartbeatTimeout"}).output, "GevHeartbeatTimeout = 5000 ms\n");
    const Outcome words = Run({"--json", "write", "0x0938", "hex:00000bb8"});
    EXPECT_EQ(words.exitCode, 0) << words.output;
    ExpectFitsSchema("write", words.output);
    const Outcome json = Run({"--json", "read", "0x0938"});
    EXPECT_THAT(json.output, HasSubstr("\"bytes\": \"00000bb8\""));
    ExpectFitsSchema("read", json.output);
    const Outcome text = Run({"write", "0x0938", "soon"});
    EXPECT_EQ(text.exitCode, 2);
    EXPECT_EQ(text.output, "nq-gev: \"soon\" is no value: a number of 32 bits, or bytes as hex:0a0b0c0d; nothing was "
                           "changed\n");
    const Outcome refused = Run({"write", "0x0048", "1"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, StartsWith("nq-gev: write of 1 at 0x48: the camera "
                                           "NQ-GEV-Camera:02-00-0a-4d-00-02 refuses it: GC_ERR_"));
    const Outcome between = Run({"write", "0xA01", "5"});
    EXPECT_EQ(between.exitCode, 2);
    EXPECT_EQ(between.output, "nq-gev: 0xa01 is no address of a register: those of a camera are multiples of 4; bytes "
                              "at any address are given as hex:00000005; nothing was changed\n");
    EXPECT_EQ(Run({"write", "0x093A", "hex:0fa0"}).exitCode, 0);
    EXPECT_EQ(Run({"get", "GevHeartbeatTimeout"}).output, "GevHeartbeatTimeout = 4000 ms\n");
}

TEST_F(ToolSettings, GoThroughALinkIntoTheFileAndKeepItsRights)
{
    const std::string file = Written("plain.txt", "older");
    ASSERT_EQ(chmod(file.c_str(), 0640), 0);
    const std::string link = m_folder / "link.txt";
    std::filesystem::create_symlink("plain.txt", link);
    const Outcome kept = Run({"save", link});
    EXPECT_EQ(kept.exitCode, 1);
    EXPECT_EQ(kept.output, "nq-gev: cannot write " + link + ": File exists; --overwrite replaces it\n");
    EXPECT_EQ(BytesOf(file), "older");
    const Outcome saved = Run({"save", "--overwrite", link});
    EXPECT_EQ(saved.exitCode, 0) << saved.output;
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_THAT(BytesOf(file), StartsWith("# Settings of the camera "));
    struct stat status
    {
    };
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640U);
    std::filesystem::remove(file);
    const Outcome nowhere = Run({"save", "--overwrite", link});
    EXPECT_EQ(nowhere.exitCode, 1);
    EXPECT_EQ(nowhere.output,
              "nq-gev: cannot write " + link + ": what this link leads to: No such file or directory\n");
    EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(ToolSettings, AreDescribedByAnXmlText)
{
    const Outcome shown = Run({"xml"});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_THAT(shown.output, AllOf(StartsWith("<?xml "), HasSubstr("<RegisterDescription"), HasSubstr("Gain")));
    const std::string file = m_folder / "camera.xml";
    const Outcome written = Run({"--json", "xml", "-o", file});
    EXPECT_EQ(written.exitCode, 0) << written.output;
    ExpectFitsSchema("xml", written.output);
    EXPECT_EQ(BytesOf(file), shown.output);
    EXPECT_THAT(Run({"xml", "--module", "system"}).output, HasSubstr("GenTLVersionMajor"));
    const std::string pipe = m_folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Outcome refused = Run({"xml", "-o", pipe, "--overwrite"});
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_EQ(refused.output, "nq-gev: cannot write " + pipe + ": it is no plain file, and stays as it is\n");
    EXPECT_TRUE(std::filesystem::is_fifo(pipe)) << "as little as /dev/null";
}

} // namespace
