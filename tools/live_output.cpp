// SPDX-License-Identifier: Apache-2.0
// Verbs that print what happens, line by line, until they are stopped.
#include "live_output.h"

#include <CLI/CLI.hpp>

#include "standard_output.h"
#include "stop_signals.h"
#include "whole_number.h"

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <fmt/chrono.h>
#include <poll.h>
#include <unistd.h>

namespace nq::tool
{

using std::chrono::steady_clock;

namespace
{

[[noreturn]] void ThrowUnwritten(int error)
{
    throw ToolFailure(ExitCode::Failure, UnwrittenText(error));
}

} // namespace

void AddLiveOptions(CLI::App& verb, LiveOptions& options)
{
    constexpr uint64_t kMostLines = 1'000'000'000'000;
    verb.add_option("--count", options.count, "End behind so many lines")->check(WholeNumber(1, kMostLines));
    verb.add_option("--duration", options.durationS, "End after so many seconds")
        ->check(WholeNumber(1, kMostMs / 1000, "seconds"));
}

LiveOutput::LiveOutput(const LiveOptions& options) : m_options(options) {}

void LiveOutput::Put(const std::string& line)
{
    if (HasEnough())
    {
        return;
    }
    if (std::fputs((line + "\n").c_str(), stdout) == EOF || std::fflush(stdout) != 0)
    {
        ThrowUnwritten(errno);
    }
    ++m_lines;
}

void LiveOutput::Put(const nlohmann::ordered_json& line)
{
    Put(line.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

bool LiveOutput::IsOver() const
{
    pollfd output{STDOUT_FILENO, 0, 0};
    if (poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0)
    {
        ThrowUnwritten(EPIPE);
    }
    const bool late =
        m_options.durationS != 0 && steady_clock::now() - m_start >= std::chrono::seconds(m_options.durationS);
    return late || HasEnough() || StopAsked();
}

ExitCode LiveOutput::Code()
{
    return StopAsked() ? StopCode() : ExitCode::Success;
}

std::string MomentText(std::chrono::system_clock::time_point moment)
{
    const auto ms = std::chrono::floor<std::chrono::milliseconds>(moment.time_since_epoch()).count();
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z", fmt::gmtime(static_cast<std::time_t>(ms / 1000)), ms % 1000);
}

} // namespace nq::tool
