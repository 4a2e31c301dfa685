// SPDX-License-Identifier: Apache-2.0
// What this process has, threads and descriptors, and the arguments of others.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

namespace nq::test
{

/// Number of descriptors, that of the count included.
inline long Descriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/// The arguments of a process, by its folder in /proc, each with a NUL behind it. Empty for one that ends meanwhile, as
/// its arguments cannot be read then.
inline std::string ArgumentsOf(const std::filesystem::path& process)
{
    std::ostringstream arguments;
    arguments << std::ifstream(process / "cmdline").rdbuf();
    return arguments.str();
}

/// Number of threads but those with that name. A thread that was joined stands in /proc until the
/// kernel has put it away, which may take any time; it does not count.
inline long LivingThreads(const std::string& otherThan = "")
{
    constexpr unsigned long kExiting = 4; // PF_EXITING
    long living = 0;
    for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task"))
    {
        std::ifstream file(thread.path() / "stat");
        std::string text;
        std::getline(file, text);
        const auto end = text.rfind(") ");
        if (end == std::string::npos)
        {
            continue; // gone meanwhile
        }
        std::istringstream fields(text.substr(end + 2));
        std::string skipped;
        unsigned long flags = 0;
        fields >> skipped >> skipped >> skipped >> skipped >> skipped >> skipped >> flags;
        const bool named = !otherThan.empty() && text.find(" (" + otherThan + ") ") != std::string::npos;
        living += (flags & kExiting) == 0 && !named ? 1 : 0;
    }
    return living;
}

} // namespace nq::test
