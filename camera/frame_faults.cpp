// SPDX-License-Identifier: Apache-2.0
// Spoils frames as the plan of faults says.
#include "frame_faults.h"

#include "byte_order.h"

#include <algorithm>

namespace nq::camera
{

std::int64_t FrameIdFault(FaultPlan& faults)
{
    const auto forward = static_cast<std::int64_t>(faults.Strike(Fault::IdJump).value_or(0));
    const auto back = static_cast<std::int64_t>(faults.Strike(Fault::IdBackwards).value_or(0));
    return forward - back;
}

std::size_t ApplyFrameFaults(FaultPlan& faults, std::span<std::uint8_t> frame)
{
    const auto put32 = [&](Fault fault, std::size_t at) {
        if (const auto value = faults.Strike(fault))
        {
            PutLittle(&frame[at], static_cast<std::uint32_t>(*value));
        }
    };
    put32(Fault::WrongComponentOffset, gendc::kFirstComponentOffsetAt);
    put32(Fault::WildPartOffset, gendc::kFirstPartOffsetAt);
    put32(Fault::WildDataOffset, gendc::kPartDataOffsetAt);
    if (const auto value = faults.Strike(Fault::HugeDataSize))
    {
        PutLittle(&frame[gendc::kPartDataSizeAt], *value);
    }
    if (const auto cut = faults.Strike(Fault::ShortFrame))
    {
        const std::size_t missing = *cut > 0 ? *cut : (frame.size() - gendc::kDescriptorSize) / 2;
        return frame.size() - std::min(missing, frame.size());
    }
    return faults.Strike(Fault::EmptyFrame) ? 0 : frame.size();
}

} // namespace nq::camera
