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
                                         LocksCase{"Standard", {"--announced"}, {"NQ_GEV_TL_STANDARD=1"}, 48}),
                         [](const auto& mode) { return mode.param.name; });

/// What a frame of this road is said to cost.
struct CostCase
{
    std::string name;
    std::vector<std::string> arguments;
    std::vector<std::string> settings;
    int copies;
};

void PrintTo(const CostCase& road, std::ostream* out)
{
    *out << road.name;
}

class BenchFrameCost : public testing::TestWithParam<CostCase>
{
};

TEST_P(BenchFrameCost, IsNoAllocationAndTheCopiesThatThePagesTellOf)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the run-time of a sanitizer stands in front of the same functions";
    }
    const VirtualCamera camera({"--width", "64", "--height", "64", "--heartbeat", "60000"}); // no beat is counted
    const json cost =
        Printed("frame_cost", Joined({"--producer", NQ_CTI_PATH, "--frames", "300"}, GetParam().arguments), camera,
                GetParam().settings);
    EXPECT_EQ(cost.at("bytes_per_frame"), 4096);
    EXPECT_EQ(cost.at("allocations_per_frame"), 0);
    EXPECT_EQ(cost.at("copies_per_frame"), GetParam().copies);
    EXPECT_EQ(cost.at("copied_bytes_per_frame"), 4096 * GetParam().copies);
}

INSTANTIATE_TEST_SUITE_P(Roads, BenchFrameCost,
                         testing::Values(CostCase{"Own", {}, {}, 0}, CostCase{"OwnAnnounced", {"--announced"}, {}, 1},
                                         CostCase{"Standard", {}, {"NQ_GEV_TL_STANDARD=1"}, 0},
                                         CostCase{"StandardAnnounced", {"--announced"}, {"NQ_GEV_TL_STANDARD=1"}, 0}),
                         [](const auto& road) { return road.param.name; });

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

TEST(BenchReport, LeavesOutAGroupThatFailedAndTellsSo)
{
    const TemporaryFolder folder;
    const Outcome outcome = RunDriverCode("row = {'name': 'trace_closed_ns', 'at': 'a line', 'ours': 1}\n"
                                          "whole = {'rows': [row], 'left_out': [], 'steps': {}}\n"
                                          "driver.measure = lambda name, *more: whole if name == 'starts' else None\n"
                                          "sys.argv = ['bench', '--quick', '--only', 'touch', 'starts', '--out', '" +
                                          folder.Path() + "']\nsys.exit(driver.main())\n");
    EXPECT_EQ(outcome.exitCode, 1) << outcome.output;
    const json report = json::parse(BytesOf(folder / "report.json"));
    ASSERT_EQ(report.at("figures").size(), 1U);
    EXPECT_EQ(report["figures"][0].at("name"), "trace_closed_ns");
}

/// Code that makes a report of two figures at every size, of which the second is not met, but in one round at 16 MiB,
/// and writes the page.
std::string PageCode(const std::string& page, const std::string& quick)
{
    return "import figures, json, page\n"
           "rows = [{'name': 'copies_per_frame', 'at': f'{size}, {kind}', 'ours': 0}"
           " for kind in ('library-allocated, stated', 'announced, standard') for size in figures.SIZES]\n"
           "rows += [{'name': 'frame_rate_vs_handover', 'at': size, 'ours': 90, 'reference': 100}"
           " for size in figures.SIZES]\n"
           "rows += [{'name': 'frame_rate_vs_handover', 'at': '16 MiB', 'ours': ours, 'reference': 100}"
           " for ours in (110, 90)]\n"
           "rows += [{'name': 'info_call_ns', 'at': 'ten', 'ours': 250}]\n"
           "rows += [{'name': 'locks_per_frame', 'at': '64 KiB, library', 'ours': 35}]\n"
           "measured = [{'rows': rows, 'left_out': [], 'steps': {'start_ms': 12.25}}]\n"
           "report = driver.report_of(measured, " +
           quick +
           ", 3, 120.0)\n"
           "report.update(commit='abc', date='2026-11-22')\n"
           "report['machine'].update(processor='P', processors=2, memory_bytes=2**34, kernel='6.1')\n"
           "page.write(driver.checked(report), pathlib.Path('" +
           page + "'))\n";
}

