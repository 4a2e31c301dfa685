// SPDX-License-Identifier: Apache-2.0
// nq-gev says what is so: which producers and cameras there are, which one it takes, and what stands in the way.
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

TEST(ToolVersion, TellsProgramLibraryGenTLAndCommit)
{
    for (const std::string path : {"nq-gev", "nq-software-rdma", "nq-gev-standard", "bench/frame_cost",
                                   "bench/loopback_throughput", "bench/frame_road", "bench/frame_road_counted",
                                   "bench/port_reads", "bench/library_facts", "bench/closed_trace"})
    {
        const Outcome version = RunProgram({NQ_BINARY_DIR "/" + path, "--version"});
        const std::string name = path.substr(path.find('/') + 1);
        EXPECT_EQ(version.exitCode, 0);
        EXPECT_THAT(version.output, testing::MatchesRegex(name + " 2\\.5\\.5\nlibrary nq_gev_rdma_tl 2\\.5\\.5\nGenTL "
                                                                 "1\\.5\ncommit (unknown|[0-9a-f]+(-dirty)?)\n"));
    }
}

TEST(ToolStart, BlamesTheMemoryWhereItMayLockTooLittle)
{
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("NQ_RDMA_LOOPBACK_FAIL=rdma_create_qp:1:ENOMEM");
    const Outcome grab =
        RunProgram({"/usr/bin/prlimit", "--memlock=65536:65536", "/usr/bin/setpriv", "--bounding-set=-ipc_lock",
                    "--inh-caps=-ipc_lock", NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab"},
                   environment);
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("It wants more memory than it may have: this user may lock 64 KiB of memory "
                                       "(RLIMIT_MEMLOCK, see `ulimit -l`), and the frame buffers need 1200 KiB. Raise "
                                       "that limit, or take fewer --buffers.\n"));
    EXPECT_THAT(grab.output, Not(HasSubstr("refused")));
}

TEST(ToolStart, BlamesTheMemoryWhereTheProducerDoes)
{
    for (const char* code : {"-1021", "-1020"}) // GC_ERR_OUT_OF_MEMORY, GC_ERR_RESOURCE_EXHAUSTED
    {
        const Outcome grab = RunProgram({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH, "grab"},
                                        {"NQ_FAKE_PRODUCER=DSStartAcquisition.code=" + std::string(code)});
        EXPECT_EQ(grab.exitCode, 5) << grab.output;
        EXPECT_THAT(grab.output, HasSubstr("This machine has too little memory for it: take fewer --buffers."));
        EXPECT_EQ(grab.output.find("a frame is longer than the longest message") != std::string::npos,
                  std::string(code) == "-1020")
            << grab.output;
        EXPECT_THAT(grab.output, Not(HasSubstr("refused")));
    }
}

} // namespace
