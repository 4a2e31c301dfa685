// SPDX-License-Identifier: Apache-2.0
// Every info command of every module of a producer, in every state that disturbs nobody.
#pragma once

#include "camera_tree.h"

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>

namespace nq::tool
{

/// Asks the library, the system, its interfaces and cameras, closed and open, their streams, a buffer that is announced
/// and then queued, and the ports and events of them all. Cameras are opened for reading and nothing is started. Looks
/// for them during `timeoutMs` milliseconds on each interface, and calls `afterEach` behind each step that may take
/// long.
///
/// A list of modules as docs/nq-gev.schema.json has them; their texts as they came, which need not be UTF-8. A module
/// that cannot be opened has its reason. Throws GenTLError when the lists of modules cannot be had.
nlohmann::ordered_json ModuleInfos(const System& system, uint64_t timeoutMs, const std::function<void()>& afterEach);

} // namespace nq::tool
