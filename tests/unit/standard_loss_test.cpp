// SPDX-License-Identifier: Apache-2.0
// A camera that is lost while it streams: the waits for a buffer, by the library's own answers and by the standard's.
#include "gev/nq_gev_thread_heartbeat.h"
#include "support/asleep.h"
#include "support/data_stream_fixture.h"

#include <atomic>
#include <memory>
#include <vector>

using nq::test::CallingThread;

namespace
{

constexpr int kAbort = -1012;
constexpr int kTimeout = -1011;

/// Loses the camera in one of the ways there are.
class Loss : public nq::test::DataStreamFixture
{
  protected:
    explicit Loss(const NQAnswers& answers) : DataStreamFixture(answers) {}
    ~Loss() override
    {
        stream->StopAcquisition(1);
        stream.reset(); // before the heartbeat
    }

    int Wait(unsigned long timeout)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        return newBuffer->GetData(&data, &size, timeout);
    }

    void Beat() { heartbeat.OnHeartBeat(); }
    void Disconnect() { fake.RaiseEvent(RDMA_CM_EVENT_DISCONNECTED); }

    NQGevThreadHeartbeat heartbeat{&device};
};

class StandardLoss : public Loss
{
  protected:
    StandardLoss() : Loss(kStandardAnswers) {}

    /// What comes of `count` waits that sleep while `lose` loses the camera.
    template <typename Lose>
    std::vector<int> EndsOfWaits(int count, Lose lose)
    {
        std::vector<int> results(static_cast<std::size_t>(count));
        std::vector<std::unique_ptr<CallingThread>> waiters;
        for (int& result : results)
        {
            waiters.push_back(std::make_unique<CallingThread>([&] { result = Wait(kInfinite); }));
            waiters.back()->AwaitAsleep();
        }
        lose();
        waiters.clear();
        return results;
    }

    static constexpr unsigned long kInfinite = nq::test::kInfinite;
};

TEST_F(StandardLoss, OfTheAnswersEndsEachWaitOnce)
{
    Run(1);
    Beat();
    camera.SetSilent(true);
    EXPECT_EQ(EndsOfWaits(3, [this] { Beat(); }), (std::vector<int>{kAbort, kAbort, kAbort}));
    Beat();
    EXPECT_EQ(Wait(1), kTimeout) << "ended once";
}

TEST_F(StandardLoss, OfControlEndsEachWait)
{
    Run(1);
    camera.SetRegister(0x0A00, 0);
    EXPECT_EQ(EndsOfWaits(2, [this] { Beat(); }), (std::vector<int>{kAbort, kAbort}));
}

TEST_F(StandardLoss, OfTheConnectionEndsEachWait)
{
    Run(1);
    EXPECT_EQ(EndsOfWaits(2, [this] { Disconnect(); }), (std::vector<int>{kAbort, kAbort}));
}

TEST_F(StandardLoss, WithNobodyWaitingEndsTheNextWaitThatFindsNoBuffer)
{
    Run(1);
    fake.DeliverFrame(nq::test::GenDCFrame(1, 16, 4));
    WaitForFramesReceived(1);
    camera.SetSilent(true);
    Beat();
    EXPECT_EQ(Wait(0), 0) << "the frame that was there";
    EXPECT_EQ(Wait(kInfinite), kAbort);
    EXPECT_EQ(Wait(1), kTimeout);
}

TEST_F(StandardLoss, OfOneRunIsNotToldInTheNext)
{
    Run(1);
    camera.SetRegister(0x0A00, 0);
    Beat();
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    camera.SetRegister(0x0A00, 2);
    ASSERT_EQ(stream->StartAcquisition(0, kInfinite), 0);
    EXPECT_EQ(Wait(1), kTimeout);
    camera.SetRegister(0x0A00, 0);
    EXPECT_EQ(EndsOfWaits(1, [this] { Beat(); }), (std::vector<int>{kAbort})) << "but its own is";
}

TEST_F(StandardLoss, WithoutAnAcquisitionEndsNoWait)
{
    void* event = nullptr;
    ASSERT_EQ(stream->Open(), 0);
    ASSERT_EQ(stream->RegisterEvent(1, &event), 0);
    newBuffer = stream->FindEventByHandle(event);
    camera.SetRegister(0x0A00, 0);
    Beat();
    EXPECT_EQ(Wait(1), kTimeout);
}

TEST_F(StandardLoss, IsNoneWhenTheCameraDisconnectsBecauseItIsStopped)
{
    Run(1);
    std::atomic<bool> told = false; // a late answer brings the command once more
    camera.OnWrite([&](std::uint32_t address, std::uint32_t value) {
        if (address == 0xE030 && value == 0 && !told.exchange(true))
        {
            LvEndpoint& endpoint = NQGevDataStreamAccess::Endpoint(*stream);
            Disconnect();
            while (endpoint.IsFlowing())
            {
                std::this_thread::yield();
            }
            LvEndpointAccess::WakeGetBuffer(endpoint);
            std::this_thread::sleep_for(std::chrono::milliseconds(50)); // time for the acquisition thread to see it
        }
    });
    ASSERT_EQ(stream->StopAcquisition(1), 0);
    EXPECT_EQ(Wait(1), kTimeout);
}

class StatedLoss : public Loss
{
  protected:
    StatedLoss() : Loss(kStatedAnswers) {}
};

TEST_F(StatedLoss, LeavesAWaitAsleep)
{
    Run(1);
    std::atomic<int> result = 1;
    CallingThread waiter([&] { result = Wait(nq::test::kInfinite); });
    waiter.AwaitAsleep();
    Beat();
    camera.SetRegister(0x0A00, 0);
    Beat();
    Disconnect();
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    EXPECT_EQ(result, 1);
    newBuffer->Kill();
}

} // namespace
