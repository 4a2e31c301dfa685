// SPDX-License-Identifier: Apache-2.0
// A data stream with four consumer buffers, and the short ways to use it.
#pragma once

#include "gentl/nq_gentl_event.h"
#include "support/fake_data_stream.h"
#include "support/fake_module.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace nq::test
{

class StreamFixture : public testing::Test
{
  protected:
    explicit StreamFixture(const NQAnswers& answers = kStatedAnswers) : root(answers)
    {
        for (char& block : blocks)
        {
            stream.ids.push_back(&block);
        }
    }

    static constexpr unsigned long kInfinite = 0xFFFFFFFFFFFFFFFF;

    /// Announces memory 0, 1, ... in that order.
    void Announce(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            ASSERT_EQ(stream.AnnounceBuffer(memory[i], sizeof memory[i], &user[i], &handles[i]), 0);
        }
    }
    void Queue(int count)
    {
        for (int i = 0; i < count; ++i)
        {
            ASSERT_EQ(stream.QueueBuffer(handles[i]), 0);
        }
    }
    GigERDMA::NQGenTLEvent* RegisterNewBuffer()
    {
        void* handle = nullptr;
        EXPECT_EQ(stream.RegisterEvent(1, &handle), 0);
        return stream.FindEventByHandle(handle);
    }

    /// A frame in block `block`, whose first byte is `id`.
    void Frame(int block, unsigned char id, int status = 0)
    {
        frame[0] = id;
        stream.EndOfTransfer(&blocks[block], sizeof frame, id, 1000UL + id, 4, 2, 0x01080001, frame, status);
    }

    /// The handle that the new buffer event delivers, null on a timeout.
    void* Take()
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        const int result = stream.FindEventById(1, false)->GetData(&data, &size, 0);
        EXPECT_TRUE(result == 0 || result == -1011);
        return data.BufferHandle;
    }

    /// A number the stream's GetInfo gives.
    unsigned long Number(int command)
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(stream.GetInfo(command, &type, &value, &size), 0);
        return value;
    }

    /// A number or flag that a buffer's GetInfo gives.
    unsigned long BufferNumber(void* handle, int command)
    {
        unsigned long value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        EXPECT_EQ(stream.GetBufferInfo(handle, command, &type, &value, &size), 0);
        return value;
    }

    unsigned char memory[4][8] = {};
    int user[4] = {};
    char blocks[4] = {};
    unsigned char frame[8] = {0, 2, 3, 4, 5, 6, 7, 8};
    void* handles[4] = {};
    FakeModule root;
    FakeDataStream stream{0, &root};
};

} // namespace nq::test
