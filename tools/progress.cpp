// SPDX-License-Identifier: Apache-2.0
// How far a grab is, on standard error: in place on a terminal, else a line now and then.
#include "progress.h"

#include "printable.h"

#include <chrono>
#include <filesystem>
#include <fmt/format.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr std::chrono::milliseconds kInPlace{200};
constexpr std::chrono::seconds kLines{10};

constexpr const char* kEraseTheRest = "\033[K";

/// As much of the line as has room in one of the terminal: what wraps cannot be written over.
std::string Clipped(const std::string& line)
{
    winsize size{};
    const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
    return known ? line.substr(0, size.ws_col - 1U) : line;
}

std::string FreeDisk(const std::string& folder)
{
    std::error_code unknown;
    const std::filesystem::space_info space = std::filesystem::space(folder, unknown);
    return unknown ? std::string() : fmt::format(", {:.1f} GB free", static_cast<double>(space.available) / 1e9);
}

} // namespace

Progress::Progress(std::vector<std::string> cameras, uint64_t count, std::string folder)
    : m_cameras(std::move(cameras)), m_count(count), m_folder(std::move(folder)),
      m_terminal(isatty(STDERR_FILENO) != 0), m_totals(m_cameras.size()),
      m_next(GrabTotals::Clock::now() + (m_terminal ? GrabTotals::Clock::duration(kInPlace) : kLines))
{
}

std::string Progress::Line() const
{
    std::string line;
    for (size_t at = 0; at < m_cameras.size(); ++at)
    {
        const GrabTotals& totals = m_totals[at];
        line += fmt::format("{}{}{}{} frames, {:.1f} frames/s, {} lost", at == 0 ? "" : "; ",
                            m_cameras.size() == 1 ? "" : Printable(m_cameras[at]) + ": ", totals.frames,
                            m_count == 0 ? "" : fmt::format("/{}", m_count), totals.FramesPerSecond().value_or(0),
                            totals.lost);
    }
    return line + (m_folder.empty() ? "" : FreeDisk(m_folder));
}

void Progress::Show(size_t camera, const GrabTotals& totals)
{
    const std::lock_guard lock(m_mutex);
    m_totals[camera] = totals;
    const GrabTotals::Clock::time_point now = GrabTotals::Clock::now();
    if (now < m_next)
    {
        return;
    }
    m_next = now + (m_terminal ? GrabTotals::Clock::duration(kInPlace) : kLines);
    if (m_terminal)
    {
        fmt::print(stderr, "\r{}{}", Clipped(Line()), kEraseTheRest);
    }
    else
    {
        fmt::print(stderr, "{}\n", Line());
    }
}

void Progress::Say(size_t camera, const std::string& text)
{
    const std::lock_guard lock(m_mutex);
    fmt::print(stderr, "{}nq-gev: {}{}\n", m_terminal ? fmt::format("\r{}", kEraseTheRest) : "",
               m_cameras.size() == 1 ? "" : Printable(m_cameras[camera]) + ": ", Printable(text));
}

} // namespace nq::tool
