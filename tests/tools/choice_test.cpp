// SPDX-License-Identifier: Apache-2.0
// Which producers nq-gev asks and which camera it takes: each line is a command, its words and its JSON.
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/two_cameras.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <chrono>
#include <fstream>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

/// What makes the fake producer lie. A sanitizer, when there is one, leaves its crashes to the kernel.
std::vector<std::string> Lies(const std::string& lies)
{
    return {"NQ_FAKE_PRODUCER=" + lies, "ASAN_OPTIONS=verify_asan_link_order=0:handle_segv=0",
            "TSAN_OPTIONS=handle_segv=0"};
}

/// A folder of producers, as GENICAM_GENTL64_PATH names one.
class ToolProducers : public testing::Test
{
  protected:
    std::string Add(const std::string& name, const std::string& file)
    {
        fs::create_symlink(file, m_folder / name);
        return m_folder / name;
    }

    /// A producer of its own file, with the fake one's answers.
    std::string AddFake(const std::string& name)
    {
        fs::copy_file(NQ_FAKE_PRODUCER_PATH, m_folder / name);
        return m_folder / name;
    }

    Outcome Run(const std::vector<std::string>& arguments, std::vector<std::string> environment = {})
    {
        std::vector<std::string> command = {NQ_TOOL_PATH};
        command.insert(command.end(), arguments.begin(), arguments.end());
        environment.push_back("GENICAM_GENTL64_PATH=" + m_folder.Path());
        return RunProgram(command, environment);
    }

    const TemporaryFolder m_folder;
};

