// SPDX-License-Identifier: Apache-2.0
// What cmake --install puts in place works from any other place, is found by those who build on it, and goes again.
#include "support/command_output.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <algorithm>
#include <csignal>
#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kConsumer = NQ_SOURCE_DIR "/tests/support/installed_consumer";

// One at a time, and what the user of this build installed stays known to it.
const std::string kInstall = R"script(set -eu
cd ')script" NQ_BINARY_DIR R"script('
exec 9>install_test.lock
flock 9
[ ! -e install_manifest.txt ] || mv install_manifest.txt install_manifest.kept
back() {
    rm -f install_manifest.txt
    [ ! -e install_manifest.kept ] || mv install_manifest.kept install_manifest.txt
}
trap back EXIT
cmake --install . --prefix "$1" >"$1.log"
)script";

/// The tree, installed in one folder and moved to another.
class InstalledTree : public testing::Test
{
  protected:
    void SetUp() override
    {
        // Seconds, but behind those of all other cases that run.
        ChildProcess installing({"/bin/sh", "-c", kInstall, "-", m_folder / "first"});
        ASSERT_EQ(installing.WaitForExit(std::chrono::seconds(100)), 0) << installing.Output();
        fs::create_directories(m_folder / "another place");
        fs::rename(m_folder / "first", Tree());
    }

    std::string Tree() const { return m_folder / "another place/tree"; }

    /// Files and links below `folder` of the tree, by name.
    std::vector<std::string> FilesIn(const std::string& folder) const
    {
        std::vector<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(fs::path(Tree()) / folder))
        {
            if (!entry.is_directory())
            {
                files.push_back(entry.path().lexically_relative(fs::path(Tree()) / folder));
            }
        }
        std::sort(files.begin(), files.end());
        return files;
    }

    /// Runs a line of a shell in a folder of the test's own and gives what it printed; it has to succeed.
    std::string Shell(const std::string& line) const
    {
        const Outcome outcome = RunProgram({"/bin/sh", "-ec",
                                            "export CMAKE_GENERATOR=Ninja; cd '" + m_folder.Path() + "'; tree='" +
                                                Tree() + "'; consumer='" + kConsumer + "'; " + line});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
        return outcome.output;
    }

    const TemporaryFolder m_folder;
};

TEST_F(InstalledTree, HasEverythingThatAUserNeedsAndNothingElse)
{
    EXPECT_THAT(FilesIn("lib/gentl"),
                ElementsAre("libnq_gev_rdma_tl.cti", "libnq_gev_rdma_tl.cti.2", "libnq_gev_rdma_tl.cti.2.5.5"));
    EXPECT_THAT(FilesIn("bin"),
                ElementsAre("gentl-check", "nq-gev", "nq-gev-camera", "nq-gev-standard", "nq-software-rdma"));
    EXPECT_THAT(FilesIn("lib/nq-gev"), AllOf(testing::Contains("libnq_rdma_loopback.so"),
                                             testing::IsSubsetOf({"libnq_rdma_loopback.so", "nq-gev-features.so"})));
    EXPECT_THAT(FilesIn("include"), ElementsAre("nq_gev_rdma_tl/GenTL/GenTL.h", "nq_gev_rdma_tl/GenTL/GenTLFunctions.h",
                                                "nq_gev_rdma_tl/nq_gev_gentl.h"));
    EXPECT_THAT(FilesIn("share/doc/nq_gev_rdma_tl"), ElementsAre("LICENSE", "third-party.txt"));
    EXPECT_THAT(FilesIn("share/bash-completion/completions"), ElementsAre("gentl-check", "nq-gev", "nq-gev-camera"));
    EXPECT_THAT(FilesIn("share/zsh/site-functions"), ElementsAre("_gentl-check", "_nq-gev", "_nq-gev-camera"));
    EXPECT_THAT(FilesIn("share/fish/vendor_completions.d"),
                ElementsAre("gentl-check.fish", "nq-gev-camera.fish", "nq-gev.fish"));
    if (fs::exists(NQ_BINARY_DIR "/man/nq-gev.1"))
    {
        EXPECT_THAT(FilesIn("share/man/man1"), ElementsAre("gentl-check.1", "nq-gev-camera.1", "nq-gev-standard.1",
                                                           "nq-gev.1", "nq-software-rdma.1"));
    }
    EXPECT_THAT(FilesIn("."), Not(testing::Contains(testing::ContainsRegex("gtest|gmock|test_support"))));
}