TEST(BenchPage, HasWhatTheReportSaysBetweenItsTwoLines)
{
    const TemporaryFolder folder;
    const std::string begin = "# A page\n\n<!-- scripts/bench/page.py writes from here -->\n";
    const std::string end = "<!-- to here -->\n\nThe rest.\n";
    std::ofstream(folder / "page.md") << begin << "something old\n" << end;
    const Outcome outcome = RunDriverCode(PageCode(folder / "page.md", "False"));
    ASSERT_EQ(outcome.exitCode, 0) << outcome.output;
    const std::string page = BytesOf(folder / "page.md");
    EXPECT_THAT(page, testing::StartsWith(begin));
    EXPECT_THAT(page, testing::EndsWith(end));
    EXPECT_THAT(page, testing::Not(HasSubstr("something old")));
    EXPECT_THAT(page, HasSubstr("Measured on 2026-11-22 at the commit `abc`, 3 rounds in 2 minutes, on 2 processors of "
                                "the kind P with 16 GiB, Linux 6.1, by the software RDMA."));
    EXPECT_THAT(page, HasSubstr("\n| Figure | Of | Wanted | Median | Range | Library | Reference | Met |\n"
                                "|---|---|---|---|---|---|---|---|\n"
                                "| `frame_rate_vs_handover` | 4 KiB | ≥ 1.05 | 0.9 | 0.9 to 0.9 | 90 frames/s | 100 | "
                                "**no** |\n"
                                "| `frame_rate_vs_handover` | 64 KiB; 1 MiB | ≥ 1.0 | 0.9 | 0.9 to 0.9 | 90 frames/s | "
                                "100 | **no** |\n"
                                "| `frame_rate_vs_handover` | 16 MiB | ≥ 1.0 | 0.9 | 0.9 to 1.1 | 90 frames/s | 100 | "
                                "in some rounds |\n"
                                "| `copies_per_frame` | every size, library-allocated, stated; announced, standard | "
                                "≤ 0 | 0 | 0 to 0 |  |  | yes |\n"));
    EXPECT_THAT(page, HasSubstr("\n| Figure | Of | Median | Range |\n|---|---|---|---|\n"
                                "| `info_call_ns` | ten | 250 ns | 250 to 250 |\n"));
    EXPECT_THAT(page, HasSubstr("\n| locks | - / - | 35 / - | - / - | - / - |\n"));
    EXPECT_THAT(page, HasSubstr("\n| start | 12.25 |\n"));
    EXPECT_THAT(page, HasSubstr("](pictures/bench/frame_rate.svg)\n"));
    EXPECT_THAT(BytesOf(folder / "pictures/bench/frame_rate.svg"), testing::StartsWith("<svg xmlns="));
}

TEST(BenchPage, IsNotWrittenOfAQuickRunNorWithoutAPlaceForIt)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "page.md") << "A page.\n";
    const Outcome quick = RunDriverCode(PageCode(folder / "page.md", "True"));
    EXPECT_EQ(quick.exitCode, 1);
    EXPECT_EQ(quick.output, "page: a quick run is too short to tell of\n");
    const Outcome placeless = RunDriverCode(PageCode(folder / "page.md", "False"));
    EXPECT_EQ(placeless.exitCode, 1);
    EXPECT_THAT(placeless.output, HasSubstr("page.md has no place for it: two lines, <!-- scripts/bench/page.py writes "
                                            "from here --> and <!-- to here -->\n"));
    EXPECT_EQ(BytesOf(folder / "page.md"), "A page.\n");
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
