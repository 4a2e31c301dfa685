// SPDX-License-Identifier: Apache-2.0
// The completion script of fish.
#include "scripts.h"

#include <regex>

namespace nq::completion
{

namespace
{

std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char one : text)
    {
        quoted += one == '\'' || one == '\\' ? "\\" + std::string(1, one) : std::string(1, one);
    }
    return quoted + "'";
}

std::string ActionOf(const OptionRow& row, const std::string& function)
{
    std::string words;
    switch (row.argument)
    {
    case Argument::None:
        return "";
    case Argument::Word:
        return " -x";
    case Argument::File:
        return " -r -F";
    case Argument::Folder:
        return " -x -a '(__fish_complete_directories (commandline -ct))'";
    case Argument::Camera:
        return " -x -a '(" + function + "_cameras)'";
    case Argument::Choice:
        for (const std::string& choice : row.choices)
        {
            words += (words.empty() ? "" : " ") + choice;
        }
        return " -x -a " + Quoted(words);
    }
    return "";
}

/// A line for each option, each beginning with `start`.
std::string Lines(const VerbRow& verb, const std::string& start, const std::string& function)
{
    std::string lines;
    for (const OptionRow& row : verb.options)
    {
        std::string names;
        for (const std::string& name : row.names)
        {
            names += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
        }
        const std::string action = ActionOf(row, function);
        if (!names.empty())
        {
            lines += Joined({start, names, action, " -d ", Quoted(row.about), "\n"});
        }
        else if (row.argument != Argument::Word)
        {
            // -x and -r are about what follows an option.
            lines += Joined({start, std::regex_replace(action, std::regex("^ (-x|-r)"), ""), "\n"});
        }
    }
    return lines;
}

} // namespace

std::string FishScript(const CommandTable& table)
{
    const std::string function = "__" + std::regex_replace(table.program, std::regex("-"), "_");
    const std::string start = "complete -c " + table.program;
    std::string script = "# Made of the table of options; names of cameras are those of the last `nq-gev list`.\n"
                         "function " +
                         function +
                         "_cameras\n"
                         "    set -l folder $XDG_CACHE_HOME\n"
                         "    test -n \"$folder\"; or set folder $HOME/.cache\n"
                         "    test -r $folder/nq-gev/cameras; and cat $folder/nq-gev/cameras\n"
                         "end\n" +
                         start + " -f\n" + Lines(table.common, start, function);
    std::string all;
    for (const VerbRow& verb : table.verbs)
    {
        all += " " + verb.name;
    }
    for (const VerbRow& verb : table.verbs)
    {
        script += Joined(
            {start, " -n 'not __fish_seen_subcommand_from", all, "' -a ", verb.name, " -d ", Quoted(verb.about), "\n"});
        const std::string condition = Joined({start, " -n '__fish_seen_subcommand_from ", verb.name, "'"});
        script += Lines(verb, condition, function);
    }
    return script;
}

} // namespace nq::completion
