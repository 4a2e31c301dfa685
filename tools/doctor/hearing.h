// SPDX-License-Identifier: Apache-2.0
// Which cameras answer a discovery that is broadcast from every adapter, beside every producer.
#pragma once

#include "doctor/adapters.h"

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace nq::tool::doctor
{

/// What a camera tells in its answer, and where it was heard.
struct HeardCamera
{
    std::string adapter;
    uint64_t macAddress = 0;
    Subnet subnet;
    std::string model;
    std::string version;
    std::string serial;
    std::string userName;
};

/// Listens on all adapters that are up for that time, in one thread, and gives each camera once per adapter. An adapter
/// that has no socket hears nothing.
std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time);

} // namespace nq::tool::doctor
