// SPDX-License-Identifier: Apache-2.0
// What a transport knows of a frame beyond its pixels.
#pragma once

#include <climits>

namespace GigERDMA
{

struct NQFrameDetails
{
    unsigned long received = ULONG_MAX; ///< Bytes of pixels that came; a whole frame's may be more than it has.
    unsigned long xOffset = 0;          ///< Pixels from the left of the sensor's image.
    unsigned long yOffset = 0;          ///< Lines from its top.
    unsigned long xPadding = 0;         ///< Bytes behind each line.
    unsigned long yPadding = 0;         ///< Bytes behind the last line.
    unsigned long tickFrequency = 0;    ///< Ticks of the timestamp in a second, 0 when not known.

    /// The first pixels, where they do not lie before the others: `frontSize` bytes.
    const unsigned char* front = nullptr;
    unsigned long frontSize = 0;
};

} // namespace GigERDMA
