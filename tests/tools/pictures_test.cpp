// SPDX-License-Identifier: Apache-2.0
// The pictures that nq-gev grab writes: beside the frames, under names that nobody has, in forms that others read.
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;
using testing::MatchesRegex;

/// A frame of the fake producer: `bytes` in a picture of that size and pixel format.
struct FakeFrame
{
    size_t width;
    size_t height;
    uint32_t pixelFormat;
    std::string bytes;
};

/// nq-gev grab of that frame, into `folder`.
Outcome GrabFrame(const FakeFrame& frame, const TemporaryFolder& folder, const std::vector<std::string>& further)
{
    const TemporaryFolder input;
    std::ofstream(input / "picture", std::ios::binary) << frame.bytes;
    const std::string lies = "DSGetInfo.7.value=" + std::to_string(frame.bytes.size()) +
                             "\nDSGetBufferInfo.10.value=" + std::to_string(frame.width) +
                             "\nDSGetBufferInfo.11.value=" + std::to_string(frame.height) +
                             "\nDSGetBufferInfo.20.value=" + std::to_string(frame.pixelFormat);
    std::vector<std::string> command = {NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH,
                                        "grab",       "--out",      folder.Path()};
    command.insert(command.end(), further.begin(), further.end());
    return RunProgram(command, {"NQ_FAKE_PRODUCER=" + lies, "NQ_FAKE_PRODUCER_PICTURE=" + (input / "picture")});
}

/// What Python prints of the file `path`, as seen by a library: the values of all samples.
Outcome Python(const std::string& script, const std::string& path)
{
    return RunProgram({"/usr/bin/python3", "-c", script, path});
}

const char* const kPillow = "import sys; from PIL import Image; p = Image.open(sys.argv[1]); "
                            "print(p.mode.removesuffix(';16'), p.size, list(p.getdata()))"; // a newer one names I;16
const char* const kTifffile = "import sys, tifffile; p = tifffile.imread(sys.argv[1]); "
                              "print(p.dtype, p.shape, p.tolist())";

TEST(GrabFiles, ThatTake200MsEachLoseNoFrameAt10FramesPerSecond)
{
    // The camera has memory for ten seconds: software RDMA frees it when the host gets to it.
    const VirtualCamera camera({"--width", "320", "--height", "200", "--fps", "10", "--send-buffers", "100"});
    const TemporaryFolder folder;
    const TemporaryFolder link; // LD_PRELOAD would split a path with a space or a colon
    fs::create_symlink(NQ_SLOW_FILES_PATH, link / "slow_files.so");
    std::vector<std::string> environment = camera.Environment();
    environment[0] += ":" + (link / "slow_files.so");
    // Written between frames, 60 of them would take 6 s longer than they come: 20 buffers bridge 2 s.
    const Outcome grab = RunTool({"grab", "--count", "60", "--buffers", "20", "--out", folder.Path()}, environment);
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("pictures   60\nframes     60\nlost       0\n"));
    EXPECT_EQ(folder.Files().size(), 60U);
}

TEST(GrabFiles, AreWrittenWithAsManyThreadsAsTheSystemGives)
{
    if (NQ_SANITIZED)
    {
        GTEST_SKIP() << "the run-time of a sanitizer takes threads as well";
    }
    // A user of this test alone: one thread waits for frames, one writes, the next one is refused.
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::all);
    const auto grab = [&](const std::string& threads) {
        return RunProgram({"/usr/bin/setpriv", "--reuid=" + std::to_string(500000 + getpid()), "--clear-groups",
                           "/usr/bin/prlimit", "--nproc=" + threads, NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH,
                           "grab", "--count", "3", "--overwrite", "--out", folder.Path()});
    };
    const Outcome one = grab("2");
    EXPECT_EQ(one.exitCode, 0) << one.output;
    EXPECT_EQ(folder.Files().size(), 3U);
    const Outcome none = grab("1");
    EXPECT_EQ(none.exitCode, 1) << none.output;
    EXPECT_THAT(none.output, HasSubstr("nq-gev: cannot start a thread: Resource temporarily unavailable\n"));
}

