// SPDX-License-Identifier: Apache-2.0
// The families in the order in which they are tried.
#include "families.h"

#include <vector>

namespace nq::check
{

std::span<const Family> Families()
{
    static const std::vector<Family> kFamilies = {
        {"exports and versions, init and close", LibraryRules()},
        {"info calls", InfoRules()},
        {"handles", HandleRules()},
        {"lists, ids and opening", ListRules()},
        {"events", EventRules()},
        {"buffers and queues", BufferRules()},
        {"acquisition", AcquisitionRules()},
        {"delivery", DeliveryRules()},
        {"ports, URLs and descriptions", PortRules()},
        {"features of the descriptions", FeatureRules()},
        {"threads and processes", ProcessRules()},
    };
    return kFamilies;
}

std::string_view ToText(Severity severity)
{
    constexpr std::string_view kTexts[] = {"must", "should", "may", "hint"};
    return kTexts[static_cast<int>(severity)];
}

std::string_view ToText(Needs needs)
{
    constexpr std::string_view kTexts[] = {"nothing", "a camera", "a stream"};
    return kTexts[static_cast<int>(needs)];
}

} // namespace nq::check
