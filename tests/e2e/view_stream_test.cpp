// SPDX-License-Identifier: Apache-2.0
// What the pages of nq-gev view get of a stream, and that the stream never suffers from them.
#include "support/temporary_folder.h"
#include "support/two_cameras.h"
#include "support/view.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <list>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::StartsWith;

/// Frames for several seconds fit on both sides, so that a test that is kept waiting loses none.
const std::vector<std::string> kManyBuffers = {"--buffers", "1000"};
const std::vector<std::string> kCamera = {"--width", "64", "--height", "48", "--fps", "50", "--send-buffers", "256"};

/// The ids of the pictures in an answer, as far as it came.
std::vector<double> FrameIdsIn(const std::string& answer)
{
    std::vector<double> ids;
    const std::string name = "\"frame_id\":";
    for (size_t at = answer.find(name); at != std::string::npos; at = answer.find(name, at + 1))
    {
        ids.push_back(std::strtod(answer.c_str() + at + name.size(), nullptr));
    }
    return ids;
}

/// So many pictures of an answer.
std::function<bool(const std::string&)> Pictures(size_t count)
{
    return [count](const std::string& read) { return FrameIdsIn(read).size() >= count; };
}

std::function<bool(const std::string&)> FramesBeyond(double count)
{
    return [count](const std::string& event) { return NumberIn(event, "frames") > count; };
}

TEST(ViewPictures, AreWholeJpegsWithIdsThatRise)
{
    const VirtualCamera camera(kCamera);
    const View view(kManyBuffers, camera.Environment());
    HttpClient client(view.Port());
    client.Send(view.Request("GET", "pictures"));
    const std::string answer = client.Read(Pictures(6));
    EXPECT_THAT(answer, StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(answer, HasSubstr("\r\nContent-Type: multipart/x-mixed-replace; boundary=picture\r\n"));
    const std::vector<double> ids = FrameIdsIn(answer);
    ASSERT_GE(ids.size(), 6U);
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end(), std::less_equal<>())) << testing::PrintToString(ids);
    const size_t jpeg = answer.find("\r\n\r\n", answer.find("--picture")) + 4;
    const size_t end = answer.find("\r\n--picture\r\n", jpeg);
    EXPECT_EQ(answer.substr(jpeg, 3), "\xFF\xD8\xFF");
    EXPECT_EQ(answer.substr(end - 2, 2), "\xFF\xD9");
    EXPECT_EQ(NumberIn(answer, "camera"), 0);
}

TEST(ViewPictures, AreAtMostThirtyASecond)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "300"});
    const View view(kManyBuffers, camera.Environment());
    HttpClient client(view.Port());
    const auto start = std::chrono::steady_clock::now();
    client.Send(view.Request("GET", "pictures"));
    const size_t count = FrameIdsIn(client.Read(Pictures(16))).size();
    EXPECT_GE(std::chrono::steady_clock::now() - start, (count - 1) * std::chrono::milliseconds(33));
}

TEST(ViewPictures, OfAFormatThatHasNoneSayWhy)
{
    const VirtualCamera camera({"--width", "64", "--height", "48", "--fps", "20", "--pixel-format", "YUV422_8"});
    const View view({}, camera.Environment());
    HttpClient client(view.Port());
    client.Send(view.Request("GET", "pictures"));
    EXPECT_THAT(client.Read(Pictures(1)), HasSubstr("\"problem\":\"pixel format 0x02100032 has no form as a picture"));
    EXPECT_THAT(view.Get("histogram?camera=0"), StartsWith("HTTP/1.1 409 "));
}

/// Five pages look, one more takes 1 kB a second, and a grab of another camera runs beside them.
TEST(ViewStream, LosesNothingWithoutPagesAndWithMany)
{
    const TwoCameras cameras(kCamera);
    const View view(Joined({"--camera", "SN-1"}, kManyBuffers), cameras.Environment());
    view.Numbers(FramesBeyond(50));
    std::list<HttpClient> pages;
    for (int page = 0; page < 5; ++page)
    {
        for (const char* name : {"pictures", "numbers"})
        {
            pages.emplace_back(view.Port());
            pages.back().Send(view.Request("GET", name));
        }
    }
    HttpClient slow(view.Port(), "127.0.0.1", 1024);
    slow.Send(view.Request("GET", "pictures"));
    ChildProcess grab({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--camera", "SN-2", "--count", "100",
                       "--verify", "--buffers", "1000"},
                      cameras.Environment());
    for (int part = 0; part < 20; ++part)
    {
        slow.Read([size = slow.Read([](const std::string&) { return true; }).size()](const std::string& read) {
            return read.size() >= size + 100;
        });
        poll(nullptr, 0, 50);
    }
    for (HttpClient& page : pages)
    {
        const std::string& read = page.Read([](const std::string& text) { return text.size() > 4000; });
        EXPECT_GT(read.size(), 4000U);
    }
    EXPECT_EQ(grab.WaitForExit(kLongTime), 0) << grab.Output();
    const std::string numbers = view.Numbers(FramesBeyond(150));
    EXPECT_THAT(numbers, HasSubstr("\"lost\":0,\"incomplete\":0,\"refused\":0,"));
    EXPECT_EQ(NumberIn(numbers, "underruns"), 0) << numbers;
}

