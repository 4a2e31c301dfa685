// SPDX-License-Identifier: Apache-2.0
// Three consumer threads on the stream of a camera that spoils frames and drops the connection, among flushes,
// revocations and restarts: whoever has a buffer finds its frame in it, and in the end the stream works as ever.
#include "support/mapped.h"
#include "support/random_run.h"
#include "support/standard_answers.h"
#include "support/stream_consumer.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <shared_mutex>

namespace
{

using nq::test::Consumer;
using nq::test::SmallFrames;
using nq::test::VirtualCamera;

#if defined(__SANITIZE_ADDRESS__)
constexpr int kSeconds = 60;
constexpr int kSecondsOfMemory = 20;
#else
constexpr int kSeconds = 8;
constexpr int kSecondsOfMemory = 4;
#endif

constexpr std::array kFaults = {"short-frame",      "short-frame:1024",   "empty-frame",      "wrong-component-offset",
                                "wild-part-offset", "wild-data-offset",   "huge-data-size",   "id-jump",
                                "id-backwards",     "reject-connect:0:1", "slow-accept:50:1", "disconnect-mid-frame"};

class StreamChaos : public testing::Test
{
  protected:
    /// With the standard's answers or by the library's own.
    explicit StreamChaos(bool standard = false, int seconds = kSeconds)
        : asked(standard ? std::make_unique<nq::test::StandardAnswers>() : nullptr), run(seconds)
    {
    }

    void Play()
    {
        consumer.bufferSize = 1024;
        consumer.AnnounceAndQueue(6);
        ASSERT_EQ(consumer.Start(), 0);
        std::vector<std::thread> consumers;
        for (int thread = 0; thread < 3; ++thread)
        {
            consumers.emplace_back([this] { Consume(); });
        }
        // On a machine that stands still the run lasts until it was one.
        while ((!run.IsOver() || whole <= 100 || restarts <= 1) && !HasFailure())
        {
            Disturb();
        }
        over = true;
        for (std::thread& thread : consumers)
        {
            thread.join();
        }
    }

    /// The stream works as if nothing had been.
    void ExpectFrames()
    {
        for (const std::string fault : kFaults)
        {
            camera.Control(R"({"cmd":"clear","name":")" + fault.substr(0, fault.find(':')) + R"("})");
        }
        EXPECT_EQ(consumer.Stop(), 0);
        consumer.AwaitEndOfRun(); // a last frame of it could leave its buffer incomplete
        consumer.RenewBuffers();
        nq::test::ExpectAWholeRun(consumer);
    }

    void PlayAndLook()
    {
        Play();
        EXPECT_GT(whole, 100);
        EXPECT_GT(restarts, 1);
        ExpectFrames();
    }

    const std::unique_ptr<nq::test::StandardAnswers> asked;
    VirtualCamera camera{SmallFrames({"--heartbeat", "60000"})};
    Consumer consumer;
    std::atomic<long> whole = 0; ///< Frames looked at, pixel by pixel.
    int restarts = 0;

  private:
    /// Takes buffers, looks at each, and gives it back.
    void Consume()
    {
        while (!over)
        {
            while (disturbing && !over)
            {
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
            const std::shared_lock having(hands);
            if (const GenTL::BUFFER_HANDLE buffer = consumer.Next(2))
            {
                // A buffer that once was incomplete stays so; what it holds is not known.
                if (!consumer.Info<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE))
                {
                    EXPECT_TRUE(consumer.ShowsItsFrame(buffer)) << "frame " << consumer.FrameId(buffer);
                    ++whole;
                }
                EXPECT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
            }
        }
    }

    int Below(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); }

    void Disturb()
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(Below(20)));
        const int chance = Below(20);
        if (chance < 10)
        {
            camera.Fault(kFaults[static_cast<std::size_t>(Below(static_cast<int>(kFaults.size())))]);
            return;
        }
        // While buffers move in a way that nobody could follow, nobody has one.
        disturbing = true;
        {
            const std::unique_lock alone(hands);
            chance < 17 ? Flush() : Restart();
        }
        disturbing = false;
    }

    void Flush()
    {
        EXPECT_EQ(consumer.gentl.DSFlushQueue(consumer.stream, Below(5)), 0);
        while (const GenTL::BUFFER_HANDLE buffer = consumer.Next(0))
        {
            // It may come from the input without a frame, even as the block is being written to: it is there at least.
            const auto* const pixels = consumer.Info<const unsigned char*>(buffer, GenTL::BUFFER_INFO_BASE);
            EXPECT_TRUE(pixels == nullptr || nq::test::IsMapped(pixels));
        }
        consumer.QueueAll();
    }

    void Restart()
    {
        ++restarts;
        EXPECT_EQ(consumer.Stop(), 0);
        Below(2) == 0 ? consumer.RenewBuffers() : consumer.QueueAll();
        int refusals = 0;
        while (const int result = consumer.Start())
        {
            ASSERT_EQ(result, -1001) << "refused by the camera";
            ASSERT_LT(++refusals, 100) << "as if this host had lost control of it";
        }
    }

    nq::test::RandomRun run;
    std::mt19937 random{run.seed};
    std::shared_mutex hands; ///< Shared by whoever has a buffer.
    std::atomic<bool> disturbing = false;
    std::atomic<bool> over = false;
};

TEST_F(StreamChaos, SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks)
{
    PlayAndLook();
}

class StandardStreamChaos : public StreamChaos
{
  protected:
    StandardStreamChaos() : StreamChaos(true) {}
};

TEST_F(StandardStreamChaos, SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks)
{
    PlayAndLook();
}

class AnnouncedMemoryChaos : public StreamChaos
{
  protected:
    AnnouncedMemoryChaos() : StreamChaos(true, kSecondsOfMemory) { consumer.bringsMemory = true; }
};

TEST_F(AnnouncedMemoryChaos, SpoilsNoFrameThatAConsumerHasAndLeavesAStreamThatWorks)
{
    PlayAndLook();
}

} // namespace
