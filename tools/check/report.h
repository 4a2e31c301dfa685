// SPDX-License-Identifier: Apache-2.0
// What was found, for people and for programs.
#pragma once

#include "runner.h"

#include <string>
#include <vector>

namespace nq::check
{

/// What one run found.
struct Report
{
    Target target;
    std::string problem; ///< why the producer cannot be loaded
    std::vector<Finding> findings;
    std::vector<std::string> differences; ///< from the baseline

    size_t Count(Outcome outcome) const;
    /// How many of the failed are broken rules that the standard does not ask for.
    size_t Warned() const;
};

/// A table, with what is wrong below each rule that is not kept.
std::string AsTable(const Report& report);
std::string AsJson(const Report& report);

std::string AsJUnit(const Report& report);

/// One file that loads nothing, with filters, and for each failure its calls.
std::string AsHtml(const Report& report);

/// A program in C that makes the calls of a broken rule again. Its arguments: the producer.
std::string AsProgram(const Finding& finding);

/// The rules of a selection, with clause, severity and what they need.
std::string ListOfRules(const Selection& selection);
/// The same for programs, with what a consumer will see of a producer that does not keep the rule.
std::string RulesAsJson(const Selection& selection);
/// All rules, for the documentation.
std::string RulesAsMarkdown();

/// "failed", or "warned" for a rule that the standard does not ask for; "passed", "not-tried".
std::string_view WordFor(const Finding& finding);

} // namespace nq::check
