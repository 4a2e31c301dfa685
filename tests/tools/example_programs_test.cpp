// SPDX-License-Identifier: Apache-2.0
// The programs of examples/ that people copy from: what they take of a camera, with the library's own answers and with
// the standard's, and what they say when it goes wrong.
#include "support/both_modes.h"
#include "support/command_output.h"
#include "support/temporary_folder.h"
#include "support/two_cameras.h"

#include <csignal>
#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;

/// A program of the build, or a script of the checkout.
struct ExampleProgram
{
    const char* name;
    std::vector<std::string> command;

    bool IsScript() const { return command.size() > 1; }
    friend std::ostream& operator<<(std::ostream& out, const ExampleProgram& program) { return out << program.name; }
};

std::string BuiltExample(const std::string& name)
{
    return NQ_BINARY_DIR "/examples/" + name;
}

const ExampleProgram kGrabExamples[] = {
    {"C", {BuiltExample("grab_c")}},
    {"Cpp", {BuiltExample("grab")}},
    {"Python", {"/usr/bin/python3", "-B", NQ_SOURCE_DIR "/examples/python/grab.py"}},
};

/// Frames without a gap in their ids, as fast as they are taken; or 20 a second, of a camera that gives a quiet host up
/// after 2 s, so that the host beats every second.
const std::vector<std::string> kPatientCamera = {"--width", "64", "--height", "16", "--fps", "0"};
const std::vector<std::string> kOwnedCamera = {"--width", "64", "--height",    "16",
                                               "--fps",   "20", "--heartbeat", "60000"};
const std::vector<std::string> kSlowCamera = {"--width", "64", "--height", "16", "--fps", "20", "--heartbeat", "2000"};

/// The tenth picture of such a camera as a file: a ramp that moves by 7 with each frame.
std::string TenthPictureFile()
{
    std::string file = "P5\n64 16\n255\n";
    for (int y = 0; y < 16; ++y)
    {
        for (int x = 0; x < 64; ++x)
        {
            file += static_cast<char>(static_cast<unsigned char>(x + y + 7 * 10));
        }
    }
    return file;
}

std::string TenFrameLines()
{
    std::string lines;
    for (int frame = 1; frame <= 10; ++frame)
    {
        lines += "frame " + std::to_string(frame) + ": 64 x 16, 1024 bytes[^\n]*\n";
    }
    return lines;
}

class ExampleGrabs : public testing::TestWithParam<std::tuple<ExampleProgram, const char*>>
{
  protected:
    void SetUp() override
    {
#if NQ_SANITIZED
        if (std::get<0>(GetParam()).IsScript())
        {
            GTEST_SKIP() << "an interpreter without the sanitizer's run-time cannot load a library that wants it";
        }
#endif
        if (std::get<1>(GetParam()) == std::string("standard"))
        {
            m_asked.emplace();
        }
    }

    std::vector<std::string> Command(const std::vector<std::string>& arguments) const
    {
        return Joined(std::get<0>(GetParam()).command, arguments);
    }

  private:
    std::optional<StandardAnswers> m_asked;
};

using ExampleGrabsACamera = ExampleGrabs;

TEST_P(ExampleGrabsACamera, AndWritesItsTenthPicture)
{
    const VirtualCamera camera(kPatientCamera);
    const TemporaryFolder folder;
    const std::string picture = folder / "picture.pgm";
    const Outcome outcome = InTime(HasSubstr("\nframe 10: "), [&] {
        return RunProgram(Command({NQ_CTI_PATH, picture}), camera.Environment());
    });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output,
                testing::MatchesRegex("camera NQ-GEV-Camera:02-00-0a-4d-00-02\n" + TenFrameLines() + "$"));
    EXPECT_EQ(BytesOf(picture), TenthPictureFile());
}

const auto kEachGrab = testing::ValuesIn(kGrabExamples);
const auto kGrabName = [](const auto& tested) {
    return std::string(std::get<0>(tested.param).name) + "_" + std::get<1>(tested.param);
};
INSTANTIATE_TEST_SUITE_P(Example, ExampleGrabsACamera,
                         testing::Combine(kEachGrab, testing::Values("stated", "standard")), kGrabName);

using ExampleGrabsNothing = ExampleGrabs;

TEST_P(ExampleGrabsNothing, WithoutACameraAndSaysSo)
{
    const Outcome outcome = RunProgram(Command({NQ_CTI_PATH}));
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, HasSubstr("no camera"));
}

TEST_P(ExampleGrabsNothing, OfACameraThatAnotherProgramControlsAndSaysSo)
{
    const VirtualCamera camera(kOwnedCamera);
    ChildProcess owner({BuiltExample("hot_plug"), NQ_CTI_PATH}, camera.Environment());
    ASSERT_TRUE(owner.WaitForOutput("\nframe ", kLongTime)) << owner.Output();
    const auto refused = HasSubstr("IFOpenDevice: error -1005");
    const Outcome outcome = InTime(refused, [&] { return RunProgram(Command({NQ_CTI_PATH}), camera.Environment()); });
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, refused);
}

