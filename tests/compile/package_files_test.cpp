// SPDX-License-Identifier: Apache-2.0
// What the Debian packages bring beside the files of cmake --install.
#include "support/command_output.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

const std::string kEnvironment = NQ_SOURCE_DIR "/debian/environment/";

/// GENICAM_GENTL64_PATH of a login shell that had `before` for it, or none if that is null.
std::string PathAfterLogin(const char* before)
{
    const std::string assignment =
        before == nullptr ? "unset GENICAM_GENTL64_PATH" : std::string("export GENICAM_GENTL64_PATH=") + before;
    return OutputOf(
        {"/bin/sh", "-euc", assignment + "; . '" + kEnvironment + "nq-gev-rdma-tl.sh'; printenv GENICAM_GENTL64_PATH"});
}

TEST(PackageEnvironment, OfShellsHasTheProducerBehindAllOthersAndOnce)
{
    EXPECT_EQ(PathAfterLogin(nullptr), "/usr/lib/gentl\n");
    EXPECT_EQ(PathAfterLogin("''"), "/usr/lib/gentl\n");
    EXPECT_EQ(PathAfterLogin("/opt/a:/opt/b"), "/opt/a:/opt/b:/usr/lib/gentl\n");
    EXPECT_EQ(PathAfterLogin("/usr/lib/gentl:/opt/a"), "/usr/lib/gentl:/opt/a\n");
}

/// The same of a service of a user, by what tells the service manager: its line, or nothing where nothing is to change.
std::string LineForServices(const std::vector<std::string>& before)
{
    return OutputOf(Joined(Joined({"/usr/bin/env", "-i"}, before), {kEnvironment + "60-nq-gev-rdma-tl"}));
}

TEST(PackageEnvironment, OfServicesHasTheProducerBehindAllOthersAndOnce)
{
    EXPECT_EQ(LineForServices({}), "GENICAM_GENTL64_PATH=\"/usr/lib/gentl\"\n");
    EXPECT_EQ(LineForServices({"GENICAM_GENTL64_PATH="}), "GENICAM_GENTL64_PATH=\"/usr/lib/gentl\"\n");
    EXPECT_EQ(LineForServices({"GENICAM_GENTL64_PATH=/opt/a:/opt/b"}),
              "GENICAM_GENTL64_PATH=\"/opt/a:/opt/b:/usr/lib/gentl\"\n");
    EXPECT_EQ(LineForServices({"GENICAM_GENTL64_PATH=/usr/lib/gentl:/opt/a"}), "");
    EXPECT_EQ(LineForServices({R"(GENICAM_GENTL64_PATH=/opt/a "b" \c $d)"}),
              R"(GENICAM_GENTL64_PATH="/opt/a \"b\" \\c \$d:/usr/lib/gentl")"
              "\n");
}

TEST(PackageEnvironment, OfServicesHasNoPathFromTheFileOfSettingsWhichCannotTellEmptyFromUnset)
{
    EXPECT_THAT(BytesOf(kEnvironment + "50-nq-gev-rdma-tl.conf"), Not(HasSubstr("\nGENICAM_GENTL64_PATH=")));
    EXPECT_THAT(BytesOf(NQ_SOURCE_DIR "/debian/nq-gev-rdma-tl.install"),
                HasSubstr("\ndebian/environment/60-nq-gev-rdma-tl usr/lib/systemd/user-environment-generators\n"));
}

// Hosts that were written for this library rely on its own answers, so nobody gets others unasked.
TEST(PackageEnvironment, LeavesTheStandardsAnswersToTheUser)
{
    EXPECT_EQ(OutputOf({"/bin/sh", "-euc",
                        "unset NQ_GEV_TL_STANDARD; . '" + kEnvironment +
                            "nq-gev-rdma-tl.sh'; echo \"${NQ_GEV_TL_STANDARD-none}\""}),
              "none\n");
    EXPECT_THAT(BytesOf(kEnvironment + "nq-gev-rdma-tl.sh"), HasSubstr("\n#export NQ_GEV_TL_STANDARD=1\n"));
    EXPECT_THAT(BytesOf(kEnvironment + "50-nq-gev-rdma-tl.conf"), HasSubstr("\n#NQ_GEV_TL_STANDARD=1\n"));
    EXPECT_THAT(BytesOf(kEnvironment + "50-nq-gev-rdma-tl.conf"), Not(HasSubstr("\nNQ_GEV_TL_STANDARD")));
}

