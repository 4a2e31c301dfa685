// SPDX-License-Identifier: Apache-2.0
// What was found, as one HTML file that loads nothing.
#include "baseline.h"
#include "printable.h"
#include "report.h"
#include "report_page.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace nq::check
{

namespace
{

/// One line for HTML; what no page can hold, or would hide, is written out as \xNN.
std::string Escaped(std::string_view line)
{
    std::string escaped;
    for (const char c : tool::Printable(line))
    {
        escaped += c == '<'    ? "&lt;"
                   : c == '>'  ? "&gt;"
                   : c == '&'  ? "&amp;"
                   : c == '"'  ? "&quot;"
                   : c == '\'' ? "&#39;"
                               : std::string(1, c);
    }
    return escaped;
}

/// The same for several lines.
std::string EscapedLines(std::string_view text)
{
    std::string escaped;
    for (size_t begin = 0; begin < text.size();)
    {
        const size_t end = std::min(text.find('\n', begin), text.size());
        escaped += Escaped(text.substr(begin, end - begin)) + (end < text.size() ? "\n" : "");
        begin = end + 1;
    }
    return escaped;
}

/// A titled text of a finding; nothing for an empty one. It can be scrolled by keyboard.
std::string Block(std::string_view title, std::string_view name, std::string_view text)
{
    return text.empty()
               ? ""
               : fmt::format("<h4>{}</h4><pre class=\"{}\" tabindex=\"0\">{}</pre>\n", title, name, EscapedLines(text));
}

std::string Line(std::string_view term, std::string_view text)
{
    return text.empty() ? "" : fmt::format("<dt>{}</dt><dd>{}</dd>", term, Escaped(text));
}

std::string RuleOf(const Finding& finding)
{
    const Rule& rule = *finding.rule;
    const std::string_view word = WordFor(finding);
    const bool broken = finding.Broken();
    std::string html = fmt::format(
        "<details class=\"rule {0}\" id=\"{1}\" data-result=\"{0}\" data-severity=\"{2}\"{3}>\n"
        "<summary><span class=\"result\">{0}</span> <code>{1}</code> "
        "<span class=\"words\">{4}</span> <span class=\"clause\">{5}</span> "
        "<span class=\"severity\">{2}</span></summary>\n",
        word, rule.id, ToText(rule.severity), broken ? " open" : "", Escaped(rule.words), Escaped(rule.clause));
    html += Block(broken ? "What was seen" : "Why not", "seen", finding.text);
    if (broken)
    {
        html += Block("What a consumer will see", "consumer", ConsequenceOf(rule));
        html += Block("The calls that led there", "calls", finding.lines);
        html += Block("Where it was", "backtrace", finding.backtrace);
    }
    html += "<dl>" + Line("Clause", rule.clause) + Line("Needs", ToText(rule.needs)) + Line("Note", rule.note) +
            Line("Took", fmt::format("{:.3f} s", finding.seconds)) + "</dl>\n</details>\n";
    return html;
}

/// A box to tick for each of the words, with how many rules it stands for.
template <class Count>
std::string Boxes(std::string_view legend, std::string_view name, std::initializer_list<std::string_view> words,
                  const Count& count)
{
    std::string html = fmt::format("<fieldset><legend>{}</legend>", legend);
    for (const std::string_view word : words)
    {
        html += fmt::format("<label class=\"{1}\"><input type=\"checkbox\" name=\"{0}\" value=\"{1}\" checked> {1} "
                            "<span class=\"count\">{2}</span></label>\n",
                            name, word, count(word));
    }
    return html + "</fieldset>\n";
}

std::string Filters(const Report& report)
{
    const auto count = [&](auto word) {
        return [&report, word](std::string_view asked) {
            return std::count_if(report.findings.begin(), report.findings.end(),
                                 [&](const Finding& finding) { return word(finding) == asked; });
        };
    };
    std::string html = "<form id=\"filters\" autocomplete=\"off\" hidden>\n";
    html += Boxes("Result", "result", {"failed", "warned", "not-tried", "passed"}, count(WordFor));
    html += Boxes("Severity", "severity", {"must", "should", "may", "hint"},
                  count([](const Finding& finding) { return ToText(finding.rule->severity); }));
    html += "<label>Family <select name=\"family\"><option value=\"\">all</option>";
    for (const Family& family : Families())
    {
        html += fmt::format("<option>{}</option>", Escaped(family.name));
    }
    return html + "</select></label>\n<label>Text <input type=\"search\" name=\"text\"></label>\n"
                  "<p id=\"shown\" role=\"status\"></p>\n</form>\n";
}

std::string Summary(const Report& report)
{
    const size_t warned = report.Warned();
    std::string html = fmt::format(
        "<dl id=\"summary\"><div class=\"passed\"><dt>passed</dt><dd>{}</dd></div><div class=\"failed\"><dt>failed</dt>"
        "<dd>{}</dd></div><div class=\"not-tried\"><dt>not tried</dt><dd>{}</dd></div></dl>\n",
        report.Count(Outcome::Passed), report.Count(Outcome::Failed), report.Count(Outcome::NotTried));
    if (!report.problem.empty())
    {
        html += fmt::format("<h2>The producer cannot be checked</h2>\n<pre id=\"problem\">{}</pre>\n",
                            EscapedLines(report.problem));
    }
    if (warned > 0)
    {
        html += fmt::format("<p>Warnings among the failed, of what the standard does not ask for: {}</p>\n", warned);
    }
    if (!report.differences.empty())
    {
        html += "<h2>Not as the baseline says</h2>\n<ul id=\"differences\">";
        for (const std::string& difference : report.differences)
        {
            html += "<li>" + Escaped(difference) + "</li>";
        }
        html += "</ul>\n";
    }
    return html;
}

} // namespace

std::string AsHtml(const Report& report)
{
    const std::string& path = report.target.path;
    std::string html = fmt::format("{}<title>gentl-check: {}</title>\n{}", kPageHead,
                                   Escaped(path.substr(path.rfind('/') + 1)), kPageStyle);
    html += fmt::format("<header><h1>gentl-check</h1>\n<dl>{}{}{}</dl>\n</header>\n<main>\n", Line("Producer", path),
                        Line("Interface", report.target.interfaceId), Line("Device", report.target.deviceId));
    html += Summary(report) + Filters(report);
    std::string_view family;
    for (const Finding& finding : report.findings)
    {
        if (finding.family != family)
        {
            html += family.empty() ? "" : "</section>\n";
            family = finding.family;
            html += fmt::format("<section data-family=\"{0}\">\n<h2>{0}</h2>\n", Escaped(family));
        }
        html += RuleOf(finding);
    }
    html += family.empty() ? "" : "</section>\n";
    return html + "</main>\n" + std::string(kPageScript) + "</body>\n</html>\n";
}

} // namespace nq::check