TEST_P(ExampleGrabsNothing, OfAFileThatIsNoProducerAndSaysWhy)
{
    const Outcome absent = RunProgram(Command({"/nowhere/producer.cti"}));
    EXPECT_EQ(absent.exitCode, 1);
    EXPECT_THAT(absent.output, HasSubstr("/nowhere/producer.cti: cannot open shared object file"));
    const Outcome other = RunProgram(Command({NQ_LOOPBACK_PATH}));
    EXPECT_EQ(other.exitCode, 1);
    EXPECT_THAT(other.output, HasSubstr("undefined symbol: GC"));
}

TEST_P(ExampleGrabsNothing, IntoAFolderThatIsNotThereAndSaysWhy)
{
    const VirtualCamera camera(kPatientCamera);
    const Outcome outcome = InTime(HasSubstr("frame 10: "), [&] {
        return RunProgram(Command({NQ_CTI_PATH, "/nowhere/picture.pgm"}), camera.Environment());
    });
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, HasSubstr("frame 10: "));
    EXPECT_THAT(outcome.output, HasSubstr("/nowhere/picture.pgm"));
}

INSTANTIATE_TEST_SUITE_P(Example, ExampleGrabsNothing, testing::Combine(kEachGrab, testing::Values("standard")),
                         kGrabName);

/// A producer of which some answers are chosen, with frames of 64 x 48 pixels: x + y + 7 * frame.
std::vector<std::string> ChosenAnswers(const std::string& answers)
{
    return {"NQ_FAKE_PRODUCER=" + answers};
}

using ExampleGrabsOfOtherProducers = ExampleGrabs;

TEST_P(ExampleGrabsOfOtherProducers, APictureThatBeginsBehindSomethingElse)
{
    const TemporaryFolder folder;
    const std::string picture = folder / "picture.pgm";
    // A row of something else (BUFFER_INFO_IMAGEOFFSET), and 47 rows of picture (BUFFER_INFO_HEIGHT).
    const Outcome outcome = RunProgram(
        Command({NQ_FAKE_PRODUCER_PATH, picture}),
        ChosenAnswers("DSGetBufferInfo.18.type=8\nDSGetBufferInfo.18.value=64\nDSGetBufferInfo.11.value=47\n"));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    std::string file = "P5\n64 47\n255\n";
    for (int pixel = 64; pixel < 64 * 48; ++pixel)
    {
        file += static_cast<char>(static_cast<unsigned char>(pixel % 64 + pixel / 64 + 7 * 10));
    }
    EXPECT_EQ(BytesOf(picture), file);
}

TEST_P(ExampleGrabsOfOtherProducers, NoPictureThatEndsBehindWhatCame)
{
    const TemporaryFolder folder;
    const std::string picture = folder / "picture.pgm";
    const Outcome outcome = RunProgram(Command({NQ_FAKE_PRODUCER_PATH, picture}),
                                       ChosenAnswers("DSGetBufferInfo.18.type=8\nDSGetBufferInfo.18.value=1\n"));
    EXPECT_EQ(outcome.exitCode, 1) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(picture + ": only whole pictures"));
}

TEST_P(ExampleGrabsOfOtherProducers, NoPictureWithBytesBehindItsRows)
{
    const TemporaryFolder folder;
    const std::string picture = folder / "picture.pgm";
    // Rows of 48 pixels and 16 bytes more (BUFFER_INFO_WIDTH, BUFFER_INFO_XPADDING).
    const Outcome outcome = RunProgram(
        Command({NQ_FAKE_PRODUCER_PATH, picture}),
        ChosenAnswers("DSGetBufferInfo.14.type=8\nDSGetBufferInfo.14.value=16\nDSGetBufferInfo.10.value=48\n"));
    EXPECT_EQ(outcome.exitCode, 1) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr(picture + ": only whole pictures"));
}