TEST(GrabFiles, ReplaceNothingUnasked)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "frame-00000002.png") << "precious";
    const Outcome refused = RunOnFake("", {"grab", "--count", "2", "--out", folder.Path()});
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr("nq-gev: " + (folder / "frame-00000002.png") +
                                          " is there already; --overwrite replaces it, --name gives other names\n"));
    EXPECT_THAT(refused.output, HasSubstr("pictures   1\n"));
    EXPECT_EQ(BytesOf(folder / "frame-00000002.png"), "precious");
    const Outcome asked = RunOnFake("", {"grab", "--count", "2", "--overwrite", "--out", folder.Path()});
    EXPECT_EQ(asked.exitCode, 0) << asked.output;
    EXPECT_TRUE(IsWholePng(folder / "frame-00000002.png"));
}

TEST(GrabFiles, HaveNamesByThePattern)
{
    const TemporaryFolder folder;
    const Outcome grab = RunOnFake("IFGetDeviceInfo.6.text=../My camera",
                                   {"grab", "--out", folder.Path(), "--name", "x-{camera}_{time}_{id}"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    ASSERT_EQ(folder.Files().size(), 1U);
    EXPECT_THAT(folder.Files()[0].filename().string(),
                MatchesRegex("x-_\\._My_camera_[0-9]{8}T[0-9]{6}\\.[0-9]{6}Z_00000001\\.png"));
}

TEST(GrabFiles, HaveNoNamesByAPatternThatMakesNone)
{
    const std::pair<const char*, const char*> patterns[] = {
        {"{id}-{size}", "--name: knows {camera}, {id} and {time}, not \"{size}\"\n"},
        {"{id", "--name: has a \"{\" without a \"}\"\n"},
        {"{camera}", "--name: needs {id} or {time}: all pictures would have one name\n"},
        {"../{id}", "--name: takes a name without \"/\"; the folder is --out\n"},
    };
    for (const auto& [pattern, told] : patterns)
    {
        const Outcome grab = RunOnFake("", {"grab", "--name", pattern});
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
        EXPECT_THAT(grab.output, testing::StartsWith(told));
    }
}

TEST(GrabFiles, AreAskedForByAFolder)
{
    const std::pair<std::vector<std::string>, const char*> halves[] = {
        {{"--format", "raw"}, "--format requires --out\n"},
        {{"--name", "{time}"}, "--name requires --out\n"},
        {{"--debayer"}, "--debayer requires --out\n"},
        {{"--save-every", "2"}, "--save-every requires --out\n"},
    };
    for (const auto& [half, told] : halves)
    {
        const Outcome grab = RunOnFake("", Joined({"grab"}, half));
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
        EXPECT_THAT(grab.output, testing::StartsWith(told));
    }
}

TEST(GrabFiles, ThatCannotBeWrittenTellTheCauseAndWhatWasWritten)
{
    const TemporaryFolder folder;
    fs::permissions(folder.Path(), fs::perms::owner_read | fs::perms::owner_exec);
    const std::string folderPath = folder.Path();
    // A root without the right to write where its rights are not.
    const auto grab = [&](const std::string& json) {
        return RunProgram({"/usr/bin/setpriv", "--bounding-set=-all", "--inh-caps=-all", "/usr/bin/env", NQ_TOOL_PATH,
                           "--producer", NQ_FAKE_PRODUCER_PATH, json, "grab", "--count", "5", "--out", folderPath});
    };
    const Outcome text = grab("--timeout=1000");
    EXPECT_EQ(text.exitCode, 1) << text.output;
    EXPECT_THAT(text.output, HasSubstr("nq-gev: cannot write " + (folder / "frame-0000000")));
    EXPECT_THAT(text.output, HasSubstr(".png: Permission denied\n"));
    EXPECT_THAT(text.output, HasSubstr("pictures   0\nframes     "));
    EXPECT_THAT(grab("--json").output, HasSubstr("\"pictures\": 0,"));
    fs::permissions(folder.Path(), fs::perms::owner_all);
}

TEST(GrabPipe, GetsTheBytesOfTheFramesAndNothingElse)
{
    const TemporaryFolder folder;
    const Outcome grab =
        RunProgram({"/bin/sh", "-c", kFakeLine + "grab --count 3 --format raw --out - > " + (folder / "stream")});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("pictures   3\n"));
    std::string expected;
    for (size_t frame = 1; frame <= 3; ++frame)
    {
        for (size_t at = 0; at < size_t{64} * 48; ++at)
        {
            expected += static_cast<char>(at % 64 + at / 64 + 7 * frame);
        }
    }
    EXPECT_TRUE(BytesOf(folder / "stream") == expected);
    const Outcome probe = RunProgram({"/usr/bin/ffprobe", "-v", "error", "-f", "rawvideo", "-pixel_format", "gray",
                                      "-video_size", "64x48", "-count_frames", "-show_entries",
                                      "stream=width,height,nb_read_frames", "-of", "csv=p=0", folder / "stream"});
    EXPECT_EQ(probe.output, "64,48,3\n");
}

TEST(GrabPipe, ThatIsClosedOrFullGivesExitCodeOne)
{
    for (const std::string arguments :
         {"grab --count 1000000000 --format raw --out -", "grab --count 2", "--json grab"})
    {
        // The reader ends at once, and the tool starts when it has; the exit code is told on standard error.
        const std::string untilBroken = "(trap '' PIPE; while echo; do sleep 0.01; done) 2>/dev/null; ";
        const Outcome closed =
            RunProgram({"/bin/sh", "-c", "{ " + untilBroken + kFakeLine + arguments + "; echo code $? >&2; } | true"});
        EXPECT_THAT(closed.output, HasSubstr("code 1\n")) << arguments;
        EXPECT_THAT(closed.output, HasSubstr("nq-gev: cannot write the output: Broken pipe\n")) << arguments;
        const Outcome full = RunProgram({"/bin/sh", "-c", kFakeLine + arguments + " >/dev/full"});
        EXPECT_EQ(full.exitCode, 1) << arguments;
        EXPECT_THAT(full.output, HasSubstr("nq-gev: cannot write the output: No space left on device\n")) << arguments;
    }
}

struct Form
{
    const char* name;
    FakeFrame frame;
    const char* debayer;
    const char* pillow;   ///< of the PNG file; Pillow shows colours of 16 bits with 8
    const char* tifffile; ///< of the TIFF file
};

void PrintTo(const Form& form, std::ostream* out)
{
    *out << form.name;
}

class GrabFormat : public testing::TestWithParam<Form>
{
};

TEST_P(GrabFormat, IsReadByOtherLibraries)
{
    const Form& form = GetParam();
    const TemporaryFolder folder;
    for (const std::string format : {"png", "tiff", "raw"})
    {
        std::vector<std::string> arguments = {"--format", format};
        if (*form.debayer != 0 && format != "raw")
        {
            arguments.emplace_back(form.debayer);
        }
        const Outcome grab = GrabFrame(form.frame, folder, arguments);
        ASSERT_EQ(grab.exitCode, 0) << grab.output;
    }
    EXPECT_EQ(Python(kPillow, folder / "frame-00000001.png").output, std::string(form.pillow) + "\n");
    EXPECT_EQ(Python(kTifffile, folder / "frame-00000001.tiff").output, std::string(form.tifffile) + "\n");
    EXPECT_EQ(BytesOf(folder / "frame-00000001.raw"), form.frame.bytes);
    for (const char* file : {"frame-00000001.png", "frame-00000001.tiff"})
    {
        const Outcome probe = RunProgram({"/usr/bin/ffprobe", "-v", "error", "-show_entries", "stream=width,height",
                                          "-of", "csv=p=0", folder / file});
        EXPECT_EQ(probe.output, std::to_string(form.frame.width) + "," + std::to_string(form.frame.height) + "\n")
            << file;
    }
}

// Wide samples come with the low byte first, and are written with their highest bit as the highest of 16.
const Form kForms[] = {
    {"Mono8", {3, 1, 0x01080001, {"\x00\x7F\xFF", 3}}, "", "L (3, 1) [0, 127, 255]", "uint8 (1, 3) [[0, 127, 255]]"},
    {"Mono10", {2, 1, 0x01100003, "\x01\x02\xFF\x03"}, "", "I (2, 1) [32832, 65472]", "uint16 (1, 2) [[32832, 65472]]"},
    {"Mono12",
     {2, 1, 0x01100005, {"\x23\x01\x00\x08", 4}},
     "",
     "I (2, 1) [4656, 32768]",
     "uint16 (1, 2) [[4656, 32768]]"},
    {"Mono14",
     {1, 2, 0x01100025, "\x01\x20\xFF\x3F"},
     "",
     "I (1, 2) [32772, 65532]",
     "uint16 (2, 1) [[32772], [65532]]"},
    {"Mono16", {2, 1, 0x01100007, "\x34\x12\xFE\xFF"}, "", "I (2, 1) [4660, 65534]", "uint16 (1, 2) [[4660, 65534]]"},
    // 0x123 and 0xABC, packed.
    {"Mono12Packed", {2, 1, 0x010C0047, "\x23\xC1\xAB"}, "", "I (2, 1) [4656, 43968]", "uint16 (1, 2) [[4656, 43968]]"},
    // 1, 2, 3 and 1023 in five bytes.
    {"Mono10Packed",
     {4, 1, 0x010A0046, "\x01\x08\x30\xC0\xFF"},
     "",
     "I (4, 1) [64, 128, 192, 65472]",
     "uint16 (1, 4) [[64, 128, 192, 65472]]"},
    {"Rgb8",
     {2, 1, 0x02180014, "abcdef"},
     "",
     "RGB (2, 1) [(97, 98, 99), (100, 101, 102)]",
     "uint8 (1, 2, 3) [[[97, 98, 99], [100, 101, 102]]]"},
    {"Bgr8",
     {2, 1, 0x02180015, "abcdef"},
     "",
     "RGB (2, 1) [(99, 98, 97), (102, 101, 100)]",
     "uint8 (1, 2, 3) [[[99, 98, 97], [102, 101, 100]]]"},
    {"Rgb12",
     {1, 1, 0x0230001A, "\x01\x01\x02\x02\x03\x03"},
     "",
     "RGB (1, 1) [(16, 32, 48)]",
     "uint16 (1, 1, 3) [[[4112, 8224, 12336]]]"},
    {"BayerAsItIs",
     {2, 2, 0x01080009, "\x0A\x14\x1E\x28"},
     "",
     "L (2, 2) [10, 20, 30, 40]",
     "uint8 (2, 2) [[10, 20], [30, 40]]"},
    // Red 10, green 20 and 30, blue 40: each green pixel keeps its own.
    {"BayerRG8",
     {2, 2, 0x01080009, "\x0A\x14\x1E\x28"},
     "--debayer",
     "RGB (2, 2) [(10, 25, 40), (10, 20, 40), (10, 30, 40), (10, 25, 40)]",
     "uint8 (2, 2, 3) [[[10, 25, 40], [10, 20, 40]], [[10, 30, 40], [10, 25, 40]]]"},
    {"BayerGR8",
     {2, 2, 0x01080008, "\x14\x0A\x28\x1E"},
     "--debayer",
     "RGB (2, 2) [(10, 20, 40), (10, 25, 40), (10, 25, 40), (10, 30, 40)]",
     "uint8 (2, 2, 3) [[[10, 20, 40], [10, 25, 40]], [[10, 25, 40], [10, 30, 40]]]"},
    {"BayerGB8",
     {2, 2, 0x0108000A, "\x14\x28\x0A\x1E"},
     "--debayer",
     "RGB (2, 2) [(10, 20, 40), (10, 25, 40), (10, 25, 40), (10, 30, 40)]",
     "uint8 (2, 2, 3) [[[10, 20, 40], [10, 25, 40]], [[10, 25, 40], [10, 30, 40]]]"},
    {"BayerBG8",
     {2, 2, 0x0108000B, "\x28\x14\x1E\x0A"},
     "--debayer",
     "RGB (2, 2) [(10, 25, 40), (10, 20, 40), (10, 30, 40), (10, 25, 40)]",
     "uint8 (2, 2, 3) [[[10, 25, 40], [10, 20, 40]], [[10, 30, 40], [10, 25, 40]]]"},
    // In the middle: red 50, green (20 + 40 + 60 + 80) / 4, blue (10 + 30 + 70 + 90) / 4.
    {"BayerMiddle",
     {3, 3, 0x0108000B, "\x0A\x14\x1E\x28\x32\x3C\x46\x50\x5A"},
     "--debayer",
     "RGB (3, 3) [(50, 30, 10), (50, 20, 20), (50, 40, 30), (50, 40, 40), (50, 50, 50), (50, 60, 60), (50, 60, 70), "
     "(50, 80, 80), (50, 70, 90)]",
     "uint8 (3, 3, 3) [[[50, 30, 10], [50, 20, 20], [50, 40, 30]], [[50, 40, 40], [50, 50, 50], [50, 60, 60]], [[50, "
     "60, "
     "70], [50, 80, 80], [50, 70, 90]]]"},
    {"BayerRG12",
     {2, 2, 0x01100011, {"\x10\x00\x20\x00\x40\x00\x50\x00", 8}},
     "--debayer",
     "RGB (2, 2) [(1, 3, 5), (1, 2, 5), (1, 4, 5), (1, 3, 5)]",
     "uint16 (2, 2, 3) [[[256, 768, 1280], [256, 512, 1280]], [[256, 1024, 1280], [256, 768, 1280]]]"},
};

INSTANTIATE_TEST_SUITE_P(As, GrabFormat, testing::ValuesIn(kForms),
                         [](const auto& form) { return std::string(form.param.name); });

TEST(GrabPixels, ThatHasNoFormAsAPictureIsWrittenRaw)
{
    const TemporaryFolder folder;
    const FakeFrame yuv{2, 1, 0x02100032, "abcd"};
    const Outcome png = GrabFrame(yuv, folder, {});
    EXPECT_EQ(png.exitCode, 1) << png.output;
    EXPECT_THAT(png.output,
                HasSubstr("nq-gev: pixel format 0x02100032 has no form as a picture; --format raw writes any\n"));
    EXPECT_EQ(GrabFrame(yuv, folder, {"--format", "raw"}).exitCode, 0);
    EXPECT_EQ(BytesOf(folder / "frame-00000001.raw"), "abcd");
}

TEST(GrabPixels, AndPlaceThatDoNotFitAreWrongArguments)
{
    const Outcome pipe = RunOnFake("", {"grab", "--out", "-"});
    EXPECT_EQ(pipe.exitCode, 2) << pipe.output;
    EXPECT_THAT(pipe.output, testing::StartsWith("--out -: takes --format raw or gendc\n"));
    const Outcome colour = RunOnFake("", {"grab", "--out", "x", "--format", "raw", "--debayer"});
    EXPECT_EQ(colour.exitCode, 2) << colour.output;
}

} // namespace