TEST_F(InstalledTree, NamesNoFolderOfTheBuildNorTheOneItWasInstalledIn)
{
    // Debug information has the names of sources, and no program reads it.
    EXPECT_EQ(Shell("for file in $(cd \"$tree\"; find . -type f -printf '%P '); do "
                    "objcopy --strip-debug \"$tree/$file\" bare 2>/dev/null || cp \"$tree/$file\" bare; "
                    "! grep -lF -e \"$PWD/first\" -e '" NQ_BINARY_DIR "' bare || echo \"in $file\"; done"),
              "");
}

TEST_F(InstalledTree, StreamsOnSoftwareRdmaWithoutASettingOfAnyKind)
{
    Host wire;
    wire.Connect("host0", "10.77.0.1/24", "far0", "10.77.0.9/24");
    const std::vector<std::string> environment = {"NQ_RDMA_LOOPBACK_DIR=" + (m_folder / "rdma"),
                                                  "LD_PRELOAD=", "GENICAM_GENTL64_PATH="};
    ChildProcess camera({Tree() + "/bin/nq-gev-camera", "--software-rdma", "--interface", "host0"}, environment);
    ASSERT_TRUE(camera.WaitForOutput("ready 10.77.0.1", kLongTime)) << camera.Output();
    const Outcome grab =
        RunProgram({Tree() + "/bin/nq-gev", "--software-rdma", "grab", "--count", "3", "--verify"}, environment);
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, AllOf(HasSubstr("frames     3\n"), HasSubstr("wrong      0 bytes\n")));
    const Outcome info = RunProgram({Tree() + "/bin/nq-gev", "info"}, environment);
    EXPECT_THAT(info.output, HasSubstr(Tree() + "/lib/gentl/libnq_gev_rdma_tl.cti\n"));
    if (fs::exists(Tree() + "/lib/nq-gev/nq-gev-features.so"))
    {
        EXPECT_EQ(RunProgram({Tree() + "/bin/nq-gev", "get", "Width"}, environment).output, "Width = 640\n");
    }
    camera.Signal(SIGTERM);
    EXPECT_EQ(camera.WaitForExit(kLongTime), 0) << camera.Output();
}

TEST_F(InstalledTree, GivesTheStandardsAnswersToACommand)
{
    EXPECT_EQ(Shell("\"$tree/bin/nq-gev-standard\" printenv NQ_GEV_TL_STANDARD"), "1\n");
    EXPECT_THAT(
        RunProgram({Tree() + "/bin/gentl-check", "--only", "LB-001", Tree() + "/lib/gentl/libnq_gev_rdma_tl.cti"})
            .exitCode,
        0);
}

TEST_F(InstalledTree, IsFoundByCMakeForProgramsThatLoadItAndThatLinkIt)
{
    EXPECT_THAT(Shell("cmake -S \"$consumer\" -B made -DCMAKE_PREFIX_PATH=\"$tree\""),
                HasSubstr("-- producer folder " + Tree() + "/lib/gentl\n"));
    Shell("cmake --build made");
    EXPECT_EQ(Shell("made/loading \"$tree/lib/gentl/libnq_gev_rdma_tl.cti\"; made/linked"),
              "loaded NQGenTLGevRDMA, connection event 4000\nlinked with NQGenTLGevRDMA\n");
}

TEST_F(InstalledTree, TellsCMakeThatAnotherMajorVersionIsNotThere)
{
    Shell("mkdir wrong; sed 's/ 2.5 / 1.9 /' \"$consumer/CMakeLists.txt\" >wrong/CMakeLists.txt; touch "
          "wrong/loading.c wrong/linked.c");
    const Outcome outcome = RunProgram({"/usr/bin/cmake", "-G", "Ninja", "-S", m_folder / "wrong", "-B",
                                        m_folder / "made", "-DCMAKE_PREFIX_PATH=" + Tree()});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, HasSubstr("compatible with requested version \"1.9\""));
}

TEST_F(InstalledTree, IsFoundByPkgConfigForProgramsThatLoadItAndThatLinkIt)
{
    // Written as make does: the words that pkg-config prints are quoted for a shell.
    Shell("export PKG_CONFIG_PATH=\"$(dirname \"$(find \"$tree\" -name nq_gev_rdma_tl.pc)\")\"; "
          "eval \"cc -o loading '$consumer/loading.c' $(pkg-config --cflags nq_gev_rdma_tl) -ldl\"; "
          "eval \"cc -o linked '$consumer/linked.c' $(pkg-config --cflags --libs nq_gev_rdma_tl)\"; "
          "pkg-config --variable=gentldir nq_gev_rdma_tl >folder; pkg-config --modversion nq_gev_rdma_tl >version");
    EXPECT_EQ(Shell("cat version"), "2.5.5\n");
    EXPECT_EQ(Shell("eval \"readlink -f $(cat folder)\""), Tree() + "/lib/gentl\n");
    EXPECT_EQ(Shell("./loading \"$tree/lib/gentl/libnq_gev_rdma_tl.cti\"; "
                    "LD_LIBRARY_PATH=\"$tree/lib/gentl\" ./linked"),
              "loaded NQGenTLGevRDMA, connection event 4000\nlinked with NQGenTLGevRDMA\n");
}

