// SPDX-License-Identifier: Apache-2.0
// What the user asked of a grab.
#pragma once

#include "picture_writer.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nq::tool
{

/// The largest numbers of frames and of buffers that the options take.
constexpr uint64_t kMostFrames = 1'000'000'000'000;
constexpr size_t kMostBuffers = 65536;

struct GrabOptions
{
    const char* verb = "grab";        ///< for advice
    std::vector<std::string> cameras; ///< what names each; empty for the only one
    bool allCameras = false;
    std::vector<std::string> settings; ///< "NAME=VALUE" for features that are set before the start
    PictureOptions pictures;
    std::string metadata;   ///< file for one line of JSON per frame, or "-" for standard output; empty for none
    uint64_t count = 0;     ///< 0 for as many as come
    uint64_t durationS = 0; ///< seconds; 0 for as long as it takes
    uint64_t burst = 0;     ///< frames of each burst; 0 for every frame
    uint64_t everyS = 1;    ///< seconds from the begin of one to that of the next
    uint64_t ringS = 0;     ///< seconds to keep in memory until somebody asks for them; 0 for none
    std::string onEvent;    ///< of a camera, which asks; empty for none
    uint64_t saveEvery = 1;
    uint64_t allowLoss = 0; ///< lost and incomplete frames that are no failure
    size_t buffers = 4;
    bool announce = false;
    bool verify = false;
    uint64_t frameTimeoutMs = 5000;
    uint32_t waitSeconds = 0; ///< how long another program may still control the camera
};

} // namespace nq::tool
