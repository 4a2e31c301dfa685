// SPDX-License-Identifier: Apache-2.0
// nq-gev grab --burst: some frames each so many seconds, of a stream that goes on.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/two_cameras.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::StartsWith;

/// What a Python expression gives of a file with lines of JSON: `m` is a list of them, and `at(line)` the seconds at
/// which one arrived.
std::string Of(const std::string& path, const std::string& expression)
{
    const std::string text =
        RunProgram({"/usr/bin/python3", "-c",
                    "import json, sys, datetime\n"
                    "m = [json.loads(line) for line in open(sys.argv[1])]\n"
                    "at = lambda line: datetime.datetime.strptime(line['arrival'], '%Y%m%dT%H%M%S.%fZ').timestamp()\n"
                    "print((" +
                        expression + "))",
                    path})
            .output;
    return text.substr(0, text.find('\n'));
}

TEST(GrabBurst, TakesSoManyFramesInARowEachSoManySeconds)
{
    const TemporaryFolder folder;
    const std::string lines = folder / "m";
    const Outcome grab = RunOnFake("EventGetData.sleep=10", {"grab", "--burst", "3", "--every", "3", "--count", "6",
                                                             "--metadata", lines, "--out", folder / "pictures"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("pictures   6\nframes     6\nlost       0\n"));
    EXPECT_THAT(grab.output, HasSubstr("\nbursts     2\n"));
    EXPECT_EQ(Of(lines, "[l['burst'] for l in m], [l['id'] for l in m[:3]], [l['id'] - m[3]['id'] for l in m[3:]], "
                        "sum(l['lost_before'] for l in m)"),
              "([1, 1, 1, 2, 2, 2], [1, 2, 3], [0, 1, 2], 0)");
    // The stream went on, and the second burst began 3 s after the first; the clock of the lines may be slewed.
    EXPECT_EQ(Of(lines, "m[3]['id'] > 10, at(m[3]) - at(m[0]) > 2.9"), "(True, True)");
    const Outcome json = RunOnFake("", {"--json", "grab", "--burst", "2", "--every", "1", "--count", "4"});
    EXPECT_THAT(json.output, HasSubstr("\"bursts\": 2,\n  \"bursts_left_out\": "));
}

TEST(GrabBurst, CountsNothingOfTheFramesBetween)
{
    // From the second frame on, which is the first between two bursts, frames are refused but for those far apart.
    const TemporaryFolder folder;
    const std::string lines = folder / "m";
    std::string lies = "EventGetData.sleep=10";
    for (int frame = 2; frame < 12; ++frame)
    {
        lies += "\nDSGetBufferInfo.9@" + std::to_string(frame) + ".value=4000";
    }
    const Outcome grab = RunOnFake(
        lies, {"--json", "grab", "--verify", "--burst", "1", "--every", "3", "--count", "2", "--metadata", lines});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("\"frames\": 2,\n  \"lost\": 0,\n  \"incomplete\": 0,\n  \"refused\": 0,"));
    EXPECT_EQ(Of(lines, "len(m)"), "2");
}

TEST(GrabBurst, LosesFramesWithinButNotBetween)
{
    // The third frame comes after 2 s and begins the second burst: nobody wanted what was sent before it.
    const std::string lies = "EventGetData@3.sleep=2500\nDSGetBufferInfo.16@3.value=50\nDSGetBufferInfo.16@4.value=";
    const std::vector<std::string> arguments = {"grab", "--burst", "2", "--every", "1", "--count", "4"};
    const Outcome between = RunOnFake(lies + "51", arguments);
    EXPECT_EQ(between.exitCode, 0) << between.output;
    EXPECT_THAT(between.output, HasSubstr("frames     4\nlost       0\n"));
    EXPECT_THAT(between.output, ContainsRegex("\nbursts     2, and no time for [1-9][0-9]*\n"));
    const Outcome within = RunOnFake(lies + "55", arguments);
    EXPECT_EQ(within.exitCode, 7) << within.output;
    EXPECT_THAT(within.output, HasSubstr("frames     4\nlost       4\n"));
    EXPECT_THAT(within.output, HasSubstr("nq-gev: 4 frames lost, 0 incomplete (of 8); more buffers"));
}

