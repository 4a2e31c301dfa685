// SPDX-License-Identifier: Apache-2.0
// What a camera keeps when it is switched off.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace nq::camera
{

/// Values of features by name, one for each register.
using FeatureValues = std::map<std::string, std::vector<double>>;

/// Which address the camera takes when it is switched on.
struct IpConfiguration
{
    /// As in the bootstrap register.
    std::uint32_t flags = 0;
    std::uint32_t address = 0;
    std::uint32_t netmask = 0;
    std::uint32_t gateway = 0;
};

/// What outlives a reset, and with a file a restart.
struct CameraState
{
    std::string userName = {};
    /// Value of UserSetDefault.
    std::uint32_t defaultSet = 0;
    /// The user sets that were saved, by the value of UserSetSelector.
    std::map<std::uint32_t, FeatureValues> sets = {};
    IpConfiguration ip = {};
};

/// Makes sure that a camera can read what the file holds and write it anew. Throws std::runtime_error, which names the
/// file, when it is no plain file, holds no state, or lies where nothing can be written.
void NeedUsableState(const std::string& path);

/// The state that a JSON file holds; `absent` when there is no such file. What is no number of a feature is left out.
/// Throws std::runtime_error, which names the file, when it cannot be read or holds no JSON object.
CameraState ReadState(const std::string& path, const CameraState& absent);

/// Replaces the file as a whole. False when that fails.
bool WriteState(const std::string& path, const CameraState& state);

} // namespace nq::camera
