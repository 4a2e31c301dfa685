// SPDX-License-Identifier: Apache-2.0
// What somebody types in the first ten minutes, as it is typed: each line says what is so, to people and as JSON. The
// cases beside this file look closer at each.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/two_cameras.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::ContainsRegex;

/// A line of a shell, in which nq is the program with the producer, nq-gev without, $producer the file of that and $dir
/// an empty folder, how it ends, and expressions for what it prints.
struct FirstLine
{
    const char* name;
    const char* line;
    int exitCode;
    const char* words;
    const char* json;
    const char* lies = ""; ///< of the producer that is no camera's
};

void PrintTo(const FirstLine& line, std::ostream* out)
{
    *out << line.line;
}

/// Types the line, for a program that has further arguments.
Outcome Type(const FirstLine& row, const std::string& producer, const std::string& more,
             std::vector<std::string> environment)
{
    const TemporaryFolder programs;
    const auto add = [&programs, &more](const char* name, const std::string& options) {
        std::ofstream(programs / name) << "#!/bin/sh\nexec '" NQ_TOOL_PATH "' " << options << more << " \"$@\"\n";
        std::filesystem::permissions(programs / name, std::filesystem::perms::owner_all);
    };
    add("nq", "--producer '" + producer + "' ");
    add("nq-gev", "");
    const TemporaryFolder folder;
    environment.push_back("dir=" + folder.Path());
    environment.push_back("producer=" + producer);
    environment.push_back("PATH=" + programs.Path() + ":/usr/bin:/bin");
    return RunProgram({"/bin/bash", "-c", std::string("set -o pipefail; ") + row.line}, environment);
}

/// What both forms of the line print, each until it is as it should be: a busy machine may be too late for a camera,
/// which is then told as absent or silent.
void ExpectBoth(const FirstLine& row, const std::string& producer, const std::vector<std::string>& environment)
{
    for (const bool json : {false, true})
    {
        const auto expected = ContainsRegex(json ? row.json : row.words);
        const Outcome outcome = Heard(
            [&] { return InTime(expected, [&] { return Type(row, producer, json ? "--json" : "", environment); }); });
        EXPECT_EQ(outcome.exitCode, row.exitCode) << outcome.output;
        EXPECT_THAT(outcome.output, expected);
    }
}

class FirstLines : public testing::TestWithParam<FirstLine>
{
};

/// The frames of this producer have 3072 bytes and come as fast as they are taken.
TEST_P(FirstLines, SayWhatIsSo)
{
    ExpectBoth(GetParam(), NQ_FAKE_PRODUCER_PATH, {std::string("NQ_FAKE_PRODUCER=") + GetParam().lies});
}

constexpr const char* kTenMissing = "DSGetBufferInfo.16@2.value=12";
constexpr const char* kOtherId = "DSGetBufferInfo.16.value=2";
constexpr const char* kBayer = "DSGetBufferInfo.20.value=0x01080009";
constexpr const char* kGibibytes = "DSGetInfo.7.value=1073741824";
constexpr const char* kSecondShort = "DSGetBufferInfo.9@2.value=100\nDSGetBufferInfo.7@2.value=1";

