// SPDX-License-Identifier: Apache-2.0
// The files that nq-gev loads and writes: the named producer and no namesake, pictures that are whole or not there.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using namespace std::chrono_literals;
using testing::HasSubstr;

std::vector<std::string> Grab(const std::string& folder, const std::string& count)
{
    return {NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab", "--overwrite", "--count", count,
            "--out",      folder};
}

/// What this thread starts from now on finds no file system with files that have no name.
void ForbidFilesWithoutAName()
{
    constexpr unsigned int kFlag = O_TMPFILE & ~static_cast<unsigned int>(O_DIRECTORY);
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, kFlag, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EOPNOTSUPP),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{std::size(filter), filter};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

bool IsPartial(const fs::path& path)
{
    return path.extension() != ".png";
}

size_t Partials(const TemporaryFolder& folder)
{
    const auto files = folder.Files();
    return static_cast<size_t>(std::count_if(files.begin(), files.end(), IsPartial));
}

TEST(ToolProducer, IsTheNamedFileAndNoNamesakeOfTheLibraryPath)
{
    const TemporaryFolder here;
    const TemporaryFolder elsewhere;
    fs::copy_file(NQ_FAKE_PRODUCER_PATH, here / "some.cti");
    fs::copy_file(NQ_LOOPBACK_PATH, elsewhere / "some.cti");
    const Outcome list = RunProgram({"/usr/bin/env", "-C", here.Path(), "LD_LIBRARY_PATH=" + elsewhere.Path(),
                                     NQ_TOOL_PATH, "--producer", "some.cti", "list"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("model Model"));
}

TEST(ToolProducer, IsNoFolderThatIsCalledLikeOne)
{
    const TemporaryFolder folder;
    fs::create_directory(folder / "a.cti");
    fs::create_symlink(NQ_FAKE_PRODUCER_PATH, folder / "b.cti");
    const Outcome list = RunProgram({NQ_TOOL_PATH, "list"}, {"GENICAM_GENTL64_PATH=" + folder.Path()});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("model Model"));
}

TEST(ToolOutput, ThatCannotBeWrittenIsAFailure)
{
    // Of info comes more than a buffer holds, and is written before the end.
    for (const std::string verb : {"list", "--json list", "grab", "info", "--json info"})
    {
        const Outcome outcome = RunProgram({"/bin/sh", "-c", kFakeLine + verb + " >/dev/full"});
        EXPECT_EQ(outcome.exitCode, 1) << verb;
        EXPECT_EQ(outcome.output, "nq-gev: cannot write the output: No space left on device\n") << verb;
        const std::string unread = "exec 3> >(:) && wait $!; " + kFakeLine + verb + " >&3";
        const Outcome closed = RunProgram({"/bin/bash", "-c", unread});
        EXPECT_EQ(closed.exitCode, 1) << verb;
        EXPECT_EQ(closed.output, "nq-gev: cannot write the output: Broken pipe\n") << verb;
    }
}

/// With and without files that have no name.
class ToolPictures : public testing::TestWithParam<bool>
{
  protected:
    /// Starts the program on a file system as the parameter says.
    static std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& command)
    {
        std::unique_ptr<ChildProcess> program;
        std::thread([&] {
            if (!GetParam())
            {
                ForbidFilesWithoutAName();
            }
            program = std::make_unique<ChildProcess>(command);
        }).join();
        return program;
    }

    static Outcome Run(const std::vector<std::string>& command)
    {
        const auto program = Start(command);
        const int code = program->WaitForExit(kLongTime);
        return {code, program->Output()};
    }

    TemporaryFolder m_folder;
};

TEST_P(ToolPictures, AreWholeAndReplaceOlderOnes)
{
    std::ofstream(m_folder / "frame-00000001.png") << "older";
    const Outcome grab = Run(Grab(m_folder.Path(), "5"));
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    const auto files = m_folder.Files();
    EXPECT_EQ(files.size(), 5U);
    EXPECT_TRUE(std::all_of(files.begin(), files.end(), IsWholePng));
}

