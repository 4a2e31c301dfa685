// SPDX-License-Identifier: Apache-2.0
// The pieces that ./run bench measures with do what they are taken for: the references receive the camera's frames, the
// counters count, and the report fits its schema.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace
{

using namespace nq::test;
using nlohmann::json;
using testing::HasSubstr;

constexpr std::size_t kWidth = 64;
constexpr std::size_t kHeight = 48;

json Printed(const std::string& program, const std::vector<std::string>& arguments, const VirtualCamera& camera,
             const std::vector<std::string>& settings = {})
{
    const Outcome outcome =
        RunProgram(Joined({NQ_BINARY_DIR "/bench/" + program, "--camera", VirtualCamera::kAddress}, arguments),
                   Joined(camera.Environment(), settings));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    return json::parse(outcome.output, nullptr, false);
}

/// What a road of frames is called with.
struct BenchRoadCase
{
    std::string name;
    std::vector<std::string> arguments;
};

class BenchRoad : public testing::TestWithParam<BenchRoadCase>
{
};

TEST_P(BenchRoad, BringsTheFramesOfTheCameraInTheirOrder)
{
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const std::vector<std::string> more = {"--show", "40", "--seconds", "0.01", "--producer", NQ_CTI_PATH};
    const json result = Printed("frame_road", Joined(GetParam().arguments, more), camera);
    ASSERT_EQ(result.at("shown").size(), 40U) << result;
    std::uint64_t id = 1;
    for (const json& frame : result["shown"])
    {
        EXPECT_EQ(frame.at("id"), id);
        EXPECT_EQ(frame.at("size"), kWidth * kHeight);
        EXPECT_EQ(frame.at("pixels").size(), 4U);
        for (const json& pixel : frame["pixels"])
        {
            const std::size_t at = pixel.at(0);
            EXPECT_EQ(pixel.at(1), (at % kWidth + at / kWidth + 7 * id) % 256) << "frame " << id << ", pixel " << at;
        }
        ++id;
    }
    EXPECT_GT(result.at("frames"), 0);
    EXPECT_GT(result.at("frames_per_second"), 0);
    EXPECT_GT(result.at("cpu_us_per_frame"), 0);
}

INSTANTIATE_TEST_SUITE_P(Roads, BenchRoad,
                         testing::Values(BenchRoadCase{"Bare", {"--road", "bare"}},
                                         BenchRoadCase{"Handover", {"--road", "handover"}},
                                         BenchRoadCase{"HandoverWithACopy", {"--road", "handover", "--announced"}},
                                         BenchRoadCase{"BareWithACopy", {"--road", "bare", "--announced"}},
                                         BenchRoadCase{"Library", {"--road", "library"}}),
                         [](const auto& road) { return road.param.name; });

TEST(BenchCounters, CountTheFourHandOversOfAFrame)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the run-time of a sanitizer stands in front of the same functions";
    }
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const json result = Printed("frame_road_counted", {"--road", "handover", "--seconds", "0.2"}, camera);
    // Each hand-over is a push and a pop. Frames under way at the begin and the end are counted by half.
    const double edges = 0.1 + 64.0 / result.at("frames").get<double>();
    EXPECT_NEAR(result.at("locks_per_frame"), 8, 2 * edges) << result;
    EXPECT_NEAR(result.at("notifies_per_frame"), 4, edges) << result;
}

/// How often a frame of the library locks at most, in a mode of its answers.
struct LocksCase
{
    std::string name;
    std::vector<std::string> arguments;
    std::vector<std::string> settings;
    double most;
};

void PrintTo(const LocksCase& mode, std::ostream* out)
{
    *out << mode.name;
}

class BenchLocks : public testing::TestWithParam<LocksCase>
{
};

TEST_P(BenchLocks, OfAFrameAreFewAndOnlyWhoSleepsIsNotified)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the run-time of a sanitizer stands in front of the same functions";
    }
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const json result =
        Printed("frame_road_counted",
                Joined({"--road", "library", "--producer", NQ_CTI_PATH, "--seconds", "0.2"}, GetParam().arguments),
                camera, GetParam().settings);
    // The most that a frame takes: each of its hand-overs finds its taker asleep. The control connection has its own
    // locks, and frames under way at the begin and the end are counted in part: few of thousands of frames.
    const double others = 600.0 / result.at("frames").get<double>();
    EXPECT_LE(result.at("locks_per_frame"), GetParam().most + others) << result;
    EXPECT_LE(result.at("notifies_per_frame"), 4 + others) << result;
}

INSTANTIATE_TEST_SUITE_P(Answers, BenchLocks,
                         testing::Values(LocksCase{"Own", {}, {}, 38},
                                         LocksCase{"Standard", {"--announced"}, {"NQ_GEV_TL_STANDARD=1"}, 54}),
                         [](const auto& mode) { return mode.param.name; });

TEST(BenchPortReads, AreOfTheBytesThatTheyTell)
{
    const VirtualCamera camera;
    for (const std::string by : {"udp", "library"})
    {
        const std::vector<std::string> arguments = {"--by", by, "--producer", NQ_CTI_PATH, "--seconds", "0.01"};
        EXPECT_EQ(Printed("port_reads", arguments, camera).at("bytes"), 4);
        const json memory = Printed("port_reads", Joined(arguments, {"--memory"}), camera);
        EXPECT_EQ(memory.at("bytes"), 512);
        EXPECT_GT(memory.at("reads_per_second"), 0);
    }
}