const FirstLine kLines[] = {
    {"Version", "nq --version", 0, "^nq-gev 2\\.5\\.5\nlibrary nq_gev_rdma_tl 2\\.5\\.5\nGenTL 1\\.5\ncommit ",
     "^nq-gev 2\\.5\\.5\n"},
    {"List", "nq list", 0, "model Model.*\n    producer [^\n]*\\.cti\n", "\"producer\": \"[^\"]*\\.cti\""},
    {"ListBesideABrokenProducer",
     "echo none >$dir/a.cti && ln -s \"$producer\" $dir/b.cti && GENICAM_GENTL64_PATH=$dir nq-gev list", 0,
     "warning: [^\n]*/a\\.cti is left out: (.|\n)*\n    producer [^\n]*/b\\.cti\n",
     "/a\\.cti\",\n *\"problem\": \"cannot load the producer: "},
    {"RateOfTwoFrames", "nq grab --count 2", 0, "\nrate       (0\\.[0-9]|1\\.0) frames/s, 0\\.0 MB/s\n",
     "\"frames_per_second\": (0\\.[0-9]|1\\.0)", "EventGetData@2.sleep=1000"},
    {"RateOfOneFrame", "nq grab", 0, "\nrate       none", "\"frames_per_second\": null"},
    {"WhichCamera", "nq grab", 0, "camera     Camera\nproducer   /", "\"camera\": \"Camera\""},
    {"LostFrames", "nq grab --count 4", 7, "--allow-loss 10\n(.|\n)*\nlost       10\n", "\"lost\": 10,", kTenMissing},
    {"LossThatIsAllowed", "nq grab --count 4 --allow-loss 10", 0, "\nlost       10\n", "\"lost\": 10,", kTenMissing},
    {"IncompleteFrames", "nq grab --count 3", 7, "\nincomplete 1\n", "\"incomplete\": 1,", kSecondShort},
    {"WrongFrames", "nq grab --verify", 7, "\nwrong      [1-9][0-9]* bytes\n", "\"wrong_bytes\": [1-9]", kOtherId},
    {"Png", "nq grab --count 2 --out $dir && head -c 4 $dir/frame-00000002.png", 0, "PNG", "PNG"},
    {"Tiff", "nq grab --count 2 --format tiff --out $dir && head -c 2 $dir/frame-00000002.tiff", 0, "II", "II"},
    {"Colours", "nq grab --debayer --out $dir && od -An -tu1 -j25 -N1 $dir/frame-00000001.png", 0, "\n +2\n", "\n +2\n",
     kBayer},
    {"Raw", "nq grab --count 2 --format raw --out $dir && wc -c <$dir/frame-00000002.raw", 0, "\n3072\n", "\n3072\n"},
    {"Pipe", "nq grab --count 2 --format raw --out - 2>/dev/null | wc -c", 0, "^6144\n", "^6144\n"},
    {"Duration", "nq grab --duration 1", 0, "\nframes     [1-9]", "\"frames\": [1-9]", "EventGetData.sleep=10"},
    {"Metadata", "nq grab --count 3 --metadata $dir/lines && grep -c '\"lost_before\":0' $dir/lines", 0, "\n3\n",
     "\n3\n"},
    {"Name", "nq grab --out $dir --name '{camera}-{id}' && ls $dir", 0, "\nName-00000001\\.png\n",
     "\nName-00000001\\.png\n"},
    {"NothingReplaced", "nq grab --out $dir && nq grab --out $dir", 1, "is there already; --overwrite replaces it",
     "is there already; --overwrite replaces it"},
    {"NoFolder", "nq grab --out /proc/none", 1, "nq-gev: [^\n]*/proc/none[^\n]*: No such file or directory\n",
     "nq-gev: [^\n]*/proc/none[^\n]*: No such file or directory\n"},
    {"FullDisk", "nq grab >/dev/full", 1, "No space left on device\n", "No space left on device\n"},
    {"ClosedPipe", "nq grab --count 1000000000 --format raw --out - | head -c 1 >/dev/null", 1, "Broken pipe\n",
     "Broken pipe\n"},
    {"ControlC", "timeout --signal INT --preserve-status 2 nq grab --count 1000000000", 130, "", ""},
    {"Termination", "timeout --preserve-status 2 nq grab --count 1000000000", 143, "", ""},
    {"NumberOutOfRange", "nq grab --buffers 99999999999999999999", 2, "--buffers: takes a whole number from 1 to 65536",
     "--buffers: takes a whole number from 1 to 65536"},
    {"BuffersBeyondTheMemory", "nq grab --buffers 65536", 5,
     "do not fit this machine's memory, of which [0-9]+ bytes are available; ",
     "do not fit this machine's memory, of which [0-9]+ bytes are available; ", kGibibytes},
    {"NegativeTime", "nq --timeout -1 grab", 2, "--timeout: takes a whole number from 1 to",
     "--timeout: takes a whole number from 1 to"},
    {"NoTime", "nq --timeout 0 grab", 2, "--timeout: takes a whole number from 1 to",
     "--timeout: takes a whole number from 1 to"},
    {"EmptyFolder", "nq grab --out \"$nowhere\"", 2, "^--out: takes a folder, not \"\"\n",
     "^--out: takes a folder, not \"\"\n"},
    {"EmptyFile", "nq grab --metadata \"$nowhere\"", 2, "^--metadata: takes a file, not \"\"\n",
     "^--metadata: takes a file, not \"\"\n"},
    {"EmptyCamera", "nq grab --camera \"$nowhere\"", 2, "^--camera: takes a camera, not \"\"\n",
     "^--camera: takes a camera, not \"\"\n"},
    {"NoSuchFormat", "nq grab --format bmp", 2, "^--format: takes png, [a-z, ]*raw or gendc, not \"bmp\"\n",
     "^--format: takes png, [a-z, ]*raw or gendc, not \"bmp\"\n"},
    {"NoFormatByNumber", "nq grab --format 0", 2, "^--format: takes png, [a-z, ]*raw or gendc, not \"0\"\n",
     "^--format: takes png, [a-z, ]*raw or gendc, not \"0\"\n"},
    {"NoSuchModule", "nq get --module cable Width", 2,
     "^--module: takes remote, device, stream, interface or system, not \"cable\"\n",
     "^--module: takes remote, device, stream, interface or system, not \"cable\"\n"},
    {"NoSuchAnswers", "nq --answers best list", 2, "^--answers: takes standard or stated, not \"best\"\n",
     "^--answers: takes standard or stated, not \"best\"\n"},
    {"NoSuchVerb", "nq grap --count 3", 2, "^nq-gev: there is no verb \"grap\"; `nq-gev --help` lists them\n",
     "^nq-gev: there is no verb \"grap\"; `nq-gev --help` lists them\n"},
    {"NoSuchCamera", "nq grab --camera SN-4711", 4, "SN-4711", "SN-4711"},
};

