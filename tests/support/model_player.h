// SPDX-License-Identifier: Apache-2.0
// Makes the moves of a BufferModel on a data stream and compares the two.
#pragma once

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_event.h"
#include "support/buffer_model.h"
#include "support/gendc_bytes.h"
#include "support/mapped.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

namespace nq::test
{

/// What a player needs of the transport below the stream.
class ModelTransport
{
  public:
    virtual ~ModelTransport() = default;

    /// Sends a frame into the next block, waits until the stream has done with it, and returns the block's address.
    virtual unsigned char* Send(const FrameBytes& frame) = 0;

    /// Waits until the camera may send `count` frames; the number that it may send in the end.
    virtual std::size_t AwaitCredits(std::size_t count) = 0;
};

/// A frame of 16 x 4 pixels that are its own.
inline FrameBytes PlainFrame(std::uint64_t id)
{
    FrameBytes frame = GenDCFrame(id, 16, 4);
    std::for_each(frame.begin() + 176, frame.end(),
                  [id](unsigned char& pixel) { pixel = static_cast<unsigned char>(pixel + 7 * id); });
    return frame;
}

/// Plays on a stream whose buffers come from it, but for those whose memory, by the model, is the consumer's.
template <class Model>
class ModelPlayerOf
{
  public:
    ModelPlayerOf(GigERDMA::NQGenTLDataStream& stream, ModelTransport& transport, std::size_t buffers)
        : model(buffers), m_stream(stream), m_transport(transport), m_handles(buffers), m_memory(buffers)
    {
        for (Memory& memory : m_memory)
        {
            memory.fill(kGuard);
        }
        void* handle = nullptr;
        EXPECT_EQ(stream.RegisterEvent(GenTL::EVENT_NEW_BUFFER, &handle), 0);
        m_event = stream.FindEventByHandle(handle);
    }

    /// A move that is about to be made, and what came of it.
    struct Play
    {
        Step step;
        int buffer = -1;         ///< To announce.
        void* handle = nullptr;  ///< Of the buffer queued, revoked, announced or taken.
        std::uint64_t frame = 0; ///< Id of the frame to send.
        int result = 0;
        void* address = nullptr; ///< Of the block that took a frame, or handed out by a revocation.
    };

    /// Call order: Prepare, Make, Finish. Only Make reaches the stream; it may run on any thread, also together with
    /// the Make of another move when their order does not matter to the model. One frame at a time.
    Play Prepare(const Step& step) const
    {
        Play play{step};
        play.frame = model.frames + 1;
        if (step.move == Move::Queue || step.move == Move::Revoke)
        {
            play.handle = m_handles[static_cast<std::size_t>(step.argument)];
        }
        if (step.move == Move::Announce)
        {
            Model after = model;
            play.buffer = after.Apply(step).buffer;
        }
        return play;
    }

    void Make(Play& play)
    {
        switch (play.step.move)
        {
        case Move::Announce:
            play.result = Model::IsConsumers(play.buffer)
                              ? m_stream.AnnounceBuffer(PixelsOf(play.buffer), 64, nullptr, &play.handle)
                              : m_stream.AllocAndAnnounceBuffer(64, nullptr, &play.handle);
            return;
        case Move::Queue:
            play.result = m_stream.QueueBuffer(play.handle);
            return;
        case Move::Take:
            play.result = Take(&play.handle);
            return;
        case Move::Flush:
            play.result = m_stream.FlushQueue(play.step.argument);
            return;
        case Move::Revoke:
            play.result = m_stream.RevokeBuffer(play.handle, &play.address, nullptr);
            return;
        case Move::Frame:
            play.address = m_transport.Send(PlainFrame(play.frame));
            return;
        case Move::OddFrame:
            play.address = m_transport.Send(OddFrame(play.frame));
            return;
        case Move::Stop:
            play.result = m_stream.StopAcquisition(GenTL::ACQ_STOP_FLAGS_KILL);
            return;
        case Move::Start:
            play.result = m_stream.StartAcquisition(0, GENTL_INFINITE);
            return;
        }
    }

    void Finish(const Play& play)
    {
        const Place place = model.NextPlace();
        const Place shown = play.step.move == Move::Revoke ? model.HandsOut(play.step.argument) : Place{};
        const Outcome expected = model.Apply(play.step);
        EXPECT_EQ(play.result, expected.result);
        if (play.step.move == Move::Announce)
        {
            m_handles[static_cast<std::size_t>(expected.buffer)] = play.handle;
            FindBlockOf(expected.buffer);
        }
        else if (play.step.move == Move::Take && expected.buffer >= 0)
        {
            EXPECT_EQ(play.handle, m_handles[static_cast<std::size_t>(expected.buffer)]);
        }
        else if (play.step.move == Move::Revoke && expected.result == 0)
        {
            EXPECT_EQ(play.address, PixelsAt(shown));
        }
        else if (play.step.move == Move::Frame || play.step.move == Move::OddFrame)
        {
            auto* const address = static_cast<unsigned char*>(play.address);
            EXPECT_EQ(m_blocks.try_emplace(place, address).first->second, address) << "block " << place.block;
        }
    }