TEST_F(InstalledTree, RunsAProgramThatWasBuiltAgainstAnEarlierFileOfTheSameSoname)
{
    Shell("mkdir earlier; printf '%s\\n' 'int GCInitLib(void) { return -1; }' 'int GCGetInfo(void) { return -1; }' "
          "'int GCCloseLib(void) { return -1; }' >earlier.c; "
          "cc -shared -fPIC -Wl,-soname,libnq_gev_rdma_tl.cti.2 -o earlier/libnq_gev_rdma_tl.cti.2 earlier.c; "
          "cc -I\"$tree/include/nq_gev_rdma_tl\" -o linked \"$consumer/linked.c\" earlier/libnq_gev_rdma_tl.cti.2");
    EXPECT_EQ(Shell("LD_LIBRARY_PATH=earlier ./linked || echo \"the earlier one ended with $?\""),
              "the earlier one ended with 1\n");
    EXPECT_EQ(Shell("LD_LIBRARY_PATH=\"$tree/lib/gentl\" ./linked"), "linked with NQGenTLGevRDMA\n");
}

TEST(Uninstall, LeavesNoFileAndNoFolderOfItsOwnButThoseOfOthers)
{
    const TemporaryFolder folder;
    const std::string tree = folder / "tree";
    fs::create_directories(tree + "/lib/gentl");
    std::ofstream(tree + "/lib/gentl/other.cti") << "of somebody else";
    const Outcome outcome = RunProgram(
        {"/bin/sh", "-c", kInstall + "[ -x \"$1/bin/nq-gev\" ]; cmake --build . --target uninstall", "-", tree});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_EQ(OutputOf({"/usr/bin/find", tree, "!", "-type", "d"}), tree + "/lib/gentl/other.cti\n");
    EXPECT_EQ(OutputOf({"/usr/bin/find", tree, "-name", "nq*"}), "");
}

TEST(Uninstall, KeepsToTheFolderOfAPackagesBuild)
{
    const TemporaryFolder folder;
    const Outcome outcome =
        RunProgram({"/bin/sh", "-c",
                    "export DESTDIR=$1.stage; " + kInstall +
                        "[ -x \"$DESTDIR$1/bin/nq-gev\" ]; [ ! -e \"$1\" ]; cmake -P package/uninstall.cmake",
                    "-", folder / "tree"});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_EQ(OutputOf({"/usr/bin/find", folder / "tree.stage", "!", "-type", "d"}), "");
}

TEST(Uninstall, ThatLeavesAFileSaysSoAndCanBeDoneAgain)
{
    const TemporaryFolder folder;
    const std::string tree = folder / "tree";
    // What is no file any more stays, as a file stays whose folder is somebody else's.
    const Outcome outcome = RunProgram({"/bin/sh", "-c", kInstall + R"(program=$1/bin/nq-gev
rm "$program"
mkdir "$program"
cmake -P package/uninstall.cmake 2>&1 && echo "said to be done"
[ ! -e "$1/lib/gentl" ] || echo "did not go on"
rmdir "$program"
cmake -P package/uninstall.cmake)",
                                        "-", tree});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("cannot remove, not as this user at least:\n"));
    EXPECT_THAT(outcome.output, HasSubstr("\n    " + tree + "/bin/nq-gev\n"));
    EXPECT_THAT(outcome.output, Not(testing::AnyOf(HasSubstr("said to be done"), HasSubstr("did not go on"))));
    EXPECT_EQ(OutputOf({"/usr/bin/find", tree, "!", "-type", "d"}), "");
}

TEST(Uninstall, OfABuildThatIsNotInstalledSaysSo)
{
    const Outcome outcome =
        RunProgram({"/bin/sh", "-c", kInstall + "rm install_manifest.txt; cmake -P package/uninstall.cmake", "-",
                    TemporaryFolder() / "tree"});
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_THAT(outcome.output, HasSubstr("nothing of this build is installed"));
}

} // namespace
