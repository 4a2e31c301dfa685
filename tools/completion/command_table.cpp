// SPDX-License-Identifier: Apache-2.0
// What a program can be told, as completion needs it.
#include "command_table.h"

#include <algorithm>
#include <regex>

namespace nq::completion
{

namespace
{

/// The words that a check names: "{a,b}", "{a->1,b->2}", or "a, b or c".
std::vector<std::string> ChoicesIn(const std::string& type)
{
    std::vector<std::string> choices;
    std::smatch match;
    std::string list;
    if (std::regex_search(type, match, std::regex(R"(\{([^}]*)\})")))
    {
        list = match[1];
    }
    else if (std::regex_search(type, match, std::regex(R"(:(\w+(, \w+)* or \w+)$)")))
    {
        list = std::regex_replace(match[1].str(), std::regex(" or |, "), ",");
    }
    const std::regex word(R"([^,]+)");
    for (std::sregex_iterator at(list.begin(), list.end(), word); at != std::sregex_iterator(); ++at)
    {
        const std::string choice = at->str();
        choices.push_back(choice.substr(0, choice.find("->")));
    }
    return choices;
}

bool Names(const CLI::Option& option, const std::string& part)
{
    const std::vector<std::string>& names = option.get_lnames();
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) { return name == part; });
}

Argument ArgumentOf(const CLI::Option& option, const OptionRow& row)
{
    const std::string type = option.get_type_name();
    const std::string text = option.get_description() + " " + option.get_name(true);
    if (option.get_items_expected_max() == 0)
    {
        return Argument::None;
    }
    if (!row.choices.empty())
    {
        return Argument::Choice;
    }
    if (Names(option, "camera"))
    {
        return Argument::Camera;
    }
    if (type.find("DIR") != std::string::npos || std::regex_search(text, std::regex("\\b[Ff]older\\b")))
    {
        return Argument::Folder;
    }
    const std::regex file("\\b([Ff]ile|FILE|PRODUCER|socket)\\b");
    return type.find("FILE") != std::string::npos || std::regex_search(text, file) ? Argument::File : Argument::Word;
}

OptionRow RowOf(const CLI::Option& option)
{
    OptionRow row;
    for (const std::string& name : option.get_snames())
    {
        row.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames())
    {
        row.names.push_back("--" + name);
    }
    row.about = option.get_description();
    row.choices = ChoicesIn(option.get_type_name());
    row.argument = ArgumentOf(option, row);
    row.repeated = option.get_items_expected_max() > 1;
    return row;
}

VerbRow VerbOf(const CLI::App& app)
{
    VerbRow verb{app.get_name(), app.get_description(), {}};
    for (const CLI::Option* option : app.get_options())
    {
        if (!option->get_group().empty())
        {
            verb.options.push_back(RowOf(*option));
        }
    }
    return verb;
}

} // namespace

CommandTable TableOf(const CLI::App& app)
{
    CommandTable table{app.get_name(), VerbOf(app), {}};
    table.common.name.clear();
    for (const CLI::App* verb : app.get_subcommands(nullptr))
    {
        table.verbs.push_back(VerbOf(*verb));
        // That of the program is told with the common options.
        std::vector<OptionRow>& options = table.verbs.back().options;
        options.erase(std::remove_if(options.begin(), options.end(),
                                     [](const OptionRow& row) {
                                         return std::count(row.names.begin(), row.names.end(), "--help") != 0;
                                     }),
                      options.end());
    }
    return table;
}

std::vector<OptionRow> Named(const VerbRow& verb)
{
    std::vector<OptionRow> named;
    std::copy_if(verb.options.begin(), verb.options.end(), std::back_inserter(named),
                 [](const OptionRow& row) { return !row.names.empty(); });
    return named;
}

Argument Unnamed(const VerbRow& verb)
{
    const auto row =
        std::find_if(verb.options.begin(), verb.options.end(), [](const OptionRow& one) { return one.names.empty(); });
    return row == verb.options.end() ? Argument::Word : row->argument;
}

} // namespace nq::completion
