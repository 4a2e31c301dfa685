// SPDX-License-Identifier: Apache-2.0
// The script of each shell for a table of verbs and options.
#pragma once

#include "command_table.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace nq::completion
{

/// The parts, one behind the other.
inline std::string Joined(std::initializer_list<std::string_view> parts)
{
    std::string all;
    for (const std::string_view part : parts)
    {
        all += part;
    }
    return all;
}

/// Names of cameras come from the file that `nq-gev list` wrote, so that no key sends a packet.
std::string BashScript(const CommandTable& table);
std::string ZshScript(const CommandTable& table);
std::string FishScript(const CommandTable& table);

} // namespace nq::completion
