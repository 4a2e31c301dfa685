// SPDX-License-Identifier: Apache-2.0
// Frames of any content, from the completion of a receive to the consumer's buffer: block, offsets and sizes, buffers
// of the library and of the consumer.
#include "GenTL/GenTL.h"
#include "fuzz/fuzz_input.h"
#include "gentl/nq_gentl_event.h"
#include "gev/nq_gev_data_stream.h"
#include "rdma/tld_RdmaTL.h"
#include "support/endpoint_access.h"
#include "support/fake_verbs_symbols.h"
#include "support/gendc_bytes.h"

#include <cstring>
#include <memory>

/// The endpoint's facade around an endpoint that needs no peer.
struct GevRdmaEndpointAccess
{
    static LvEndpoint& Install(GevRdmaEndpoint& facade)
    {
        facade.m_endpoint = std::make_unique<LvEndpoint>();
        return *facade.m_endpoint;
    }
};

struct NQGevDataStreamAccess
{
    static void Install(NQGevDataStream& stream, std::shared_ptr<GevRdmaEndpoint> endpoint)
    {
        stream.SetRdma(std::move(endpoint));
    }
};

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

constexpr std::uint32_t kBlocks = 3;
constexpr std::size_t kDescriptor = 176;

/// What has to come of a frame, read from the block's bytes.
struct Expected
{
    bool accepted = false;
    std::uint64_t frameId = 0;
    std::uint64_t timestamp = 0;
    std::uint64_t dataOffset = 0;
    std::uint64_t dataSize = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t pixelFormat = 0;
};

std::uint64_t Number(const Bytes& block, std::uint64_t offset, std::size_t bytes)
{
    std::uint64_t value = 0;
    std::memcpy(&value, block.data() + offset, bytes);
    return value;
}

Expected Decode(const Bytes& block, std::size_t received)
{
    Expected frame;
    const std::uint64_t part = Number(block, 112, 4);
    if (received == 0 || Number(block, 56, 4) != 64 || part + 56 > block.size())
    {
        return frame;
    }
    frame.frameId = Number(block, 16, 8);
    frame.timestamp = Number(block, 88, 8);
    frame.pixelFormat = static_cast<std::uint32_t>(Number(block, part + 8, 4));
    frame.dataSize = Number(block, part + 24, 8);
    frame.dataOffset = Number(block, part + 32, 4);
    frame.width = static_cast<std::uint32_t>(Number(block, part + 40, 4));
    frame.height = static_cast<std::uint32_t>(Number(block, part + 44, 4));
    frame.accepted = frame.dataOffset <= block.size() && frame.dataSize <= block.size() - frame.dataOffset;
    return frame;
}

/// A buffer of the consumer, exactly as large as announced, or one of the library.
struct Announced
{
    std::unique_ptr<unsigned char[]> memory;
    std::size_t size = 0;
    void* handle = nullptr;
};

/// One stream with its endpoint, whose frames a run writes itself.
class Stream
{
  public:
    explicit Stream(std::size_t payload)
    {
        auto facade = std::make_shared<GevRdmaEndpoint>();
        m_endpoint = &GevRdmaEndpointAccess::Install(*facade);
        gevrdmaBufferSettings settings{};
        settings.payloadSize = payload;
        settings.bufferCount = kBlocks;
        m_endpoint->SetBufferSettings(settings);
        m_endpoint->AllocateAndRegisterMemory();
        LvEndpointAccess::SetConnected(*m_endpoint);
        NQGevDataStreamAccess::Install(m_stream, facade);
        // Refused for want of a device, but no limit of frames holds from here on.
        Require(m_stream.StartAcquisition(0, GENTL_INFINITE) == -1001, "a start without a device fails");
        void* handle = nullptr;
        Require(m_stream.RegisterEvent(GenTL::EVENT_NEW_BUFFER, &handle) == 0, "the new buffer event is registered");
        m_event = m_stream.FindEventByHandle(handle);
        m_shadow.assign(kBlocks, Bytes(payload + kDescriptor, 0));
        for (std::uint32_t i = 0; i < kBlocks; ++i)
        {
            const msg_buffer_mem* const block = LvEndpointAccess::Receive(*m_endpoint, i);
            m_shadow[i].assign(block->addr, block->addr + block->length);
        }
    }

    void Announce(std::size_t size, bool own)
    {
        Announced buffer;
        buffer.size = size;
        int result = 0;
        if (own)
        {
            buffer.memory.reset(new unsigned char[size + 1]);
            std::fill_n(buffer.memory.get(), size + 1, static_cast<unsigned char>(0xA5));
            result = m_stream.AnnounceBuffer(buffer.memory.get(), size, nullptr, &buffer.handle);
        }
        else
        {
            result = m_stream.AllocAndAnnounceBuffer(size, nullptr, &buffer.handle);
        }
        Require(result == 0 && m_stream.QueueBuffer(buffer.handle) == 0, "a buffer is announced and queued");
        m_buffers.push_back(std::move(buffer));
    }

    /// Writes `bytes` into a block as the adapter does, completes it and lets the stream fetch it.
    void Frame(std::size_t index, Bytes bytes)
    {
        msg_buffer_mem* const block = LvEndpointAccess::Receive(*m_endpoint, index);
        bytes.resize(std::min<std::size_t>(bytes.size(), block->length));
        std::copy(bytes.begin(), bytes.end(), block->addr);
        std::copy(bytes.begin(), bytes.end(), m_shadow[index].begin());
        ibv_wc completion{};
        completion.wr_id = reinterpret_cast<std::uintptr_t>(block);
        completion.opcode = IBV_WC_RECV;
        completion.byte_len = static_cast<std::uint32_t>(bytes.size());
        Require(m_endpoint->On_completion(&completion) == 0, "a received frame goes on");
        const Expected expected = Decode(m_shadow[index], bytes.size());
        const int result = m_stream.AcquireImage();
        Require(result == (expected.accepted ? 0 : -1001), "a frame is delivered when its headers fit", result);
        Check(expected, index, bytes.size() != block->length);
    }

