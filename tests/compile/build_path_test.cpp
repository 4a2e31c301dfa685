// SPDX-License-Identifier: Apache-2.0
// The project builds wherever its sources lie.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;

TEST(BuildPath, MayHoldASpaceAndAColon)
{
    const TemporaryFolder folder;
    const std::string script = R"script(
mkdir -p "$1/a b:c" && cd "$1/a b:c"
tar -c -C ")script" NQ_SOURCE_DIR R"script(" --exclude=./.git --exclude='./build*' --exclude=./out . | tar -x
cmake -G Ninja -S . -B build && ninja -C build nq_base && ninja -C build nq_base
)script";
    // Seconds, and a minute where both cores have other work.
    ChildProcess building({"/bin/sh", "-e", "-c", script, "-", folder.Path()});
    EXPECT_EQ(building.WaitForExit(std::chrono::seconds(110)), 0) << building.Output();
    // The second time it finds all headers by its notes of them: a colon in one is no end of a name.
    EXPECT_THAT(building.Output(),
                testing::ContainsRegex("/unity_nq_base0_cxx\\.cxx\\.o\n(.*\n)*ninja: no work to do\\.\n$"));
}

} // namespace
