// SPDX-License-Identifier: Apache-2.0
// What every verb prints, for people and as JSON: a table of the cases that say so, and the ones that stand nowhere
// else.
#include "support/json_schema.h"
#include "support/source_text.h"
#include "support/tool.h"
#include "support/two_cameras.h"

#include <algorithm>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace
{

using namespace nq::test;
using nlohmann::json;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

struct Transcripts
{
    const char* verb;
    const char* words; ///< the case with literal text for people
    const char* json;  ///< the case with JSON that fits the schema
};

constexpr Transcripts kTranscripts[] = {
    {"list", "Transcript.OfTheCamerasForPeople", "ToolList.PrintsTheSameAsJson"},
    {"info", "ToolInfoOfModules.AreLinesForPeople", "ToolInfoOfModules.AreEveryCommandInEveryStateThatDisturbsNobody"},
    {"grab", "Transcript.OfAGrabForPeople", "Transcript.OfAGrabAsJson"},
    {"measure", "ToolMeasure.PrintsRateCostAndTimesAsATable", "ToolMeasure.PrintsTheSameAsJsonOfAFixedForm"},
    {"convert", "ConvertGenDC.MakesAPictureThatOthersReadBesideTheFileItself", "ConvertFiles.AreToldAsJson"},
    {"features", "ToolFeatures.ShowListsAndDescriptions", "ToolFeatures.AreJsonThatFitsTheSchema"},
    {"get", "ToolFeatures.AreSetInOrderAsPeopleWriteThem", "ToolFeatures.AreJsonThatFitsTheSchema"},
    {"describe", "ToolFeatures.ShowListsAndDescriptions", "ToolFeatures.AreJsonThatFitsTheSchema"},
    {"set", "ToolFeatures.AreSetInOrderAsPeopleWriteThem", "ToolFeatures.AreJsonThatFitsTheSchema"},
    {"exec", "ToolFeatures.AreSetInOrderAsPeopleWriteThem", "ToolFeatures.AreJsonThatFitsTheSchema"},
    {"save", "ToolSettings.AreSavedAndLoadedWithEveryValueOfTheSelectors", "ToolSettings.GoThroughPipesToo"},
    {"load", "ToolSettings.ThatCannotBeSetAreTold", "ToolSettings.ThatCannotBeSetAreTold"},
    {"events", "ToolEvents.ComeFromTheCameraAndFromItsLoss", "ToolEvents.AreLinesOfJsonAndEndWithTheirCount"},
    {"watch", "ToolWatch.SeesInterfacesAndCamerasComeChangeAndGo",
     "ToolWatch.PrintsLinesOfJsonAndEndsWithTheirCountOrItsTime"},
    {"xml", "Transcript.OfADescriptionInAFile", "Transcript.OfADescriptionInAFile"},
    {"read", "ToolSettings.LieInRegistersThatCanBeReadAndWritten",
     "ToolSettings.LieInRegistersThatCanBeReadAndWritten"},
    {"write", "ToolSettings.LieInRegistersThatCanBeReadAndWritten",
     "ToolSettings.LieInRegistersThatCanBeReadAndWritten"},
    {"doctor", "DoctorOnSoftwareRdma.KnowsTheWholeChainButThreeLines", "Transcript.OfWhatIsRightAsJson"},
    {"report", "Report.GoesToANewFileAndNeverOverAnOldOne", "Report.AsJsonHasTheFindingsAndEverySection"},
    {"ip", "Transcript.OfAddressesForPeople", "ToolIp.JsonTellsTheSame"},
    {"view", "Transcript.OfAPageForPeople", "ViewListen.PrintsTheAddressesAsJson"},
};

/// The verbs that `nq-gev --help` lists.
Names VerbsOfHelp()
{
    const std::string help = RunProgram({NQ_TOOL_PATH, "--help"}).output;
    const std::size_t list = help.find("\nSubcommands:\n");
    return list == std::string::npos ? Names()
                                     : All(help.substr(list, help.find("\n\n", list) - list), "\n  ([a-z]+) ");
}

/// The text of a case in the files of this folder, from its name to its end; empty for none.
std::string TextOfCase(const std::string& name)
{
    const std::size_t dot = name.find('.');
    const std::string title = "(" + name.substr(0, dot) + ", " + name.substr(dot + 1) + ")\n";
    for (const std::filesystem::path& file : Sources("tests/tools"))
    {
        const std::string text = TextOf(file);
        if (const std::size_t begin = text.find(title); begin != std::string::npos)
        {
            return text.substr(begin, text.find("\n}\n", begin) - begin);
        }
    }
    return "";
}

TEST(TranscriptTable, HasEveryVerbOfTheHelp)
{
    Names verbs;
    for (const Transcripts& row : kTranscripts)
    {
        verbs.insert(row.verb);
    }
    EXPECT_EQ(verbs, VerbsOfHelp());
}

TEST(TranscriptTable, NamesCasesThatCompareTextsAndCasesThatAskTheSchema)
{
    for (const Transcripts& row : kTranscripts)
    {
        EXPECT_THAT(TextOfCase(row.words), ContainsRegex("[oO]utput|ExpectPrints")) << row.verb << ": " << row.words;
        const std::string asJson = TextOfCase(row.json);
        EXPECT_THAT(asJson, HasSubstr("ExpectFitsSchema(")) << row.verb << ": " << row.json;
        EXPECT_TRUE(std::regex_search(asJson, std::regex("\\b" + std::string(row.verb) + "\\b"))) << row.json;
    }
}

TEST(TranscriptSchema, DescribesEveryVerbAndIsClosed)
{
    const json schema = json::parse(TextOfFile("docs/nq-gev.schema.json"));
    for (const std::string& verb : VerbsOfHelp())
    {
        EXPECT_TRUE(schema["$defs"].contains(verb)) << verb;
    }
    const std::function<void(const json&)> expectClosed = [&expectClosed](const json& part) {
        if (part.is_structured())
        {
            EXPECT_TRUE(!part.is_object() || !part.contains("properties") || !part.contains("type") ||
                        part.value("additionalProperties", true) == false)
                << part;
            std::for_each(part.begin(), part.end(), expectClosed);
        }
    };
    expectClosed(schema["$defs"]);
}

const std::vector<std::string> kSmall = {"--width", "64", "--height", "48", "--fps", "0"};

/// What it prints on standard output alone: how far it is stands on the other. Nothing is there from a run whose camera
/// answered too late.
Outcome Printed(const std::string& line, const std::vector<std::string>& environment)
{
    return InTime(Not(testing::IsEmpty()), [&] {
        return RunProgram({"/bin/sh", "-c", line + " 2>/dev/null"}, environment);
    });
}

/// The lines of a file, each as JSON that fits the schema.
std::vector<json> MetadataOf(const std::string& file)
{
    std::istringstream text(BytesOf(file));
    std::vector<json> lines;
    for (std::string line; std::getline(text, line);)
    {
        ExpectFitsSchema("metadata", line);
        lines.push_back(json::parse(line));
    }
    return lines;
}

TEST(Transcript, OfTheCamerasForPeople)
{
    const VirtualCamera camera({"--serial", "SN-4711", "--user-name", "left"});
    const auto expected = MatchesRegex("Linux Socket:[0-9a-f-]{17}  host0:10\\.77\\.0\\.1\n"
                                       "  NQ-GEV-Camera:02-00-0a-4d-00-02\n"
                                       "    model NQ-GEV-Camera  serial SN-4711  address 10\\.77\\.0\\.2  access "
                                       "read/write\n"
                                       "    producer /[^\n]*\n"
                                       "    name left\n");
    const Outcome list = InTime(expected, [&] { return RunTool({"list"}, camera.Environment()); });
    EXPECT_EQ(list.exitCode, 0);
    EXPECT_THAT(list.output, expected);
}

TEST(Transcript, OfAGrabForPeople)
{
    const VirtualCamera camera(kSmall);
    const Outcome grab = Printed(kOurLine + "grab --count 20 --verify", camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, MatchesRegex("camera     NQ-GEV-Camera:02-00-0a-4d-00-02\n"
                                          "producer   /[^\n]*\n"
                                          "buffers    4 library-allocated\n"
                                          "pictures   0\n"
                                          "frames     20\n"
                                          "lost       0\n"
                                          "incomplete 0\n"
                                          "underruns  0\n"
                                          "rate       [0-9]+\\.[0-9] frames/s, [0-9]+\\.[0-9] MB/s\n"
                                          "wrong      0 bytes\n"));
}

TEST(Transcript, OfAGrabAsJson)
{
    const VirtualCamera camera(kSmall);
    const TemporaryFolder folder;
    const std::string lines = folder / "frames.jsonl";
    const Outcome grab = Printed(kOurLine + "--json grab --count 3 --verify --announce --overwrite --out '" +
                                     folder.Path() + "' --metadata '" + lines + "'",
                                 camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    ExpectFitsSchema("grab", grab.output);
    json sum = json::parse(grab.output);
    sum.erase("seconds");
    sum.erase("frames_per_second");
    sum.erase("megabytes_per_second");
    EXPECT_EQ(sum, (json{{"frames", 3},
                         {"lost", 0},
                         {"incomplete", 0},
                         {"refused", 0},
                         {"underruns", 0},
                         {"pictures", 3},
                         {"waits", 0},
                         {"camera", "NQ-GEV-Camera:02-00-0a-4d-00-02"},
                         {"producer", NQ_CTI_PATH},
                         {"buffers", 4},
                         {"buffer_origin", "consumer-announced"},
                         {"wrong_bytes", 0}}));
    const std::vector<json> frames = MetadataOf(lines);
    ASSERT_EQ(frames.size(), 3U);
    EXPECT_EQ(frames[0]["size"], 3072);
    EXPECT_EQ(frames[0]["pixel_format"], "0x01080001");
    EXPECT_THAT(frames[0]["file"].get<std::string>(), MatchesRegex("frame-[0-9]{8}\\.png"));
}

TEST(Transcript, OfAGrabOfSeveralCamerasAsJson)
{
    const TwoCameras cameras(kSmall);
    const std::string both = "--json grab --camera SN-1 --camera SN-2 --count 2";
    const Outcome grab = Printed(kOurLine + both, cameras.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    ExpectFitsSchema("grab", grab.output);
    const json sums = json::parse(grab.output)["cameras"];
    ASSERT_EQ(sums.size(), 2U);
    for (const json& sum : sums)
    {
        EXPECT_EQ(sum["frames"], 2);
        EXPECT_EQ(sum["problem"], "");
    }
}

TEST(Transcript, OfBurstsAndOfARingAsJson)
{
    const TemporaryFolder folder;
    const std::string lines = folder / "frames.jsonl";
    const Outcome bursts =
        Printed(kFakeLine + "--json grab --burst 2 --every 1 --count 2 --metadata '" + lines + "'", {});
    EXPECT_EQ(bursts.exitCode, 0) << bursts.output;
    ExpectFitsSchema("grab", bursts.output);
    EXPECT_EQ(json::parse(bursts.output)["bursts"], 1);
    EXPECT_EQ(MetadataOf(lines).at(1)["burst"], 1);
    const Outcome ring = Printed(kFakeLine + "--json grab --ring 1 --count 2 --out '" + folder.Path() + "'", {});
    EXPECT_EQ(ring.exitCode, 0) << ring.output;
    ExpectFitsSchema("grab", ring.output);
    EXPECT_EQ(json::parse(ring.output)["ring_writes"], 0);
}

TEST(Transcript, OfADescriptionInAFile)
{
    const VirtualCamera camera;
    const TemporaryFolder folder;
    const std::string file = folder / "camera.xml";
    const Outcome words = Heard([&] { return RunTool({"xml", "--overwrite", "-o", file}, camera.Environment()); });
    EXPECT_EQ(words.exitCode, 0);
    const std::string xml = BytesOf(file);
    EXPECT_THAT(WithoutWait(words.output), MatchesRegex("/[^\n]*/camera\\.xml: " + std::to_string(xml.size()) +
                                                        " bytes from NQVirtualCamera_[0-9A-F]{8}\\.xml\n"));
    const Outcome shown = Printed(kOurLine + "--json xml", camera.Environment());
    EXPECT_EQ(shown.exitCode, 0);
    ExpectFitsSchema("xml", shown.output);
    const json asJson = json::parse(shown.output);
    EXPECT_TRUE(asJson["file"].is_null());
    EXPECT_EQ(asJson["xml"], xml);
    EXPECT_THAT(words.output, HasSubstr(" bytes from " + asJson["name"].get<std::string>() + "\n"));
}

TEST(Transcript, OfWhatIsRightAsJson)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--serial", "SN-1"});
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("NQ_GEV_TL_STANDARD=1");
    const auto sound = HasSubstr("\n  \"wrong\": 0,\n");
    const Outcome doctor = InTime(sound, [&] { return RunTool({"--json", "doctor"}, environment); });
    EXPECT_EQ(doctor.exitCode, 0) << doctor.output;
    ExpectFitsSchema("doctor", doctor.output);
    EXPECT_THAT(json::parse(doctor.output)["findings"],
                testing::Contains(json{{"id", "camera.owner"},
                                       {"question", "Is the camera free?"},
                                       {"subject", "NQ-GEV-Camera SN-1 at 10.77.0.2"},
                                       {"verdict", "right"},
                                       {"text", "nobody controls it"},
                                       {"mend", nullptr}}));
}

TEST(Transcript, OfAddressesForPeople)
{
    const VirtualCamera camera({"--serial", "SN-4711", "--user-name", "left"});
    const Outcome ip = InTime(HasSubstr("SN-4711"), [&] { return RunTool({"ip"}, camera.Environment()); });
    EXPECT_EQ(ip.exitCode, 0);
    EXPECT_EQ(ip.output, "02:00:0A:4D:00:02  NQ-GEV-Camera  serial SN-4711  name left\n"
                         "  address 10.77.0.2/24  gateway -  at power on persistent, link-local\n"
                         "  heard on host0 (10.77.0.1/24)\n");
}

TEST(Transcript, OfAPageForPeople)
{
    const VirtualCamera camera(kSmall);
    const TemporaryFolder folder;
    const std::string states = folder / "states";
    ChildProcess view({"/bin/sh", "-c", "exec " + kOurLine + "view 2>'" + states + "'"}, camera.Environment());
    while (BytesOf(states).find("NQ000001: running\n") == std::string::npos)
    {
        ASSERT_EQ(view.WaitForExit(std::chrono::milliseconds(20)), -1) << BytesOf(states);
    }
    ASSERT_TRUE(view.WaitForOutput("\n", kLongTime));
    view.Signal(SIGTERM);
    EXPECT_EQ(view.WaitForExit(kLongTime), 143) << BytesOf(states);
    EXPECT_THAT(view.Output(), MatchesRegex("http://127\\.0\\.0\\.1:[0-9]+/[0-9a-f]{32}/\n"));
    EXPECT_THAT(BytesOf(states), Not(HasSubstr("opening"))) << "it ends, and opens nothing";
}

} // namespace
