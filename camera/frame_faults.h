// SPDX-License-Identifier: Apache-2.0
// Spoils frames as the plan of faults says.
#pragma once

#include "fault_plan.h"
#include "gendc_frame.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace nq::camera
{

/// How far the id of the next frame is to be shifted.
std::int64_t FrameIdFault(FaultPlan& faults);

/// Changes a finished frame. Returns the number of its bytes that are to be sent.
std::size_t ApplyFrameFaults(FaultPlan& faults, std::span<std::uint8_t> frame);

} // namespace nq::camera
