// SPDX-License-Identifier: Apache-2.0
// What nq-gev grab tells of its work: the rate, what was lost and what mends it, how it ended.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
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

} // namespace