TEST(PackageFiles, HaveTheVersionOfTheProject)
{
    const std::string version =
        OutputOf({"/usr/bin/sed", "-n", "s/^project(nq_gev_rdma_tl VERSION \\([0-9.]*\\) .*/\\1/p",
                  NQ_SOURCE_DIR "/CMakeLists.txt"});
    ASSERT_EQ(version.size(), 6U) << version;
    const std::string number = version.substr(0, 5);
    EXPECT_THAT(BytesOf(NQ_SOURCE_DIR "/debian/changelog"), testing::StartsWith("nq-gev-rdma-tl (" + number + ") "));
    EXPECT_THAT(BytesOf(NQ_SOURCE_DIR "/debian/rules"), HasSubstr("/libnq_gev_rdma_tl.cti." + number + "\n"));
}

TEST(PackageFiles, BringWhatTheInstallPageSaysThatARealDeviceNeeds)
{
    EXPECT_THAT(BytesOf(NQ_SOURCE_DIR "/docs/install.md"),
                HasSubstr("To run with a real device: `rdma-core` and `ibverbs-providers`."));
    EXPECT_THAT(
        BytesOf(NQ_SOURCE_DIR "/debian/control"),
        HasSubstr("\nPackage: nq-gev-rdma-tl\nArchitecture: amd64\nDepends: ${misc:Depends}, ${shlibs:Depends}\n"
                  "Recommends: ibverbs-providers, rdma-core\n"));
}

TEST(PackageSource, IsTheSameBytesWhenAndWhereverItIsPackedAndWhateverWasBuilt)
{
    const TemporaryFolder folder;
    std::string packed[2];
    for (const char* const name : {"one", "another place"})
    {
        const fs::path tree = folder / name;
        for (const char* part : {"scripts", "debian", "build", "build-asan", "out"})
        {
            fs::create_directories(tree / part);
        }
        for (const char* file : {"scripts/source.sh", "scripts/common.sh", "debian/changelog"})
        {
            fs::copy_file(fs::path(NQ_SOURCE_DIR) / file, tree / file);
        }
        std::ofstream(tree / "CMakeLists.txt") << "project(x VERSION 1.2.3 LANGUAGES CXX)\n";
        std::ofstream(tree / "build/built") << name;
        const bool isFirst = packed[0].empty();
        fs::last_write_time(tree / "CMakeLists.txt", fs::file_time_type::clock::now() - std::chrono::hours(isFirst));
        EXPECT_EQ(OutputOf({tree / "scripts/source.sh", tree / "out/made"}), "");
        const std::string archive = tree / "out/made/nq-gev-rdma-tl-1.2.3.tar.xz";
        EXPECT_EQ(OutputOf({"/bin/tar", "-tf", archive}),
                  "nq-gev-rdma-tl-1.2.3/\nnq-gev-rdma-tl-1.2.3/CMakeLists.txt\nnq-gev-rdma-tl-1.2.3/debian/\n"
                  "nq-gev-rdma-tl-1.2.3/debian/changelog\nnq-gev-rdma-tl-1.2.3/scripts/\n"
                  "nq-gev-rdma-tl-1.2.3/scripts/common.sh\nnq-gev-rdma-tl-1.2.3/scripts/source.sh\n");
        packed[isFirst ? 0 : 1] = BytesOf(archive);
    }
    EXPECT_FALSE(packed[0].empty());
    EXPECT_TRUE(packed[0] == packed[1]);
}

} // namespace
