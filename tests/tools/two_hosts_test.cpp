// SPDX-License-Identifier: Apache-2.0
// scripts/two_hosts.sh, on which ./run demo, bench and soak stand: nothing of it is left, however it ends.
#include "support/process_counts.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using namespace std::chrono_literals;
using testing::HasSubstr;

/// How many processes of the machine have `text` in their arguments.
long Running(const std::string& text)
{
    const fs::directory_iterator processes("/proc");
    return std::count_if(begin(processes), end(processes),
                         [&](const auto& entry) { return ArgumentsOf(entry.path()).find(text) != std::string::npos; });
}

class TwoHosts : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (NQ_SANITIZED)
        {
            GTEST_SKIP() << "the script preloads the software RDMA into programs of the system, which do not stand the "
                            "run-time of a sanitizer";
        }
        fs::create_directory_symlink(NQ_BINARY_DIR, m_folder / "build");
    }

    std::vector<std::string> Command(const std::string& shell) const
    {
        return {"/usr/bin/env",
                "--default-signal=INT,TERM,HUP", // a shell cannot catch what whoever starts the tests ignores
                "-C",
                m_folder.Path(),
                "TMPDIR=" + m_scratch.Path(),
                "CAMERA_ARGUMENTS=--serial " + m_mark,
                NQ_SOURCE_DIR "/scripts/two_hosts.sh",
                "/bin/sh",
                "-c",
                shell};
    }

    TemporaryFolder m_folder;
    TemporaryFolder m_scratch;
    std::string m_mark = "pid-" + std::to_string(getpid()) + "-"; ///< In no other's; a serial number has 15 letters.
};

class TwoHostsEnd : public TwoHosts, public testing::WithParamInterface<int>
{
};

TEST_F(TwoHosts, RunTheCommandBesideTheCameraAndEndWithItsExitCode)
{
    const Outcome outcome = InTime(HasSubstr("serial " + m_mark), [this] {
        return RunProgram(Command("ip -4 addr show dev host0; build/nq-gev --producer "
                                  "build/libnq_gev_rdma_tl.cti list; exit 7"));
    });
    EXPECT_EQ(outcome.exitCode, 7) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("10.77.0.1/24"));
    EXPECT_THAT(outcome.output, HasSubstr("serial " + m_mark));
    EXPECT_EQ(Running(m_mark), 0);
    EXPECT_EQ(m_scratch.Files().size(), 0U);
}

TEST_F(TwoHosts, MeasureTheRateWithFilesOfEachFormat)
{
    const Outcome outcome = RunProgram(Command("'" NQ_SOURCE_DIR "/scripts/bench_files.sh' 5 " + m_scratch.Path()));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    std::string sums;
    for (const char* format : {"none", "raw", "tiff", "png"})
    {
        sums += std::string(sums.empty() ? "" : ",") + "\n\\{\"format\": \"" + format +
                "\", \"grab\": \\{\n  \"frames\": 5,[^{}]*\"pictures\": " + (*format == 'n' ? "0" : "5") +
                ",[^{}]*\"frames_per_second\": [0-9.]+,[^{}]*\\}\\}";
    }
    EXPECT_THAT(WithoutWait(outcome.output), testing::MatchesRegex("\\{\"file_rate\": \\[" + sums + "\n\\]\\}\n"));
    EXPECT_EQ(m_scratch.Files().size(), 0U);
}

TEST_P(TwoHostsEnd, NothingIsLeft)
{
    ChildProcess script(Command("echo started; sleep 86400; : " + m_mark));
    ASSERT_TRUE(script.WaitForOutput("started", kLongTime)) << script.Output();
    EXPECT_GE(Running(m_mark), 2);
    script.Signal(GetParam());
    EXPECT_EQ(script.WaitForExit(kLongTime), GetParam() == SIGKILL ? 128 + SIGKILL : 128 + SIGTERM);
    for (int wait = 0; Running(m_mark) != 0 && wait < 500; ++wait)
    {
        std::this_thread::sleep_for(20ms);
    }
    EXPECT_EQ(Running(m_mark), 0);
    EXPECT_EQ(m_scratch.Files().size(), 0U);
}

INSTANTIATE_TEST_SUITE_P(By, TwoHostsEnd, testing::Values(SIGTERM, SIGINT, SIGHUP, SIGKILL),
                         [](const auto& number) { return std::string("SIG") + sigabbrev_np(number.param); });

} // namespace