    /// The stream is as the model says.
    void Check() const
    {
        EXPECT_EQ(m_transport.AwaitCredits(model.credits.size()), model.credits.size()) << "frames the camera may send";
        EXPECT_EQ(Number(GenTL::STREAM_INFO_NUM_ANNOUNCED), model.announced.size());
        EXPECT_EQ(Number(GenTL::STREAM_INFO_NUM_QUEUED), model.input.size());
        EXPECT_EQ(Number(GenTL::STREAM_INFO_NUM_AWAIT_DELIVERY), model.output.size());
        EXPECT_EQ(Number(GenTL::STREAM_INFO_NUM_DELIVERED), model.delivered);
        EXPECT_EQ(Number(GenTL::STREAM_INFO_NUM_UNDERRUN), model.underrun);
        if constexpr (requires { model.copies; })
        {
            EXPECT_EQ(Copies(), model.copies);
        }
        for (const int buffer : model.announced)
        {
            SCOPED_TRACE("buffer " + std::to_string(buffer));
            CheckBuffer(buffer);
        }
        for (const Memory& memory : m_memory)
        {
            EXPECT_TRUE(IsGuard(memory.begin(), memory.begin() + kBefore) &&
                        IsGuard(memory.begin() + kBefore + 64, memory.end()));
        }
        for (const Place& place : model.handedOut)
        {
            EXPECT_TRUE(IsMapped(PixelsAt(place))) << "handed out: block " << place.block << " of run " << place.run;
        }
    }

    Model model;

  private:
    /// Of a buffer of the consumer's: 64 bytes at an odd address, and what nobody may write to.
    using Memory = std::array<unsigned char, 96>;
    static constexpr unsigned char kGuard = 0xC3;
    static constexpr std::ptrdiff_t kBefore = 17;

    unsigned char* PixelsOf(int buffer) { return m_memory[static_cast<std::size_t>(buffer)].data() + kBefore; }

    static bool IsGuard(Memory::const_iterator first, Memory::const_iterator last)
    {
        return std::all_of(first, last, [](unsigned char byte) { return byte == kGuard; });
    }

    const BufferModel::Buffer& BufferAt(int buffer) const { return model.buffers[static_cast<std::size_t>(buffer)]; }

    /// Of a buffer that has one from its announcement on.
    void FindBlockOf(int buffer)
    {
        if (BufferAt(buffer).shows.block >= 0)
        {
            const std::uint64_t base =
                BufferNumber(m_handles[static_cast<std::size_t>(buffer)], GenTL::BUFFER_INFO_BASE);
            ASSERT_NE(base, 0U);
            m_blocks[BufferAt(buffer).shows] = reinterpret_cast<unsigned char*>(base) - 176;
        }
    }

    unsigned char* PixelsAt(const Place& place) const { return place.block < 0 ? nullptr : m_blocks.at(place) + 176; }

    /// Of an odd frame's kinds, the id decides which.
    static FrameBytes OddFrame(std::uint64_t id)
    {
        if (id % 3 == 0)
        {
            return {};
        }
        FrameBytes frame = GenDCFrame(id, 16, 4);
        id % 3 == 1 ? Put32(frame, 56, 128) : Put32(frame, 112, 0xFFFFFFFF);
        return frame;
    }

    int Take(void** handle) const
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        const int result = m_event->GetData(&data, &size, 0);
        *handle = data.BufferHandle;
        return result;
    }

    std::uint64_t Number(int command) const
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(m_stream.GetInfo(command, &type, &value, &size), 0);
        return value;
    }

    /// The register of copied frames.
    std::uint64_t Copies() const
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        EXPECT_EQ(m_stream.ReadPort(0x80168, &value, &size), 0);
        return value;
    }

    std::uint64_t BufferNumber(void* handle, int command) const
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(m_stream.GetBufferInfo(handle, command, &type, &value, &size), 0);
        return value;
    }

    void CheckBuffer(int buffer) const
    {
        const BufferModel::Buffer& expected = BufferAt(buffer);
        void* const handle = m_handles[static_cast<std::size_t>(buffer)];
        EXPECT_EQ(BufferNumber(handle, GenTL::BUFFER_INFO_IS_QUEUED), expected.queued);
        EXPECT_EQ(BufferNumber(handle, GenTL::BUFFER_INFO_NEW_DATA), expected.newData);
        const unsigned char* const pixels = PixelsAt(expected.shows);
        EXPECT_EQ(BufferNumber(handle, GenTL::BUFFER_INFO_BASE), reinterpret_cast<std::uintptr_t>(pixels));
        if (pixels == nullptr || expected.frame == 0)
        {
            return;
        }
        EXPECT_EQ(BufferNumber(handle, GenTL::BUFFER_INFO_FRAMEID), expected.frame);
        const bool mapped = IsMapped(pixels) && IsMapped(pixels + 63);
        EXPECT_TRUE(mapped) << "block " << expected.shows.block << " of run " << expected.shows.run;
        if (mapped && expected.holds)
        {
            const FrameBytes whole = PlainFrame(expected.frame);
            const std::ptrdiff_t skipped = model.HasHeaders(buffer) ? 0 : 176;
            EXPECT_TRUE(std::equal(whole.begin() + skipped, whole.end(), pixels - 176 + skipped))
                << "its frame is no longer in it";
        }
    }

    GigERDMA::NQGenTLDataStream& m_stream;
    ModelTransport& m_transport;
    GigERDMA::NQGenTLEvent* m_event;
    std::vector<void*> m_handles;
    std::vector<Memory> m_memory;
    std::map<Place, unsigned char*> m_blocks;
};

using ModelPlayer = ModelPlayerOf<BufferModel>;

} // namespace nq::test
