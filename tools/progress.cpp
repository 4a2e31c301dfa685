// SPDX-License-Identifier: Apache-2.0
// How far a grab is, on standard error: in place on a terminal, else a line now and then.
#include "progress.h"

#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr std::chrono::milliseconds kInPlace{200};
constexpr std::chrono::seconds kLines{10};

std::string FreeDisk(const std::string& folder)
{
    std::error_code unknown;
    const std::filesystem::space_info space = std::filesystem::space(folder, unknown);
    return unknown ? std::string() : fmt::format(", {:.1f} GB free", static_cast<double>(space.available) / 1e9);
}

} // namespace

Progress::Progress(uint64_t count, std::string folder)
    : m_count(count), m_folder(std::move(folder)), m_terminal(isatty(STDERR_FILENO) != 0),
      m_next(GrabTotals::Clock::now() + (m_terminal ? GrabTotals::Clock::duration(kInPlace) : kLines))
{
}

void Progress::Show(const GrabTotals& totals)
{
    const GrabTotals::Clock::time_point now = GrabTotals::Clock::now();
    if (now < m_next)
    {
        return;
    }
    m_next = now + (m_terminal ? GrabTotals::Clock::duration(kInPlace) : kLines);
    const std::string text = fmt::format(
        "{}{} frames, {:.1f} frames/s, {} lost{}", totals.frames, m_count == 0 ? "" : fmt::format("/{}", m_count),
        totals.FramesPerSecond().value_or(0), totals.lost, m_folder.empty() ? "" : FreeDisk(m_folder));
    constexpr const char* kEraseTheRest = "\033[K";
    fmt::print(stderr, "{}{}{}", m_terminal ? "\r" : "", text, m_terminal ? kEraseTheRest : "\n");
}

} // namespace nq::tool
