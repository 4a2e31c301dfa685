// SPDX-License-Identifier: Apache-2.0
// Rules tried in a process of their own.
#pragma once

#include "context.h"
#include "rule.h"

#include <chrono>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace nq::check
{

/// How a process that tried rules ended.
struct ChildEnd
{
    bool orderly = false;  ///< by itself, with a result for each rule that it began
    std::string how;       ///< otherwise: "crashed in DSRevokeBuffer (Segmentation fault)"
    std::string backtrace; ///< of a crash or a hang
};

/// What one rule of a child gave.
struct RuleResult
{
    Outcome outcome = Outcome::None;
    std::string text;
    double seconds = 0;
};

struct ChildRun
{
    std::vector<RuleResult> results; ///< of the rules that came to their end, in order
    std::string lines;               ///< the calls of the last rule, in C
    ChildEnd end;
};

/// Loads the producer in a new process and tries the rules there until one is broken or the process ends. With no rule
/// it only loads it. `progress` is called about ten times a second. Throws std::system_error.
ChildRun RunChild(const Target& target, const std::vector<const Rule*>& rules, const std::function<void()>& progress);

} // namespace nq::check
