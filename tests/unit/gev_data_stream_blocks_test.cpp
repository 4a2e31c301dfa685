// SPDX-License-Identifier: Apache-2.0
// The frame blocks of a stream, seen from its buffers: who may give one back, and for how long one stays.
#include "support/data_stream_fixture.h"

#include <gmock/gmock.h>

#include <chrono>
#include <functional>
#include <thread>

using nq::test::CountOfProcess;
using nq::test::infinite;
using nq::test::streamOff;

namespace
{

using GevDataStreamBlocks = nq::test::DataStreamFixture;

/// A stream that a test can hold up while it gives a block back.
class HeldStream : public NQGevDataStream
{
  public:
    using NQGevDataStream::NQGevDataStream;

    /// Of a stopped stream, whose thread calls what this class overrides.
    ~HeldStream() override { NQGevDataStreamAccess::WaitForThread(*this); }

    int DoRequeueBuffer(void* rdmaId) override
    {
        beforeRequeue();
        const int result = NQGevDataStream::DoRequeueBuffer(rdmaId);
        afterRequeue();
        return result;
    }

    std::function<void()> beforeRequeue = [] {};
    std::function<void()> afterRequeue = [] {};
};

TEST_F(GevDataStreamBlocks, AReturnReachesTheEndpointOfItsOwnRunAlsoWhenTheNextOneStartsMeanwhile)
{
    auto held = std::make_unique<HeldStream>(&device, 2, nullptr);
    HeldStream& streamHeld = *held;
    stream = std::move(held);
    const long threads = CountOfProcess("task");
    Run(2);
    void* const buffer = Receive(1);
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    while (CountOfProcess("task") > threads)
    {
        std::this_thread::yield(); // nothing else is to hold the start up
    }
    camera.Forget();
    fake.OnCall(
        "rdma_connect", [] { std::this_thread::sleep_for(std::chrono::milliseconds(400)); }, 2);
    std::thread start;
    streamHeld.beforeRequeue = [&] {
        start = std::thread([&] { EXPECT_EQ(stream->StartAcquisition(0, infinite), 0); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200)); // and no lock, which would order the two
    };
    streamHeld.afterRequeue = [&] { EXPECT_EQ(camera.Count(streamOff), 0) << "the start waits"; };
    EXPECT_EQ(stream->QueueBuffer(buffer), 0);
    start.join();
    EXPECT_EQ(Receive(1), buffers[1]);
    EXPECT_EQ(stream->StopAcquisition(1), 0);
}

} // namespace