  private:
    void Check(const Expected& expected, std::size_t index, bool incomplete)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        unsigned long size = sizeof data;
        if (m_event->GetNumInQueue() == 0)
        {
            Require(!expected.accepted || m_buffers.empty(), "a fitting frame finds a buffer");
            return;
        }
        Require(expected.accepted, "a frame that does not fit is not delivered");
        Require(m_event->GetData(&data, &size, 0) == 0, "the buffer is fetched");
        const auto found = std::find_if(m_buffers.begin(), m_buffers.end(),
                                        [&](const Announced& other) { return other.handle == data.BufferHandle; });
        Require(found != m_buffers.end(), "the buffer is an announced one");
        CheckNumbers(*found, expected, incomplete);
        CheckData(*found, expected, index);
        Require(m_stream.QueueBuffer(found->handle) == 0, "a fetched buffer is queued again");
    }

    void CheckNumbers(const Announced& buffer, const Expected& expected, bool incomplete)
    {
        Require(Info(buffer, GenTL::BUFFER_INFO_SIZE_FILLED) == expected.dataSize, "the size of the data");
        Require(Info(buffer, GenTL::BUFFER_INFO_FRAMEID) == expected.frameId, "the frame id");
        Require(Info(buffer, GenTL::BUFFER_INFO_TIMESTAMP) == expected.timestamp, "the timestamp");
        Require(!incomplete || Info(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE) == 1, "a short frame is incomplete");
        CheckNonZero(buffer, GenTL::BUFFER_INFO_WIDTH, expected.width);
        CheckNonZero(buffer, GenTL::BUFFER_INFO_HEIGHT, expected.height);
        CheckNonZero(buffer, GenTL::BUFFER_INFO_PIXELFORMAT, expected.pixelFormat);
    }

    void CheckNonZero(const Announced& buffer, int command, std::uint64_t expected)
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        const int result = m_stream.GetBufferInfo(buffer.handle, command, &type, &value, &size);
        Require(expected == 0 ? result == -1003 : result == 0 && value == expected, "a number of the part header",
                command);
    }

    std::uint64_t Info(const Announced& buffer, int command)
    {
        std::uint64_t value = 0;
        unsigned long size = sizeof value;
        int type = 0;
        Require(m_stream.GetBufferInfo(buffer.handle, command, &type, &value, &size) == 0, "a buffer's number",
                command);
        return value;
    }

    void CheckData(const Announced& buffer, const Expected& expected, std::size_t index)
    {
        const auto base = reinterpret_cast<unsigned char*>(Info(buffer, GenTL::BUFFER_INFO_BASE));
        const unsigned char* const pixels = m_shadow[index].data() + expected.dataOffset;
        if (buffer.memory == nullptr)
        {
            const msg_buffer_mem* const block = LvEndpointAccess::Receive(*m_endpoint, index);
            Require(base == block->addr + expected.dataOffset, "the pixels are where the frame has them");
            Require(std::equal(base, base + expected.dataSize, pixels), "every delivered byte can be read");
            return;
        }
        Require(base == buffer.memory.get(), "the consumer's memory stays where it is");
        const std::size_t copied = std::min<std::size_t>(buffer.size, expected.dataSize);
        Require(std::equal(base, base + copied, pixels), "the pixels are copied");
        Require(base[buffer.size] == 0xA5, "nothing is written behind the buffer");
    }

    nq::test::FakeVerbs m_verbs;
    NQGevDataStream m_stream{nullptr, 0, nullptr};
    LvEndpoint* m_endpoint = nullptr;
    GigERDMA::NQGenTLEvent* m_event = nullptr;
    std::vector<Announced> m_buffers;
    std::vector<Bytes> m_shadow; ///< What each block holds.
};

/// A container with one picture in which the input replaces some words, cut somewhere, or the input's own bytes.
Bytes Frame(FuzzInput& input, std::size_t blockSize)
{
    if (input.Below(4) == 0)
    {
        return input.Take(input.Word() % (blockSize + 64));
    }
    Bytes frame = nq::test::GenDCFrame(input.Byte(), static_cast<std::uint32_t>(input.Below(32)),
                                       static_cast<std::uint32_t>(input.Below(32)));
    static constexpr std::size_t kFields[] = {16, 56, 88, 112, 128, 144, 148, 152, 156, 160, 164};
    for (std::size_t changes = input.Below(4); changes > 0; --changes)
    {
        const std::size_t field = kFields[input.Below(std::size(kFields))];
        nq::test::Put32(frame, field, input.Flag() ? input.DWord() : input.Byte());
    }
    if (input.Below(4) == 0)
    {
        frame.resize(input.Word() % (blockSize + 1));
    }
    return frame;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const std::size_t payload = input.Word() % 1200;
    Stream stream(payload);
    for (std::size_t count = input.Below(4); count > 0; --count)
    {
        stream.Announce(input.Word() % 1500, input.Flag());
    }
    while (!input.Empty())
    {
        stream.Frame(input.Below(kBlocks), Frame(input, payload + kDescriptor));
    }
    return 0;
}
