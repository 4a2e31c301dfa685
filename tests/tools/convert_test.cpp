// SPDX-License-Identifier: Apache-2.0
// nq-gev convert: pictures of what was recorded, and a line about every file that is not what it says.
#include "support/json_schema.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <random>
#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::UnorderedElementsAre;

/// The number with its lowest byte first.
std::string Little(uint64_t number, size_t bytes)
{
    std::string text;
    for (size_t byte = 0; byte < bytes; ++byte)
    {
        text += static_cast<char>(number >> 8 * byte & 0xFF);
    }
    return text;
}

/// A GenDC container with one component, whose `parts` are all the same picture. Its pixels stand behind the headers:
/// 176 bytes for one part.
std::string Container(uint64_t id, uint32_t width, uint32_t height, uint32_t format, const std::string& pixels,
                      uint16_t padding = 0, uint16_t parts = 1)
{
    const uint64_t size = pixels.size();
    const uint64_t part = 64 + 48 + 8 * uint64_t{parts};
    const uint64_t headers = part + 56;
    std::string places;
    for (uint16_t at = 0; at < parts; ++at)
    {
        places += Little(part, 8);
    }
    return std::string("GNDC\1\1\0\0", 8) + Little(0x1000, 2) + Little(0, 2) + Little(64, 4) + Little(id, 8) +
           Little(0, 8) + Little(size, 8) + Little(headers, 8) + Little(headers, 4) + Little(1, 4) + Little(64, 8) +
           // component
           Little(0x2000, 2) + Little(0, 2) + Little(part - 64, 4) + Little(0, 8) + Little(0, 8) + Little(5000, 8) +
           Little(1, 8) + Little(format, 4) + Little(0, 2) + Little(parts, 2) + places +
           // part
           Little(0x4200, 2) + Little(0, 2) + Little(56, 4) + Little(format, 4) + Little(0, 4) + Little(0, 8) +
           Little(size, 8) + Little(headers, 8) + Little(width, 4) + Little(height, 4) + Little(padding, 2) +
           Little(0, 6) + pixels;
}

