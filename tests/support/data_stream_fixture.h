// SPDX-License-Identifier: Apache-2.0
// A data stream on an opened camera and a scripted device, for the one translation unit of a unit test.
#pragma once

#include "gev/nq_gev_data_stream.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_event.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_remote_device.h"
#include "gev/nq_rdma_thread_acquisition.h"
#include "gige/nq_gev_tl_linux.h"
#include "rdma/tld_RdmaTL.h"
#include "support/device_record.h"
#include "support/endpoint_access.h"
#include "support/fake_module.h"
#include "support/fake_verbs_symbols.h"
#include "support/gendc_bytes.h"
#include "support/gvcp_camera.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

struct GevRdmaEndpointAccess
{
    static LvEndpoint& Endpoint(const GevRdmaEndpoint& facade) { return *facade.m_endpoint; }
};

struct NQGevDataStreamAccess
{
    static LvEndpoint& Endpoint(NQGevDataStream& stream) { return GevRdmaEndpointAccess::Endpoint(*stream.Rdma()); }
    static std::uint64_t NextFrameId(const NQGevDataStream& stream) { return stream.m_nextFrameId; }
    static void WaitForThread(NQGevDataStream& stream) { stream.m_thread->WaitForEnd(); }
    static bool Closing(const NQGevDataStream& stream) { return stream.m_closing != 0; }
    static std::uint32_t Mtu(const NQGevDataStream& stream) { return stream.m_mtu; }
};

namespace nq::test
{

inline constexpr unsigned long kInfinite = 0xFFFFFFFFFFFFFFFF;
inline constexpr const char* kStreamOff = "write 0xE030 = 0x00000000";
inline constexpr const char* kStreamOn = "write 0xE030 = 0x80000000";
inline constexpr const char* kReadSettings = "read memory 0xE600, 176 bytes";

/// A stream of an opened camera with RDMA, whose frames have 16 x 4 pixels: blocks of 240 bytes.
class DataStreamFixture : public testing::Test
{
  protected:
    explicit DataStreamFixture(const NQAnswers& answers = kStatedAnswers) : root(answers)
    {
        camera.SetRegister(0x0938, 60000);
        camera.SetRegister(0x092C, 0x04000000);
        nq::test::Bytes settings(176, 0xEE);
        const std::uint64_t payload = 64;
        std::memcpy(settings.data() + 32, &payload, 8);
        camera.SetMemory(0xE600, settings);
        EXPECT_EQ(device.Open(), 0);
        camera.Forget();
    }

    ~DataStreamFixture() override
    {
        stream.reset();
        EXPECT_THAT(fake.LiveObjects(), testing::IsEmpty());
        EXPECT_THAT(fake.Violations(), testing::IsEmpty());
        AllowThreads();
    }

    void Announce(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            void* handle = nullptr;
            ASSERT_EQ(stream->AllocAndAnnounceBuffer(64, nullptr, &handle), 0);
            buffers.push_back(handle);
        }
    }

    /// Runs with `count` announced and queued buffers and a new buffer event.
    void Run(int count, unsigned long frames = kInfinite)
    {
        void* event = nullptr;
        ASSERT_EQ(stream->Open(), 0);
        Announce(count);
        ASSERT_EQ(stream->RegisterEvent(1, &event), 0);
        newBuffer = stream->FindEventByHandle(event);
        QueueAll();
        ASSERT_EQ(stream->StartAcquisition(0, frames), 0);
    }

    void QueueAll()
    {
        for (void* buffer : buffers)
        {
            ASSERT_EQ(stream->QueueBuffer(buffer), 0);
        }
    }

    /// Sends a frame and waits for its buffer.
    void* Receive(std::uint64_t frameId)
    {
        fake.DeliverFrame(GenDCFrame(frameId, 16, 4));
        return NextBuffer();
    }

    void* NextBuffer()
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        EXPECT_EQ(newBuffer->GetData(&data, &size, 10000), 0);
        return data.BufferHandle;
    }

    /// Waits until the acquisition thread has done with the frames it has taken.
    void WaitForFramesReceived(std::uint64_t count)
    {
        while (Read64(root.Answers().nodeMaps ? 0x80120 : 0x80114) < count)
        {
            std::this_thread::yield();
        }
    }

    std::uint64_t Read64(unsigned long address)
    {
        std::uint64_t value = 0xAAAAAAAAAAAAAAAA;
        unsigned long size = 8;
        EXPECT_EQ(stream->ReadPort(address, &value, &size), 0);
        EXPECT_EQ(size, 8U);
        return value;
    }

    std::uint32_t Read32(unsigned long address)
    {
        std::uint32_t value = 0xAAAAAAAA;
        unsigned long size = 4;
        EXPECT_EQ(stream->ReadPort(address, &value, &size), 0);
        EXPECT_EQ(size, 4U);
        return value;
    }

    template <typename Value>
    int Write(unsigned long address, Value value)
    {
        unsigned long size = sizeof value;
        return stream->WritePort(address, &value, &size);
    }

    template <typename Value>
    Value BufferInfo(void* buffer, int command)
    {
        Value value{};
        int type = 0;
        unsigned long size = sizeof value;
        EXPECT_EQ(stream->GetBufferInfo(buffer, command, &type, &value, &size), 0);
        return value;
    }

    TraceCapture trace;
    FakeVerbs fake;
    GvcpCamera camera;
    FakeModule root;
    NQGevTL tl;
    NQGevRemoteDevice device{&tl, LoopbackCamera(), 3, nullptr};
    std::unique_ptr<NQGevDataStream> stream = std::make_unique<NQGevDataStream>(&device, 2, &root);
    std::vector<void*> buffers;
    GigERDMA::NQGenTLEvent* newBuffer = nullptr;
};

} // namespace nq::test
