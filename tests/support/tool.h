// SPDX-License-Identifier: Apache-2.0
// nq-gev as a test runs it.
#pragma once

#include "support/child_process.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

namespace nq::test
{

constexpr std::chrono::seconds kLongTime{60};

/// The beginnings of command lines for a shell, whatever their paths have in them: nq-gev alone, and with a producer.
inline const std::string kToolLine = "'" NQ_TOOL_PATH "' ";
/// The tool as a line to paste names it: in quotes where its path needs them.
inline std::string ToolWord()
{
    const std::string path = NQ_TOOL_PATH;
    return path.find_first_of(" :") == std::string::npos ? path : "'" + path + "'";
}

inline const std::string kOurLine = kToolLine + "--producer '" NQ_CTI_PATH "' ";
inline const std::string kFakeLine = kToolLine + "--producer '" NQ_FAKE_PRODUCER_PATH "' ";

/// How a program ended, -1 for not in a minute, and what it printed.
struct Outcome
{
    int exitCode;
    std::string output;
};

/// A command line with further arguments, or behind what starts it.
inline std::vector<std::string> Joined(std::vector<std::string> command, const std::vector<std::string>& more)
{
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

/// Runs a program to its end. `environment` holds further "NAME=value" entries.
inline Outcome RunProgram(const std::vector<std::string>& command, const std::vector<std::string>& environment = {})
{
    ChildProcess program(command, environment);
    const int code = program.WaitForExit(kLongTime);
    return {code, program.Output()};
}

/// The same for nq-gev with our producer.
inline Outcome RunTool(const std::vector<std::string>& arguments, const std::vector<std::string>& environment = {})
{
    return RunProgram(Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH}, arguments), environment);
}

/// The same with the fake producer, whose answers `lies` changes.
inline Outcome RunOnFake(const std::string& lies, const std::vector<std::string>& arguments)
{
    return RunProgram(Joined({NQ_TOOL_PATH, "--producer", NQ_FAKE_PRODUCER_PATH}, arguments),
                      {"NQ_FAKE_PRODUCER=" + lies});
}

/// Runs a program until what it prints fits, ten times at most, and gives the last outcome. For what a camera has to
/// say in so short a time that a busy machine may miss it: our producer takes 100 ms of silence of a camera for no
/// answer, and the first looks of nq-gev take 50 ms and 100 ms.
template <typename Run>
Outcome InTime(const testing::Matcher<const std::string&>& says, const Run& run)
{
    Outcome outcome = run();
    for (int again = 0; again < 9 && !says.Matches(outcome.output); ++again)
    {
        outcome = run();
    }
    return outcome;
}

/// The outcome of a run whose camera did not stand still for so long that it was taken for silent, or for absent: of
/// ten at most, the last. For what may be done twice.
template <typename Run>
Outcome Heard(const Run& run)
{
    using testing::HasSubstr;
    return InTime(testing::Not(testing::AnyOf(HasSubstr(" went silent"), HasSubstr(" is silent: "),
                                              HasSubstr("No camera answered"), HasSubstr("no camera answered"))),
                  run);
}

/// The output without the lines that tell of a camera, by its name where there are several, that answered the producer
/// too late at first.
inline std::string WithoutWait(const std::string& output)
{
    static const std::regex line("nq-gev: ([^ :\n]+: )?waiting for the camera, which the producer refuses to open: "
                                 "GC_ERR_[A-Z_]+ \\(-[0-9]+\\)\n");
    return std::regex_replace(output, line, "");
}

inline std::string BytesOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline bool IsWholePng(const std::filesystem::path& path)
{
    const std::string bytes = BytesOf(path);
    const std::string end("\0\0\0\0IEND\xAE\x42\x60\x82", 12);
    return bytes.starts_with("\x89PNG\r\n\x1a\n") && bytes.ends_with(end);
}

} // namespace nq::test
