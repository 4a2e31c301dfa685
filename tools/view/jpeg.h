// SPDX-License-Identifier: Apache-2.0
// Pictures for a browser.
#pragma once

#include "picture.h"

#include <string>

namespace nq::tool::view
{

/// The picture as JPEG; of samples with more than 8 bits the upper 8. Throws ToolFailure when it is too large for a
/// JPEG (65500 pixels a side).
std::string JpegOf(const Samples& samples);

} // namespace nq::tool::view
