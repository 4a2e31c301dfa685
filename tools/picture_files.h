// SPDX-License-Identifier: Apache-2.0
// The forms in which a picture is written to an open file.
#pragma once

#include "picture.h"

#include <cstdio>

namespace nq::tool
{

#ifdef NQ_WITH_TIFF
constexpr bool kWithTiff = true;
#else
constexpr bool kWithTiff = false;
#endif

/// Each writes the picture to `file`, which is open for writing at its begin. False when the file refuses; errno tells
/// why. Any thread may call.
bool WritePng(std::FILE* file, const Samples& samples);
bool WriteTiff(std::FILE* file, const Samples& samples);

} // namespace nq::tool
