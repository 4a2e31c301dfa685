// SPDX-License-Identifier: Apache-2.0
// Consumers that load the library with RTLD_DEEPBIND: it then looks for the calls of RDMA in the libraries that it
// needs, in their order, before it looks at what was preloaded.
#include "support/stream_consumer.h"

#include <dlfcn.h>

namespace
{

using nq::test::Consumer;
using nq::test::ExpectAWholeRun;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

constexpr int kDeepBinding = RTLD_NOW | RTLD_LOCAL | RTLD_DEEPBIND;

class DeepBinding : public testing::Test
{
  protected:
    void SetUp() override
    {
#if NQ_SANITIZED
        GTEST_SKIP() << "sanitizers refuse RTLD_DEEPBIND";
#endif
    }
};

TEST_F(DeepBinding, LeavesThePreloadedSoftwareRdmaUnused)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer(NQ_CTI_PATH, kDeepBinding);
    consumer.AnnounceAndQueue(3);
    EXPECT_EQ(consumer.Start(), -1001) << "the real libraries find no device";
}

TEST_F(DeepBinding, OfTheLibraryBehindTheSoftwareRdmaStreams)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer(NQ_BINARY_DIR "/tests/on_loopback.cti", kDeepBinding);
    consumer.AnnounceAndQueue(3);
    ExpectAWholeRun(consumer);
    nq::test::ExpectNoSendWaited();
}

} // namespace
