// SPDX-License-Identifier: Apache-2.0
// The pieces that ./run bench measures with do what they are taken for: the references receive the camera's frames, and
// the counters count.
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace
{

using namespace nq::test;
using nlohmann::json;

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
    bool standard = false;
};

class BenchRoad : public testing::TestWithParam<BenchRoadCase>
{
};

TEST_P(BenchRoad, BringsTheFramesOfTheCameraInTheirOrder)
{
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const std::vector<std::string> more = {"--show", "40", "--seconds", "0.01", "--producer", NQ_CTI_PATH};
    const json result =
        Printed("frame_road", Joined(GetParam().arguments, more), camera,
                GetParam().standard ? std::vector<std::string>{"NQ_GEV_TL_STANDARD=1"} : std::vector<std::string>{});
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
                                         BenchRoadCase{"Library", {"--road", "library"}},
                                         BenchRoadCase{"LibraryInPlace", {"--road", "library", "--announced"}, true}),
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

} // namespace
