// SPDX-License-Identifier: Apache-2.0
// Frames as a camera sends them, byte by byte, for unit tests that decode them.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

namespace nq::test
{

using FrameBytes = std::vector<unsigned char>;

inline void Put32(FrameBytes& frame, std::size_t offset, std::uint32_t value)
{
    std::memcpy(frame.data() + offset, &value, 4);
}

inline void Put64(FrameBytes& frame, std::size_t offset, std::uint64_t value)
{
    std::memcpy(frame.data() + offset, &value, 8);
}

/// A container with one component at 64, one part header at 120 and the pixels from 176 on. Pixel n is n modulo 256.
inline FrameBytes GenDCFrame(std::uint64_t frameId, std::uint32_t width, std::uint32_t height)
{
    const std::size_t pixels = std::size_t{width} * height;
    FrameBytes frame(176 + pixels, 0);
    Put64(frame, 16, frameId);
    Put32(frame, 56, 64);
    Put64(frame, 88, 1000000 + frameId); // timestamp
    Put32(frame, 112, 120);              // first part
    frame[120] = 0x00;                   // header type 0x4200
    frame[121] = 0x42;
    frame[122] = 0x05;             // header flags
    Put32(frame, 124, 56);         // header size
    Put32(frame, 128, 0x01080001); // Mono8
    Put32(frame, 132, 0x11223344); // flow info
    Put64(frame, 136, 0x5566778899AABBCC);
    Put64(frame, 144, pixels);
    Put64(frame, 152, 176);
    Put32(frame, 160, width);
    Put32(frame, 164, height);
    Put64(frame, 168, 0x0102030405060708);
    for (std::size_t pixel = 0; pixel < pixels; ++pixel)
    {
        frame[176 + pixel] = static_cast<unsigned char>(pixel);
    }
    return frame;
}

} // namespace nq::test
