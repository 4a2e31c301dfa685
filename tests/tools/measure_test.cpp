// SPDX-License-Identifier: Apache-2.0
// nq-gev measure: how evenly frames come and what they cost, as a table, as JSON and as a plot.
#include "support/json_schema.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

/// The values that a Python expression gives of the JSON text, as Python prints them: `m` is the measurement.
std::string Of(const std::string& json, const std::string& expression)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "json") << json;
    const std::string text =
        RunProgram({"/usr/bin/python3", "-c",
                    "import json, sys; m = json.load(open(sys.argv[1])); print((" + expression + "))", folder / "json"})
            .output;
    return text.substr(0, text.find('\n'));
}

TEST(ToolMeasure, PrintsRateCostAndTimesAsATable)
{
    // A camera that loses nothing, however late its host is: a frame comes when there is room for it.
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "0"});
    const Outcome measure = RunTool({"measure", "--count", "200", "--verify"}, camera.Environment());
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    const std::string row = "( +[0-9]+\\.[0-9]{3}){7}\n";
    EXPECT_THAT(
        WithoutWait(measure.output),
        MatchesRegex("camera     NQ-GEV-Camera:02-00-0a-4d-00-02\nproducer   [^\n]*\nbuffers    4 library-allocated\n"
                     "frames     200\nlost       0\nincomplete 0\nunderruns  0\n"
                     "rate       [0-9.]+ frames/s, [0-9.]+ MB/s\nwrong      0 bytes\n"
                     "cpu        [0-9]+\\.[0-9] us per frame \\(user [0-9.]+, system [0-9.]+\\), [0-9]+\\.[0-9]% of "
                     "one processor\n\n"
                     "ms +least +mean +50% +90% +99% +99\\.9% +most\nbetween frames  " +
                     row + "event to requeue" + row));
}

TEST(ToolMeasure, PrintsTheSameAsJsonOfAFixedForm)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "0"});
    const TemporaryFolder folder;
    const Outcome measure = RunProgram(
        {"/bin/sh", "-c", kOurLine + "--json measure Width=32 --count 50 --announce 2>'" + (folder / "errors") + "'"},
        camera.Environment());
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    ExpectFitsSchema("measure", measure.output);
    EXPECT_EQ(Of(measure.output, "m['frames'], m['lost'], m['buffers'], m['buffer_origin']"),
              "(50, 0, 4, 'consumer-announced')");
}

TEST(ToolMeasure, TakesIntervalsFromEventToEventAndHoldsUntilTheBufferIsQueued)
{
    // Before frames 2 to 11 passes 1 ms at least, before the last one 500 ms; each takes 20 ms to be given back.
    const Outcome measure = RunOnFake("EventGetData.sleep=1\nEventGetData@11.sleep=500\nDSQueueBuffer.sleep=20",
                                      {"--json", "measure", "--count", "11"});
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    ExpectFitsSchema("measure", measure.output);
    const std::string& json = measure.output;
    EXPECT_EQ(Of(json, "m['interval_ms']['min'] >= 21, m['interval_ms']['max'] >= 520"), "(True, True)") << json;
    EXPECT_EQ(Of(json, "m['requeue_ms']['min'] >= 20"), "True") << json;
    // Ten intervals: the fifth, the ninth and the last of them by their length.
    EXPECT_EQ(Of(json, "m['interval_ms']['p99'] >= 519, m['interval_ms']['p99_9'] == m['interval_ms']['p99']"),
              "(True, True)")
        << json;
    EXPECT_EQ(Of(json, "all(v[a] <= v[b] for v in (m['interval_ms'], m['requeue_ms']) for a, b in (('min', 'p50'), "
                       "('p50', 'p90'), ('p90', 'p99'), ('p99', 'p99_9'), ('p99_9', 'max'), ('min', 'mean'), "
                       "('mean', 'max')))"),
              "True")
        << json;
    // All intervals together are the time from the first to the last frame.
    EXPECT_EQ(Of(json, "abs(m['interval_ms']['mean'] * 10 - m['seconds'] * 1000) < 0.01"), "True") << json;
}

