// SPDX-License-Identifier: Apache-2.0
// The verbs of nq-gev. Each registers its arguments and runs when it was chosen.
#pragma once

#include "common_options.h"
#include "exit_codes.h"

#include <functional>

namespace CLI
{
class App;
} // namespace CLI

namespace nq::tool
{

using Verb = std::function<ExitCode()>;

/// Each adds its subcommand; the callback stores what main() has to run in `chosen`.
void AddListVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddInfoVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddGrabVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddMeasureVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddConvertVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddFeatureVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddSettingsVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddEventsVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddWatchVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddPortVerbs(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddDoctorVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddReportVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);
void AddIpVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);

/// Where libjpeg was found when the program was built.
void AddViewVerb(CLI::App& app, const CommonOptions& common, Verb& chosen);

} // namespace nq::tool
