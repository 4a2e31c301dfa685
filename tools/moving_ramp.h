// SPDX-License-Identifier: Apache-2.0
// The moving ramp of nq-gev-camera, recomputed to check every byte of a frame.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace nq::tool
{

/// Checks 8-bit pictures against the moving ramp: pixel (x, y) of frame n is (x + y + 7 n) modulo 256.
class MovingRamp
{
  public:
    /// The number of bytes of a `width` x `height` picture that differ from the ramp of frame `frameId`. Bytes missing
    /// at the end (`size` below width times height) count as wrong.
    size_t CountWrongBytes(const uint8_t* pixels, size_t size, size_t width, size_t height, uint64_t frameId);

  private:
    std::vector<uint8_t> m_ramp; ///< 0, 1, ... 255, 0, 1, ...: every row of a picture is a piece of it
};

} // namespace nq::tool