// A buffer that waits in the queue cannot be revoked: the flush, which ends the program here, has to come before that.
TEST_P(ExampleGrabsOfOtherProducers, NothingWhereTheStartIsRefusedAndFlushesTheQueueThen)
{
    const Outcome outcome =
        RunProgram(Command({NQ_FAKE_PRODUCER_PATH}),
                   ChosenAnswers("DSStartAcquisition.code=-1005\nDSFlushQueue.signal=" + std::to_string(SIGUSR1) +
                                 "\nDSRevokeBuffer.signal=" + std::to_string(SIGUSR2) + "\n"));
    EXPECT_EQ(outcome.exitCode, 128 + SIGUSR1) << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(Example, ExampleGrabsOfOtherProducers, testing::Combine(kEachGrab, testing::Values("stated")),
                         kGrabName);

TEST(RtpExample, GoesOnForADayWhereNobodySaysHowLong)
{
    const TemporaryFolder programs; // a pipeline that writes down what it gets, and a nq-gev that says what it is to do
    std::ofstream(programs / "gst-launch-1.0") << "#!/bin/sh\nexec cat\n";
    fs::permissions(programs / "gst-launch-1.0", fs::perms::owner_all);
    const auto asked = [&](const std::vector<std::string>& arguments) {
        return OutputOf(Joined({"/usr/bin/env", "NQ_GEV=/bin/echo", "PATH=" + programs.Path() + ":/usr/bin:/bin",
                                NQ_SOURCE_DIR "/examples/rtp/send.sh", "file.mkv", "64", "48"},
                               arguments));
    };
    EXPECT_EQ(asked({"--camera", "left"}), "grab --format raw --out - --duration 86400 --camera left\n");
    EXPECT_EQ(asked({"--count", "3"}), "grab --format raw --out - --count 3\n");
    EXPECT_EQ(asked({"--duration=9"}), "grab --format raw --out - --duration=9\n");
}

class ExampleInCpp : public BothModes
{
  protected:
    static Outcome Several(const TwoCameras& cameras)
    {
        return RunProgram({BuiltExample("several_cameras"), NQ_CTI_PATH, "30"}, cameras.Environment());
    }
};

TEST_P(ExampleInCpp, TakesSeveralCamerasAtOnce)
{
    const TwoCameras cameras(kPatientCamera);
    const auto both = testing::AllOf(HasSubstr("02: 30 frames"), HasSubstr("0d: 30 frames"));
    const Outcome outcome = InTime(both, [&] { return Several(cameras); });
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("NQ-GEV-Camera:02-00-0a-4d-00-02: 30 frames, 0 incomplete\n"));
    EXPECT_THAT(outcome.output, HasSubstr("NQ-GEV-Camera:02-00-0a-0b-0c-0d: 30 frames, 0 incomplete\n"));
    EXPECT_THAT(outcome.output, testing::EndsWith("\n2 cameras\n"));
}

TEST_P(ExampleInCpp, TakesTheOtherCameraWhereOneIsRefused)
{
    const TwoCameras cameras(kOwnedCamera);
    ChildProcess owner({BuiltExample("hot_plug"), NQ_CTI_PATH, "NQ-GEV-Camera:02-00-0a-4d-00-02"},
                       cameras.Environment());
    ASSERT_TRUE(owner.WaitForOutput("\nframe ", kLongTime)) << owner.Output();
    const auto one = testing::AllOf(HasSubstr("0d: 30 frames"), HasSubstr("02: 0 frames"));
    const Outcome outcome = InTime(one, [&] { return Several(cameras); });
    EXPECT_EQ(outcome.exitCode, 1) << outcome.output;
    EXPECT_THAT(outcome.output,
                HasSubstr("NQ-GEV-Camera:02-00-0a-4d-00-02: 0 frames, 0 incomplete; IFOpenDevice: error -1005"));
    EXPECT_THAT(outcome.output, HasSubstr("NQ-GEV-Camera:02-00-0a-0b-0c-0d: 30 frames, 0 incomplete\n"));
}

TEST_P(ExampleInCpp, TakesACameraThatComesGoesAndComesAgain)
{
    VirtualCamera camera(kSlowCamera);
    camera.Kill();
    ChildProcess example({BuiltExample("hot_plug"), NQ_CTI_PATH}, camera.Environment());
    ASSERT_TRUE(example.WaitForOutput("no camera\n", kLongTime)) << example.Output();
    camera.Start();
    ASSERT_TRUE(example.WaitForOutput("opened NQ-GEV-Camera:02-00-0a-4d-00-02\nframe ", kLongTime)) << example.Output();
    camera.Kill();
    ASSERT_TRUE(example.WaitForOutput("\nclosed NQ-GEV-Camera:02-00-0a-4d-00-02\nno camera\n", kLongTime))
        << example.Output();
    EXPECT_THAT(example.Output(), ContainsRegex("access status 3 of NQ-GEV-Camera:02-00-0a-4d-00-02|"
                                                "EventGetData: error -1012"));
    camera.Start();
    // Not at the first attempt, if the camera is late to answer that.
    const std::size_t lost = example.Output().size();
    while (example.Output().find("opened NQ-GEV-Camera:02-00-0a-4d-00-02\nframe ", lost) == std::string::npos)
    {
        ASSERT_EQ(example.WaitForExit(std::chrono::milliseconds(1)), -1) << example.Output();
    }
    example.Signal(SIGTERM);
    EXPECT_EQ(example.WaitForExit(kLongTime), 0) << example.Output();
    EXPECT_THAT(example.Output(), testing::EndsWith(" frames\nclosed NQ-GEV-Camera:02-00-0a-4d-00-02\n"));
}

NQ_IN_BOTH_MODES(ExampleInCpp);

} // namespace
