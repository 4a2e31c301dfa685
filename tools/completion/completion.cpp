// SPDX-License-Identifier: Apache-2.0
// Completion scripts for shells, made of a program's own table of options.
#include "completion.h"

#include <CLI/CLI.hpp>

#include "command_table.h"
#include "scripts.h"

#include <iostream>

namespace nq::completion
{

void AddCompletionOption(CLI::App& app)
{
    app.add_option_function<std::string>(
           "--completion",
           [&app](const std::string& shell) {
               const CommandTable table = TableOf(app);
               std::cout << (shell == "bash"  ? BashScript(table)
                             : shell == "zsh" ? ZshScript(table)
                                              : FishScript(table))
                         << std::flush;
               throw CLI::Success();
           },
           "Print a completion script for bash, zsh or fish, and end")
        ->check(CLI::IsMember({"bash", "zsh", "fish"}))
        ->trigger_on_parse()
        ->group("");
}

} // namespace nq::completion