TEST(ToolMeasure, TellsTheMiddleOfManyToAThousandth)
{
    // Most intervals are long ones of at least 40 ms, two are short: the median is a long one.
    const Outcome measure =
        RunOnFake("EventGetData@2.sleep=40\nEventGetData@3.sleep=40\nEventGetData@4.sleep=40\nEventGetData@5.sleep=40",
                  {"--json", "measure", "--count", "7"});
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    EXPECT_EQ(Of(measure.output, "m['interval_ms']['p50'] >= 39.96"), "True") << measure.output;
}

TEST(ToolMeasure, CountsTheProcessorTimeOfEachFrame)
{
    // After ten seconds, which a busy machine takes, a line tells on standard error how far it is.
    const Outcome measure = RunProgram(
        {"/bin/sh", "-c", kFakeLine + "--json measure --count 20000 --verify 2>/dev/null"}, {"NQ_FAKE_PRODUCER="});
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    EXPECT_EQ(Of(measure.output, "m['cpu']['us_per_frame'] > 0, abs(m['cpu']['user_us_per_frame'] + "
                                 "m['cpu']['system_us_per_frame'] - m['cpu']['us_per_frame']) < 1e-6, "
                                 "m['cpu']['processors'] > 0"),
              "(True, True, True)")
        << measure.output;
}

TEST(ToolMeasure, GivesExitCodeSevenForLossThatIsNotAllowed)
{
    const char* lies = "DSGetBufferInfo.16@2.value=12";
    const Outcome lost = RunOnFake(lies, {"measure", "--count", "4"});
    EXPECT_EQ(lost.exitCode, 7) << lost.output;
    EXPECT_THAT(lost.output, HasSubstr("frames     4\nlost       10\n"));
    EXPECT_THAT(lost.output, HasSubstr("between frames "));
    EXPECT_THAT(lost.output,
                HasSubstr("nq-gev: 10 frames lost, 0 incomplete (of 14); more buffers bridge the time in which none "
                          "is free: nq-gev measure --buffers 16; or accept it: --allow-loss 10\n"));
    EXPECT_EQ(RunOnFake(lies, {"measure", "--count", "4", "--allow-loss", "10"}).exitCode, 0);
}

TEST(ToolMeasure, EndsCleanlyByASignalWithWhatItHas)
{
    for (const int number : {SIGINT, SIGTERM})
    {
        const Outcome measure = RunOnFake("EventGetData@100.signal=" + std::to_string(number),
                                          {"--json", "measure", "--duration", "86400"});
        EXPECT_EQ(measure.exitCode, 128 + number) << measure.output;
        EXPECT_EQ(Of(measure.output, "m['frames'] >= 99, m['interval_ms'] is None"), "(True, False)") << measure.output;
    }
}

TEST(ToolMeasure, OfOneFrameHasNoTimesAndNoPlot)
{
    const TemporaryFolder folder;
    const std::string lies = "EventGetData@1.signal=2";
    const Outcome text = RunOnFake(lies, {"measure", "--plot", folder / "plot.svg"});
    EXPECT_EQ(text.exitCode, 130) << text.output;
    EXPECT_THAT(text.output, HasSubstr("nq-gev: no plot is written: it takes two frames\n"));
    EXPECT_THAT(text.output, Not(HasSubstr("between frames")));
    EXPECT_TRUE(folder.Files().empty());
    const Outcome json = RunOnFake(lies, {"--json", "measure"});
    EXPECT_EQ(json.exitCode, 130) << json.output;
    ExpectFitsSchema("measure", json.output);
    EXPECT_EQ(Of(json.output, "m['cpu'], m['interval_ms'], m['requeue_ms']"), "(None, None, None)") << json.output;
}

TEST(ToolMeasure, WithoutACameraOrAFrameIsAFailureLikeAGrab)
{
    const VirtualCamera camera;
    const Outcome silent = RunTool({"measure", "TriggerMode=On", "--duration", "1"}, camera.Environment());
    EXPECT_EQ(silent.exitCode, 6) << silent.output;
    EXPECT_THAT(silent.output,
                HasSubstr("nq-gev: no frame for 1 s: the camera 10.77.0.2 answers on its control channel "
                          "but sends no frames: it waits for a trigger"));
    const Outcome none = RunTool({"measure", "--camera", "SN-3", "--timeout", "100"}, camera.Environment());
    EXPECT_EQ(none.exitCode, 4) << none.output;
}

