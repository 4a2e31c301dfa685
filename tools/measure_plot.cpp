// SPDX-License-Identifier: Apache-2.0
// The times of a measurement as a picture of lines.
#include "measure_plot.h"

#include "printable.h"

#include <algorithm>
#include <cmath>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

// In the units of the picture.
constexpr double kLeft = 80;
constexpr double kWidth = 680;
constexpr double kHeight = 220;
constexpr double kTops[] = {100, 400};

constexpr const char* kPlotHead =
    R"(<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 800 680" width="800" height="680" role="img">
<style>
svg {{ background: #fff; color: #222; font: 13px sans-serif }}
text {{ fill: currentColor }}
.grid {{ stroke: #ddd; fill: none }}
.curve {{ stroke: #06c; stroke-width: 2; fill: none }}
@media (prefers-color-scheme: dark) {{
  svg {{ background: #181818; color: #ddd }} .grid {{ stroke: #444 }} .curve {{ stroke: #6bf }}
}}
</style>
<title>{0}</title>
<text x="20" y="30" font-size="17">{0}</text>
<text x="20" y="52">{1}</text>
)";

std::string Escaped(const std::string& text)
{
    std::string escaped;
    for (const char letter : Printable(text))
    {
        escaped += letter == '&' ? "&amp;" : letter == '<' ? "&lt;" : letter == '>' ? "&gt;" : std::string(1, letter);
    }
    return escaped;
}

/// A step between lines of the grid, 1, 2 or 5 with zeros, of which four to ten reach `most`.
double GridStep(double most)
{
    const double power = std::pow(10, std::floor(std::log10(most)));
    return most / power >= 5 ? power : most / power >= 2 ? power / 2 : power / 5;
}

/// The share of times up to which `nines` of them are counted: 0.9 for one, 0.99 for two.
double ShareOf(double nines)
{
    return 1 - std::pow(10, -nines);
}

/// As "99.9%".
std::string ShareText(int nines)
{
    return nines == 0   ? "0%"
           : nines == 1 ? "90%"
                        : "99" + (nines == 2 ? "" : "." + std::string(static_cast<size_t>(nines) - 2, '9')) + "%";
}

std::string CurveOf(const TimeDistribution& times, const std::string& title, double top)
{
    constexpr int kPoints = 240;
    const double bottom = top + kHeight;
    const double nines = std::max(std::ceil(std::log10(static_cast<double>(times.Count()))), 1.0);
    const double step = GridStep(std::max(times.Most(), 1e-6));
    const double highest = std::max(std::ceil(times.Most() / step), 1.0) * step;
    const auto y = [&](double ms) { return bottom - ms / highest * kHeight; };
    const auto x = [&](double of) { return kLeft + of / nines * kWidth; };
    std::string text = fmt::format("<text x=\"20\" y=\"{:.0f}\">{}</text>\n", top - 16, title);
    for (int line = 0; line <= std::lround(highest / step); ++line)
    {
        const double at = line * step;
        text += fmt::format("<path class=\"grid\" d=\"M{0} {1:.1f}H{2}\"/><text x=\"{3}\" y=\"{4:.1f}\" "
                            "text-anchor=\"end\">{5:.6g}</text>\n",
                            kLeft, y(at), kLeft + kWidth, kLeft - 6, y(at) + 4, at);
    }
    for (int at = 0; at <= static_cast<int>(nines); ++at)
    {
        text += fmt::format("<path class=\"grid\" d=\"M{0:.1f} {1}V{2}\"/><text x=\"{0:.1f}\" y=\"{3}\" "
                            "text-anchor=\"middle\">{4}</text>\n",
                            x(at), top, bottom, bottom + 18, ShareText(at));
    }
    text += "<path class=\"curve\" d=\"";
    for (int point = 0; point <= kPoints; ++point)
    {
        const double of = nines * point / kPoints;
        text += fmt::format("{}{:.1f} {:.1f}", point == 0 ? 'M' : 'L', x(of),
                            y(point == 0 ? times.Least() : times.Within(ShareOf(of))));
    }
    return text + "\"/>\n";
}

} // namespace

std::string PlotOf(const FrameTimes& times, const std::string& title, const std::string& subtitle)
{
    return fmt::format(kPlotHead, Escaped(title), Escaped(subtitle)) +
           CurveOf(times.Intervals(), "ms from one frame to the next, within which that share of them came", kTops[0]) +
           CurveOf(times.Holds(), "ms from the event of a frame to the return of its buffer", kTops[1]) + "</svg>\n";
}

} // namespace nq::tool
