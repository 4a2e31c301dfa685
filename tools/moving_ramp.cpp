// SPDX-License-Identifier: Apache-2.0
// The moving ramp of nq-gev-camera, recomputed to check every byte of a frame.
#include "moving_ramp.h"

#include <algorithm>
#include <cstring>

namespace nq::tool
{

size_t MovingRamp::CountWrongBytes(const uint8_t* pixels, size_t size, size_t width, size_t height, uint64_t frameId)
{
    for (size_t next = m_ramp.size(); next < width + 256; ++next)
    {
        m_ramp.push_back(static_cast<uint8_t>(next & 0xFF));
    }
    size_t wrong = 0;
    for (size_t y = 0; y < height; ++y)
    {
        const size_t begin = std::min(size, y * width);
        const size_t present = std::min(width, size - begin);
        const uint8_t* row = pixels + begin;
        const uint8_t* expected = m_ramp.data() + ((y + 7 * frameId) & 0xFF);
        wrong += width - present;
        if (std::memcmp(row, expected, present) != 0)
        {
            for (size_t x = 0; x < present; ++x)
            {
                wrong += row[x] != expected[x] ? 1 : 0;
            }
        }
    }
    return wrong;
}

} // namespace nq::tool
