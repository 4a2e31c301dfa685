// SPDX-License-Identifier: Apache-2.0
// The project configures without what only a part of it needs, and says which part is left out.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;

class WithoutPackage : public testing::TestWithParam<std::string>
{
};

/// What CMake says of the project with further arguments.
Outcome Configure(const std::string& argument)
{
    const TemporaryFolder build;
    return RunProgram({"/usr/bin/cmake", "-G", "Ninja", "-S", NQ_SOURCE_DIR, "-B", build.Path(), argument});
}

TEST_P(WithoutPackage, LeavesOutWhatNeedsItWithALine)
{
    const Outcome outcome = Configure("-DCMAKE_DISABLE_FIND_PACKAGE_" + GetParam() + "=ON");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("/ is left out: " + GetParam() + " not found"));
}

INSTANTIATE_TEST_SUITE_P(Project, WithoutPackage, testing::Values("CLI11", "nlohmann_json", "PNG", "fmt", "GTest"),
                         [](const auto& tested) { return tested.param; });

TEST(WithoutJpeg, TheViewIsLeftOutWithALine)
{
    const Outcome outcome = Configure("-DCMAKE_DISABLE_FIND_PACKAGE_JPEG=ON");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("-- nq-gev has no view: libjpeg (libjpeg62-turbo-dev) is absent\n"));
}

TEST(WithoutHttplib, TheViewIsLeftOutWithALine)
{
    const Outcome outcome = Configure("-Dhttplib_header=OFF");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("-- nq-gev has no view: cpp-httplib (libcpp-httplib-dev) is absent\n"));
}

TEST(WithoutOpenCv, OneExampleIsLeftOutWithALine)
{
    const Outcome outcome = Configure("-Dopencv_headers=OFF");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output,
                HasSubstr("-- examples/cpp/grab_opencv.cpp is left out: OpenCV (libopencv-core-dev) not found\n"));
}

} // namespace
