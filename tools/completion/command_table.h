// SPDX-License-Identifier: Apache-2.0
// What a program can be told, as completion needs it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace nq::completion
{

/// What stands behind an option.
enum class Argument
{
    None,
    Word, ///< of which nothing is known
    Choice,
    File,
    Folder,
    Camera,
};

struct OptionRow
{
    std::vector<std::string> names; ///< with their dashes; none for an argument without an option
    std::string about;
    Argument argument = Argument::None;
    std::vector<std::string> choices;
    bool repeated = false;
};

struct VerbRow
{
    std::string name; ///< empty for the program itself
    std::string about;
    std::vector<OptionRow> options;
};

struct CommandTable
{
    std::string program;
    VerbRow common;             ///< what goes with every verb, or without any
    std::vector<VerbRow> verbs; ///< none where the program has no verbs
};

/// All that --help shows.
CommandTable TableOf(const CLI::App& app);

/// The options of a row that have a name.
std::vector<OptionRow> Named(const VerbRow& verb);

/// What stands in a row without an option; Argument::Word where there is no such row.
Argument Unnamed(const VerbRow& verb);

} // namespace nq::completion
