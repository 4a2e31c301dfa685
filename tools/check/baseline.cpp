// SPDX-License-Identifier: Apache-2.0
// Failures that are known.
#include "baseline.h"

#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace nq::check
{

std::string_view ToText(Outcome outcome)
{
    constexpr std::string_view kTexts[] = {"none", "passed", "failed", "not-tried"};
    return kTexts[static_cast<int>(outcome)];
}

Baseline::Baseline(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
    {
        throw std::runtime_error("cannot read " + path);
    }
    int number = 0;
    for (std::string line; std::getline(file, line);)
    {
        ++number;
        std::istringstream words(line.substr(0, line.find('#')));
        std::string id;
        std::string outcome;
        std::string more;
        if (!(words >> id))
        {
            continue;
        }
        const bool known = words >> outcome && (outcome == "failed" || outcome == "not-tried") && !(words >> more);
        if (!known || !AnyRule([&](const Rule& rule) { return rule.id == id; }))
        {
            throw std::runtime_error(
                fmt::format("{}:{}: no rule with `failed` or `not-tried`: {}", path, number, line));
        }
        m_known[id] = outcome;
    }
}

std::vector<std::string> Baseline::Differences(const std::vector<Finding>& findings) const
{
    std::vector<std::string> differences;
    for (const Finding& finding : findings)
    {
        const auto known = m_known.find(finding.rule->id);
        const std::string_view was = known == m_known.end() ? "passed" : std::string_view(known->second);
        if (const std::string_view now = ToText(finding.outcome); now != was)
        {
            differences.push_back(fmt::format("{} {}, {} in the baseline", finding.rule->id, now, was));
        }
    }
    return differences;
}

} // namespace nq::check
