// SPDX-License-Identifier: Apache-2.0
// Random moves on a stream of a scripted camera, from several threads: after each of them the camera's credits and the
// buffers' frames are what the model says.
#include "support/data_stream_fixture.h"
#include "support/model_player.h"
#include "support/own_block_model.h"
#include "support/random_run.h"

#include <array>
#include <atomic>
#include <deque>
#include <random>
#include <sstream>
#include <thread>

namespace
{

using nq::test::BufferModel;
using nq::test::Move;
using nq::test::OwnBlockModel;
using nq::test::Step;

constexpr std::size_t kBuffers = 4;
constexpr int kMovesPerRound = 400;

/// Counts the fetches that its acquisition thread is done with.
class CountingStream : public NQGevDataStream
{
  public:
    using NQGevDataStream::NQGevDataStream;

    /// Of a stopped stream, whose thread calls what this class overrides.
    ~CountingStream() override { NQGevDataStreamAccess::WaitForThread(*this); }

    void SetTransferCompleted() override
    {
        NQGevDataStream::SetTransferCompleted();
        ++fetches;
    }

    /// As the base, without the waits of the threads that are to end.
    int DoStopAcquisition(int flags) override
    {
        LvEndpoint& endpoint = NQGevDataStreamAccess::Endpoint(*this);
        LvEndpointAccess::EndWorker(endpoint);
        const int result = NQGevDataStream::DoStopAcquisition(flags);
        LvEndpointAccess::WakeGetBuffer(endpoint);
        return result;
    }

    std::atomic<int> fetches = 0;
};

/// A stream with an acquisition thread, a transport with threads, and the moves of one seed.
template <class Model>
class Round : public nq::test::DataStreamFixture, public nq::test::ModelTransport
{
  public:
    Round(unsigned seed, const NQAnswers& answers) : DataStreamFixture(answers), m_random(seed)
    {
        auto counting = std::make_unique<CountingStream>(&device, 2, &root);
        m_counting = counting.get();
        stream = std::move(counting);
        EXPECT_EQ(stream->Open(), 0);
        m_player = std::make_unique<Player>(*stream, *this, kBuffers);
    }

    void Run()
    {
        std::atomic<bool> over = false;
        std::thread watcher([&] { Watch(over); });
        for (int move = 0; move < kMovesPerRound && !HasFailure(); ++move)
        {
            PlayOne();
        }
        over = true;
        watcher.join();
        if (m_player->model.running)
        {
            EXPECT_EQ(stream->StopAcquisition(1), 0);
        }
    }

    unsigned char* Send(const nq::test::FrameBytes& frame) override
    {
        const int before = m_counting->fetches;
        unsigned char* const block = fake.DeliverFrame(frame);
        while (m_counting->fetches == before)
        {
            std::this_thread::yield();
        }
        return block;
    }

    std::size_t AwaitCredits(std::size_t count) override
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (fake.Credits() != count && std::chrono::steady_clock::now() < deadline)
        {
            std::this_thread::yield();
        }
        return fake.Credits();
    }

  private:
    using Player = nq::test::ModelPlayerOf<Model>;
    using Play = typename Player::Play;

    void TestBody() override {}

    int Below(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_random); }

    Step AnyStep()
    {
        const int chance = Below(200);
        const int buffer = Below(kBuffers);
        return chance < 60    ? Step{Move::Queue, buffer}
               : chance < 115 ? Step{Move::Frame}
               : chance < 155 ? Step{Move::Take}
               : chance < 167 ? Step{Move::Flush, Below(5)}
               : chance < 175 ? Step{Move::Revoke, buffer}
               : chance < 188 ? Step{Move::Announce}
               : chance < 194 ? Step{Move::OddFrame}
               : chance < 195 ? Step{Move::Stop}
                              : Step{Move::Start};
    }

    /// Of the steps that change nothing, as a call that is refused, only one in ten.
    Step PossibleStep()
    {
        while (true)
        {
            const Step step = AnyStep();
            Model after = m_player->model;
            if (!after.Possible(step))
            {
                continue;
            }
            after.Apply(step);
            if (after != m_player->model || Below(10) == 0)
            {
                return step;
            }
        }
    }

    /// Makes one move on a thread of its own; or two at once, on two threads, where the model gives the same for either
    /// order of them.
    void PlayOne()
    {
        const Step one = PossibleStep();
        const Step other = PossibleStep();
        const bool both = Commute(one, other);
        m_log.push_back(Text(one) + (both ? " and " + Text(other) : ""));
        if (m_log.size() > 40)
        {
            m_log.pop_front();
        }
        std::vector<Play> plays = {m_player->Prepare(one)};
        if (both)
        {
            plays.push_back(m_player->Prepare(other));
        }
        std::vector<std::thread> threads;
        for (Play& play : plays)
        {
            threads.emplace_back([&] { m_player->Make(play); });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        SCOPED_TRACE(Log());
        for (const Play& play : plays)
        {
            m_player->Finish(play);
        }
        m_player->Check();
    }

    bool Commute(const Step& one, const Step& other) const
    {
        const auto isFrame = [](const Step& step) { return step.move == Move::Frame || step.move == Move::OddFrame; };
        Model here = m_player->model;
        Model there = m_player->model;
        if ((isFrame(one) && isFrame(other)) || (one.move == other.move && one.move == Move::Announce))
        {
            return false;
        }
        const nq::test::Outcome oneHere = here.Apply(one);
        if (!here.Possible(other))
        {
            return false;
        }
        const nq::test::Outcome otherHere = here.Apply(other);
        const nq::test::Outcome otherThere = there.Apply(other);
        return there.Possible(one) && there.Apply(one) == oneHere && otherThere == otherHere && here == there;
    }

    /// What another thread of the consumer may ask at any time.
    void Watch(const std::atomic<bool>& over)
    {
        while (!over)
        {
            void* handle = nullptr;
            std::uint64_t value = 0;
            unsigned long size = sizeof value;
            int type = 0;
            for (unsigned int index = 0; stream->GetBufferID(index, &handle) == 0; ++index)
            {
                stream->GetBufferInfo(handle, GenTL::BUFFER_INFO_BASE, &type, &value, &size);
            }
            stream->GetInfo(GenTL::STREAM_INFO_NUM_DELIVERED, &type, &value, &size);
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    static std::string Text(const Step& step)
    {
        std::ostringstream text;
        text << step.move << ' ' << step.argument;
        return text.str();
    }

    std::string Log() const
    {
        std::string text = "the last moves:";
        for (const std::string& line : m_log)
        {
            text += "\n  " + line;
        }
        return text;
    }

    std::mt19937 m_random;
    CountingStream* m_counting;
    std::unique_ptr<Player> m_player;
    std::deque<std::string> m_log;
};

template <class Model>
void PlayRandomMoves(const NQAnswers& answers)
{
    const nq::test::RandomRun run(NQ_SANITIZED ? 30 : 4);
    for (unsigned seed = run.seed; !run.IsOver() && !testing::Test::HasFailure(); ++seed)
    {
        SCOPED_TRACE("NQ_RANDOM_SEED=" + std::to_string(seed));
        Round<Model>(seed, answers).Run();
    }
}

TEST(FrameBlocksModel, RandomMovesFromSeveralThreadsKeepEveryCreditEveryAddressAndEveryFrame)
{
    PlayRandomMoves<BufferModel>(kStatedAnswers);
}

TEST(OwnBlocksModel, RandomMovesFromSeveralThreadsKeepEveryCreditEveryAddressAndEveryFrame)
{
    PlayRandomMoves<OwnBlockModel>(kStandardAnswers);
}

} // namespace
