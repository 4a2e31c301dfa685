// SPDX-License-Identifier: Apache-2.0
// What nq-gev makes of the texts of cameras: nothing that a terminal obeys, and JSON that stays JSON.
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;

Outcome ListWith(const std::string& model, const std::vector<std::string>& arguments = {"list"})
{
    return RunOnFake("IFGetDeviceInfo.2.text=" + model, arguments);
}

struct Shown
{
    const char* name;
    const char* text;
    const char* shown;
};

void PrintTo(const Shown& text, std::ostream* out)
{
    *out << text.name;
}

class ToolText : public testing::TestWithParam<Shown>
{
};

TEST_P(ToolText, IsShown)
{
    const Outcome list = ListWith(GetParam().text);
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr(std::string("model ") + GetParam().shown + "  serial Serial"));
}

const Shown kTexts[] = {
    {"Ascii", "NQ-1 (a\\b) ~", "NQ-1 (a\\b) ~"},
    {"Utf8", "K\u00FChl \u4E2D \U0001F4F7", "K\u00FChl \u4E2D \U0001F4F7"},
    {"ClearScreenAndTitle", "\x1b[2J\x1b]0;mine\x07", "\\x1b[2J\\x1b]0;mine\\x07"},
    {"DeleteAndReturn", "a\x7f\rb\tc", "a\\x7f\\x0db\\x09c"},
    {"ControlsOfEightBits",
     "a\x9b"
     "2J\xc2\x9b"
     "2J",
     "a\\x9b2J\\xc2\\x9b2J"},
    {"Latin1", "K\xfchl", "K\\xfchl"},
    {"ReversedReading", "a\u202Eb\u2066c\u200B", "a\\xe2\\x80\\xaeb\\xe2\\x81\\xa6c\\xe2\\x80\\x8b"},
    {"OverlongSlash", "\xc0\xaf\xe0\x80\xaf\xf0\x80\x80\xaf", "\\xc0\\xaf\\xe0\\x80\\xaf\\xf0\\x80\\x80\\xaf"},
    {"SurrogateAndBeyond", "\xed\xa0\x80\xf4\x90\x80\x80", "\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80"},
    {"CutOff", "a\xe4\xb8", "a\\xe4\\xb8"},
};

INSTANTIATE_TEST_SUITE_P(As, ToolText, testing::ValuesIn(kTexts), [](const auto& text) { return text.param.name; });

TEST(ToolJson, ReplacesWhatIsNoUtf8AndKeepsTheRest)
{
    const Outcome list = ListWith("K\xfchl\x1b[2J\xc2\x9b", {"--json", "list"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr(R"("model": "K\ufffdhl\u001b[2J\u009b")"));
    EXPECT_THAT(list.output, HasSubstr(R"("serial": "Serial")"));
}

TEST(ToolFailure, IsToldWithoutWhatATerminalObeys)
{
    const Outcome grab =
        RunProgram({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab", "--out", "/proc/\x1b[2J"});
    EXPECT_EQ(grab.exitCode, 1);
    EXPECT_THAT(grab.output, HasSubstr("nq-gev: cannot make the folder /proc/\\x1b[2J: "));
    const Outcome list = RunProgram({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab", "--camera", "\x1b[2J"});
    EXPECT_EQ(list.exitCode, 4);
    EXPECT_THAT(list.output, HasSubstr("no camera fits \"\\x1b[2J\""));
}

} // namespace
