// SPDX-License-Identifier: Apache-2.0
// The verbs of nq-gev. Each registers its arguments and runs when it was chosen.
#pragma once

#include "exit_codes.h"

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <string>

namespace nq::tool
{

/// Options that every verb takes.
struct CommonOptions
{
    std::string producer;
    std::string answers = "standard"; ///< of our producer; the environment tells it
    bool json = false;
    uint64_t timeoutMs = 1000; ///< how long each interface listens for cameras, in milliseconds
};

using Verb = std::function<ExitCode()>;

/// Each adds its subcommand; the callback stores what main() has to run in `chosen`.
void AddListVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddInfoVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddGrabVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddFeatureVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddSettingsVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddPortVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);

} // namespace nq::tool
