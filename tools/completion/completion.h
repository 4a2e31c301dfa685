// SPDX-License-Identifier: Apache-2.0
// Completion scripts for shells, made of a program's own table of options.
#pragma once

namespace CLI
{
class App;
} // namespace CLI

namespace nq::completion
{

/// Adds --completion SHELL, which --help does not show: prints the script for bash, zsh or fish and ends with success.
/// To be called on the program's App, which has a name; options and verbs that are added later are in the script, too.
void AddCompletionOption(CLI::App& app);

} // namespace nq::completion