TEST_P(ToolPictures, GoThroughNoLink)
{
    const TemporaryFolder victims;
    for (const char* name : {"frame-00000001.png", "frame-00000001.png.part"})
    {
        std::ofstream(victims / name) << "precious";
        fs::create_symlink(victims / name, m_folder / name);
    }
    const Outcome grab = Run(Grab(m_folder.Path(), "1"));
    EXPECT_EQ(grab.exitCode, GetParam() ? 0 : 1) << grab.output;
    EXPECT_EQ(BytesOf(victims / "frame-00000001.png"), "precious");
    EXPECT_EQ(BytesOf(victims / "frame-00000001.png.part"), "precious");
    if (!GetParam())
    {
        EXPECT_THAT(grab.output, HasSubstr("frame-00000001.png.part: File exists"));
    }
}

TEST_P(ToolPictures, LeaveNothingWhenTheyGrowTooLarge)
{
    std::vector<std::string> command = Grab(m_folder.Path(), "1");
    command.insert(command.begin(), {"/usr/bin/prlimit", "--fsize=100"}); // SIGXFSZ at the first write beyond
    const Outcome grab = Run(command);
    EXPECT_EQ(grab.exitCode, 1) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("cannot write"));
    EXPECT_EQ(m_folder.Files().size(), 0U);
}

TEST_P(ToolPictures, LeaveNothingHalfAfterASignal)
{
    for (const int number : {SIGTERM, SIGHUP, SIGQUIT, SIGINT})
    {
        const auto grab = Start(Grab(m_folder.Path(), "1000000000"));
        const size_t before = m_folder.Files().size();
        while (m_folder.Files().size() < before + 3)
        {
            ASSERT_EQ(grab->WaitForExit(1ms), -1) << grab->Output();
        }
        grab->Signal(number);
        EXPECT_EQ(grab->WaitForExit(kLongTime), 128 + number) << grab->Output();
        EXPECT_THAT(grab->Output(), HasSubstr("pictures   "));
        EXPECT_EQ(Partials(m_folder), 0U) << number;
        fs::remove_all(m_folder.Path());
        fs::create_directory(m_folder.Path());
    }
}

TEST_P(ToolPictures, GoOnAfterAHangUpThatNohupIgnores)
{
    std::vector<std::string> command = Grab(m_folder.Path(), "1000000000");
    command.insert(command.begin(), {"/usr/bin/env", "--ignore-signal=HUP"});
    const auto grab = Start(command);
    while (m_folder.Files().size() < 3)
    {
        ASSERT_EQ(grab->WaitForExit(1ms), -1) << grab->Output();
    }
    grab->Signal(SIGHUP);
    EXPECT_EQ(grab->WaitForExit(500ms), -1) << grab->Output();
    grab->Signal(SIGTERM);
    EXPECT_EQ(grab->WaitForExit(kLongTime), 143) << grab->Output();
}

INSTANTIATE_TEST_SUITE_P(FileSystem, ToolPictures, testing::Bool(),
                         [](const auto& named) { return named.param ? "WithNamelessFiles" : "WithNamedFilesAlone"; });

TEST(ToolPicture, HasNoNameBeforeItIsWholeSoThatNotEvenKillLeavesOne)
{
    const TemporaryFolder folder;
    ChildProcess grab(Grab(folder.Path(), "1000000000"));
    size_t partials = 0;
    for (int look = 0; look < 300 || folder.Files().size() < 100; ++look)
    {
        ASSERT_EQ(grab.WaitForExit(0ms), -1) << grab.Output();
        partials += Partials(folder);
    }
    grab.Signal(SIGKILL);
    EXPECT_EQ(grab.WaitForExit(kLongTime), 128 + SIGKILL);
    EXPECT_EQ(partials + Partials(folder), 0U);
}

} // namespace
