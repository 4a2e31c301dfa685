// SPDX-License-Identifier: Apache-2.0
// Every short sequence of moves with two buffers: the camera's credits and the buffers' frames are what the model says.
#include "gentl/nq_gentl_buffer.h"
#include "rdma/frame_blocks.h"
#include "support/fake_data_stream.h"
#include "support/fake_module.h"
#include "support/model_player.h"
#include "support/own_block_model.h"

#include <algorithm>
#include <deque>
#include <iterator>
#include <memory>
#include <set>
#include <sstream>
#include <vector>

namespace
{

using nq::test::BufferModel;
using nq::test::Move;
using nq::test::OwnBlockModel;
using nq::test::Step;

constexpr std::size_t kLength = NQ_SANITIZED ? 5 : 6;

/// A transport without threads whose blocks are real.
class BlockStream : public nq::test::FakeDataStream, public nq::test::ModelTransport
{
  public:
    int DoStartAcquisition(unsigned int, unsigned int count) override
    {
        ForgetLastRun();
        m_blocks = std::make_unique<FrameBlocks>();
        m_blocks->Make(count, 64);
        m_posted.clear();
        for (unsigned int index = 0; index < count; ++index)
        {
            m_blocks->Register(index, &m_descriptors[index]);
            m_posted.push_back(index);
        }
        return 0;
    }
    int DoStopAcquisition(int) override
    {
        m_posted.clear();
        return 0;
    }
    int DoRequeueBuffer(void* rdmaId) override
    {
        if (m_blocks->Return(rdmaId))
        {
            m_posted.push_back(static_cast<unsigned int>(static_cast<char*>(rdmaId) - m_descriptors));
        }
        return 0;
    }
    std::shared_ptr<const void> DoHandOver(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy) override
    {
        return m_blocks->HandOver(rdmaId, shownBy);
    }
    void DoEndShow(void* rdmaId, const GigERDMA::NQGenTLBuffer* shownBy) override
    {
        m_blocks->EndShow(rdmaId, shownBy);
    }

    unsigned char* Send(const nq::test::FrameBytes& frame) override
    {
        const unsigned int index = m_posted.front();
        m_posted.pop_front();
        unsigned char* const block = m_blocks->Memory(index).GetBuffer();
        std::copy(frame.begin(), frame.end(), block);
        m_blocks->Taken(&m_descriptors[index]);
        std::uint64_t id = 0;
        std::memcpy(&id, block + 16, sizeof id);
        if (frame == nq::test::PlainFrame(id))
        {
            EndOfTransfer(&m_descriptors[index], 64, id, 0, 16, 4, 0x01080001, block + 176, 0);
        }
        else
        {
            m_blocks->HandOver(&m_descriptors[index], nullptr);
        }
        return block;
    }
    std::size_t AwaitCredits(std::size_t) override { return m_posted.size(); }

  private:
    char m_descriptors[2] = {};
    std::unique_ptr<FrameBlocks> m_blocks;
    std::deque<unsigned int> m_posted;
};

struct StandardRoot
{
    nq::test::FakeModule root{kStandardAnswers};
};

/// The same for buffers that bring their blocks.
class OwnBlockStream : private StandardRoot, public nq::test::FakeDataStream, public nq::test::ModelTransport
{
  public:
    OwnBlockStream() : FakeDataStream(0, &root) {}

    GigERDMA::NQBlockMemory DoMakeMemory(unsigned long) override
    {
        const auto block = std::make_shared<unsigned char[]>(240);
        return {block.get() + 176, block};
    }
    void* DoRegisterBuffer(GigERDMA::NQGenTLBuffer& buffer) override
    {
        if (buffer.HasOwnBlock())
        {
            m_withHeaders.insert(buffer.GetData());
        }
        return buffer.GetData();
    }
    int ReadPort(unsigned long, void* buffer, unsigned long* size) override
    {
        const std::uint64_t copied = NumCopied();
        std::memcpy(buffer, &copied, *size);
        return 0;
    }
    int DoStopAcquisition(int) override
    {
        m_posted.clear();
        return 0;
    }
    int DoRequeueBuffer(void* rdmaId) override
    {
        m_posted.push_back(static_cast<unsigned char*>(rdmaId));
        return 0;
    }

    unsigned char* Send(const nq::test::FrameBytes& frame) override
    {
        unsigned char* const pixels = m_posted.front();
        m_posted.pop_front();
        const std::ptrdiff_t front = std::min<std::ptrdiff_t>(std::ssize(frame), 176);
        unsigned char headers[176];
        std::copy_n(frame.begin(), front, m_withHeaders.contains(pixels) ? pixels - 176 : headers);
        std::copy(frame.begin() + front, frame.end(), pixels);
        std::uint64_t id = 0;
        if (!frame.empty())
        {
            std::memcpy(&id, frame.data() + 16, sizeof id);
        }
        if (frame == nq::test::PlainFrame(id))
        {
            EndOfTransfer(pixels, 64, id, 0, 16, 4, 0x01080001, pixels, 0);
        }
        else
        {
            DropFrame(pixels);
        }
        return pixels - 176;
    }
    std::size_t AwaitCredits(std::size_t) override { return m_posted.size(); }

