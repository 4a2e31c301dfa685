// SPDX-License-Identifier: Apache-2.0
// Software RDMA by an option: two commands, no root, wherever the programs lie.
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;

/// The machine of somebody who is not root: one adapter with the address 10.77.0.1, and programs run as nobody.
class SoftwareRdma : public testing::Test
{
  protected:
    SoftwareRdma() { m_wire.Connect("host0", "10.77.0.1/24", "far0", "10.77.0.9/24"); }

    static std::vector<std::string> AsNobody(std::vector<std::string> command)
    {
        command.insert(command.begin(), {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"});
        return command;
    }

    /// Software RDMA of this test alone, which nobody may use.
    std::vector<std::string> Environment() const
    {
        return {"NQ_RDMA_LOOPBACK_DIR=" + m_folder.Path() + "/rdma", "LD_PRELOAD="};
    }

    std::string Folder() const { return m_folder.Path(); }

    /// Installs everything and streams with --software-rdma.
    void ExpectThreeFrames(const std::string& binName, const std::string& libName)
    {
        Install(binName, libName);
        const std::string bin = Folder() + "/" + binName;
        ChildProcess camera(AsNobody({bin + "/nq-gev-camera", "--software-rdma", "--interface", "host0"}),
                            Environment());
        ASSERT_TRUE(camera.WaitForOutput("ready 10.77.0.1", kLongTime)) << camera.Output();
        EXPECT_THAT(camera.Output(), Not(HasSubstr("no RDMA here")));
        const Outcome grab =
            RunProgram(AsNobody({bin + "/nq-gev", "--software-rdma", "--producer",
                                 Folder() + "/" + libName + "/producer.cti", "grab", "--count", "3", "--verify"}),
                       Environment());
        EXPECT_EQ(grab.exitCode, 0) << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("frames     3\n"));
        EXPECT_THAT(grab.output, HasSubstr("wrong      0 bytes\n"));
        camera.Signal(SIGTERM);
        EXPECT_EQ(camera.WaitForExit(kLongTime), 0) << camera.Output();
    }

    /// Copies of the programs in `bin`, of the libraries in `lib`, below the folder of the test.
    void Install(const std::string& bin, const std::string& lib) const
    {
        for (const std::string& part : {bin, lib})
        {
            fs::create_directories(m_folder.Path() + "/" + part);
        }
        for (const char* program : {"nq-gev", "nq-gev-camera", "nq-software-rdma"})
        {
            fs::copy_file(std::string(NQ_BINARY_DIR) + "/" + program, m_folder.Path() + "/" + bin + "/" + program);
        }
        fs::copy_file(NQ_LOOPBACK_PATH, m_folder.Path() + "/" + lib + "/libnq_rdma_loopback.so");
        fs::copy_file(NQ_CTI_PATH, m_folder.Path() + "/" + lib + "/producer.cti");
    }

    /// Those that lead to this case's copies of the library: other cases run beside it and have theirs.
    std::vector<std::string> PrivateFolders() const
    {
        std::vector<std::string> found;
        for (const fs::directory_entry& entry : fs::directory_iterator("/tmp"))
        {
            const std::string name = entry.path().filename();
            std::error_code gone;
            for (const auto& link :
                 fs::directory_iterator(name.starts_with("nq-software-rdma-") ? entry.path() : "", gone))
            {
                if (fs::read_symlink(link.path(), gone).string().starts_with(Folder()))
                {
                    found.push_back(name);
                }
            }
        }
        return found;
    }

    void SetUp() override { fs::permissions(m_folder.Path(), fs::perms(0777)); }

  private:
    Host m_wire;
    const TemporaryFolder m_folder;
};

TEST_F(SoftwareRdma, TwoCommandsStreamAsAPlainUserOutOfABuildFolder)
{
    ExpectThreeFrames("build", "build");
}

TEST_F(SoftwareRdma, TwoCommandsStreamInstalled)
{
    ExpectThreeFrames("usr/bin", "usr/lib");
}

TEST_F(SoftwareRdma, APathWithASpaceOrAColonIsNoHindrance)
{
    for (const std::string name : {"a b", "c:d"})
    {
        ExpectThreeFrames(name, name);
    }
    EXPECT_THAT(PrivateFolders(), testing::IsEmpty());
}

TEST_F(SoftwareRdma, IsUnderATestProgramInAPathWithASpaceAndAColon)
{
    Install("a b:c", "a b:c");
    const std::string folder = Folder() + "/a b:c";
    std::ofstream(folder + "/program.cpp") << "#include \"support/preload_loopback.h\"\n#include <dlfcn.h>\n"
                                              "int main() { return dlsym(RTLD_DEFAULT, \"nq_loopback_count\") == "
                                              "nullptr; }\n";
    const Outcome compiler =
        RunProgram({"/usr/bin/c++", "-std=c++20", "-I" NQ_SOURCE_DIR "/tests", "-DNQ_BINARY_DIR=\"" + folder + "\"",
                    "-DNQ_LOOPBACK_PATH=\"" + folder + "/libnq_rdma_loopback.so\"", folder + "/program.cpp", "-o",
                    folder + "/program"});
    ASSERT_EQ(compiler.exitCode, 0) << compiler.output;
    const Outcome program = RunProgram({folder + "/program", "an argument"}, Environment());
    EXPECT_EQ(program.exitCode, 0) << program.output;
    EXPECT_THAT(PrivateFolders(), testing::IsEmpty());
}

TEST_F(SoftwareRdma, AnyCommandRunsOnItWithItsArgumentsAndItsExitCode)
{
    Install("plain", "plain");
    Install("with space", "with space");
    Install("$ORIGIN", "$ORIGIN");
    for (const std::string name : {"/plain", "/with space", "/$ORIGIN"})
    {
        const Outcome shell =
            RunProgram({Folder() + name + "/nq-software-rdma", "/bin/sh", "-c",
                        "echo \"<$1>\"; grep -c libnq_rdma_loopback.so /proc/self/maps; exit 42", "sh", "one argument"},
                       Environment());
        EXPECT_EQ(shell.exitCode, 42) << shell.output;
        EXPECT_THAT(shell.output, testing::MatchesRegex("<one argument>\n[1-9]\n"));
        const Outcome none = RunProgram({Folder() + name + "/nq-software-rdma", "/no/such"}, Environment());
        EXPECT_EQ(none.exitCode, 127);
        EXPECT_EQ(none.output, "nq-software-rdma: /no/such: No such file or directory\n");
        const Outcome killed =
            RunProgram({Folder() + name + "/nq-software-rdma", "/bin/sh", "-c", "kill -9 $$"}, Environment());
        EXPECT_EQ(killed.exitCode, 128 + SIGKILL);
    }
}

TEST_F(SoftwareRdma, HearsOfTheEndOfItsCommandAlsoWhereChildrenAreIgnored)
{
    Install("with space", "with space");
    const Outcome shell = RunProgram(
        {"/usr/bin/env", "--ignore-signal=CHLD", Folder() + "/with space/nq-software-rdma", "/bin/sh", "-c", "exit 42"},
        Environment());
    EXPECT_EQ(shell.exitCode, 42) << shell.output;
    EXPECT_THAT(PrivateFolders(), testing::IsEmpty());
}

TEST_F(SoftwareRdma, SaysWhenTheLibraryIsNotThere)
{
    Install("bin", "lib");
    fs::remove(Folder() + "/lib/libnq_rdma_loopback.so");
    const Outcome grab = RunProgram({Folder() + "/bin/nq-gev", "--software-rdma", "list"}, Environment());
    EXPECT_EQ(grab.exitCode, 125);
    EXPECT_THAT(grab.output, HasSubstr("nq-software-rdma: libnq_rdma_loopback.so is neither beside this program nor in "
                                       "../lib"));
    fs::remove(Folder() + "/bin/nq-software-rdma");
    for (const std::string program : {"/bin/nq-gev", "/bin/nq-gev-camera"})
    {
        const Outcome missing =
            RunProgram({Folder() + program, "--software-rdma", program.ends_with('a') ? "--interface=host0" : "list"});
        EXPECT_EQ(missing.exitCode, 1);
        EXPECT_THAT(missing.output, HasSubstr("--software-rdma: cannot start "));
        EXPECT_THAT(missing.output, HasSubstr("/bin/nq-software-rdma: No such file or directory"));
        // The camera is in one package with it, the tools are in another.
        EXPECT_EQ(missing.output.ends_with("; the package nq-gev-camera has it\n"), program == "/bin/nq-gev")
            << missing.output;
    }
}

TEST_F(SoftwareRdma, IsNoOptionWithAValueOfWhichAnyProgramStartsForEver)
{
    const std::string camera = NQ_BINARY_DIR "/nq-gev-camera";
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{camera, "--software-rdma=1", "--interface", "host0"},
          std::vector<std::string>{NQ_TOOL_PATH, "--software-rdma=1", "list"}})
    {
        const Outcome refused = RunProgram(command, Environment());
        EXPECT_EQ(refused.exitCode, 2) << refused.output;
        EXPECT_THAT(refused.output, HasSubstr("software-rdma was given a disallowed flag override\n"));
    }
    ChildProcess process({camera, "--software-rdma=true", "--interface", "host0"}, Environment());
    ASSERT_TRUE(process.WaitForOutput("ready 10.77.0.1", kLongTime)) << process.Output();
    const Outcome grab = Heard([this] {
        return RunProgram({NQ_TOOL_PATH, "--software-rdma=true", "--producer", NQ_CTI_PATH, "grab"}, Environment());
    });
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
}

