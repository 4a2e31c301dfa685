// SPDX-License-Identifier: Apache-2.0
// nq-gev in both modes of our producer: which answers are in use, and what a grab relies on in each.
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::HasSubstr;

TEST(ToolInfo, TellsProducerVersionsAndAnswers)
{
    const Outcome info = RunTool({"info"});
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(info.output,
                testing::MatchesRegex("nq-gev     2\\.5\\.5, commit [^\n]+\nproducer   [^\n]+\n"
                                      "  id         NQGenTLGevRDMA\n  vendor     Nerquil Optic\n"
                                      "  model      GEVRDMATL\n  version    2\\.5\\.5\n  type       GEV\n"
                                      "  GenTL      1\\.5\n  answers    standard\n\nlibrary [^\n]+, loaded\n.*"));
    EXPECT_THAT(RunTool({"--answers", "stated", "info"}).output, HasSubstr("\n  answers    stated\n"));
    EXPECT_EQ(RunTool({"--answers", "other", "info"}).exitCode, 2);
}

TEST(ToolInfo, IsNotMovedByTheEnvironment)
{
    EXPECT_THAT(RunTool({"--answers", "stated", "info"}, {"NQ_GEV_TL_STANDARD=1"}).output,
                HasSubstr("\n  answers    stated\n"));
    EXPECT_THAT(RunTool({"info"}, {"NQ_GEV_TL_STANDARD=0"}).output, HasSubstr("\n  answers    standard\n"));
}

TEST(ToolInfo, TellsWhatIsInUseAndNotWhatWasAsked)
{
    // In a program with more rights than its user our producer takes no switch from the environment.
    const Outcome info =
        RunProgram({"/usr/bin/setpriv", "--ruid=65534", NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "info"});
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(info.output, HasSubstr("\n  answers    stated\n"));
}

TEST(ToolInfo, PrintsTheSameAsJson)
{
    const Outcome info = RunTool({"--json", "info"});
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(
        info.output,
        AllOf(HasSubstr("\"nq_gev\": {\n    \"version\": \"2.5.5\",\n    \"commit\": \""),
              HasSubstr("\"producers\": [\n    {\n      \"path\": \""),
              HasSubstr("\"problem\": \"\",\n      \"id\": \"NQGenTLGevRDMA\",\n      \"vendor\": \"Nerquil Optic\",\n"
                        "      \"model\": \"GEVRDMATL\",\n      \"version\": \"2.5.5\",\n"
                        "      \"type\": \"GEV\",\n      \"gentl\": \"1.5\",\n"
                        "      \"answers\": \"standard\"\n")));
}

TEST(ToolInfo, TellsOfEachProducerThatIsFoundAndOfTheProblemOfOne)
{
    const TemporaryFolder folders;
    std::filesystem::create_directories(folders / "ours");
    std::filesystem::create_directories(folders / "fake");
    std::filesystem::create_symlink(NQ_CTI_PATH, folders / "ours/ours.cti");
    std::filesystem::create_symlink(NQ_FAKE_PRODUCER_PATH, folders / "fake/fake.cti");
    const std::string path = "GENICAM_GENTL64_PATH=" + (folders / "ours") + ":" + (folders / "fake");
    const Outcome both = RunProgram({NQ_TOOL_PATH, "info"}, {path, "NQ_FAKE_PRODUCER=TLGetInfo.9.code=-1003"});
    EXPECT_EQ(both.exitCode, 0) << both.output;
    EXPECT_THAT(both.output, AllOf(HasSubstr("  answers    standard\n"),
                                   HasSubstr("  id         Fake\n  vendor     Fake\n  model      Fake\n"
                                             "  version    Fake\n  type       Fake\n  GenTL      -\n"
                                             "  answers    its own\n")));
    const Outcome one = RunProgram({NQ_TOOL_PATH, "info"}, {path, "NQ_FAKE_PRODUCER=GCInitLib.code=-1001"});
    EXPECT_EQ(one.exitCode, 0) << one.output;
    EXPECT_THAT(one.output, AllOf(HasSubstr("  answers    standard\n"),
                                  HasSubstr("  problem    GCInitLib failed: GC_ERR_ERROR (-1001)\n")));
}

/// Six frames in a row that are 400 bytes short, for two buffers.
std::vector<std::string> ShortFrames()
{
    return {"--width", "320", "--height", "200", "--fault", "short-frame:400:6"};
}

TEST(ToolGrabModes, EveryShortFrameIsCounted)
{
    const VirtualCamera camera(ShortFrames());
    const Outcome grab = RunTool({"grab", "--count", "10", "--buffers", "2"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("frames     10\nlost       0\nincomplete 6\n"));
}

TEST(ToolGrabModes, WithStatedAnswersEachBufferIsCountedOnce)
{
    const VirtualCamera camera(ShortFrames());
    const Outcome grab =
        RunTool({"--answers", "stated", "grab", "--count", "10", "--buffers", "2"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("frames     10\nlost       0\nincomplete 2\n"));
}

TEST(ToolGrabModes, BothCheckEveryByteOfALongRun)
{
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    for (const char* answers : {"standard", "stated"})
    {
        const Outcome grab = RunTool({"--answers", answers, "grab", "--count", "100", "--verify", "--buffers", "3"},
                                     camera.Environment());
        EXPECT_EQ(grab.exitCode, 0) << answers << ": " << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("frames     100\nlost       0\nincomplete 0\n")) << answers;
        EXPECT_THAT(grab.output, HasSubstr("wrong      0 bytes")) << answers;
    }
}

TEST(ToolGrabModes, AWaitThatTheProducerEndsIsALostCamera)
{
    const auto begin = std::chrono::steady_clock::now();
    const Outcome grab = RunOnFake("EventGetData@3.code=-1012\nEventGetData@3.sleep=50",
                                   {"grab", "--count", "5", "--frame-timeout", "50000"});
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: the producer gave the stream up after 2 of 5: the camera  "));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(40)) << "not after the frame's time";
}

TEST(ToolGrabModes, AStartThatIsDeniedSaysThatTheControlIsGone)
{
    const Outcome grab = RunOnFake("DSStartAcquisition.code=-1005", {"grab"});
    EXPECT_EQ(grab.exitCode, 8) << grab.output;
    EXPECT_THAT(grab.output,
                HasSubstr("nq-gev: the stream did not start: GC_ERR_ACCESS_DENIED (-1005). This program "
                          "does not control the camera Camera any more: another one took it, or the camera "
                          "gave it up; `nq-gev list` tells who controls it."));
}

} // namespace
