// SPDX-License-Identifier: Apache-2.0
// The completion script of zsh.
#include "scripts.h"

#include <regex>

namespace nq::completion
{

namespace
{

/// A text between single quotes, in which _arguments and _describe take these characters for their own.
std::string Plain(const std::string& text, const char* special)
{
    std::string plain;
    for (const char one : text)
    {
        const bool quoted = std::string(special).find(one) != std::string::npos;
        plain += one == '\'' ? "'\\''" : (quoted ? "\\" : "") + std::string(1, one);
    }
    return plain;
}

std::string ZshAction(const OptionRow& row, const std::string& function)
{
    std::string words;
    switch (row.argument)
    {
    case Argument::None:
        return "";
    case Argument::Word:
        return ":value: ";
    case Argument::File:
        return ":file:_files";
    case Argument::Folder:
        return ":folder:_files -/";
    case Argument::Camera:
        return ":camera:" + function + "_cameras";
    case Argument::Choice:
        for (const std::string& choice : row.choices)
        {
            words += (words.empty() ? "" : " ") + choice;
        }
        return ":value:(" + words + ")";
    }
    return "";
}

/// The options of a verb as words for _arguments, a line each.
std::string Specs(const VerbRow& verb, const std::string& function)
{
    std::string specs;
    for (const OptionRow& row : verb.options)
    {
        const std::string about = "[" + Plain(row.about, "[]\\") + "]";
        const std::string action = ZshAction(row, function);
        for (const std::string& name : row.names)
        {
            // Any may be given again but those that are only ever there or not.
            specs += Joined({"        '", action.empty() ? "" : "*", name,
                             name.starts_with("--") && !action.empty() ? "=" : "", about, action, "'\n"});
        }
        // One of which nothing is known would hide the options behind it.
        if (row.names.empty() && row.argument != Argument::Word)
        {
            specs += Joined({"        '*", action, "'\n"});
        }
    }
    return specs;
}

std::string Verbs(const CommandTable& table)
{
    std::string verbs;
    for (const VerbRow& verb : table.verbs)
    {
        verbs += Joined({"        '", verb.name, ":", Plain(verb.about, ":\\"), "'\n"});
    }
    return verbs;
}

} // namespace

std::string ZshScript(const CommandTable& table)
{
    const std::string function = "_" + std::regex_replace(table.program, std::regex("-"), "_");
    std::string script = "#compdef " + table.program +
                         "\n# Made of the table of options; names of cameras are those of the last `nq-gev list`.\n" +
                         function +
                         "_cameras() {\n"
                         "    local file=${XDG_CACHE_HOME:-$HOME/.cache}/nq-gev/cameras\n"
                         "    local -a names\n"
                         "    [[ -r $file ]] && names=(${${(f)\"$(<$file)\"}%%$'\\t'*})\n"
                         "    compadd -- $names\n"
                         "}\n" +
                         function + "() {\n    local -a common verbs line\n    local state\n    common=(\n" +
                         Specs(table.common, function) + "    )\n";
    if (table.verbs.empty())
    {
        return script + "    _arguments $common\n}\n" + function + " \"$@\"\n";
    }
    script += "    verbs=(\n" + Verbs(table) +
              "    )\n"
              "    _arguments -C $common '1: :->verb' '*::: :->rest'\n"
              "    case $state in\n"
              "    verb) _describe verb verbs ;;\n"
              "    rest)\n"
              "        words=($line[1] $words)\n"
              "        ((CURRENT += 1))\n"
              "        case $line[1] in\n";
    for (const VerbRow& verb : table.verbs)
    {
        const std::string specs = std::regex_replace(Specs(verb, function), std::regex("'\n"), "' \\\n");
        script += Joined({"        ", verb.name, ") _arguments $common \\\n", specs, "            ;;\n"});
    }
    return script + "        esac ;;\n    esac\n}\n" + function + " \"$@\"\n";
}

} // namespace nq::completion
