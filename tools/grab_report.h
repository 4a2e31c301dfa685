// SPDX-License-Identifier: Apache-2.0
// Where the cameras of a grab tell of their frames.
#pragma once

#include "frame.h"
#include "frame_times.h"
#include "metadata_file.h"
#include "progress.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace nq::tool
{

/// Where the grabbers of all cameras tell of their frames.
struct GrabReport
{
    Progress progress;
    std::unique_ptr<MetadataFile> metadata; ///< null for none
    FrameTimes* times = nullptr;            ///< of one camera alone; null for none
};

/// One camera among those of a grab.
struct GrabbedCamera
{
    size_t index; ///< in the report
    std::string id;
    std::string name; ///< short, for files and people
};

/// The line of --metadata about a frame, as far as it is the same for all ways to take frames.
nlohmann::ordered_json FrameLine(const Frame& frame, const GrabbedCamera& camera, uint64_t lostBefore,
                                 std::chrono::system_clock::time_point arrival);

/// Has the line written.
void AddLine(MetadataFile& file, const nlohmann::ordered_json& line);

} // namespace nq::tool