TEST_F(SoftwareRdma, SaysThatTheCameraHasToRunOnItToo)
{
    ChildProcess process({NQ_BINARY_DIR "/nq-gev-camera", "--interface", "host0"}, Environment());
    ASSERT_TRUE(process.WaitForOutput("ready 10.77.0.1", kLongTime)) << process.Output();
    const Outcome grab = Heard([this] {
        return RunProgram({NQ_TOOL_PATH, "--software-rdma", "--producer", NQ_CTI_PATH, "grab"}, Environment());
    });
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output,
                testing::EndsWith("The camera 10.77.0.1 answers on its control channel but refused or did not answer "
                                  "the RDMA connection: it has to run on software RDMA too (nq-gev-camera "
                                  "--software-rdma), on this machine and as the same user.\n"));
}

TEST_F(SoftwareRdma, EveryMessageAboutAMissingDeviceEndsWithTheOption)
{
    if (fs::exists("/sys/class/infiniband"))
    {
        GTEST_SKIP() << "this machine has RDMA devices";
    }
    const std::string camera = std::string(NQ_BINARY_DIR) + "/nq-gev-camera";
    ChildProcess process({camera, "--interface", "host0"}, Environment());
    ASSERT_TRUE(process.WaitForOutput("ready", kLongTime)) << process.Output();
    EXPECT_THAT(process.Output(), HasSubstr("no RDMA here (rdma_create_event_channel: No such device), serving control "
                                            "only; for a host on this machine none is needed: give both nq-gev-camera "
                                            "and nq-gev the option --software-rdma\n"));
    const Outcome grab = RunProgram({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab"}, Environment());
    EXPECT_EQ(grab.exitCode, 5);
    EXPECT_THAT(grab.output, testing::EndsWith("This machine shows no RDMA device (`rdma link`); for a camera on this "
                                               "machine none is needed: give both nq-gev-camera and nq-gev the option "
                                               "--software-rdma\n"));
    EXPECT_THAT(grab.output, Not(HasSubstr("refused")));
}

} // namespace
