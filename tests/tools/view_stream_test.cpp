// SPDX-License-Identifier: Apache-2.0
// What the pages of nq-gev view get of a stream, and that the stream never suffers from them.
#include "support/temporary_folder.h"
#include "support/two_cameras.h"
#include "support/view.h"

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <list>
#include <thread>

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

/// A grab of the other camera beside the view, which loses nothing.
class GrabBeside
{
  public:
    explicit GrabBeside(const TwoCameras& cameras, const std::vector<std::string>& more = {})
        : m_grab(Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab", "--camera", "SN-2", "--count", "100",
                         "--buffers", "1000"},
                        more),
                 cameras.Environment())
    {
    }

    void ExpectAllFrames()
    {
        EXPECT_EQ(m_grab.WaitForExit(kLongTime), 0) << m_grab.Output();
        EXPECT_THAT(m_grab.Output(), HasSubstr("frames     100\nlost       0\nincomplete 0\n"));
    }

  private:
    ChildProcess m_grab;
};

/// First no page looks, then five do, and one more that takes 1 kB a second.
TEST(ViewStream, LosesNothingWithoutPagesAndWithMany)
{
    const TwoCameras cameras(kCamera);
    const View view(Joined({"--camera", "SN-1"}, kManyBuffers), cameras.Environment());
    view.Numbers(FramesBeyond(50));
    GrabBeside(cameras, {"--verify"}).ExpectAllFrames();
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
    GrabBeside grab(cameras, {"--verify"});
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
    grab.ExpectAllFrames();
    const std::string numbers = view.Numbers(FramesBeyond(150));
    EXPECT_THAT(numbers, HasSubstr("\"lost\":0,\"incomplete\":0,\"refused\":0,"));
    EXPECT_EQ(NumberIn(numbers, "underruns"), 0) << numbers;
}

/// A page on a line of 1 kB/s: half of that for its pictures, half for its numbers. Reads until the object goes.
class PageOnASlowLine
{
  public:
    explicit PageOnASlowLine(const View& view)
        : m_pictures(view.Port(), "127.0.0.1", 1), m_numbers(view.Port(), "127.0.0.1", 1)
    {
        m_pictures.Send(view.Request("GET", "pictures"));
        m_numbers.Send(view.Request("GET", "numbers"));
        m_line = std::jthread([this](const std::stop_token& end) {
            while (!end.stop_requested())
            {
                m_read = m_pictures.ReadSome(50).size() + m_numbers.ReadSome(50).size();
                poll(nullptr, 0, 100);
            }
        });
    }

    size_t BytesRead() const { return m_read; }

  private:
    HttpClient m_pictures;
    HttpClient m_numbers;
    std::atomic<size_t> m_read = 0;
    std::jthread m_line;
};

TEST(ViewStream, GoesOnForAllWhileOnePageTakesAThousandBytesASecond)
{
    TwoCameras cameras(
        {"--width", "320", "--height", "240", "--fps", "10", "--pattern", "Scene", "--send-buffers", "256"});
    const View view({"--camera", "SN-1", "--buffers", "600"}, cameras.Environment());
    view.Numbers(FramesBeyond(5));
    const PageOnASlowLine slow(view);
    GrabBeside grab(cameras);
    HttpClient page(view.Port());
    page.Send(view.Request("GET", "pictures"));
    grab.ExpectAllFrames();
    // Less than a second behind the camera again and again; a test that is kept waiting looks once more.
    size_t pictures = 0;
    for (int times = 0; times < 5; ++times)
    {
        double behind = 1e9;
        for (int look = 0; look < 1000 && behind >= 10; ++look)
        {
            const std::vector<double> ids = FrameIdsIn(page.Read(Pictures(++pictures)));
            pictures = ids.size();
            behind = NumberIn(cameras.First().Control(R"({"cmd":"status"})"), "frames_taken") - ids.back();
        }
        EXPECT_LT(behind, 10);
    }
    const std::string numbers = view.Numbers(FramesBeyond(100));
    EXPECT_THAT(numbers, HasSubstr("\"lost\":0,\"incomplete\":0,\"refused\":0,"));
    EXPECT_EQ(NumberIn(numbers, "underruns"), 0) << numbers;
    EXPECT_GT(slow.BytesRead(), 1000U);
    EXPECT_LT(slow.BytesRead() * 10, page.Read(Pictures(1)).size()) << "its line was no slow one";
}

