// SPDX-License-Identifier: Apache-2.0
// Verbs that print what happens, line by line, until they are stopped.
#pragma once

#include "exit_codes.h"

#include <chrono>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

namespace CLI
{
class App;
} // namespace CLI

namespace nq::tool
{

/// When such a verb ends, unless a signal ends it before.
struct LiveOptions
{
    uint64_t count = 0;     ///< lines; 0 for as many as come
    uint64_t durationS = 0; ///< seconds; 0 for ever
};

/// Adds --count and --duration.
void AddLiveOptions(CLI::App& verb, LiveOptions& options);

/// Prints the lines of one run and knows its end. Used from one thread.
class LiveOutput
{
  public:
    /// The time of the options begins now.
    explicit LiveOutput(const LiveOptions& options);

    /// Prints a line at once, unless enough of them are printed. Throws ToolFailure when it cannot be written.
    void Put(const std::string& line);

    /// The same for a line of JSON: in ASCII, with what is no UTF-8 replaced.
    void Put(const nlohmann::ordered_json& line);

    /// Whether there are enough lines.
    bool HasEnough() const { return m_options.count != 0 && m_lines >= m_options.count; }

    /// Whether the run is to end: by its lines, its time or a signal. Throws ToolFailure when nobody reads the lines
    /// any more, which only a look at the pipe tells while nothing happens.
    bool IsOver() const;

    /// The exit code of a run that is over.
    static ExitCode Code();

  private:
    const LiveOptions m_options;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    uint64_t m_lines = 0;
};

/// A moment in UTC with milliseconds: 2030-01-31T12:00:00.123Z.
std::string MomentText(std::chrono::system_clock::time_point moment);

} // namespace nq::tool
