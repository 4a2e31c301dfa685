// SPDX-License-Identifier: Apache-2.0
// What a rule has while it is tried.
#include "context.h"

#include "gentl_library.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::check
{

namespace
{

constexpr int kMostFindings = 8; // of one rule; more say nothing new

std::string NameOf(GenTL::GC_ERROR code)
{
    return code == GenTL::GC_ERR_SUCCESS ? "GC_ERR_SUCCESS" : tool::ErrorName(code);
}

} // namespace

void Context::Expect(bool kept, std::string_view what)
{
    if (kept)
    {
        return;
    }
    const std::lock_guard lock(m_mutex);
    if (m_count++ < kMostFindings)
    {
        m_findings += (m_findings.empty() ? "" : "\n") + std::string(what);
    }
}

bool Context::Code(GenTL::GC_ERROR got, std::initializer_list<GenTL::GC_ERROR> wanted, std::string_view what)
{
    const bool kept = std::find(wanted.begin(), wanted.end(), got) != wanted.end();
    if (!kept)
    {
        std::string names;
        for (const GenTL::GC_ERROR code : wanted)
        {
            names += (names.empty() ? "" : " or ") + NameOf(code);
        }
        Expect(false, fmt::format("{}: {} instead of {}", what, NameOf(got), names));
    }
    return kept;
}

void Context::Require(GenTL::GC_ERROR got, std::string_view what)
{
    if (!Code(got, {GenTL::GC_ERR_SUCCESS}, what))
    {
        throw RuleEnded{Outcome::Failed, {}};
    }
}

void Context::Needs(GenTL::GC_ERROR got, std::string_view what)
{
    if (got != GenTL::GC_ERR_SUCCESS)
    {
        NotTried(fmt::format("{} gave {}", what, NameOf(got)));
    }
}

void Context::NotTried(const std::string& reason)
{
    throw RuleEnded{Outcome::NotTried, reason};
}

} // namespace nq::check
