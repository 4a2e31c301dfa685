// SPDX-License-Identifier: Apache-2.0
// What the system says of pages of this process.
#pragma once

#include <cstdint>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace nq::test
{

/// The system's two-letter flags of the page at `address`, "dc" for not copied by a fork, "hg" for huge pages asked for
/// (proc_pid_smaps(5)).
inline std::set<std::string> PageFlags(const void* address)
{
    const auto page = reinterpret_cast<std::uintptr_t>(address);
    std::ifstream maps("/proc/self/smaps");
    bool here = false;
    for (std::string line; std::getline(maps, line);)
    {
        std::uintptr_t first = 0;
        std::uintptr_t last = 0;
        char dash = 0;
        std::istringstream words(line);
        if (words >> std::hex >> first >> dash >> last && dash == '-')
        {
            here = first <= page && page < last;
        }
        else if (here && line.rfind("VmFlags:", 0) == 0)
        {
            std::istringstream flags(line.substr(8));
            return {std::istream_iterator<std::string>(flags), {}};
        }
    }
    return {};
}

} // namespace nq::test
