// SPDX-License-Identifier: Apache-2.0
// Interfaces and cameras that come, go and change, as nq-gev watch prints them.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string kMoment = "[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3}Z";
const std::string kCamera = "camera     NQ-GEV-Camera:02-00-0a-4d-00-02  model NQ-GEV-Camera  serial SN-4711  address "
                            "10.77.0.2  access ";

std::vector<std::string> OnOurs(const std::vector<std::string>& arguments)
{
    return Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH}, arguments);
}

/// Whether a camera is told free again behind the line that told it busy.
bool IsFreeAgain(const std::string& output)
{
    return output.find("  *  " + kCamera + "read/write\n", output.find("  *  " + kCamera + "busy\n")) !=
           std::string::npos;
}

TEST(ToolWatch, SeesInterfacesAndCamerasComeChangeAndGo)
{
    VirtualCamera camera({"--serial", "SN-4711"});
    ChildProcess watch(OnOurs({"watch"}), camera.Environment());
    // The access of a camera that answers late when it comes is not known at once.
    ASSERT_TRUE(watch.WaitForOutput("  " + kCamera + "read/write\n", kLongTime)) << watch.Output();
    {
        ChildProcess owner(OnOurs({"events"}), camera.Environment());
        ASSERT_TRUE(watch.WaitForOutput("  *  " + kCamera + "busy\n", kLongTime)) << watch.Output() << owner.Output();
    }
    while (!IsFreeAgain(watch.Output()))
    {
        ASSERT_EQ(watch.WaitForExit(std::chrono::milliseconds(10)), -1) << watch.Output();
    }
    camera.Kill();
    ASSERT_TRUE(watch.WaitForOutput("  -  " + kCamera + "read/write\n", kLongTime)) << watch.Output();
    Shell("ip link del host0");
    ASSERT_TRUE(watch.WaitForOutput("  -  interface", kLongTime)) << watch.Output();
    camera.Machine().Connect("host1", "10.78.0.1/24", "cam1", "10.78.0.2/24");
    ASSERT_TRUE(watch.WaitForOutput("host1", kLongTime)) << watch.Output();
    watch.Signal(SIGINT);
    EXPECT_EQ(watch.WaitForExit(kLongTime), 130) << watch.Output();
    const std::string first = "[^\n]*host0[^\n]*\n";
    EXPECT_THAT(watch.Output(),
                MatchesRegex(kMoment + "  \\+  interface  " + first + kMoment +
                             "  \\+  camera     [^\n]*access (read/write|unknown\n" + kMoment +
                             "  \\*  [^\n]*read/write)\n" + kMoment + "  \\*  [^\n]*busy\n" + kMoment +
                             "  \\*  [^\n]*read/write\n" + kMoment + "  -  camera     [^\n]*\n" + kMoment +
                             "  -  interface  " + first + kMoment + "  \\+  interface  [^\n]*host1[^\n]*\n"));
}

TEST(ToolWatch, PrintsLinesOfJsonAndEndsWithTheirCountOrItsTime)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    // The access of a camera that answers late is not known at once.
    const Outcome both = InTime(HasSubstr("\"access\":\"read/write\""), [&] {
        return RunTool({"--json", "watch", "--count", "2"}, camera.Environment());
    });
    EXPECT_EQ(both.exitCode, 0) << both.output;
    std::istringstream lines(both.output);
    std::string interface;
    std::string found;
    std::getline(lines, interface);
    std::getline(lines, found);
    ExpectFitsSchema("watch", interface);
    ExpectFitsSchema("watch", found);
    EXPECT_THAT(interface,
                MatchesRegex("\\{\"time\":\"" + kMoment +
                             "\",\"change\":\"came\",\"what\":\"interface\",\"id\":\"[^\"]+\",\"name\":\"[^\"]*"
                             "host0[^\"]*\",\"producer\":\"[^\"]+\"\\}"));
    EXPECT_THAT(
        found,
        MatchesRegex("\\{\"time\":\"" + kMoment +
                     "\",\"change\":\"came\",\"what\":\"camera\",\"id\":\"NQ-GEV-Camera:02-00-0a-4d-00-02\","
                     "\"vendor\":\"[^\"]+\",\"model\":\"NQ-GEV-Camera\",\"serial\":\"SN-4711\",\"user_name\":\"\","
                     "\"address\":\"10\\.77\\.0\\.2\",\"access\":\"read/write\",\"interface\":\"[^\"]+\","
                     "\"producer\":\"[^\"]+\"\\}"));
    EXPECT_EQ(RunTool({"watch", "--duration", "1"}, camera.Environment()).exitCode, 0);
}

TEST(ToolWatch, EndsWhenNobodyReadsItsLinesAnyMore)
{
    const Outcome closed =
        RunProgram({"/bin/sh", "-c", "{ " + kFakeLine + "watch; echo code $? >&2; } | { read line; echo $line; }"});
    EXPECT_THAT(closed.output, AllOf(HasSubstr(" + interface Interface Interface\n"),
                                     HasSubstr("nq-gev: cannot write the output: Broken pipe\n"), HasSubstr("code 1")));
    const Outcome full = RunProgram({"/bin/sh", "-c", kFakeLine + "watch >/dev/full"});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_EQ(full.output, "nq-gev: cannot write the output: No space left on device\n");
}

TEST(ToolWatch, GoesOnWithoutAProducerThatDoesNotWork)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    std::vector<std::string> environment = camera.Environment();
    const TemporaryFolder folder;
    std::filesystem::create_symlink(NQ_CTI_PATH, folder / "ours.cti");
    std::filesystem::create_symlink(NQ_FAKE_PRODUCER_PATH, folder / "broken.cti");
    environment.emplace_back("GENICAM_GENTL64_PATH=" + folder.Path());
    environment.emplace_back("NQ_FAKE_PRODUCER=GCInitLib.code=-1001");
    ChildProcess watch({NQ_TOOL_PATH, "watch"}, environment);
    ASSERT_TRUE(watch.WaitForOutput("  " + kCamera + "read/write\n", kLongTime)) << watch.Output();
    ASSERT_TRUE(watch.WaitForOutput("nq-gev: warning: " + (folder / "broken.cti") +
                                        " is left out: GCInitLib failed: GC_ERR_ERROR (-1001)\n",
                                    kLongTime))
        << watch.Output();
    watch.Signal(SIGTERM);
    EXPECT_EQ(watch.WaitForExit(kLongTime), 143) << watch.Output();
}

} // namespace
