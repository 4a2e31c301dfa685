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
Outcome Configure(const std::string& argument, const std::vector<std::string>& environment = {})
{
    const TemporaryFolder build;
    return RunProgram({"/usr/bin/cmake", "-G", "Ninja", "-S", NQ_SOURCE_DIR, "-B", build.Path(), argument},
                      environment);
}

TEST_P(WithoutPackage, LeavesOutWhatNeedsItWithALine)
{
    const Outcome outcome = Configure("-DCMAKE_DISABLE_FIND_PACKAGE_" + GetParam() + "=ON");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("/ is left out: " + GetParam() + " not found"));
}

INSTANTIATE_TEST_SUITE_P(Project, WithoutPackage, testing::Values("CLI11", "nlohmann_json", "PNG", "fmt", "GTest"),
                         [](const auto& tested) { return tested.param; });

TEST(WithoutZip, TheCameraAndWhatNeedsItAreLeftOutWithALine)
{
    const TemporaryFolder others; // what pkg-config knows, but for libzip
    const std::string link = "for folder in $(pkg-config --variable pc_path pkg-config | tr : ' '); do "
                             "for file in \"$folder\"/*.pc; do case $file in */libzip.pc | *'*.pc') ;; "
                             "*) ln -sf \"$file\" '" +
                             others.Path() + "' ;; esac; done; done";
    ASSERT_EQ(RunProgram({"/bin/sh", "-c", link}).exitCode, 0);
    const Outcome outcome = Configure("-DCMAKE_BUILD_TYPE=Debug", {"PKG_CONFIG_LIBDIR=" + others.Path()});
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("-- camera/ is left out: libzip not found\n"));
    EXPECT_THAT(outcome.output, HasSubstr("-- tests/e2e/ is left out: it needs nq-gev-camera\n"));
}

TEST(WithoutTiff, GrabHasTheOtherFormatsWithALine)
{
    const Outcome outcome = Configure("-DCMAKE_DISABLE_FIND_PACKAGE_TIFF=ON");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
    EXPECT_THAT(outcome.output, HasSubstr("-- nq-gev writes no TIFF: libtiff is absent\n"));
}

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
