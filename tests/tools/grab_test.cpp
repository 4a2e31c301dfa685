// SPDX-License-Identifier: Apache-2.0
// What nq-gev grab tells of its work: the rate, what was lost and what mends it, how it ended.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using namespace std::chrono_literals;
using testing::ContainsRegex;
using testing::HasSubstr;

double JsonNumber(const std::string& text, const std::string& name)
{
    const size_t at = text.find("\"" + name + "\": ");
    return at == std::string::npos ? -1 : std::strtod(text.c_str() + at + name.size() + 4, nullptr);
}

TEST(GrabRate, OfOneFrameIsNone)
{
    const Outcome text = RunOnFake("", {"grab", "--count", "1"});
    EXPECT_EQ(text.exitCode, 0) << text.output;
    EXPECT_THAT(text.output, HasSubstr("\nrate       none: it takes two frames to tell\n"));
    const Outcome json = RunOnFake("", {"--json", "grab", "--count", "1"});
    EXPECT_EQ(json.exitCode, 0) << json.output;
    EXPECT_THAT(json.output, HasSubstr("\"seconds\": 0.0,\n  \"frames_per_second\": null,\n  \"megabytes_per_second\": "
                                       "null"));
}

TEST(GrabRate, IsOfTheFramesAfterTheFirstByTheTimeFromTheFirstToTheLast)
{
    // The first frame takes 2 s, the third comes a second after the second.
    const Outcome json =
        RunOnFake("EventGetData@1.sleep=2000\nEventGetData@3.sleep=1000", {"--json", "grab", "--count", "3"});
    EXPECT_EQ(json.exitCode, 0) << json.output;
    const double seconds = JsonNumber(json.output, "seconds");
    EXPECT_GE(seconds, 1.0);
    EXPECT_NEAR(JsonNumber(json.output, "frames_per_second") * seconds, 2, 1e-6) << json.output;
    EXPECT_NEAR(JsonNumber(json.output, "megabytes_per_second") * seconds, 2 * 3072e-6, 1e-9) << json.output;
    const Outcome text = RunOnFake("EventGetData@2.sleep=1000", {"grab", "--count", "2"});
    EXPECT_THAT(text.output, ContainsRegex("\nrate       (1\\.0|0\\.[0-9]) frames/s, 0\\.0 MB/s\n"));
}

TEST(GrabLoss, AfterTheFirstFrameGivesExitCodeSevenAndTheLineThatMendsIt)
{
    // Frames 1, 12, 3 and 4: ten are missing before the second.
    const char* lies = "DSGetBufferInfo.16@2.value=12";
    const Outcome text = RunOnFake(lies, {"grab", "--count", "4", "--buffers", "8"});
    EXPECT_EQ(text.exitCode, 7) << text.output;
    EXPECT_THAT(text.output, HasSubstr("frames     4\nlost       10\nincomplete 0\n"));
    EXPECT_THAT(text.output,
                HasSubstr("nq-gev: 10 frames lost, 0 incomplete (of 14); more buffers bridge the time in which none "
                          "is free: nq-gev grab --buffers 32; or accept it: --allow-loss 10\n"));
    const Outcome json = RunOnFake(lies, {"--json", "grab", "--count", "4"});
    EXPECT_EQ(json.exitCode, 7) << json.output;
    EXPECT_THAT(json.output, HasSubstr("\"lost\": 10,"));
    EXPECT_EQ(RunOnFake(lies, {"grab", "--count", "4", "--allow-loss", "9"}).exitCode, 7);
    EXPECT_EQ(RunOnFake(lies, {"grab", "--count", "4", "--allow-loss", "10"}).exitCode, 0);
}

TEST(GrabLoss, BeforeTheFirstFrameIsNone)
{
    const Outcome grab =
        RunOnFake("DSGetBufferInfo.16@1.value=2000\nDSGetBufferInfo.16@2.value=2001", {"grab", "--count", "2"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("lost       0\n"));
}

TEST(GrabLoss, IsNoFrameThatCameAndWasRefused)
{
    // Frame 2 is refused; the fourth one is 7, so that 4, 5 and 6 are missing.
    const Outcome grab =
        RunOnFake("DSGetBufferInfo.9@2.value=4000\nDSGetBufferInfo.16@4.value=7", {"--json", "grab", "--count", "4"});
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("\"frames\": 3,\n  \"lost\": 3,\n  \"incomplete\": 0,\n  \"refused\": 1,"));
}

TEST(GrabLoss, IsMendedByNoValueThatIsRefused)
{
    const char* lies = "DSGetBufferInfo.16@2.value=3";
    const Outcome many = RunOnFake(lies, {"grab", "--count", "2", "--buffers", "20000"});
    EXPECT_THAT(many.output, HasSubstr("nq-gev grab --buffers 65536; or accept it: --allow-loss 1\n"));
    const Outcome most = RunOnFake(lies, {"grab", "--count", "2", "--buffers", "65536"});
    EXPECT_THAT(most.output, HasSubstr("nq-gev: 1 frames lost, 0 incomplete (of 3); or accept it: --allow-loss 1\n"));
    const Outcome far = RunOnFake("DSGetBufferInfo.16@2.value=1000000000003", {"grab", "--count", "2"});
    EXPECT_EQ(far.exitCode, 7);
    EXPECT_THAT(far.output, HasSubstr("nq-gev: 1000000000001 frames lost, 0 incomplete (of 1000000000003); more "
                                      "buffers bridge the time in which none is free: nq-gev grab --buffers 16\n"));
}

