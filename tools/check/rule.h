// SPDX-License-Identifier: Apache-2.0
// What a rule of GenTL is, and the families that the rules stand in.
#pragma once

#include <algorithm>
#include <span>
#include <string_view>

namespace nq::check
{

class Context;

enum class Severity
{
    Must,
    Should,
    May,
    Hint
};

/// What a rule cannot be tried without.
enum class Needs
{
    Nothing,
    Camera,
    Stream ///< a camera that sends
};

/// One rule. `id` is for ever: baselines and people's notes name it.
struct Rule
{
    std::string_view id;
    std::string_view words;
    std::string_view clause; ///< of GenTL 1.6's text, whose numbers differ little from 1.5's; empty for good manners
    Severity severity;
    Needs needs;
    void (*run)(Context&);
    std::string_view note = {}; ///< where 1.5 may be looser, or the text leaves something open
    int seconds = 20;           ///< the longest that it may take
};

/// Rules that share a process.
struct Family
{
    std::string_view name;
    std::span<const Rule> rules;
};

std::span<const Family> Families();

template <class Predicate>
bool AnyRule(const Predicate& predicate)
{
    return std::any_of(Families().begin(), Families().end(), [&](const Family& family) {
        return std::any_of(family.rules.begin(), family.rules.end(), predicate);
    });
}

/// What a consumer will see of a producer that does not keep the rule; empty where nobody has written it down.
std::string_view ConsequenceOf(const Rule& rule);

std::string_view ToText(Severity severity);
std::string_view ToText(Needs needs);

constexpr std::string_view kClarifiedIn16 = "1.6 clarified this; 1.5 may be looser";

} // namespace nq::check