TEST(ViewStream, TellsOfLostFramesAndOfShortOnes)
{
    const VirtualCamera camera(kCamera);
    const View view(kManyBuffers, camera.Environment());
    EXPECT_THAT(view.Numbers(FramesBeyond(5)), HasSubstr("\"lost_ago_s\":null,\"incomplete_ago_s\":null,"));
    camera.Fault("id-jump:7:1");
    const std::string lost = view.NumbersWith("\"lost\":7,\"incomplete\":0,");
    EXPECT_THAT(lost, HasSubstr("\"lost\":7,\"incomplete\":0,"));
    EXPECT_THAT(lost, HasSubstr("\"incomplete_ago_s\":null,"));
    const double ago = NumberIn(lost, "lost_ago_s");
    EXPECT_GE(ago, 0) << lost;
    const auto later = [ago](const std::string& event) { return NumberIn(event, "lost_ago_s") > ago + 0.5; };
    EXPECT_THAT(view.Numbers(later), HasSubstr("\"lost\":7,\"incomplete\":0,")) << "told, and longer ago";
    camera.Fault("short-frame:100:1");
    const std::string both = view.NumbersWith("\"incomplete\":1,");
    EXPECT_THAT(both, HasSubstr("\"lost\":7,\"incomplete\":1,"));
    EXPECT_GE(NumberIn(both, "incomplete_ago_s"), 0);
    EXPECT_LT(NumberIn(both, "incomplete_ago_s"), NumberIn(both, "lost_ago_s"));
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

TEST(ViewRecording, GoesOnUnderOtherNamesWhenALostCameraIsBack)
{
    const TemporaryFolder folder;
    VirtualCamera camera(kCamera);
    const View view(Joined({"--out", folder / "all"}, kManyBuffers), camera.Environment());
    view.NumbersWith("\"state\":\"running\"");
    view.Post("record?camera=0&on=1");
    const auto recorded = [](const std::string& event) {
        return NumberIn(event.substr(event.find("\"recording\":")), "frames");
    };
    view.Numbers([&](const std::string& event) { return recorded(event) >= 10; });
    camera.Kill();
    const std::string lost = view.NumbersWith("\"state\":\"lost\"");
    const double last = NumberIn(lost, "frame_id");
    camera.Start(); // and its ids begin with 1 again
    view.NumbersWith("\"state\":\"running\"");
    view.Numbers([&](const std::string& event) { return NumberIn(event, "frame_id") > last + 5; });
    const std::string ended = view.Post("record?camera=0&on=0");
    EXPECT_THAT(ended, HasSubstr("\"problem\":\"\""));
    EXPECT_GT(NumberIn(ended, "frames"), recorded(lost) + 5);
    std::vector<std::string> names;
    for (const auto& path : std::filesystem::recursive_directory_iterator(folder / "all"))
    {
        if (path.is_regular_file())
        {
            names.push_back(path.path().filename());
        }
    }
    EXPECT_EQ(static_cast<double>(names.size()), NumberIn(ended, "frames"));
    char name[32];
    std::snprintf(name, sizeof name, "frame-%08u.png", static_cast<unsigned>(last));
    EXPECT_THAT(names, testing::IsSupersetOf({std::string(name), "stream-2-" + std::string(name)}));
}

TEST(ViewRecording, ThatFailsCountsWhatIsWritten)
{
    const TemporaryFolder folder;
    const VirtualCamera camera(kCamera);
    const View view(Joined({"--out", folder / "all"}, kManyBuffers), camera.Environment());
    view.NumbersWith("\"state\":\"running\"");
    view.Post("record?camera=0&on=1");
    const double now = NumberIn(view.Numbers(FramesBeyond(0)), "frame_id");
    char name[32];
    std::snprintf(name, sizeof name, "frame-%08u.png", static_cast<unsigned>(now) + 500); // ten seconds from now
    for (const auto& path : std::filesystem::directory_iterator(folder / "all"))
    {
        std::filesystem::create_directory(path.path() / name);
    }
    const std::string ended = view.NumbersWith("is there already");
    EXPECT_THAT(ended, HasSubstr("\"recording\":{\"running\":false,"));
    size_t files = 0;
    for (const auto& path : std::filesystem::recursive_directory_iterator(folder / "all"))
    {
        files += path.is_regular_file() ? 1 : 0;
    }
    const std::string recording = ended.substr(ended.find("\"recording\":"));
    EXPECT_EQ(NumberIn(recording, "frames"), static_cast<double>(files)) << ended;
    EXPECT_THAT(view.Post("record?camera=0&on=1"), HasSubstr("{\"running\":true,")) << "another one begins";
    EXPECT_THAT(view.Post("record?camera=0&on=0"), HasSubstr("\"problem\":\"\"}"));
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
