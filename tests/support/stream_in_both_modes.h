// SPDX-License-Identifier: Apache-2.0
// A stream of the virtual camera into memory of the test, in both modes.
#pragma once

#include "support/both_modes.h"
#include "support/stream_consumer.h"

#include <memory>
#include <vector>

namespace nq::test
{

/// A consumer of a camera of SmallFrames, with buffers that the test announces.
class StreamInBothModes : public BothModes
{
  protected:
    /// Announces memory of the test that begins at `offset` in an allocation.
    void Announce(int count, std::size_t offset = 0)
    {
        for (int index = 0; index < count; ++index)
        {
            memory.push_back(std::make_unique<unsigned char[]>(1024 + 64));
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(c.gentl.DSAnnounceBuffer(c.stream, memory.back().get() + offset, 1024, nullptr, &buffer), 0);
            c.buffers.push_back(buffer);
        }
    }

    void Queue(std::size_t from, std::size_t to)
    {
        for (std::size_t index = from; index < to; ++index)
        {
            ASSERT_EQ(c.gentl.DSQueueBuffer(c.stream, c.buffers[index]), 0);
        }
    }

    /// Four buffers, and the event.
    void AnnounceAndQueue()
    {
        Announce(4);
        Queue(0, 4);
        c.RegisterEvent();
    }

    int Wait(std::uint64_t timeout)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        return c.gentl.EventGetData(c.event, &data, &size, timeout);
    }

    VirtualCamera camera{SmallFrames()};
    std::vector<std::unique_ptr<unsigned char[]>> memory; ///< Frames come into it as long as there is a consumer.
    Consumer c;
};

} // namespace nq::test
