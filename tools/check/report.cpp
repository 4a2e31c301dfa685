// SPDX-License-Identifier: Apache-2.0
// What was found, as a table and as JSON.
#include "report.h"

#include "baseline.h"
#include "printable.h"

#include <algorithm>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace nq::check
{

namespace
{

using nlohmann::json;

/// The text, each line behind `indent`. What a producer says goes to a terminal, so control characters are written out.
std::string Indented(std::string_view text, std::string_view indent)
{
    std::string indented;
    for (size_t begin = 0; begin < text.size();)
    {
        const size_t end = std::min(text.find('\n', begin), text.size());
        indented += fmt::format("{}{}\n", indent, tool::Printable(text.substr(begin, end - begin)));
        begin = end + 1;
    }
    return indented;
}

json ToJson(const Rule& rule, std::string_view family)
{
    json one = {{"id", rule.id},
                {"family", family},
                {"rule", rule.words},
                {"clause", rule.clause},
                {"severity", ToText(rule.severity)},
                {"needs", ToText(rule.needs)}};
    if (!rule.note.empty())
    {
        one["note"] = rule.note;
    }
    return one;
}

json ToJson(const Finding& finding)
{
    const Rule& rule = *finding.rule;
    json one = ToJson(rule, finding.family);
    one["outcome"] = WordFor(finding);
    one["seconds"] = finding.seconds;
    const std::pair<const char*, const std::string&> texts[] = {
        {"text", finding.text}, {"calls", finding.lines}, {"backtrace", finding.backtrace}};
    for (const auto& [name, text] : texts)
    {
        if (!text.empty())
        {
            one[name] = text;
        }
    }
    if (finding.Broken())
    {
        one["consumer"] = ConsequenceOf(rule);
    }
    return one;
}

} // namespace

size_t Report::Count(Outcome outcome) const
{
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(),
                                             [outcome](const Finding& finding) { return finding.outcome == outcome; }));
}

size_t Report::Warned() const
{
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(), [](const Finding& finding) {
        return finding.Broken() && !finding.Counts();
    }));
}

std::string_view WordFor(const Finding& finding)
{
    return finding.Broken() && !finding.Counts() ? "warned" : ToText(finding.outcome);
}

std::string AsTable(const Report& report)
{
    std::string table;
    std::string_view family;
    for (const Finding& finding : report.findings)
    {
        const Rule& rule = *finding.rule;
        if (finding.family != family)
        {
            family = finding.family;
            table += fmt::format("{}{}\n", table.empty() ? "" : "\n", family);
        }
        const std::string clause = rule.clause.empty() ? "" : fmt::format(" [{}]", rule.clause);
        table += fmt::format("  {:<9}  {:<7} {:<6} {}{}\n", WordFor(finding), rule.id, ToText(rule.severity),
                             rule.words, clause);
        table += Indented(finding.text, "             ");
        table += finding.Broken() ? Indented(ConsequenceOf(rule), "           > ") : "";
        table += Indented(finding.backtrace, "               ");
    }
    const size_t warned = report.Warned();
    table += fmt::format("\n{} passed, {} failed, {} not tried{}\n", report.Count(Outcome::Passed),
                         report.Count(Outcome::Failed), report.Count(Outcome::NotTried),
                         warned == 0 ? "" : fmt::format("; warnings among the failed: {}", warned));
    for (const std::string& difference : report.differences)
    {
        table += difference + "\n";
    }
    return table;
}

std::string AsJson(const Report& report)
{
    json all = {{"producer", report.target.path},          {"interface", report.target.interfaceId},
                {"device", report.target.deviceId},        {"passed", report.Count(Outcome::Passed)},
                {"failed", report.Count(Outcome::Failed)}, {"not_tried", report.Count(Outcome::NotTried)},
                {"differences", report.differences},       {"findings", json::array()}};
    if (!report.problem.empty())
    {
        all["problem"] = report.problem;
    }
    for (const Finding& finding : report.findings)
    {
        all["findings"].push_back(ToJson(finding));
    }
    return all.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

std::string RulesAsJson(const Selection& selection)
{
    json all = json::array();
    for (const Family& family : Families())
    {
        for (const Rule& rule : family.rules)
        {
            if (selection.Takes(rule))
            {
                json one = ToJson(rule, family.name);
                one["consumer"] = ConsequenceOf(rule);
                all.push_back(std::move(one));
            }
        }
    }
    return all.dump(2) + "\n";
}

std::string ListOfRules(const Selection& selection)
{
    std::string list;
    for (const Family& family : Families())
    {
        std::string rules;
        for (const Rule& rule : family.rules)
        {
            if (selection.Takes(rule))
            {
                const std::string note = rule.note.empty() ? "" : fmt::format(" ({})", rule.note);
                const std::string clause = rule.clause.empty() ? "" : fmt::format("  {}", rule.clause);
                rules += fmt::format("  {:<7} {:<6} {:<9} {}{}{}\n", rule.id, ToText(rule.severity), ToText(rule.needs),
                                     rule.words, note, clause);
            }
        }
        if (!rules.empty())
        {
            list += fmt::format("{}{}\n{}", list.empty() ? "" : "\n", family.name, rules);
        }
    }
    return list;
}

std::string RulesAsMarkdown()
{
    std::string list;
    for (const Family& family : Families())
    {
        list +=
            fmt::format("\n### {}\n\n| Id | Rule | Clause | Severity | Needs |\n|---|---|---|---|---|\n", family.name);
        for (const Rule& rule : family.rules)
        {
            const std::string note = rule.note.empty() ? "" : fmt::format(" ({})", rule.note);
            list += fmt::format("| `{}` | {}{} | {} | {} | {} |\n", rule.id, rule.words, note, rule.clause,
                                ToText(rule.severity), ToText(rule.needs));
        }
    }
    return list;
}

} // namespace nq::check