TEST(GrabBurst, HasTheRateOfItsFramesWithoutThePauses)
{
    const Outcome grab = RunOnFake("EventGetData@2.sleep=100\nEventGetData@3.sleep=2000\nEventGetData@4.sleep=100",
                                   {"--json", "grab", "--burst", "2", "--every", "1", "--count", "4"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const auto number = [&](const std::string& name) {
        const size_t at = grab.output.find("\"" + name + "\": ");
        return at == std::string::npos ? -1 : std::strtod(grab.output.c_str() + at + name.size() + 4, nullptr);
    };
    // Two of the four frames came behind another one of their burst.
    EXPECT_GE(number("seconds"), 0.2);
    EXPECT_NEAR(number("frames_per_second") * number("seconds"), 2, 1e-6) << grab.output;
    EXPECT_NEAR(number("megabytes_per_second") * number("seconds"), 2 * 3072e-6, 1e-9) << grab.output;
}

TEST(GrabBurst, GoesOnUntilItIsToldToEnd)
{
    for (const int number : {2, 15})
    {
        const Outcome grab = RunOnFake("EventGetData.sleep=10\nEventGetData@200.signal=" + std::to_string(number),
                                       {"grab", "--burst", "2", "--every", "1"});
        EXPECT_EQ(grab.exitCode, 128 + number) << grab.output;
        EXPECT_THAT(grab.output, ContainsRegex("\nbursts     [1-9]"));
    }
    const Outcome timed =
        RunOnFake("EventGetData.sleep=10", {"grab", "--burst", "2", "--every", "3600", "--duration", "3"});
    EXPECT_EQ(timed.exitCode, 0) << timed.output;
    EXPECT_THAT(timed.output, AllOf(HasSubstr("frames     2\n"), HasSubstr("\nbursts     1\n")));
}

TEST(GrabBurst, SeesTheLossOfTheCameraBetweenTwo)
{
    const Outcome grab = RunOnFake("EventGetData@9.code=-1012", {"grab", "--burst", "2", "--every", "3600"});
    EXPECT_EQ(grab.exitCode, 6) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: the producer gave the stream up after 2: the camera  "));
}

TEST(GrabBurst, IsOfEachOfSeveralCameras)
{
    const TwoCameras cameras({"--width", "64", "--height", "48", "--fps", "0"});
    const TemporaryFolder folder;
    const Outcome grab =
        RunTool({"grab", "--all-cameras", "--burst", "2", "--every", "2", "--count", "4", "--metadata", folder / "m"},
                cameras.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_EQ(Of(folder / "m", "[[l['burst'] for l in m if l['camera'] == c] for c in ('SN-1', 'SN-2')]"),
              "[[1, 1, 2, 2], [1, 1, 2, 2]]");
    EXPECT_EQ(Of(folder / "m", "[[l['id'] - k['id'] == 1 for k, l in zip(n[::2], n[1::2])] for n in "
                               "([l for l in m if l['camera'] == c] for c in ('SN-1', 'SN-2'))]"),
              "[[True, True], [True, True]]");
}

TEST(GrabBurst, IsRefusedWithoutAllOfItsNumbers)
{
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{"grab", "--burst", "2"}, "--burst requires --every\n"},
        {{"grab", "--every", "2"}, "--every requires --burst\n"},
        {{"grab", "--burst", "0", "--every", "1"},
         "--burst: takes a whole number from 1 to 1000000000000, not \"0\"\n"},
        {{"grab", "--burst", "1", "--every", "0"},
         "--every: takes a whole number from 1 to 86400 seconds, not \"0\"\n"},
        {{"grab", "--burst", "1", "--every", "0.5"},
         "--every: takes a whole number from 1 to 86400 seconds, not \"0.5\"\n"},
        {{"grab", "--burst", "-1", "--every", "1"},
         "--burst: takes a whole number from 1 to 1000000000000, not \"-1\"\n"},
    };
    for (const auto& [arguments, told] : wrong)
    {
        const Outcome grab = RunOnFake("", arguments);
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
        EXPECT_THAT(grab.output, StartsWith(told));
    }
}

} // namespace