void Write(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

Outcome Convert(const std::vector<std::string>& arguments)
{
    return RunProgram(Joined({NQ_TOOL_PATH, "convert"}, arguments));
}

/// What Pillow reads: mode, size and values.
std::string Pillow(const std::string& path)
{
    return RunProgram({"/usr/bin/python3", "-c",
                       "import sys; from PIL import Image; p = Image.open(sys.argv[1]); "
                       "print(p.mode.removesuffix(';16'), p.size, list(p.getdata()))",
                       path})
        .output;
}

std::string Tifffile(const std::string& path)
{
    return RunProgram({"/usr/bin/python3", "-c",
                       "import sys, tifffile; p = tifffile.imread(sys.argv[1]); print(p.dtype, p.shape, p.tolist())",
                       path})
        .output;
}

std::vector<std::string> NamesIn(const TemporaryFolder& folder)
{
    std::vector<std::string> names;
    for (const fs::path& file : folder.Files())
    {
        names.push_back(file.filename());
    }
    return names;
}

TEST(ConvertGenDC, MakesAPictureThatOthersReadBesideTheFileItself)
{
    const TemporaryFolder folder;
    Write(folder / "a.gendc", Container(7, 3, 2, 0x01080001, {1, 2, 3, 4, 5, 6}));
    const Outcome convert = Convert({folder / "a.gendc"});
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    EXPECT_EQ(convert.output, "pictures   1\nfiles      1\nproblems   0\n");
    EXPECT_THAT(NamesIn(folder), UnorderedElementsAre("a.gendc", "a.png"));
    EXPECT_EQ(Pillow(folder / "a.png"), "L (3, 2) [1, 2, 3, 4, 5, 6]\n");
}

TEST(ConvertGenDC, UnpacksAndDebayersAndWritesTiff)
{
    const TemporaryFolder folder;
    // Mono12p: 0x123 and 0xABC in three bytes; a Bayer mosaic with red 10, green 20 and 30, blue 40.
    Write(folder / "packed.gendc", Container(1, 2, 1, 0x010C0047, "\x23\xC1\xAB"));
    Write(folder / "bayer.gendc", Container(1, 2, 2, 0x01080009, "\x0A\x14\x1E\x28"));
    const TemporaryFolder out;
    const Outcome convert = Convert(
        {"--format", "tiff", "--debayer", "--out", out.Path(), folder / "packed.gendc", folder / "bayer.gendc"});
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    EXPECT_EQ(Tifffile(out / "packed.tiff"), "uint16 (1, 2) [[4656, 43968]]\n");
    EXPECT_EQ(Tifffile(out / "bayer.tiff"),
              "uint8 (2, 2, 3) [[[10, 25, 40], [10, 20, 40]], [[10, 30, 40], [10, 25, 40]]]\n");
    EXPECT_EQ(folder.Files().size(), 2U);
}

TEST(ConvertGenDC, LeavesOutWhatStandsBehindTheRows)
{
    const TemporaryFolder folder;
    Write(folder / "a.gendc", Container(1, 2, 2, 0x01080001, {1, 2, 99, 3, 4, 99}, 1));
    EXPECT_EQ(Convert({folder / "a.gendc"}).exitCode, 0);
    EXPECT_EQ(Pillow(folder / "a.png"), "L (2, 2) [1, 2, 3, 4]\n");
}

TEST(ConvertGenDC, NumbersThePicturesOfAFileWithSeveralByTheirIds)
{
    const TemporaryFolder folder;
    Write(folder / "pipe", Container(8, 1, 1, 0x01080001, "a") + Container(9, 1, 1, 0x01080001, "b"));
    const Outcome convert = Convert({folder / "pipe"});
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    EXPECT_THAT(NamesIn(folder), UnorderedElementsAre("pipe", "pipe-00000008.png", "pipe-00000009.png"));
    EXPECT_EQ(Pillow(folder / "pipe-00000009.png"), "L (1, 1) [98]\n");
}

TEST(ConvertGenDC, NumbersThePictureOfTheLastContainerThoughTheFirstOnesHaveNone)
{
    const TemporaryFolder folder;
    const std::string empty = Container(8, 9, 9, 0x01080001, "a"); // with one byte instead of 81
    Write(folder / "pipe", empty + empty + empty + Container(9, 1, 1, 0x01080001, "b"));
    const Outcome convert = Convert({folder / "pipe"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_THAT(convert.output, HasSubstr("; and 2 failures more\n"));
    EXPECT_THAT(NamesIn(folder), UnorderedElementsAre("pipe", "pipe-00000009.png"));
    Write(folder / "two", empty + empty);
    EXPECT_THAT(Convert({folder / "two"}).output, HasSubstr("; and one failure more\n"));
}

TEST(ConvertGenDC, MakesAPictureOfEachImageOfAContainer)
{
    const TemporaryFolder folder;
    Write(folder / "two", Container(8, 1, 1, 0x01080001, "a", 0, 2));
    EXPECT_EQ(Convert({folder / "two"}).exitCode, 0);
    EXPECT_THAT(NamesIn(folder), UnorderedElementsAre("two", "two-00000008.png", "two-00000008-2.png"));
}

TEST(ConvertGenDC, OfACutFileHasWhatIsWhole)
{
    const TemporaryFolder folder;
    const std::string last = Container(9, 1, 1, 0x01080001, "b");
    Write(folder / "cut", Container(8, 1, 1, 0x01080001, "a") + last.substr(0, last.size() - 1));
    const Outcome convert = Convert({folder / "cut"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_EQ(convert.output, "nq-gev: " + (folder / "cut") +
                                  ": the container at byte 177 is said to have 1 bytes of data at 176, and 176 bytes "
                                  "are left of the file\npictures   1\nfiles      1\nproblems   1\n");
    EXPECT_TRUE(IsWholePng(folder / "cut-00000008.png"));
}

TEST(ConvertGenDC, OfAContainerCutAnywhereIsALineForEachAndNothingIsLostOfTheOthers)
{
    const TemporaryFolder folder;
    const TemporaryFolder out;
    const std::string whole = Container(3, 4, 2, 0x01080001, "abcdefgh");
    std::vector<std::string> command = {"--out", out.Path()};
    for (size_t length = 0; length < whole.size(); ++length)
    {
        const std::string path = folder / ("cut" + std::to_string(length) + ".gendc");
        Write(path, whole.substr(0, length));
        command.push_back(path);
    }
    Write(folder / "whole.gendc", whole);
    command.insert(command.begin() + 100, folder / "whole.gendc");
    const Outcome convert = Convert(command);
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_THAT(convert.output, EndsWith("pictures   1\nfiles      185\nproblems   184\n"));
    for (size_t length = 0; length < whole.size(); ++length)
    {
        EXPECT_THAT(convert.output, HasSubstr("/cut" + std::to_string(length) + ".gendc: "));
    }
    EXPECT_THAT(NamesIn(out), UnorderedElementsAre("whole.png"));
}

TEST(ConvertGenDC, SurvivesAThousandFilesWithRandomLies)
{
    const TemporaryFolder folder;
    const TemporaryFolder out;
    std::mt19937 random(20); // always the same
    const std::string whole = Container(3, 4, 2, 0x01080001, "abcdefgh") + Container(4, 1, 1, 0x01080001, "z");
    std::vector<std::string> command = {"--overwrite", "--out", out.Path()};
    for (int file = 0; file < 1000; ++file)
    {
        std::string bytes = whole;
        for (int lie = 0; lie <= file % 4; ++lie)
        {
            constexpr uint64_t kLies[] = {0, 1, 8, 0x7F, 0xFF, 0xFFFFFFFF, 0x7FFFFFFFFFFFFFFF, UINT64_MAX};
            const size_t width = size_t{1} << random() % 4;
            bytes.replace(random() % (176 / width) * width, width, Little(kLies[random() % 8], width));
        }
        const std::string path = folder / ("lie" + std::to_string(file) + ".gendc");
        Write(path, bytes);
        command.push_back(path);
    }
    Write(folder / "whole.gendc", whole);
    command.push_back(folder / "whole.gendc");
    const Outcome convert = Convert(command);
    EXPECT_EQ(convert.exitCode, 1);
    EXPECT_THAT(convert.output, ContainsRegex("pictures   [0-9]+\nfiles      1001\nproblems   [0-9]+\n$"));
    EXPECT_TRUE(IsWholePng(out / "whole-00000003.png"));
    EXPECT_TRUE(IsWholePng(out / "whole-00000004.png"));
}

TEST(ConvertGenDC, TellsWhichLieItSaw)
{
    const TemporaryFolder folder;
    const std::string whole = Container(3, 4, 2, 0x01080001, "abcdefgh");
    const auto told = [&](size_t place, const std::string& lie) {
        Write(folder / "lie", std::string(whole).replace(place, lie.size(), lie));
        const Outcome convert = Convert({"--overwrite", folder / "lie"});
        EXPECT_EQ(convert.exitCode, 1) << convert.output;
        const size_t begin = convert.output.find("lie: ") + 5;
        return convert.output.substr(begin, convert.output.find('\n') - begin);
    };
    EXPECT_EQ(told(8, "\x01"), "the container at byte 0 has a header of type 0x1001 where one of 0x1000 has to be");
    EXPECT_EQ(told(48, "\xFF\xFF\xFF\xFF"), "the container at byte 0 is said to have 4294967295 bytes of headers");
    EXPECT_EQ(told(56, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"),
              "the container at byte 0 names a header beyond the 176 bytes that it has for them");
    EXPECT_EQ(told(110, "\xFF\xFF"), "the container at byte 0 names more parts than it has room for");
    EXPECT_EQ(told(120, "\x01"), "holds no picture");
    EXPECT_EQ(told(144, "\x09"), "the container at byte 0 has a picture of 9 bytes at 176, but 184 bytes in all");
    EXPECT_EQ(told(160, "\x05"), "its picture of 5 x 2 pixels of format 0x01080001 takes 10 bytes, and has 8");
    EXPECT_EQ(told(160, std::string(4, '\0')), "holds a picture that is said to be 0 x 2 pixels large");
    EXPECT_EQ(told(164, "\xFF\xFF\xFF\xFF"), "holds a picture that is said to be 4 x 4294967295 pixels large");
    EXPECT_EQ(told(128, "\x02"), "pixel format 0x01080002 has no form as a picture");
}

TEST(ConvertGenDC, TakesNoMemoryForAPictureThatDoesNotFit)
{
    const TemporaryFolder folder;
    const uint64_t side = 1'000'000; // a file of a terabyte, of which next to nothing lies on the disk
    std::string header = Container(1, side, side, 0x01080001, "");
    header.replace(32, 8, Little(side * side, 8)).replace(144, 8, Little(side * side, 8));
    Write(folder / "large.gendc", header);
    std::error_code refused;
    fs::resize_file(folder / "large.gendc", 176 + side * side, refused);
    if (refused)
    {
        GTEST_SKIP() << "this file system has no such files: " << refused.message();
    }
    const Outcome convert = Convert({folder / "large.gendc"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_THAT(convert.output, ContainsRegex("large.gendc: a picture of 1000000 x 1000000 pixels takes 8000000000000 "
                                              "bytes of memory, of which [0-9]+ are available\n"));
}

TEST(ConvertFiles, ThatAreNoneAreToldAndTheOthersConverted)
{
    const TemporaryFolder folder;
    Write(folder / "a.gendc", Container(1, 1, 1, 0x01080001, "a"));
    Write(folder / "text", "plain");
    Write(folder / "empty.raw", "");
    ASSERT_EQ(mkfifo((folder / "pipe").c_str(), 0600), 0);
    const Outcome convert = Convert(
        {folder / "none", folder.Path(), folder / "pipe", folder / "text", folder / "empty.raw", folder / "a.gendc"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_THAT(convert.output,
                AllOf(HasSubstr("/none: cannot be read: No such file or directory\n"),
                      HasSubstr("nq-gev: " + folder.Path() + ": is a folder; name the files in it\n"),
                      HasSubstr("/pipe: is no plain file\n"),
                      HasSubstr("/text: is no GenDC container, and nothing tells its size and format: --metadata, or "
                                "--width, --height and --pixel-format\n"),
                      EndsWith("pictures   1\nfiles      6\nproblems   5\n")));
}

TEST(ConvertFiles, ReplaceNothingUnaskedAndNeverAPictureOfTheSameRun)
{
    const TemporaryFolder folder;
    fs::create_directories(folder / "b");
    Write(folder / "a.gendc", Container(1, 1, 1, 0x01080001, "a"));
    Write(folder / "b/a.gendc", Container(1, 1, 1, 0x01080001, "b"));
    Write(folder / "a.png", "precious");
    const Outcome refused = Convert({folder / "a.gendc"});
    EXPECT_EQ(refused.exitCode, 1) << refused.output;
    EXPECT_THAT(refused.output, HasSubstr(folder / "a.gendc: " + (folder / "a.png") +
                                          " is there already; --overwrite replaces it, --name gives other names\n"));
    EXPECT_EQ(BytesOf(folder / "a.png"), "precious");
    const Outcome twice = Convert({"--overwrite", "--out", folder.Path(), folder / "a.gendc", folder / "b/a.gendc"});
    EXPECT_EQ(twice.exitCode, 1) << twice.output;
    EXPECT_THAT(twice.output,
                HasSubstr(folder / "a.png has a picture of this run already; --name gives other names\n"));
    EXPECT_EQ(Pillow(folder / "a.png"), "L (1, 1) [97]\n");
}

TEST(ConvertFiles, AreToldAsJson)
{
    const TemporaryFolder folder;
    Write(folder / "a.gendc", Container(7, 3, 2, 0x01080001, "abcdef"));
    const Outcome convert = RunProgram({"/bin/sh", "-c",
                                        kToolLine + "--json convert --name x-{file}-{id} " + (folder / "a.gendc") +
                                            " " + (folder / "none") + " 2>/dev/null"});
    EXPECT_EQ(convert.exitCode, 1);
    ExpectFitsSchema("convert", convert.output);
    EXPECT_THAT(convert.output, HasSubstr("\"pictures\": 1,\n  \"problems\": 1,\n"));
    EXPECT_THAT(convert.output, HasSubstr("\"file\": \"" + (folder / "x-a-00000007.png") +
                                          "\",\n          \"id\": 7,\n          \"width\": 3,\n          \"height\": "
                                          "2,\n          \"pixel_format\": \"0x01080001\""));
    EXPECT_THAT(convert.output, HasSubstr("\"problem\": \"cannot be read: No such file or directory\""));
}

TEST(ConvertOptions, ThatMakeNoSenseAreRefused)
{
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {{}, "FILE is required"},
        {{"x", "--format", "raw"}, "--format"},
        {{"x", "--width", "5"}, "--width requires --height"},
        {{"x", "--pixel-format", "Mono8"}, "--pixel-format requires --width"},
        {{"x", "--width", "5", "--height", "5", "--pixel-format", "Mono9"},
         "--pixel-format: has no form as a picture: Mono9; it takes names as Mono8, BayerRG12p and RGB8, and numbers "
         "as "
         "0x01080001\n"},
        {{"x", "--name", "{time}"}, "--name: knows {file} and {id}, not \"{time}\"\n"},
        {{"x", "--name", "all"}, "--name: needs {file} or {id}: all pictures would have one name\n"},
    };
    for (const auto& [arguments, told] : wrong)
    {
        const Outcome convert = Convert(arguments);
        EXPECT_EQ(convert.exitCode, 2) << convert.output;
        EXPECT_THAT(convert.output, HasSubstr(told));
    }
    EXPECT_EQ(Convert({"x", "--metadata", "/nowhere/frames.jsonl"}).output,
              "nq-gev: cannot read /nowhere/frames.jsonl: No such file or directory\n");
}

TEST(ConvertRaw, TakesSizeAndFormatFromTheLinesOfTheRecording)
{
    const TemporaryFolder folder;
    const TemporaryFolder pictures;
    const Outcome grab = RunOnFake("", {"grab", "--count", "3", "--save-every", "2", "--format", "raw", "--name",
                                        "x{time}-{id}", "--out", pictures.Path(), "--metadata", folder / "m"});
    ASSERT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(BytesOf(folder / "m"), HasSubstr(",\"lost_before\":0,\"file\":null}\n"));
    std::vector<std::string> command = {"--debayer", "--format", "tiff", "--metadata", folder / "m"};
    for (const fs::path& file : pictures.Files())
    {
        command.push_back(file);
    }
    const Outcome convert = Convert(command);
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    EXPECT_THAT(convert.output, HasSubstr("pictures   2\nfiles      2\n"));
    EXPECT_THAT(Tifffile(fs::path(command.back()).replace_extension("tiff")), testing::StartsWith("uint8 (48, 64) [["));
}

TEST(ConvertRaw, KnowsLinesThatNameNoFilesAndTellsOfThoseThatTellNothing)
{
    const TemporaryFolder folder;
    Write(folder / "frame-00000005.raw", "abcdef");
    Write(folder / "left_1-00000006.raw", "abcdef");
    Write(folder / "frame-00000007.raw", "abcdef");
    Write(folder / "m", "{\"id\":5,\"camera\":\"left 1\",\"width\":3,\"height\":2,\"pixel_format\":\"0x01080001\"}\n"
                        "{\"id\":6,\"camera\":\"left 1\",\"width\":2,\"height\":3,\"pixel_format\":\"0x01080001\"}\n"
                        "[7]\n{\"id\":7,\"width\":-3,\"height\":2,\"pixel_format\":\"0x01080001\"}\n{\"id\":7,\"wid");
    const Outcome convert = Convert({"--metadata", folder / "m", folder / "frame-00000005.raw",
                                     folder / "left_1-00000006.raw", folder / "frame-00000007.raw"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    const std::string m = folder / "m";
    EXPECT_EQ(convert.output, "nq-gev: " + m + ":3: tells of no frame\nnq-gev: " + m +
                                  ":4: tells of no frame\nnq-gev: " + m + ":5: tells of no frame\nnq-gev: " +
                                  (folder / "frame-00000007.raw") + ": is no GenDC container, and no line of " + m +
                                  " tells of it\npictures   2\nfiles      3\nproblems   4\n");
    EXPECT_EQ(Pillow(folder / "left_1-00000006.png"), "L (2, 3) [97, 98, 99, 100, 101, 102]\n");
}

TEST(ConvertRaw, OfAPipeHasAPictureForEachFrameAndTellsOfTheRest)
{
    const TemporaryFolder folder;
    Write(folder / "pipe.raw", "GNDCefghijklm"); // two of 3 x 2 pixels, and one more; no container
    const Outcome convert = Convert({folder / "pipe.raw", "--width", "3", "--height", "2", "--pixel-format", "Mono8"});
    EXPECT_EQ(convert.exitCode, 1) << convert.output;
    EXPECT_THAT(
        convert.output,
        HasSubstr("/pipe.raw: ends with 1 bytes, and a picture of 3 x 2 pixels of format 0x01080001 takes 6\n"));
    EXPECT_EQ(Pillow(folder / "pipe-00000002.png"), "L (3, 2) [103, 104, 105, 106, 107, 108]\n");
    EXPECT_EQ(folder.Files().size(), 3U);
}

TEST(GrabGenDC, WritesEachFrameInTheContainerThatTheCameraSendsIt)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "100"});
    const TemporaryFolder folder;
    const Outcome grab =
        RunTool({"grab", "Width=32", "OffsetX=16", "--count", "2", "--format", "gendc", "--out", folder.Path()},
                camera.Environment());
    ASSERT_EQ(grab.exitCode, 0) << grab.output;
    std::vector<fs::path> files = folder.Files();
    ASSERT_EQ(files.size(), 2U);
    std::sort(files.begin(), files.end());
    const std::string first = BytesOf(files[0]);
    EXPECT_THAT(files[0].string(), EndsWith("/frame-00000001.gendc"));
    ASSERT_EQ(first.size(), 176U + 32 * 48);
    // Everything but the time that the camera gave the frame.
    std::string expected = Container(1, 32, 48, 0x01080001, first.substr(176));
    expected.replace(80, 4, Little(16, 4)).replace(88, 8, first.substr(88, 8));
    EXPECT_EQ(first, expected);
    EXPECT_NE(first.substr(88, 8), Little(0, 8));
    const Outcome convert = Convert({files[0], files[1], "--out", folder / "converted"});
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    EXPECT_TRUE(IsWholePng(folder / "converted/frame-00000002.png"));
}

TEST(GrabGenDC, GoesIntoAPipeThatConvertsToWhatGrabItselfWouldWrite)
{
    const TemporaryFolder folder;
    ASSERT_EQ(
        RunProgram({"/bin/sh", "-c", kFakeLine + "grab --count 3 --format gendc --out - >" + (folder / "pipe.gendc")})
            .exitCode,
        0);
    ASSERT_EQ(RunOnFake("", {"grab", "--count", "3", "--out", folder.Path()}).exitCode, 0);
    const Outcome convert = Convert({folder / "pipe.gendc"});
    EXPECT_EQ(convert.exitCode, 0) << convert.output;
    for (const char* id : {"00000001.png", "00000002.png", "00000003.png"})
    {
        EXPECT_EQ(BytesOf(folder / ("pipe-" + std::string(id))), BytesOf(folder / ("frame-" + std::string(id))));
    }
}

TEST(GrabGenDC, IsAsTheCameraSendsItWithoutColours)
{
    const Outcome grab = RunOnFake("", {"grab", "--format", "gendc", "--debayer", "--out", "-"});
    EXPECT_EQ(grab.exitCode, 2);
    EXPECT_THAT(grab.output, testing::StartsWith("--debayer: is for --format png and tiff: raw is what the camera "
                                                 "sends\n"));
}

} // namespace
