// SPDX-License-Identifier: Apache-2.0
// What the user asked of a grab.
#pragma once

#include "picture_writer.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace nq::tool
{

struct GrabOptions
{
    std::string camera;
    PictureOptions pictures;
    uint64_t count = 1;
    uint64_t saveEvery = 1;
    uint64_t allowLoss = 0; ///< lost and incomplete frames that are no failure
    size_t buffers = 4;
    bool announce = false;
    bool verify = false;
    uint64_t frameTimeoutMs = 5000;
};

} // namespace nq::tool
