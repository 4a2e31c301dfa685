// SPDX-License-Identifier: Apache-2.0
// The records that pass between the RDMA endpoint, its facade and the data stream.
#pragma once

#include "rdma/gendc_wire.h"

#include <cstddef>
#include <cstdint>

struct ibv_mr;

/// What a camera says about its frames, and how many frame blocks the host makes for them.
/// NQGevRemoteDevice::GetBufferSettings fills all but `bufferCount`, which the data stream fills.
struct gevrdmaBufferSettings
{
    std::uint64_t blockWord160; ///< Carried unread.
    std::uint64_t blockWord164; ///< Carried unread.
    std::uint64_t payloadSize;  ///< Bytes of payload in one frame, without the GenDC descriptor.
    std::uint32_t blockByte130; ///< Carried unread.
    std::uint32_t bufferCount;  ///< Number of frame blocks.
};

static_assert(offsetof(gevrdmaBufferSettings, blockWord160) == 0);
static_assert(offsetof(gevrdmaBufferSettings, blockWord164) == 8);
static_assert(offsetof(gevrdmaBufferSettings, payloadSize) == 16);
static_assert(offsetof(gevrdmaBufferSettings, blockByte130) == 24);
static_assert(offsetof(gevrdmaBufferSettings, bufferCount) == 28);
static_assert(sizeof(gevrdmaBufferSettings) == 32);

/// One registered piece of memory. The address of a receive descriptor is the frame's identity everywhere: the id of
/// its work request, `gevrdmaBuffer::id`, and the RDMA id of a GenTL buffer. It points at memory it does not own.
struct msg_buffer_mem
{
    unsigned char* addr;    ///< Start of the memory.
    std::uint32_t length;   ///< Bytes that a frame can have here. Set for receive descriptors only.
    std::uint32_t received; ///< Bytes of the latest receive completion.
    ibv_mr* mr;             ///< Null when the memory could not be registered: such a descriptor is never posted.
};

static_assert(offsetof(msg_buffer_mem, addr) == 0);
static_assert(offsetof(msg_buffer_mem, length) == 8);
static_assert(offsetof(msg_buffer_mem, received) == 12);
static_assert(offsetof(msg_buffer_mem, mr) == 16);
static_assert(sizeof(msg_buffer_mem) == 24);

/// Handle of one received frame. All zero means no frame; a frame is incomplete when `size` and `received` differ.
struct gevrdmaBuffer
{
    void* id;               ///< The receive descriptor.
    unsigned char* data;    ///< Start of the frame block; of a frame in two pieces, of the second one.
    std::uint32_t size;     ///< Bytes of the frame block, or of both pieces.
    std::uint32_t received; ///< Bytes that arrived.
};

static_assert(offsetof(gevrdmaBuffer, id) == 0);
static_assert(offsetof(gevrdmaBuffer, data) == 8);
static_assert(offsetof(gevrdmaBuffer, size) == 16);
static_assert(offsetof(gevrdmaBuffer, received) == 20);
static_assert(sizeof(gevrdmaBuffer) == 24);

/// One decoded frame. The fields from `headerType` to `padding` are the GenDC part header as it lies in the frame
/// block.
struct FrameInfo
{
    std::uint16_t headerType;
    std::uint16_t headerFlags;
    std::uint32_t headerSize;
    std::uint32_t pixelFormat; ///< PFNC value.
    std::uint32_t flowInfo;
    std::uint64_t flowOffset;
    std::uint64_t dataSize;   ///< Bytes of pixel data.
    std::uint64_t dataOffset; ///< From the start of the block; only the low 32 bits are used.
    std::uint32_t width;      ///< Pixels.
    std::uint32_t height;     ///< Lines.
    std::uint64_t padding;
    unsigned char* data;     ///< The pixel data inside the frame block, but for what FrameRegion says.
    std::uint64_t timestamp; ///< Ticks of the camera's clock, from the component header.
    std::uint64_t frameId;   ///< The container id.
};

/// Where the pixels of a frame belong, and how many came (EMVA GenDC: component header, two-dimensional part header).
struct FrameRegion
{
    std::uint32_t x;        ///< Pixels from the left of the sensor's image.
    std::uint32_t y;        ///< Lines from its top.
    std::uint16_t xPadding; ///< Bytes behind each line.
    std::uint16_t yPadding; ///< Bytes behind the last line.
    std::uint64_t received; ///< Bytes that arrived from the first pixel on.

    /// The first pixels, where they lie in another piece than the rest of them: `frontSize` bytes.
    const unsigned char* front;
    std::uint64_t frontSize;
};

static_assert(offsetof(FrameInfo, headerType) == gendc_wire::kPartType);
static_assert(offsetof(FrameInfo, headerFlags) == gendc_wire::kPartFlags);
static_assert(offsetof(FrameInfo, headerSize) == gendc_wire::kPartSize);
static_assert(offsetof(FrameInfo, pixelFormat) == gendc_wire::kPartFormat);
static_assert(offsetof(FrameInfo, flowInfo) == gendc_wire::kPartFlowId);
static_assert(offsetof(FrameInfo, flowOffset) == gendc_wire::kPartFlowOffset);
static_assert(offsetof(FrameInfo, dataSize) == gendc_wire::kPartDataSize);
static_assert(offsetof(FrameInfo, dataOffset) == gendc_wire::kPartDataOffset);
static_assert(offsetof(FrameInfo, width) == gendc_wire::kPartWidth);
static_assert(offsetof(FrameInfo, height) == gendc_wire::kPartHeight);
static_assert(offsetof(FrameInfo, padding) == gendc_wire::kPartPadding);
static_assert(offsetof(FrameInfo, data) == gendc_wire::kPartHeaderSize);
static_assert(offsetof(FrameInfo, timestamp) == 64);
static_assert(offsetof(FrameInfo, frameId) == 72);
static_assert(sizeof(FrameInfo) == 80);
