// SPDX-License-Identifier: Apache-2.0
// The child's side of a process that tries rules.
#pragma once

#include "context.h"
#include "rule.h"

#include <map>
#include <string>
#include <vector>

namespace nq::check
{

/// The exit code of a process that cannot load the producer; why stands where a backtrace would.
constexpr int kCannotLoad = 3;

/// Loads the producer, tries the rules until one is broken, writes what they gave to the current record, and ends the
/// process.
[[noreturn]] void TryRules(const Target& target, const std::vector<const Rule*>& rules);

/// What a library in somebody else's process leaves as it is.
struct Surroundings
{
    std::string locale;
    std::string folder;
    unsigned mask = 0; ///< of new files
    std::map<int, std::string> descriptors;
    std::map<int, void*> handlers; ///< by signal
    long printed = 0;              ///< bytes on standard output and standard error
    long threads = 0;
    long memory = 0; ///< resident, in bytes

    static Surroundings Now();
};

/// How it was before the producer was loaded.
const Surroundings& Before();

/// The dlopen() handle of the producer.
void* LoadedLibrary();

/// What the producer lacks of the functions.
const std::vector<std::string>& MissingFunctions();

} // namespace nq::check
