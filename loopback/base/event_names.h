// SPDX-License-Identifier: Apache-2.0
// Names of connection-manager events.
#pragma once

#include <optional>
#include <string>

namespace nq::loopback
{

/// The name of an rdma_cm_event_type, "UNKNOWN EVENT" for others.
const char* CmEventName(int event);

/// The rdma_cm_event_type of that name.
std::optional<int> CmEventByName(const std::string& name);

} // namespace nq::loopback
