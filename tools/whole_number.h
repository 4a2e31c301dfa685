// SPDX-License-Identifier: Apache-2.0
// The numbers on the command line: their range, told in our own words.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>

namespace nq::tool
{

constexpr uint64_t kMostMs = 86'400'000; ///< a day is the longest that anything waits

/// Accepts decimal numbers from `least` to `most`; tells anything else with the range and the unit.
CLI::Validator WholeNumber(uint64_t least, uint64_t most, const char* unit = "");

} // namespace nq::tool
