// SPDX-License-Identifier: Apache-2.0
// What the Debian packages bring beside the files of cmake --install.
#include "support/command_output.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

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

TEST(PackageEnvironment, OfServicesHasTheProducerBehindAllOthers)
{
    EXPECT_THAT(BytesOf(kEnvironment + "50-nq-gev-rdma-tl.conf"),
                HasSubstr("\nGENICAM_GENTL64_PATH=${GENICAM_GENTL64_PATH:+$GENICAM_GENTL64_PATH:}/usr/lib/gentl\n"));
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

} // namespace