TEST_F(ToolProducers, AllOnThePathAreAskedAndNamed)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    const std::string ours = Add("ours.cti", NQ_CTI_PATH);
    const std::string fake = AddFake("zzz.cti");
    const auto found = HasSubstr("serial SN-4711  address 10.77.0.2  access read/write\n    producer " + ours);
    const Outcome list = InTime(found, [&] { return Run({"list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, found);
    EXPECT_THAT(list.output, HasSubstr("serial Serial  address -  access read/write\n    producer " + fake));
    EXPECT_THAT(list.output, Not(HasSubstr("warning")));
    const auto foundByOurs = HasSubstr("\"producer\": \"" + ours + "\"");
    const Outcome json = InTime(foundByOurs, [&] { return Run({"--json", "list"}, camera.Environment()); });
    EXPECT_THAT(json.output, foundByOurs);
    EXPECT_THAT(json.output, HasSubstr("\"producer\": \"" + fake + "\""));
}

TEST_F(ToolProducers, OneThatCrashesOrDoesNotLoadIsAWarning)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    const std::string broken = m_folder / "a.cti";
    std::ofstream(broken) << "no library";
    const std::string crashing = AddFake("b.cti");
    const std::string works = Add("c.cti", NQ_CTI_PATH);
    std::vector<std::string> environment = Lies("IFUpdateDeviceList.signal=11");
    std::ranges::copy(camera.Environment(), std::back_inserter(environment));
    const auto found = HasSubstr("\"producer\": \"" + works + "\"");
    const Outcome list = InTime(found, [&] { return Run({"--json", "list"}, environment); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("nq-gev: warning: " + broken + " is left out: cannot load the producer: "));
    EXPECT_THAT(list.output,
                HasSubstr("nq-gev: warning: " + crashing + " is left out: it crashed: Segmentation fault\n"));
    EXPECT_THAT(list.output, found);
    EXPECT_THAT(list.output,
                HasSubstr("\"path\": \"" + broken + "\",\n      \"problem\": \"cannot load the producer: "));
    const Outcome grab = Run({"grab"}, environment);
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("producer   " + works + "\n"));
}

TEST_F(ToolProducers, ALinkThatLeadsNowhereIsAWarning)
{
    const std::string link = Add("a.cti", "/no/such/producer.cti");
    const std::string alone = "cannot load the producer: " + link + ": cannot open shared object file";
    const Outcome none = Run({"list"});
    EXPECT_EQ(none.exitCode, 3);
    EXPECT_THAT(none.output, HasSubstr("nq-gev: " + alone));
    const std::string fake = AddFake("b.cti");
    const Outcome list = Run({"list"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("nq-gev: warning: " + link + " is left out: " + alone));
    EXPECT_THAT(list.output, HasSubstr("    producer " + fake + "\n"));
}

struct End
{
    const char* name;
    const char* lie;
    std::string told;
};

TEST_F(ToolProducers, TheLastOneThatCrashesOrHangsIsAFailure)
{
    const std::string file = AddFake("a.cti");
    const End ends[] = {
        {"crash", "TLOpen.signal=11", file + ": it crashed: Segmentation fault"},
        {"late crash", "IFGetNumDevices.signal=6", file + ": it crashed: Aborted"},
        {"hang", "IFUpdateDeviceList.signal=19", file + ": it has not answered for 5100 ms"},
        {"refusal", "GCInitLib.code=-1001", "GCInitLib failed: GC_ERR_ERROR (-1001)"},
    };
    for (const End& end : ends)
    {
        const Outcome list = Run({"--timeout", "100", "list"}, Lies(end.lie));
        EXPECT_THAT(list.exitCode, testing::AnyOf(1, 3)) << end.name << list.output;
        EXPECT_THAT(list.output, HasSubstr("nq-gev: " + end.told)) << end.name;
    }
}

TEST_F(ToolProducers, OneThatCrashesIsToldAlsoWhereChildrenAreIgnored)
{
    const std::string file = AddFake("a.cti");
    std::vector<std::string> environment = Lies("TLOpen.signal=11");
    environment.push_back("GENICAM_GENTL64_PATH=" + m_folder.Path());
    const Outcome list = RunProgram({"/usr/bin/env", "--ignore-signal=CHLD", NQ_TOOL_PATH, "list"}, environment);
    EXPECT_EQ(list.exitCode, 3) << list.output;
    EXPECT_THAT(list.output, HasSubstr("nq-gev: " + file + ": it crashed: Segmentation fault"));
}

TEST_F(ToolProducers, AreAskedAlsoWhereTheStandardFilesAreClosed)
{
    AddFake("a.cti");
    const Outcome list = RunProgram({"/bin/sh", "-c", kToolLine + "--timeout 100 list <&- >&-"},
                                    {"GENICAM_GENTL64_PATH=" + m_folder.Path()});
    EXPECT_EQ(list.exitCode, 1) << list.output;
    EXPECT_EQ(list.output, "nq-gev: cannot write the output: Bad file descriptor\n");
}

TEST_F(ToolProducers, OneFileByTwoNamesIsAskedOnce)
{
    AddFake("a.cti");
    Add("b.cti", m_folder / "a.cti");
    const Outcome grab = Run({"grab"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
}

TEST_F(ToolProducers, OneCameraOfTwoProducersIsAQuestionOfTheProducer)
{
    const std::string one = AddFake("a.cti");
    const std::string two = AddFake("b.cti");
    const Outcome grab = Run({"grab"});
    EXPECT_EQ(grab.exitCode, 2) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("  Camera  serial Serial  name Name  address -  producer " + one + "\n"));
    EXPECT_THAT(grab.output, HasSubstr("  Camera  serial Serial  name Name  address -  producer " + two + "\n"));
    EXPECT_THAT(grab.output,
                HasSubstr("2 cameras answered; they are one that several producers see: choose by --producer\n"));
    const Outcome chosen = Run({"--producer", two, "grab"});
    EXPECT_EQ(chosen.exitCode, 0) << chosen.output;
    EXPECT_THAT(chosen.output, HasSubstr("camera     Camera\nproducer   " + two + "\n"));
    const Outcome json = Run({"--producer", two, "--json", "grab"});
    EXPECT_THAT(json.output, HasSubstr("\"camera\": \"Camera\",\n  \"producer\": \"" + two + "\""));
}

TEST_F(ToolProducers, TextsThatAreNoUtf8ComeAsTheyAre)
{
    AddFake("a.cti");
    const Outcome list = Run({"list"}, {"NQ_FAKE_PRODUCER=IFGetDeviceInfo.2.text=K\xfchl\x1b[2J"});
    EXPECT_THAT(list.output, HasSubstr("model K\\xfchl\\x1b[2J  serial Serial"));
}

TEST(ToolProducer, AFolderThatCannotBeReadIsToldWithTheCause)
{
    const TemporaryFolder folder;
    const std::string locked = folder / "locked";
    fs::create_directory(locked);
    fs::create_symlink(NQ_FAKE_PRODUCER_PATH, fs::path(locked) / "a.cti");
    fs::permissions(locked, fs::perms::none);
    const std::string path = folder.Path() + "::" + (folder / "none") + ":" + locked;
    // A root without the right to read where its rights are not.
    const Outcome list =
        RunProgram({"/usr/bin/setpriv", "--bounding-set=-all", "--inh-caps=-all", "/usr/bin/env", NQ_TOOL_PATH, "list"},
                   {"GENICAM_GENTL64_PATH=" + path});
    EXPECT_EQ(list.exitCode, 3);
    EXPECT_EQ(list.output, "nq-gev: no .cti in GENICAM_GENTL64_PATH (" + path + "); " + (folder / "none") +
                               ": No such file or directory; " + locked + ": Permission denied\n");
}

TEST(ToolProducer, AnEmptyPathIsAsGoodAsNone)
{
    const VirtualCamera camera;
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("GENICAM_GENTL64_PATH=");
    const Outcome list = Heard([&] { return RunProgram({NQ_TOOL_PATH, "list"}, environment); });
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("address 10.77.0.2"));
}

class ToolCamera : public testing::Test
{
  protected:
    Outcome Grab(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "grab");
        return RunTool(arguments, m_cameras.Environment());
    }

  private:
    const TwoCameras m_cameras;
};

TEST_F(ToolCamera, IsFoundByAnyOfItsNames)
{
    for (const char* name : {"NQ-GEV-Camera:02-00-0a-0b-0c-0d", "SN-2", "10.77.0.3", "02:00:0a:0b:0c:0d",
                             "02-00-0A-0B-0C-0D", "02000a0b0c0d", "0200.0a0b.0c0d", "2:0:a:b:c:d"})
    {
        const Outcome grab = Grab({"--camera", name});
        EXPECT_EQ(grab.exitCode, 0) << name << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("camera     NQ-GEV-Camera:02-00-0a-0b-0c-0d\nproducer   " NQ_CTI_PATH "\n"));
    }
}

TEST_F(ToolCamera, OneOfSeveralHasToBeNamed)
{
    // If one of the two is late for the first looks, the tool takes the other.
    const auto several = HasSubstr("2 cameras");
    const Outcome any = InTime(several, [&] { return Grab({}); });
    EXPECT_EQ(any.exitCode, 2) << any.output;
    EXPECT_THAT(any.output, HasSubstr("serial SN-1  name left  address 10.77.0.2  producer " NQ_CTI_PATH "\n"));
    EXPECT_THAT(any.output, HasSubstr("serial SN-2  name left  address 10.77.0.3  producer " NQ_CTI_PATH "\n"));
    EXPECT_THAT(any.output, HasSubstr("nq-gev: 2 cameras answered; choose one by --camera ID\n"));
    const Outcome both = InTime(several, [&] { return Grab({"--camera", "left"}); });
    EXPECT_EQ(both.exitCode, 2) << both.output;
    EXPECT_THAT(both.output, HasSubstr("nq-gev: 2 cameras fit \"left\"; choose one by --camera ID\n"));
    const Outcome none = Grab({"--camera", "02:00:0a:0b:0c:0e"});
    EXPECT_EQ(none.exitCode, 4) << none.output;
    EXPECT_THAT(none.output, HasSubstr("serial SN-1"));
}

TEST(ToolGrabOfOneFrame, EndsTheSearchWhenTheCameraIsThere)
{
    const VirtualCamera camera({"--serial", "SN-1"});
    // Not a time but a choice: without it the search takes a minute, and the tool is ended with -1.
    const Outcome grab = RunTool({"--timeout", "100000", "grab", "--camera", "SN-1"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const Outcome any = RunTool({"--timeout", "100000", "grab"}, camera.Environment());
    EXPECT_EQ(any.exitCode, 0) << any.output;
}

} // namespace
