// SPDX-License-Identifier: Apache-2.0
// Names of pictures by a pattern with {camera}, {id} and {time}, or {file} and {id}.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace nq::tool
{

/// What a name can tell.
struct NameFields
{
    std::string camera;
    uint64_t id = 0;
    std::chrono::system_clock::time_point time;
    std::string file{}; ///< that the picture comes from, without folder and extension
};

/// In UTC to the microsecond, as 20260131T235959.123456Z.
std::string TimeText(std::chrono::system_clock::time_point time);

/// Why no names can be made by the pattern, in words for the user; empty when they can.
std::string WhyNoPattern(const std::string& pattern);

/// The same for a pattern of {file} and {id}.
std::string WhyNoPatternOfFiles(const std::string& pattern);

/// What {camera} stands for: the text with "_" for what is no letter, digit, "-", "_" or inner dot.
std::string SafeName(const std::string& text);

/// The name without an extension: {camera} as SafeName() has it, {id} with
/// eight digits or more, {time} as TimeText() has it.
std::string NameBy(const std::string& pattern, const NameFields& fields);

} // namespace nq::tool
