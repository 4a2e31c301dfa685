// SPDX-License-Identifier: Apache-2.0
// Names of connection-manager events.
#include "base/event_names.h"

#include <iterator>

namespace nq::loopback
{

namespace
{

// In the order of rdma_cm_event_type.
constexpr const char* kNames[] = {
    "RDMA_CM_EVENT_ADDR_RESOLVED",  "RDMA_CM_EVENT_ADDR_ERROR",      "RDMA_CM_EVENT_ROUTE_RESOLVED",
    "RDMA_CM_EVENT_ROUTE_ERROR",    "RDMA_CM_EVENT_CONNECT_REQUEST", "RDMA_CM_EVENT_CONNECT_RESPONSE",
    "RDMA_CM_EVENT_CONNECT_ERROR",  "RDMA_CM_EVENT_UNREACHABLE",     "RDMA_CM_EVENT_REJECTED",
    "RDMA_CM_EVENT_ESTABLISHED",    "RDMA_CM_EVENT_DISCONNECTED",    "RDMA_CM_EVENT_DEVICE_REMOVAL",
    "RDMA_CM_EVENT_MULTICAST_JOIN", "RDMA_CM_EVENT_MULTICAST_ERROR", "RDMA_CM_EVENT_ADDR_CHANGE",
    "RDMA_CM_EVENT_TIMEWAIT_EXIT",
};

} // namespace

const char* CmEventName(int event)
{
    return event >= 0 && event < static_cast<int>(std::size(kNames)) ? kNames[event] : "UNKNOWN EVENT";
}

std::optional<int> CmEventByName(const std::string& name)
{
    for (int event = 0; event < static_cast<int>(std::size(kNames)); ++event)
    {
        if (name == kNames[event])
        {
            return event;
        }
    }
    return std::nullopt;
}

} // namespace nq::loopback
