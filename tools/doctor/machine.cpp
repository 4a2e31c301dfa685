// SPDX-License-Identifier: Apache-2.0
// What the kernel tells in files, of this machine or of one that was made up.
#include "doctor/machine.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace fs = std::filesystem;

std::string Machine::PathOf(const std::string& path) const
{
    return fs::path(m_root) / path;
}

std::optional<std::string> Machine::Text(const std::string& path) const
{
    std::error_code ignored;
    std::ifstream file(PathOf(path), std::ios::binary);
    if (!file || fs::is_directory(PathOf(path), ignored))
    {
        return std::nullopt;
    }
    try
    {
        std::string text{std::istreambuf_iterator<char>(file), {}};
        text.resize(text.find_last_not_of(" \t\r\n") + 1);
        return text;
    }
    catch (const std::ios_base::failure&)
    {
        return std::nullopt; // as of the type of a GID that a port does not have
    }
}

bool Machine::Has(const std::string& path) const
{
    std::error_code ignored;
    return fs::exists(PathOf(path), ignored);
}

std::vector<std::string> Machine::Names(const std::string& folder) const
{
    std::vector<std::string> names;
    std::error_code failed;
    fs::directory_iterator entry(PathOf(folder), failed);
    while (!failed && entry != fs::directory_iterator())
    {
        names.push_back(entry->path().filename());
        entry.increment(failed);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string Machine::WhyNotOpen(const std::string& path) const
{
    const int file = open(PathOf(path).c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
    {
        return std::generic_category().message(errno);
    }
    close(file);
    return {};
}

std::map<std::string, uint64_t> Machine::Numbers(const std::string& path) const
{
    std::map<std::string, uint64_t> numbers;
    std::istringstream lines(Text(path).value_or(""));
    for (std::string line; std::getline(lines, line);)
    {
        const size_t colon = line.find(':');
        if (colon != std::string::npos)
        {
            const size_t start = std::min(line.find_first_not_of(" \t"), colon);
            numbers[line.substr(start, colon - start)] = std::strtoull(line.c_str() + colon + 1, nullptr, 10);
        }
    }
    return numbers;
}

std::optional<std::string> StartedWith(const std::string& variable)
{
    // What the program has set itself since does not show there.
    std::ifstream file("/proc/self/environ", std::ios::binary);
    for (std::string entry; std::getline(file, entry, '\0');)
    {
        if (entry.starts_with(variable + "="))
        {
            return entry.substr(variable.size() + 1);
        }
    }
    return std::nullopt;
}

} // namespace nq::tool::doctor
