// SPDX-License-Identifier: Apache-2.0
// Where the cameras of a grab tell of their frames.
#include "grab_report.h"

#include "name_pattern.h"

#include <fmt/format.h>

namespace nq::tool
{

namespace
{

nlohmann::ordered_json NumberOrNull(std::optional<uint64_t> number)
{
    return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

} // namespace

nlohmann::ordered_json FrameLine(const Frame& frame, const GrabbedCamera& camera, uint64_t lostBefore,
                                 std::chrono::system_clock::time_point arrival)
{
    nlohmann::ordered_json flags = nlohmann::ordered_json::array();
    if (frame.incomplete)
    {
        flags.push_back("incomplete");
    }
    if (!frame.refusal.empty())
    {
        flags.push_back("refused");
    }
    return {{"id", frame.frameId},
            {"camera", camera.name},
            {"camera_id", camera.id},
            {"camera_time", NumberOrNull(frame.cameraTime)},
            {"camera_time_ns", NumberOrNull(frame.cameraTimeNs)},
            {"arrival", TimeText(arrival)},
            {"size", frame.size},
            {"width", frame.width},
            {"height", frame.height},
            {"pixel_format", fmt::format("0x{:08x}", frame.pixelFormat)},
            {"flags", flags},
            {"lost_before", lostBefore}};
}

void AddLine(MetadataFile& file, const nlohmann::ordered_json& line)
{
    file.Add(line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

} // namespace nq::tool
