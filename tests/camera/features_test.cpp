// SPDX-License-Identifier: Apache-2.0
// The virtual camera's features as a whole: what the texts say of them, and that each takes what its range allows.
#include "camera/feature_host.h"
#include "support/command_output.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <set>

using namespace nq::test;
using testing::Contains;
using testing::HasSubstr;

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string CameraSays(const std::string& option)
{
    ChildProcess camera({NQ_CAMERA_PATH, option});
    EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 0);
    return camera.Output();
}

} // namespace

TEST(CameraFeatures, ReadmeHoldsTheirTable)
{
    const std::string table = CameraSays("--features");
    EXPECT_THAT(ReadFile(std::string(NQ_SOURCE_DIR) + "/camera/README.md"), HasSubstr(table));
}

TEST(CameraFeatures, HelpAndTableNameEachOfTheDescription)
{
    const VirtualCamera camera;
    const FeatureHost host;
    const std::string help = CameraSays("--help");
    const std::string table = CameraSays("--features");
    EXPECT_GT(host.Features().size(), 30U);
    for (const std::string& name : host.Features())
    {
        if (name != "TLParamsLocked") // the host's, without a register
        {
            EXPECT_THAT(help, HasSubstr(" " + name)) << name;
            EXPECT_THAT(table, HasSubstr("| `" + name + "` |"));
        }
    }
}
