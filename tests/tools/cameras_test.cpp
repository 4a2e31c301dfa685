// SPDX-License-Identifier: Apache-2.0
// Several cameras in one grab: what each of them gives, and that none takes the others down.
#include "support/temporary_folder.h"
#include "support/two_cameras.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>
#include <sstream>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using namespace std::chrono_literals;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

constexpr const char* kFirstId = "NQ-GEV-Camera:02-00-0a-4d-00-02";
constexpr const char* kSecondId = "NQ-GEV-Camera:02-00-0a-0b-0c-0d";

/// Cameras that lose nothing, however late their host is: a frame comes when there is room for it.
class ToolCameras : public testing::Test
{
  protected:
    static std::vector<std::string> Command(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {NQ_TOOL_PATH, "--producer", NQ_CTI_PATH});
        return arguments;
    }

    Outcome Run(const std::vector<std::string>& arguments) const
    {
        return RunProgram(Command(arguments), m_cameras.Environment());
    }

    std::string List() const { return Run({"--timeout", "200", "list"}).output; }

    size_t FilesWith(const std::string& start) const
    {
        const auto files = m_folder.Files();
        return static_cast<size_t>(std::count_if(files.begin(), files.end(), [&](const fs::path& file) {
            return file.filename().string().starts_with(start) && IsWholePng(file);
        }));
    }

    const std::vector<std::string> m_both = {"grab", "--camera", "SN-1", "--camera", "10.77.0.3"};

    std::vector<std::string> Both(const std::vector<std::string>& more) const
    {
        std::vector<std::string> arguments = m_both;
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    explicit ToolCameras(const std::vector<std::string>& pace = {"--fps", "0"})
        : m_cameras(Joined({"--width", "64", "--height", "48"}, pace))
    {
    }

    TwoCameras m_cameras;
    TemporaryFolder m_folder;
};

/// Ten frames a second, for which a camera has memory for ten seconds: software RDMA frees it when the host gets to it.
class ToolSlowCameras : public ToolCameras
{
  protected:
    ToolSlowCameras() : ToolCameras({"--fps", "10", "--send-buffers", "100"}) {}
};

TEST_F(ToolCameras, EachHasItsFramesItsFilesAndItsSum)
{
    const TemporaryFolder lines;
    const Outcome grab = Run(Both({"--count", "10", "--out", m_folder.Path(), "--metadata", lines / "m", "--verify"}));
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const std::string sum = "\nbuffers    4 library-allocated\npictures   10\nframes     10\nlost       0\n"
                            "incomplete 0\nunderruns  0\nrate       [0-9.]+ frames/s, [0-9.]+ MB/s\n"
                            "wrong      0 bytes\n";
    EXPECT_THAT(WithoutWait(grab.output),
                testing::MatchesRegex(std::string("camera     ") + kFirstId + "\nproducer   [^\n]*" + sum +
                                      "\ncamera     " + kSecondId + "\nproducer   [^\n]*" + sum));
    // Both are called "left", so the serial number tells them apart.
    EXPECT_EQ(FilesWith("SN-1-000000"), 10U);
    EXPECT_EQ(FilesWith("SN-2-000000"), 10U);
    std::istringstream text(BytesOf(lines / "m"));
    size_t first = 0;
    size_t second = 0;
    for (std::string line; std::getline(text, line);)
    {
        first += line.find(std::string("\"camera\":\"SN-1\",\"camera_id\":\"") + kFirstId + "\",") != std::string::npos;
        second +=
            line.find(std::string("\"camera\":\"SN-2\",\"camera_id\":\"") + kSecondId + "\",") != std::string::npos;
    }
    EXPECT_EQ(first, 10U);
    EXPECT_EQ(second, 10U);
}

