// SPDX-License-Identifier: Apache-2.0
// Tries the families of rules.
#include "runner.h"

#include "tree.h"

#include <algorithm>
#include <fmt/format.h>
#include <fnmatch.h>

namespace nq::check
{

namespace
{

constexpr Rule kFindCamera{"", "", "", Severity::Hint, Needs::Nothing, FindCamera, {}, 60};

bool FitsAny(const std::vector<std::string>& patterns, const Rule& rule)
{
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](const std::string& pattern) { return Fits(pattern, rule); });
}

} // namespace

bool Fits(const std::string& pattern, const Rule& rule)
{
    return fnmatch(pattern.c_str(), std::string(rule.id).c_str(), 0) == 0;
}

bool Selection::Takes(const Rule& rule) const
{
    return (only.empty() || FitsAny(only, rule)) && !FitsAny(skip, rule);
}

Runner::Runner(Target target, Selection selection, Progress progress)
    : m_target(std::move(target)), m_selection(std::move(selection)), m_progress(std::move(progress))
{
}

ChildRun Runner::Try(const std::vector<const Rule*>& rules)
{
    return RunChild(m_target, rules, [this] { m_progress(m_family, m_findings.size()); });
}

std::string Runner::Begin()
{
    m_family = "loading";
    const ChildRun loaded = Try({});
    if (!loaded.end.orderly)
    {
        return loaded.end.how;
    }
    m_family = "looking for a camera";
    const ChildRun search = Try({&kFindCamera});
    if (search.results.empty())
    {
        m_noCamera = "the search for a camera " + search.end.how;
    }
    else if (search.results[0].outcome != Outcome::Passed)
    {
        m_noCamera = search.results[0].text;
    }
    else
    {
        const std::string& ids = search.results[0].text;
        const size_t middle = ids.find('\n');
        m_target.interfaceId = ids.substr(0, middle);
        m_target.deviceId = ids.substr(middle + 1);
    }
    return {};
}

std::vector<Finding> Runner::Run()
{
    for (const Family& family : Families())
    {
        m_family = family.name;
        RunFamily(family);
    }
    return std::move(m_findings);
}

std::string Runner::WhyNot(const Rule& rule) const
{
    return rule.needs == Needs::Nothing || !m_target.deviceId.empty() ? "" : "no camera: " + m_noCamera;
}

void Runner::RunFamily(const Family& family)
{
    const size_t first = m_findings.size();
    std::vector<const Rule*> rules;
    for (const Rule& rule : family.rules)
    {
        if (!m_selection.Takes(rule))
        {
            continue;
        }
        if (const std::string why = WhyNot(rule); !why.empty())
        {
            m_findings.push_back({&rule, m_family, Outcome::NotTried, why, {}, {}, 0});
        }
        else
        {
            rules.push_back(&rule);
        }
    }
    RunTogether(std::move(rules));
    std::stable_sort(m_findings.begin() + static_cast<std::ptrdiff_t>(first), m_findings.end(),
                     [](const Finding& one, const Finding& other) { return one.rule < other.rule; });
}

/// A rule that is found broken may leave something behind, so the ones after it get a new process.
void Runner::RunTogether(std::vector<const Rule*> rules)
{
    while (!rules.empty())
    {
        const ChildRun run = Try(rules);
        Take(rules, run);
        if (run.end.orderly)
        {
            rules.erase(rules.begin(), rules.begin() + static_cast<std::ptrdiff_t>(run.results.size()));
            continue;
        }
        size_t index = run.results.size();
        if (index == 0) // it was alone
        {
            TakeEnd(*rules[index++], run);
        }
        for (; index < rules.size(); ++index)
        {
            RunAlone(*rules[index], index == run.results.size() ? run.end.how : "");
        }
        return;
    }
}

/// The process ended in the rule.
void Runner::TakeEnd(const Rule& rule, const ChildRun& run)
{
    m_findings.push_back({&rule, m_family, Outcome::Failed, run.end.how, run.lines, run.end.backtrace, 0});
}

/// `before`: how a process ended in which the rule came after others.
void Runner::RunAlone(const Rule& rule, const std::string& before)
{
    const ChildRun run = Try({&rule});
    if (!run.end.orderly)
    {
        TakeEnd(rule, run);
        return;
    }
    Take({&rule}, run);
    if (!before.empty() && !m_findings.back().Broken())
    {
        m_findings.back().outcome = Outcome::Failed;
        m_findings.back().text = before + ", after other rules in the same process; not alone";
    }
}

void Runner::Take(const std::vector<const Rule*>& rules, const ChildRun& run)
{
    for (size_t index = 0; index < run.results.size(); ++index)
    {
        const RuleResult& result = run.results[index];
        if (result.outcome == Outcome::NotTried && index > 0)
        {
            RunAlone(*rules[index], ""); // what rules before it left behind may be all that stands in its way
            continue;
        }
        const bool broken = result.outcome == Outcome::Failed;
        m_findings.push_back(
            {rules[index], m_family, result.outcome, result.text, broken ? run.lines : "", {}, result.seconds});
    }
}

} // namespace nq::check
