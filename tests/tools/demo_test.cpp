// SPDX-License-Identifier: Apache-2.0
// The hosts that ./run demo makes, where a checkout may lie and who may run it.
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;
using namespace nq::test;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

/// The demo's hosts with the programs of this build, as from a checkout of this name; `prefix` starts it.
Outcome GrabThere(const std::string& name, const std::vector<std::string>& prefix = {})
{
    const TemporaryFolder folder;
    const fs::path checkout = fs::path(folder.Path()) / name;
    fs::create_directory(checkout);
    fs::create_directory_symlink(NQ_BINARY_DIR, checkout / "build");
    chmod(folder.Path().c_str(), 0755);
    return RunProgram(Joined(
        Joined({"/usr/bin/env", "-C", checkout}, prefix),
        {NQ_SOURCE_DIR "/scripts/two_hosts.sh", NQ_SOURCE_DIR "/scripts/demo_grab.sh", "--count", "20", "--verify"}));
}

const std::vector<std::string> kWithoutSysAdmin = {"/usr/bin/setpriv", "--bounding-set", "-sys_admin", "--inh-caps",
                                                   "-sys_admin"};

TEST(Demo, GrabsFromACheckoutWithSpaceAndColonInItsPath)
{
    const Outcome outcome = GrabThere("a place: of mine");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, AllOf(HasSubstr("address 10.77.0.2"), HasSubstr("frames     20\n"),
                                      Not(HasSubstr("cannot be preloaded"))));
}

TEST(Demo, HasTheStandardsAnswersUnlessTheLibrarysOwnAreAskedFor)
{
    const Outcome standard = GrabThere("checkout");
    EXPECT_EQ(standard.exitCode, 0) << standard.output;
    EXPECT_THAT(standard.output, AllOf(HasSubstr("  answers    standard\n"), HasSubstr("frames     20\n")));
    const Outcome stated = GrabThere("checkout", {"/usr/bin/env", "ANSWERS=stated"});
    EXPECT_EQ(stated.exitCode, 0) << stated.output;
    EXPECT_THAT(stated.output, AllOf(HasSubstr("  answers    stated\n"), HasSubstr("frames     20\n")));
}

TEST(Demo, WithoutTheRightToMakeHostsUsesAnAddressOfTheMachineAndSaysSo)
{
    Shell("ip link add d0 type veth peer name d1 && ip addr add 172.17.0.2/16 brd + dev d0 && "
          "ip link set d0 up && ip link set d1 up");
    const Outcome outcome = GrabThere("checkout", kWithoutSysAdmin);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("no right to make network namespaces: camera and consumer share this "
                                          "machine's own address 172.17.0.2\n"));
    EXPECT_THAT(outcome.output, HasSubstr("frames     20\n"));
}

TEST(Demo, WithoutThatRightAndWithoutAnAddressSaysWhatIsMissing)
{
    const Outcome outcome = GrabThere("checkout", kWithoutSysAdmin);
    EXPECT_EQ(outcome.exitCode, 1);
    EXPECT_EQ(outcome.output, "no right to make network namespaces, and no address to go without: see `ip addr`\n");
}

TEST(Demo, GrabsForAPlainUserInAUserNamespace)
{
    const std::vector<std::string> asUser = {"/usr/bin/setpriv", "--reuid=54321", "--regid=54321", "--clear-groups"};
    if (RunProgram(Joined(asUser, {"/usr/bin/test", "-x", NQ_SOURCE_DIR "/run", "-a", "-x", NQ_TOOL_PATH})).exitCode !=
        0)
    {
        GTEST_SKIP() << "this checkout is for its owner alone";
    }
    const Outcome outcome = GrabThere("checkout", Joined(asUser, {"/usr/bin/unshare", "--map-root-user"}));
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("frames     20\n"));
}

} // namespace