TEST(MeasurePlot, IsAnSvgWithACurveForEachOfTheTimes)
{
    const TemporaryFolder folder;
    const Outcome measure = RunOnFake("", {"measure", "--count", "1001", "--plot", folder / "plot.svg"});
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    const Outcome parsed = RunProgram(
        {"/usr/bin/python3", "-c",
         "import sys, xml.etree.ElementTree as e\n"
         "s = '{http://www.w3.org/2000/svg}'\n"
         "r = e.parse(sys.argv[1]).getroot()\n"
         "c = [p.get('d') for p in r.iter(s + 'path') if p.get('class') == 'curve']\n"
         "t = [x.text for x in r.iter(s + 'text')]\n"
         "print(r.tag == s + 'svg', len(c), [len(d.split('L')) for d in c], t.count('99.9%'), t.count('99.99%'), "
         "'1001 frames' in t[1], [x for x in r.iter() if x.get('href') or x.tag == s + 'script'])",
         folder / "plot.svg"});
    // A thousand intervals have nothing rarer than one of a thousand, where their axis ends.
    EXPECT_EQ(parsed.output, "True 2 [241, 241] 2 1 True []\n");
}

TEST(MeasurePlot, TakesAnyIdOfACameraAsAText)
{
    const TemporaryFolder folder;
    const Outcome measure =
        RunOnFake("IFGetDeviceID.text=<A>&\"\x1b]0;B", {"measure", "--count", "10", "--plot", folder / "plot.svg"});
    EXPECT_EQ(measure.exitCode, 0) << measure.output;
    const Outcome parsed =
        RunProgram({"/usr/bin/python3", "-c",
                    "import sys, xml.etree.ElementTree as e; print(e.parse(sys.argv[1]).getroot().find("
                    "'{http://www.w3.org/2000/svg}title').text)",
                    folder / "plot.svg"});
    EXPECT_EQ(parsed.output, "<A>&\"\\x1b]0;B\n");
}

TEST(MeasurePlot, ReplacesNothingUnaskedAndSaysSoBeforeItMeasures)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "plot.svg") << "precious";
    const Outcome refused = RunOnFake("", {"measure", "--count", "10", "--plot", folder / "plot.svg"});
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_EQ(refused.output, "nq-gev: " + (folder / "plot.svg") + " is there already; --overwrite replaces it\n");
    EXPECT_EQ(BytesOf(folder / "plot.svg"), "precious");
    EXPECT_EQ(RunOnFake("", {"measure", "--count", "10", "--overwrite", "--plot", folder / "plot.svg"}).exitCode, 0);
    EXPECT_THAT(BytesOf(folder / "plot.svg"), testing::StartsWith("<svg "));
    const Outcome nowhere = RunOnFake("", {"measure", "--count", "10", "--plot", folder / "none/plot.svg"});
    EXPECT_EQ(nowhere.exitCode, 1) << nowhere.output;
    EXPECT_EQ(nowhere.output, "nq-gev: cannot write " + (folder / "none/plot.svg") + ": No such file or directory\n");
}

TEST(MeasurePlot, ThatCannotBeWrittenIsToldBesideTheLossOfFrames)
{
    const TemporaryFolder folder;
    const std::string name(300, 'p');
    const Outcome lost =
        RunOnFake("DSGetBufferInfo.16@2.value=12", {"measure", "--count", "4", "--plot", folder / name});
    EXPECT_EQ(lost.exitCode, 7) << lost.output;
    EXPECT_THAT(lost.output, HasSubstr("nq-gev: cannot write " + (folder / name) + ": File name too long\n"));
    EXPECT_THAT(lost.output, HasSubstr("nq-gev: 10 frames lost, 0 incomplete (of 14)"));
}

TEST(ToolMeasure, RefusesWhatCannotBeMeasured)
{
    const Outcome one = RunOnFake("", {"measure", "--count", "1"});
    EXPECT_EQ(one.exitCode, 2) << one.output;
    EXPECT_THAT(one.output, testing::StartsWith("--count: takes a whole number from 2 to 1000000000000, not \"1\"\n"));
    EXPECT_EQ(RunOnFake("", {"measure", "--out", "x"}).exitCode, 2) << "it writes no pictures";
}

} // namespace
