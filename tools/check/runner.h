// SPDX-License-Identifier: Apache-2.0
// Tries the families of rules, each in a process, and rule by rule where a process does not come to its end.
#pragma once

#include "child.h"
#include "rule.h"

#include <functional>
#include <string>
#include <vector>

namespace nq::check
{

/// What one rule gave in the end.
struct Finding
{
    const Rule* rule = nullptr;
    std::string_view family;
    Outcome outcome = Outcome::NotTried;
    std::string text;      ///< what is wrong, or why it was not tried
    std::string lines;     ///< of a broken rule: its calls, in C
    std::string backtrace; ///< of a crash or a hang
    double seconds = 0;

    bool Broken() const { return outcome == Outcome::Failed; }
    /// Broken, and the standard asks for it.
    bool Counts() const { return Broken() && rule->severity <= Severity::Should; }
};

/// Whether a shell pattern, such as "EV-*", fits the id of the rule.
bool Fits(const std::string& pattern, const Rule& rule);

/// Which rules are tried.
struct Selection
{
    std::vector<std::string> only; ///< shell patterns of ids; empty for all
    std::vector<std::string> skip; ///< shell patterns of ids
    bool Takes(const Rule& rule) const;
};

class Runner
{
  public:
    /// Called before each rule or group of rules with what is at work, and about ten times a second.
    using Progress = std::function<void(std::string_view family, size_t done)>;

    Runner(Target target, Selection selection, Progress progress);

    /// Loads the producer and looks for the camera. Why it cannot be loaded; empty when it can.
    std::string Begin();

    /// Tries all rules that are selected, in their order.
    std::vector<Finding> Run();

    const Target& Tried() const { return m_target; }

  private:
    void RunFamily(const Family& family);
    void RunTogether(std::vector<const Rule*> rules);
    void RunAlone(const Rule& rule, const std::string& before);
    void TakeEnd(const Rule& rule, const ChildRun& run);
    void Take(const std::vector<const Rule*>& rules, const ChildRun& run);
    std::string WhyNot(const Rule& rule) const;
    ChildRun Try(const std::vector<const Rule*>& rules);

    Target m_target;
    Selection m_selection;
    Progress m_progress;
    std::string m_noCamera; ///< why there is none
    std::string_view m_family;
    std::vector<Finding> m_findings;
};

} // namespace nq::check
