// SPDX-License-Identifier: Apache-2.0
// A copied frame, and what viewers want of it: samples of 8 or 16 bits in rows.
#pragma once

#include "frame.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

/// The pixels of one frame as the camera sent them. A frame that came short is filled up with zeros.
struct Picture
{
    size_t width = 0;
    size_t height = 0;
    uint64_t pixelFormat = 0;
    uint64_t frameId = 0;
    std::chrono::system_clock::time_point arrival;
    std::vector<uint8_t> bytes;
    uint64_t cameraTime = 0; ///< in ticks of the camera; 0 where it tells none
    uint32_t offsetX = 0;    ///< of the region on the sensor, in pixels
    uint32_t offsetY = 0;    ///< in lines
};

/// Copies a frame that was not refused into `memory`.
Picture CopyOf(const Frame& frame, std::chrono::system_clock::time_point arrival, std::vector<uint8_t> memory);

/// Whether pixels of that format can be turned into samples.
bool HasForm(uint64_t pixelFormat);

/// The format with that name of PFNC, as BayerRG12p, among those that can be turned into samples.
std::optional<uint64_t> PixelFormatOf(const std::string& name);

/// Samples row by row, without gaps. Those of 16 bits have the byte order of this machine.
struct Samples
{
    size_t width = 0;
    size_t height = 0;
    size_t channels = 1;    ///< 1 (grey, or the colours of a Bayer mosaic side by side) or 3 (red, green, blue)
    size_t bits = 8;        ///< 8 or 16
    size_t significant = 8; ///< as many bits, from the top of a sample, came from the camera
    std::vector<uint8_t> bytes;
};

/// The samples of a picture in a Mono, Bayer, RGB or BGR format of 8 to 16 bits, packed ones included; with `debayer`
/// a Bayer mosaic becomes red, green and blue, by the mean of the nearest pixels of a colour. Throws ToolFailure for
/// other formats.
Samples SamplesOf(const Picture& picture, bool debayer);

} // namespace nq::tool
