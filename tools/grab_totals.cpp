// SPDX-License-Identifier: Apache-2.0
// What a grab counts, and how it is summed up for people and for programs.
#include "grab_totals.h"

#include <fmt/format.h>

namespace nq::tool
{

namespace
{

nlohmann::ordered_json NumberOrNull(std::optional<double> number)
{
    return number ? nlohmann::ordered_json(*number) : nlohmann::ordered_json(nullptr);
}

} // namespace

void GrabTotals::Arrived(Clock::time_point now, size_t size)
{
    if (!m_paused)
    {
        m_time += now - m_last;
        ++m_timedFrames;
        m_timedBytes += size;
    }
    m_paused = false;
    m_last = now;
    ++frames;
    bytes += size;
}

std::optional<double> GrabTotals::PerSecond(double amount) const
{
    return m_time > Clock::duration::zero() ? std::optional(amount / Seconds()) : std::nullopt;
}

std::optional<double> GrabTotals::FramesPerSecond() const
{
    return PerSecond(static_cast<double>(m_timedFrames));
}

std::optional<double> GrabTotals::MegabytesPerSecond() const
{
    return PerSecond(static_cast<double>(m_timedBytes) / 1e6);
}

nlohmann::ordered_json GrabTotals::Json() const
{
    return {{"frames", frames},
            {"lost", lost},
            {"incomplete", incomplete},
            {"refused", refused},
            {"underruns", underruns},
            {"pictures", pictures},
            {"waits", waits},
            {"seconds", Seconds()},
            {"frames_per_second", NumberOrNull(FramesPerSecond())},
            {"megabytes_per_second", NumberOrNull(MegabytesPerSecond())}};
}

std::string GrabTotals::Text() const
{
    return fmt::format("pictures   {}\n", pictures) + StreamText();
}

std::string GrabTotals::StreamText() const
{
    std::string text = fmt::format("frames     {}\nlost       {}\nincomplete {}\nunderruns  {}\n", frames, lost,
                                   incomplete, underruns);
    if (refused != 0)
    {
        text += fmt::format("refused    {}\n", refused);
    }
    if (waits != 0)
    {
        text += fmt::format("waits      {} for the writing of pictures\n", waits);
    }
    const std::optional<double> rate = FramesPerSecond();
    return text + (rate ? fmt::format("rate       {:.1f} frames/s, {:.1f} MB/s\n", *rate, *MegabytesPerSecond())
                        : std::string("rate       none: it takes two frames to tell\n"));
}

} // namespace nq::tool