  private:
    std::deque<unsigned char*> m_posted;
    std::set<void*> m_withHeaders; ///< Pixels that have room for headers before them.
};

using Sequence = std::vector<Step>;

std::string Text(const Sequence& sequence)
{
    std::ostringstream text;
    for (const Step& step : sequence)
    {
        text << step.move << ' ' << step.argument << "; ";
    }
    return text.str();
}

/// A stream with two buffers that have had a frame each and are queued again, both their blocks with the camera.
template <class Stream, class Model>
class Run
{
  public:
    using Player = nq::test::ModelPlayerOf<Model>;

    Run()
    {
        for (const Step& step : {Step{Move::Announce}, Step{Move::Announce}, Step{Move::Queue, 0}, Step{Move::Queue, 1},
                                 Step{Move::Start}, Step{Move::Frame}, Step{Move::Frame}, Step{Move::Take},
                                 Step{Move::Take}, Step{Move::Queue, 0}, Step{Move::Queue, 1}})
        {
            Make(step);
        }
    }

    void Make(const Step& step)
    {
        typename Player::Play play = player.Prepare(step);
        player.Make(play);
        player.Finish(play);
    }

  private:
    Stream m_stream;

  public:
    Player player{m_stream, m_stream, 2};
};

const Step kRestart{Move::Start};

const Sequence kMoves = {{Move::Queue, 0}, {Move::Queue, 1}, {Move::Take},     {Move::Flush, 0},  {Move::Flush, 1},
                         {Move::Flush, 2}, {Move::Flush, 3}, {Move::Flush, 4}, {Move::Revoke, 0}, {Move::Revoke, 1},
                         {Move::Announce}, {Move::Frame},    {Move::OddFrame}, kRestart};

/// Plays a sequence and compares after the last move; those before are sequences of their own.
template <class Stream, class Model>
class Explorer
{
  public:
    /// Plays `sequence` and all that begin with it.
    void Explore(Sequence& sequence)
    {
        Player run;
        for (std::size_t index = 0; index + 1 < sequence.size(); ++index)
        {
            Make(run, sequence[index]);
        }
        const Model before = run.player.model;
        if (!before.Possible(sequence.back()) && sequence.back().move != Move::Start)
        {
            return;
        }
        SCOPED_TRACE(Text(sequence));
        Make(run, sequence.back());
        run.player.Check();
        ++played;
        // What changes nothing, as a call that is refused, leads to nothing new.
        if (testing::Test::HasFailure() || sequence.size() == kLength || run.player.model == before)
        {
            return;
        }
        for (const Step& step : kMoves)
        {
            const bool second = step.move == Move::Start && Restarted(sequence);
            sequence.push_back(step);
            if (!second && !testing::Test::HasFailure())
            {
                Explore(sequence);
            }
            sequence.pop_back();
        }
    }

    long played = 0;

  private:
    using Player = Run<Stream, Model>;

    static bool Restarted(const Sequence& sequence)
    {
        return std::any_of(sequence.begin(), sequence.end(), [](const Step& one) { return one.move == Move::Start; });
    }

    static void Make(Player& run, const Step& step)
    {
        if (step.move == Move::Start)
        {
            run.Make({Move::Stop});
        }
        run.Make(step);
    }
};

template <class Stream, class Model>
void PlayAllThatBeginWith(const Step& first)
{
    Sequence sequence = {first};
    Explorer<Stream, Model> explorer;
    explorer.Explore(sequence);
    EXPECT_EQ(explorer.played > 0, first.move != Move::Announce) << "both are announced";
}

class FrameBlocksSequences : public testing::TestWithParam<std::size_t>
{
};

TEST_P(FrameBlocksSequences, KeepEveryCreditEveryAddressAndEveryFrame)
{
    PlayAllThatBeginWith<BlockStream, BufferModel>(kMoves[GetParam()]);
}

TEST_P(FrameBlocksSequences, OfBuffersThatAreTheirOwnBlocksDoSoToo)
{
    PlayAllThatBeginWith<OwnBlockStream, OwnBlockModel>(kMoves[GetParam()]);
}

INSTANTIATE_TEST_SUITE_P(BeginningWith, FrameBlocksSequences, testing::Range<std::size_t>(0, kMoves.size()),
                         [](const auto& first) {
                             std::ostringstream name;
                             name << kMoves[first.param].move << kMoves[first.param].argument;
                             return name.str();
                         });

} // namespace
