// SPDX-License-Identifier: Apache-2.0
// What the doctor can find out, as a table, and what it has found.
#include "doctor/findings.h"

#include "shell_word.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

const FindingKind& KindOf(std::string_view id)
{
    const std::vector<FindingKind>& all = FindingKinds();
    const auto kind = std::find_if(all.begin(), all.end(), [id](const FindingKind& one) { return one.id == id; });
    if (kind == all.end())
    {
        throw std::logic_error("no finding " + std::string(id));
    }
    return *kind;
}

void Replace(std::string& text, std::string_view from, std::string_view to)
{
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    {
        text.replace(at, from.size(), to);
    }
}

/// The line with its words filled in. Root needs no sudo, and may not have it.
std::string Filled(std::string line, const Findings::Words& words)
{
    for (const auto& [word, meaning] : words)
    {
        // The kernel takes any name for an adapter that has neither blanks nor slashes; with them it is prose.
        const bool isAdapter = (word == "ADAPTER" || word == "OTHER") && meaning.find(' ') == std::string::npos;
        Replace(line, word, isAdapter ? ShellWord(meaning) : meaning);
    }
    constexpr std::string_view kThis = "nq-gev "; // which may lie on no path
    if (line.starts_with(kThis))
    {
        line.replace(0, kThis.size() - 1, ThisProgram());
    }
    if (geteuid() == 0)
    {
        Replace(line, "sudo ", "");
    }
    return line;
}

} // namespace

const char* VerdictText(Verdict verdict)
{
    switch (verdict)
    {
    case Verdict::Right:
        return "right";
    case Verdict::Wrong:
        return "wrong";
    case Verdict::NotKnown:
        break;
    }
    return "not known";
}

void Findings::Right(const char* id, const std::string& subject, const std::string& text)
{
    m_all.push_back({&KindOf(id), subject, Verdict::Right, text, ""});
}

void Findings::Wrong(const char* id, const std::string& subject, const std::string& text, const Words& words)
{
    const FindingKind& kind = KindOf(id);
    m_all.push_back({&kind, subject, Verdict::Wrong, text, Filled(kind.mend, words)});
}

void Findings::NotKnown(const char* id, const std::string& subject, const std::string& reason)
{
    m_all.push_back({&KindOf(id), subject, Verdict::NotKnown, reason, ""});
}

void Findings::NotKnownElse(const std::vector<const char*>& ids, const std::string& reason)
{
    for (const char* id : ids)
    {
        const FindingKind& kind = KindOf(id);
        if (std::none_of(m_all.begin(), m_all.end(), [&](const Finding& one) { return one.kind == &kind; }))
        {
            NotKnown(id, "", reason);
        }
    }
}

std::vector<Finding> Findings::Sorted() const
{
    std::vector<Finding> sorted = m_all;
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const Finding& one, const Finding& other) { return one.kind < other.kind; });
    return sorted;
}

size_t CountOf(const std::vector<Finding>& findings, Verdict verdict)
{
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(),
                                             [verdict](const Finding& one) { return one.verdict == verdict; }));
}

} // namespace nq::tool::doctor
