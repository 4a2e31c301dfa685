// SPDX-License-Identifier: Apache-2.0
// The numbers on the command line: their range, told in our own words.
#include "whole_number.h"

#include <charconv>
#include <fmt/format.h>

namespace nq::tool
{

CLI::Validator WholeNumber(uint64_t least, uint64_t most, const char* unit)
{
    const std::string range = fmt::format("{} to {}{}{}", least, most, *unit == 0 ? "" : " ", unit);
    const auto judge = [=](const std::string& text) {
        uint64_t number = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        const bool fits = error == std::errc() && stop == end && number >= least && number <= most;
        return fits ? std::string() : fmt::format("takes a whole number from {}, not \"{}\"", range, text);
    };
    return {judge, range};
}

} // namespace nq::tool