TEST(ViewStream, TellsOfLostFramesAndOfShortOnes)
{
    const VirtualCamera camera(kCamera);
    const View view(kManyBuffers, camera.Environment());
    view.Numbers(FramesBeyond(5));
    camera.Fault("id-jump:7:1");
    const std::string lost = view.NumbersWith("\"lost\":7,\"incomplete\":0,");
    EXPECT_THAT(lost, HasSubstr("\"lost\":7,\"incomplete\":0,"));
    camera.Fault("short-frame:100:1");
    EXPECT_THAT(view.NumbersWith("\"incomplete\":1,"), HasSubstr("\"lost\":7,\"incomplete\":1,"));
}

TEST(ViewStream, TellsOfALostCameraAndGoesOnWhenItIsBack)
{
    VirtualCamera camera(kCamera);
    const View view(kManyBuffers, camera.Environment());
    view.Numbers(FramesBeyond(5));
    camera.Kill();
    EXPECT_THAT(view.NumbersWith("\"state\":\"lost\""), HasSubstr("\"state\":\"lost\",\"text\":\""));
    EXPECT_THAT(view.Get("features?camera=0"), StartsWith("HTTP/1.1 409 "));
    camera.Start();
    const std::string back = view.NumbersWith("\"state\":\"running\"");
    EXPECT_THAT(back, HasSubstr("\"state\":\"running\",\"text\":\"\""));
    const double frames = NumberIn(back, "frames");
    EXPECT_GT(NumberIn(view.Numbers(FramesBeyond(frames + 5)), "frames"), frames + 5);
}

TEST(ViewStream, PausesWithTheCameraOpenAndGoesOn)
{
    const VirtualCamera camera(kCamera);
    const View view(kManyBuffers, camera.Environment());
    view.Numbers(FramesBeyond(5));
    EXPECT_THAT(view.Post("feature?camera=0", R"({"name":"Width","value":"32"})"),
                HasSubstr("Width is locked now, as features are while the camera streams\",\"code\":1}"));
    view.Post("pause?camera=0&on=1");
    const double frames = NumberIn(view.NumbersWith("\"state\":\"paused\""), "frames");
    EXPECT_THAT(view.Post("feature?camera=0", R"({"name":"Width","value":"32"})"), StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_EQ(NumberIn(view.NumbersWith("\"state\":\"paused\""), "frames"), frames);
    view.Post("pause?camera=0&on=0");
    EXPECT_THAT(view.Numbers(FramesBeyond(frames + 5)), HasSubstr("\"width\":32,\"height\":48,"));
}

TEST(ViewRecording, WritesEveryFrameBetweenItsTwoEnds)
{
    const TemporaryFolder folder;
    const VirtualCamera camera(kCamera);
    const View view(Joined({"--out", folder / "all"}, kManyBuffers), camera.Environment());
    view.NumbersWith("\"state\":\"running\"");
    EXPECT_THAT(view.Post("record?camera=0&on=1"), HasSubstr("{\"running\":true,\"folder\":\"" + (folder / "all/")));
    const auto recorded = [](const std::string& event) {
        return NumberIn(event.substr(event.find("\"recording\":")), "frames") >= 10;
    };
    view.Numbers(recorded);
    const std::string ended = view.Post("record?camera=0&on=0");
    EXPECT_THAT(ended, HasSubstr("{\"running\":false,"));
    std::vector<uint64_t> ids;
    for (const auto& path : std::filesystem::recursive_directory_iterator(folder / "all"))
    {
        if (path.is_regular_file())
        {
            EXPECT_TRUE(IsWholePng(path.path())) << path.path();
            ids.push_back(std::stoull(path.path().stem().string().substr(6)));
        }
    }
    std::sort(ids.begin(), ids.end());
    ASSERT_GE(ids.size(), 10U);
    EXPECT_EQ(static_cast<double>(ids.size()), NumberIn(ended, "frames"));
    EXPECT_EQ(ids.back() - ids.front() + 1, ids.size());
}

TEST(ViewRecording, SaysWhyItCannotBeWritten)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "file") << "no folder";
    const VirtualCamera camera(kCamera);
    const View view({"--out", folder / "file"}, camera.Environment());
    EXPECT_THAT(view.Post("record?camera=0&on=1"),
                HasSubstr("{\"error\":\"cannot make the folder " + (folder / "file")));
}

} // namespace