TEST(GrabLoss, OfPartsOfFramesCountsToo)
{
    const char* lies = "DSGetBufferInfo.9@2.value=100\nDSGetBufferInfo.7@2.value=1";
    const Outcome grab = RunOnFake(lies, {"grab", "--count", "3"});
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: 0 frames lost, 1 incomplete (of 3); incomplete ones come so from the "
                                       "camera: look at its payload settings and at the cable; or accept it: "
                                       "--allow-loss 1\n"));
    EXPECT_EQ(RunOnFake(lies, {"grab", "--count", "3", "--allow-loss", "1"}).exitCode, 0);
}

TEST(GrabLoss, ThatIsAllowedCoversNoWrongBytes)
{
    const Outcome grab =
        RunOnFake("DSGetBufferInfo.16@2.value=3", {"grab", "--count", "2", "--verify", "--allow-loss", "100"});
    EXPECT_EQ(grab.exitCode, 7) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("3072 wrong bytes (of 3)\n"));
}

class GrabSignal : public testing::TestWithParam<int>
{
};

TEST_P(GrabSignal, EndsItCleanlyWithItsExitCodeAndASecondOneAtOnce)
{
    // The stop takes longer than anybody here waits; or it is quick.
    for (const char* stop : {"", "DSStopAcquisition.sleep=100000"})
    {
        const TemporaryFolder folder;
        ChildProcess grab({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "--json", "grab", "--count", "100000000",
                           "--out", folder.Path()},
                          {std::string("NQ_FAKE_PRODUCER=EventGetData.sleep=1\n") + stop});
        while (folder.Files().empty())
        {
            ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
        }
        grab.Signal(GetParam());
        const bool clean = *stop == 0;
        if (!clean)
        {
            EXPECT_EQ(grab.WaitForExit(1s), -1);
            // One that comes too soon behind the first, for the tool was late to take that, is the same request.
            int again = 0;
            do
            {
                grab.Signal(GetParam());
            } while (grab.WaitForExit(1s) == -1 && ++again < 20);
        }
        EXPECT_EQ(grab.WaitForExit(kLongTime), 128 + GetParam()) << grab.Output();
        EXPECT_EQ(grab.Output().find("\"frames\": ") != std::string::npos, clean) << grab.Output();
    }
}

INSTANTIATE_TEST_SUITE_P(Of, GrabSignal, testing::Values(SIGINT, SIGTERM),
                         [](const auto& number) { return number.param == SIGINT ? "Interrupt" : "Termination"; });

struct BadNumber
{
    const char* name;
    std::vector<std::string> arguments;
    const char* told;
};

void PrintTo(const BadNumber& number, std::ostream* out)
{
    *out << number.name;
}

class GrabNumber : public testing::TestWithParam<BadNumber>
{
};

TEST_P(GrabNumber, OutOfRangeIsToldInOurWords)
{
    const Outcome grab = RunOnFake("", GetParam().arguments);
    EXPECT_EQ(grab.exitCode, 2) << grab.output;
    EXPECT_THAT(grab.output, testing::StartsWith(GetParam().told));
}

const BadNumber kNumbers[] = {
    {"NegativeTimeout",
     {"--timeout", "-1", "grab"},
     "--timeout: takes a whole number from 1 to 86400000 milliseconds, not \"-1\"\n"},
    {"NoTimeout",
     {"--timeout", "0", "list"},
     "--timeout: takes a whole number from 1 to 86400000 milliseconds, not \"0\"\n"},
    {"NegativeFrameTimeout",
     {"grab", "--frame-timeout", "-1"},
     "--frame-timeout: takes a whole number from 1 to 86400000 milliseconds, not \"-1\"\n"},
    {"NoFrames", {"grab", "--count", "0"}, "--count: takes a whole number from 1 to 1000000000000, not \"0\"\n"},
    {"Fraction", {"grab", "--count", "1.5"}, "--count: takes a whole number from 1 to 1000000000000, not \"1.5\"\n"},
    {"BeyondSixtyFourBits",
     {"grab", "--save-every", "18446744073709551617"},
     "--save-every: takes a whole number from 1 to 1000000000000, not \"18446744073709551617\"\n"},
    {"TooManyBuffers",
     {"grab", "--buffers", "65537"},
     "--buffers: takes a whole number from 1 to 65536, not \"65537\"\n"},
    {"Word",
     {"grab", "--allow-loss", "some"},
     "--allow-loss: takes a whole number from 0 to 1000000000000, not \"some\"\n"},
};

INSTANTIATE_TEST_SUITE_P(Of, GrabNumber, testing::ValuesIn(kNumbers),
                         [](const auto& number) { return std::string(number.param.name); });

} // namespace