TEST_F(ToolCameras, AreAllThatAnswerByOneOption)
{
    const Outcome grab = Run({"--json", "grab", "--all-cameras", "--count", "2"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(WithoutWait(grab.output), testing::StartsWith("{\n  \"cameras\": [\n    {\n      \"frames\": 2,\n"));
    EXPECT_THAT(grab.output, HasSubstr(std::string("\"camera\": \"") + kFirstId + "\","));
    EXPECT_THAT(grab.output, HasSubstr(std::string("\"camera\": \"") + kSecondId + "\","));
    EXPECT_THAT(grab.output, HasSubstr("      \"problem\": \"\"\n    }\n  ]\n}\n"));
}

TEST_F(ToolCameras, OneThatIsRefusedLeavesTheOther)
{
    ChildProcess owner(Command({"grab", "--camera", "SN-1", "--count", "1000000000"}), m_cameras.Environment());
    while (List().find("controlled by") == std::string::npos)
    {
        ASSERT_EQ(owner.WaitForExit(0ms), -1) << owner.Output();
    }
    const Outcome grab = Run(Both({"--count", "10"}));
    EXPECT_EQ(grab.exitCode, 8) << grab.output;
    const std::string told = std::string("the camera ") + kFirstId + " is controlled by 10\\.77\\.0\\.1, UDP port ";
    EXPECT_THAT(grab.output, ContainsRegex("nq-gev: SN-1: " + told));
    EXPECT_THAT(grab.output, ContainsRegex("problem    " + told));
    EXPECT_THAT(grab.output, HasSubstr("frames     10\n"));
}

TEST_F(ToolCameras, OneThatIsLostLeavesTheOther)
{
    const TemporaryFolder lines;
    ChildProcess grab(Command(Both({"--count", "1000000000", "--frame-timeout", "4000", "--metadata", lines / "m"})),
                      m_cameras.Environment());
    const auto awaitFrame = [&](const std::string& camera, size_t behind) {
        while (lines.Files().empty() || BytesOf(lines / "m").find(camera, behind) == std::string::npos)
        {
            ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
        }
    };
    ASSERT_NO_FATAL_FAILURE(awaitFrame("SN-2", 0));
    m_cameras.Second().Signal(SIGKILL);
    ASSERT_TRUE(grab.WaitForOutput("nq-gev: SN-2: ", kLongTime)) << grab.Output();
    // It is told while the other goes on.
    ASSERT_NO_FATAL_FAILURE(awaitFrame("SN-1", BytesOf(lines / "m").size()));
    EXPECT_THAT(grab.Output(), Not(HasSubstr("frames  ")));
    grab.Signal(SIGINT);
    EXPECT_EQ(grab.WaitForExit(kLongTime), 6) << grab.Output();
    EXPECT_THAT(grab.Output(), HasSubstr("frames     "));
    EXPECT_THAT(grab.Output(), HasSubstr("\nproblem    "));
}

TEST_F(ToolCameras, AreAllGivenBackAfterCtrlC)
{
    ChildProcess grab(Command(Both({"--count", "1000000000", "--out", m_folder.Path()})), m_cameras.Environment());
    while (FilesWith("SN-1-") == 0 || FilesWith("SN-2-") == 0)
    {
        ASSERT_EQ(grab.WaitForExit(1ms), -1) << grab.Output();
    }
    grab.Signal(SIGINT);
    EXPECT_EQ(grab.WaitForExit(kLongTime), 130) << grab.Output();
    EXPECT_THAT(grab.Output(), ContainsRegex("frames     [1-9][^:]*\ncamera .*frames     [1-9]"));
    EXPECT_THAT(List(), Not(HasSubstr("controlled by")));
}

TEST_F(ToolSlowCameras, ShareOneLineOfProgress)
{
    std::string line = kOurLine;
    for (const std::string& argument : Both({"--duration", "2", "--buffers", "100"}))
    {
        line += " " + argument;
    }
    const Outcome grab =
        RunProgram({"/usr/bin/script", "-qec", line, m_folder / "typescript"}, m_cameras.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, ContainsRegex("\rSN-1: [0-9]+ frames, [0-9.]+ frames/s, 0 lost; "
                                           "SN-2: [1-9][0-9]* frames, [0-9.]+ frames/s, 0 lost\033\\[K\r"));
    line = "stty cols 30; " + line + " --json > '" + m_folder / "sum" + "'";
    const Outcome narrow =
        RunProgram({"/usr/bin/script", "-qec", line, m_folder / "typescript"}, m_cameras.Environment());
    EXPECT_EQ(narrow.exitCode, 0) << narrow.output;
    EXPECT_THAT(narrow.output, ContainsRegex("\rSN-1: [^\033]{23}\033\\[K\rSN-1: "));
    EXPECT_THAT(BytesOf(m_folder / "sum"), HasSubstr("\"cameras\""));
    EXPECT_EQ(RunProgram({"/usr/bin/python3", "-m", "json.tool", m_folder / "sum"}).exitCode, 0)
        << "the progress is not among it";
}

TEST_F(ToolCameras, TakeNoMoreMemoryTogetherThanThereIs)
{
    // A group that may have 2 MiB more: 4 x 3072 bytes of each are no question, 400 x 3072 of one fit.
    const auto limited = [&](const std::vector<std::string>& more) {
        std::string line = kOurLine;
        for (const std::string& argument : Both(more))
        {
            line += " " + argument;
        }
        return std::vector<std::string>{
            "/usr/bin/unshare",
            "-m",
            "-C",
            "/bin/sh",
            "-c",
            "mount -t tmpfs none /sys/fs/cgroup && cd /sys/fs/cgroup && echo 2097152 > memory.max && "
            "echo 0 > memory.current && exec " +
                line};
    };
    EXPECT_EQ(RunProgram(limited({"--count", "2", "--buffers", "4"}), m_cameras.Environment()).exitCode, 0);
    // The one that has the memory keeps it until the other was refused.
    ChildProcess many(limited({"--count", "1000000000", "--buffers", "400", "--metadata", m_folder / "m"}),
                      m_cameras.Environment());
    ASSERT_TRUE(many.WaitForOutput("400 buffers for the payload of", kLongTime)) << many.Output();
    while (m_folder.Files().empty() || BytesOf(m_folder / "m").empty())
    {
        ASSERT_EQ(many.WaitForExit(1ms), -1) << many.Output();
    }
    many.Signal(SIGINT);
    EXPECT_EQ(many.WaitForExit(kLongTime), 5) << many.Output();
    EXPECT_THAT(many.Output(), ContainsRegex("frames     [1-9]"));
}

TEST_F(ToolCameras, ThatAreNotToldApartAreWrongArguments)
{
    const std::pair<std::vector<std::string>, const char*> wrong[] = {
        {Both({"--out", "-", "--format", "raw"}), "nq-gev: --out - takes the frames of one camera\n"},
        {Both({"--out", "x", "--name", "{id}"}),
         "nq-gev: --name needs {camera}: pictures of several cameras would have one name\n"},
        {Both({"--camera", "SN-2"}), "nq-gev: --camera names NQ-GEV-Camera:02-00-0a-0b-0c-0d twice\n"},
        {Both({"--camera", "left"}), "nq-gev: 2 cameras fit \"left\"; choose one by --camera ID\n"},
        {Both({"--all-cameras"}), "--camera excludes --all-cameras\n"},
    };
    for (const auto& [arguments, told] : wrong)
    {
        const Outcome grab = Run(arguments);
        EXPECT_EQ(grab.exitCode, 2) << grab.output;
        EXPECT_THAT(grab.output, HasSubstr(told));
    }
    const Outcome none = Run(Both({"--camera", "SN-3"}));
    EXPECT_EQ(none.exitCode, 4) << none.output;
    EXPECT_THAT(none.output, HasSubstr("nq-gev: no camera fits \"SN-3\"; the above answered\n"));
}

} // namespace