TEST(BenchFacts, TellTheStepsOfAStartAndThePagesThatItTouches)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP()
            << "the run-time of a sanitizer touches the memory that it gives, and takes the time that is measured";
    }
    const VirtualCamera camera({"--width", "4096", "--height", "4096", "--no-free-run"});
    const auto fact = [&](const std::string& name) {
        return Printed("library_facts", {"--fact", name, "--producer", NQ_CTI_PATH, "--buffers", "2"}, camera);
    };
    const json touch = fact("touch");
    EXPECT_EQ(touch.at("payload"), 4096 * 4096);
    EXPECT_EQ(touch.at("resident"), 0);
    EXPECT_GT(fact("info-calls").at("ns"), 0);
    const Outcome trace = RunProgram({NQ_BINARY_DIR "/bench/closed_trace"});
    EXPECT_THAT(trace.output, testing::MatchesRegex("\\{\"ns\": [0-9.]+\\}\n"));
}

/// The modules of the driver, in a shell of their own.
Outcome RunDriverCode(const std::string& code)
{
    return RunProgram(
        {"/usr/bin/python3", "-B", "-c",
         "import pathlib, sys\nsys.path.insert(0, '" NQ_SOURCE_DIR "/scripts/bench')\nimport driver\n" + code});
}

TEST(BenchReport, JudgesTheMedianOfTheQuotientsAndFitsItsSchema)
{
    const TemporaryFolder folder;
    const std::string rows =
        "rows = [{'name': 'frame_rate_vs_handover', 'at': '4 KiB', 'ours': ours, 'reference': other}"
        " for ours, other in ((90, 100), (300, 200), (104, 100))]\n"
        "rows += [{'name': 'trace_closed_ns', 'at': 'a line', 'ours': 1.5}]\n"
        "left = [{'name': 'register_read_vs_aravis', 'at': '4 bytes', 'reason': 'none here'}]\n"
        "measured = [{'rows': rows, 'left_out': left, 'steps': {'start_ms': 12.25}}]\n";
    const std::string publish =
        "driver.publish(driver.report_of(measured, False, 3, 1.0), pathlib.Path('" + folder.Path() + "'))\n";
    const Outcome outcome = RunDriverCode(rows + publish);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output,
                testing::ContainsRegex("frame_rate_vs_handover +4 KiB +1\\.04 +0\\.9 +1\\.5 +104 frames/s +100 +>= "
                                       "1\\.05 +not met\n"));
    EXPECT_THAT(outcome.output,
                testing::ContainsRegex("trace_closed_ns +a line +1\\.5 +1\\.5 +1\\.5 +ns +<= 2 +met\n"));
    EXPECT_THAT(outcome.output, HasSubstr("left out: register_read_vs_aravis at 4 bytes: none here\nstart_ms: 12.2\n"));
    const json report = json::parse(BytesOf(folder / "report.json"));
    EXPECT_EQ(report.at("figures").at(0).at("samples"), (json{0.9, 1.5, 1.04}));
    EXPECT_EQ(report["figures"][0].at("met"), false);
    EXPECT_THAT(BytesOf(folder / "frame_rate.svg"), testing::StartsWith("<svg xmlns="));
}

TEST(BenchReport, OfAQuickRunJudgesNothing)
{
    const Outcome outcome =
        RunDriverCode("rows = [{'name': 'trace_closed_ns', 'at': 'a line', 'ours': 1000}]\n"
                      "report = driver.report_of([{'rows': rows, 'left_out': [], 'steps': {}}], True, 1, 1.0)\n"
                      "print(driver.checked(report)['figures'])\n");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("'wanted': '<= 2'"));
    EXPECT_THAT(outcome.output, testing::Not(HasSubstr("'met'")));
}

TEST(BenchGroup, LeavesOutTheFigureWhoseReferenceDoesNotRun)
{
    const VirtualCamera camera;
    const TemporaryFolder folder;
    std::filesystem::create_directory_symlink(NQ_BINARY_DIR, folder / "build");
    const std::string code = "import slices\n"
                             "group = slices.Group(1, 0.02)\n"
                             "slices.PROGRAMS = 'build/bench/'\n"
                             "known = slices.sample\n"
                             "def without_udp(program, *more, **options):\n"
                             "    if 'udp' in more:\n"
                             "        raise slices.SampleFailed('no socket')\n"
                             "    return known(program, *[value if value != 'aravis' else 'udp' for value in more], "
                             "**options)\n"
                             "slices.sample = without_udp\n"
                             "slices.registers(group)\n"
                             "print([row['name'] for row in group.rows], group.left_out['register_read_vs_udp', "
                             "'4 bytes'])\n";
    const Outcome outcome =
        RunProgram({"/usr/bin/env", "-C", folder.Path(), "/usr/bin/python3", "-B", "-c",
                    "import sys\nsys.path.insert(0, '" NQ_SOURCE_DIR "/scripts/bench')\n" + code},
                   Joined(camera.Environment(), {std::string("CAMERA_ADDRESS=") + VirtualCamera::kAddress}));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_EQ(outcome.output, "['register_read_vs_aravis', 'memory_read_vs_aravis'] no socket\n");
}

} // namespace