INSTANTIATE_TEST_SUITE_P(Typed, FirstLines, testing::ValuesIn(kLines),
                         [](const auto& tested) { return std::string(tested.param.name); });

/// Two cameras, SN-1 and SN-2 at 10.77.0.3, and this producer.
class FirstLinesOfCameras : public testing::TestWithParam<FirstLine>
{
};

TEST_P(FirstLinesOfCameras, SayWhatIsSo)
{
    const TwoCameras cameras({"--width", "64", "--height", "48", "--fps", "0", "--heartbeat", "60000"});
    ExpectBoth(GetParam(), NQ_CTI_PATH, cameras.Environment());
}

constexpr const char* kSecondCamera = "camera     NQ-GEV-Camera:02-00-0a-0b-0c-0d\nproducer   /";
constexpr const char* kSecondAsJson = "\"camera\": \"NQ-GEV-Camera:02-00-0a-0b-0c-0d\"";

/// Ends as it did, though the camera is free again.
constexpr const char* kHeld = "nq grab --camera SN-2 --count 1000000000 >/dev/null 2>&1 & holder=$!; "
                              "until nq list | grep -q busy; do kill -0 $holder || exit 1; done; "
                              "nq grab --camera SN-2; code=$?; kill $holder; wait $holder; exit $code";

const FirstLine kLinesOfCameras[] = {
    {"ById", "nq grab --camera NQ-GEV-Camera:02-00-0a-0b-0c-0d", 0, kSecondCamera, kSecondAsJson},
    {"BySerialNumber", "nq grab --camera SN-2", 0, kSecondCamera, kSecondAsJson},
    {"ByMac", "nq grab --camera 2:0:A:B:C:D", 0, kSecondCamera, kSecondAsJson},
    {"ByAddress", "nq grab --camera 10.77.0.3", 0, kSecondCamera, kSecondAsJson},
    {"TwoThatFit", "nq grab --camera left", 2, "2 cameras fit \"left\"; choose one by --camera ID\n",
     "2 cameras fit \"left\"; choose one by --camera ID\n"},
    {"Several", "nq grab", 2, "serial SN-2(.|\n)*2 cameras answered; choose one by --camera ID\n",
     "2 cameras answered; choose one by --camera ID\n"},
    {"Held", kHeld, 8, "is controlled by 10\\.77\\.0\\.1, UDP port [0-9]+\\. End that program; or give --wait",
     "is controlled by 10\\.77\\.0\\.1, UDP port [0-9]+\\. End that program; or give --wait"},
    {"All", "nq grab --all-cameras", 0, "02-00-0a-0b-0c-0d", "02-00-0a-0b-0c-0d"},
};

INSTANTIATE_TEST_SUITE_P(Typed, FirstLinesOfCameras, testing::ValuesIn(kLinesOfCameras),
                         [](const auto& tested) { return std::string(tested.param.name); });

} // namespace
