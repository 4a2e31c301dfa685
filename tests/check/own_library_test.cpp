// SPDX-License-Identifier: Apache-2.0
// gentl-check on our library and the virtual camera, in both modes: with the standard's answers what is not kept, and
// with the library's own what docs/standard-answers.md tells of, are exactly what the baselines say.
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

/// A shell command that makes the camera send one frame of which a part is missing.
std::string ShortFrame(const VirtualCamera& camera)
{
    return "exec env -u LD_PRELOAD python3 -c \"import socket; s = socket.socket(socket.AF_UNIX); s.connect('" +
           camera.ControlPath() +
           "'); s.sendall(b'{\\\"fault\\\": \\\"short-frame\\\"}\\n'); assert b'error' not in s.recv(4096)\"";
}

class OwnLibrary : public testing::TestWithParam<const char*>
{
  protected:
    static Outcome Check(const std::string& baseline, const char* standard)
    {
        const VirtualCamera camera({"--width", "64", "--height", "16", "--fps", "200"});
        std::vector<std::string> environment = camera.Environment();
        environment.push_back(std::string("NQ_GEV_TL_STANDARD=") + standard);
        ChildProcess check({NQ_CHECK_PATH, NQ_BINARY_DIR "/libnq_gev_rdma_tl.cti", "--only", GetParam(), "--baseline",
                            NQ_SOURCE_DIR "/tests/check/" + baseline, "--disturb", ShortFrame(camera)},
                           environment);
        const int code = check.WaitForExit(std::chrono::seconds(280));
        return {code, check.Output()};
    }
};

TEST_P(OwnLibrary, WithTheStandardsAnswers)
{
    const Outcome outcome = Check("standard.baseline", "1");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
}

TEST_P(OwnLibrary, WithItsOwnAnswers)
{
    const Outcome outcome = Check("default.baseline", "0");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.output;
}

INSTANTIATE_TEST_SUITE_P(Families, OwnLibrary,
                         testing::Values("LB-*", "IN-*", "HD-*", "LS-*", "OP-*", "EV-*", "[BQ][FU]-*", "AC-*", "DL-*",
                                         "PT-*", "FT-*", "[TP][HR]-*"));

/// The families above are all there are.
TEST(OwnLibraryFamilies, AreAll)
{
    const Outcome all = RunProgram({NQ_CHECK_PATH, "--list"});
    const std::string known[] = {"LB", "IN", "HD", "LS", "OP", "EV", "BF", "QU", "AC", "DL", "PT", "FT", "TH", "PR"};
    size_t rules = 0;
    size_t inKnown = 0;
    for (size_t at = all.output.find("\n  "); at != std::string::npos; at = all.output.find("\n  ", at + 1))
    {
        ++rules;
        inKnown += static_cast<size_t>(std::count(std::begin(known), std::end(known), all.output.substr(at + 3, 2)));
    }
    EXPECT_GE(rules, 169U);
    EXPECT_EQ(rules, inKnown);
}

} // namespace
