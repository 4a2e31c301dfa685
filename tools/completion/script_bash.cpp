// SPDX-License-Identifier: Apache-2.0
// The completion script of bash. It needs nothing of the package bash-completion but to be loaded.
#include "scripts.h"

#include <regex>

namespace nq::completion
{

namespace
{

// What stands on the line is taken apart at spaces: COMP_WORDS are cut at colons too, which addresses have. Names of
// cameras are quoted, for a camera says them.
constexpr const char* kBegin =
    R"script(# Completion of PROGRAM for bash. Made of its table of options; names of cameras are those of the last `nq-gev list`.
_@_words() {
    local word before=$2
    for word in $1; do
        [[ $word == "$before"* ]] && COMPREPLY+=("$word ")
    done
}
_@_cameras() {
    local name about file=${XDG_CACHE_HOME:-$HOME/.cache}/nq-gev/cameras
    [[ -r $file ]] || return
    while IFS=$'\t' read -r name about; do
        [[ $name == "$1"* ]] && COMPREPLY+=("$(printf '%q ' "$name")")
    done <"$file"
}
_@_paths() {
    local path
    while IFS= read -r path; do
        if [[ -d $path ]]; then
            COMPREPLY+=("$(printf '%q/' "$path")")
        else
            COMPREPLY+=("$(printf '%q ' "$path")")
        fi
    done < <(compgen "$1" -- "$2")
}
_@() {
    local line=${COMP_LINE:0:COMP_POINT} words current='' verb='' option='' word kind='' own='' i
    local verbs='VERBS'
    local common='COMMON'
    COMPREPLY=()
    read -ra words <<<"$line"
    [[ $line == *[[:space:]] ]] || current=${words[${#words[@]} - 1]}
    [[ $line == *[[:space:]] ]] || unset "words[${#words[@]} - 1]"
    for ((i = 1; i < ${#words[@]}; i++)); do
        word=${words[i]}
        if [[ -n $option ]]; then
            option=''
        elif [[ $word == -* ]]; then
            _@_kind "$verb" "$word"
            [[ $kind == none ]] || option=$word
        elif [[ -z $verb && -n $verbs ]]; then
            verb=$word
        fi
    done
    case $verb in
OWN
    esac
    if [[ -z $option && $current == --*=* ]]; then
        option=${current%%=*}
        current=${current#*=}
        _@_kind "$verb" "$option"
    elif [[ -n $option ]]; then
        _@_kind "$verb" "$option"
    elif [[ $current == -* ]]; then
        _@_words "$common $own" "$current"
        return
    elif [[ -z $verb && -n $verbs ]]; then
        _@_words "$verbs" "$current"
        return
    else
        _@_kind "$verb" ''
    fi
    case $kind in
    camera) _@_cameras "$current" ;;
    file) _@_paths -f "$current" ;;
    folder) _@_paths -d "$current" ;;
    :*) _@_words "${kind#:}" "$current" ;;
    esac
    # The part before a colon stands on the line already, and bash replaces what comes behind it.
    if [[ $current == *:* && $COMP_WORDBREAKS == *:* ]]; then
        for i in "${!COMPREPLY[@]}"; do
            COMPREPLY[i]=${COMPREPLY[i]#"${current%"${current##*:}"}"}
        done
    fi
}
# What stands behind an option of a verb.
_@_kind() {
    case "$1 $2" in
KINDS
    *) kind=none ;;
    esac
}
complete -o nospace -F _@ PROGRAM
)script";

std::string KindOf(Argument argument, const std::vector<std::string>& choices)
{
    std::string kind;
    switch (argument)
    {
    case Argument::None:
        return "none";
    case Argument::Word:
        return "word";
    case Argument::File:
        return "file";
    case Argument::Folder:
        return "folder";
    case Argument::Camera:
        return "camera";
    case Argument::Choice:
        for (const std::string& choice : choices)
        {
            kind += (kind.empty() ? "':" : " ") + choice;
        }
        return kind + "'";
    }
    return kind;
}

std::string NamesOf(const VerbRow& verb)
{
    std::string names;
    for (const OptionRow& row : Named(verb))
    {
        for (const std::string& name : row.names)
        {
            names += (names.empty() ? "" : " ") + name;
        }
    }
    return names;
}

/// One line of a `case` for each option that takes something.
std::string KindsOf(const VerbRow& verb, const std::string& pattern)
{
    std::string kinds;
    for (const OptionRow& row : verb.options)
    {
        std::string patterns;
        for (const std::string& name : row.names)
        {
            patterns += Joined({patterns.empty() ? "" : " | ", pattern, "' ", name, "'"});
        }
        if (row.names.empty())
        {
            patterns = pattern + "' '";
        }
        if (row.argument != Argument::None)
        {
            kinds += Joined({"    ", patterns, ") kind=", KindOf(row.argument, row.choices), " ;;\n"});
        }
    }
    return kinds;
}

void Fill(std::string& script, const std::string& place, const std::string& text)
{
    for (size_t at = script.find(place); at != std::string::npos; at = script.find(place, at + text.size()))
    {
        script.replace(at, place.size(), text);
    }
}

} // namespace

std::string BashScript(const CommandTable& table)
{
    std::string verbs;
    std::string own;
    std::string kinds;
    for (const VerbRow& verb : table.verbs)
    {
        verbs += (verbs.empty() ? "" : " ") + verb.name;
        own += Joined({"    ", verb.name, ") own='", NamesOf(verb), "' ;;\n"});
        kinds += KindsOf(verb, verb.name);
    }
    kinds += KindsOf(table.common, "*");
    std::string script = kBegin;
    Fill(script, "_@", "_" + std::regex_replace(table.program, std::regex("-"), "_"));
    Fill(script, "PROGRAM", table.program);
    Fill(script, "VERBS", verbs);
    Fill(script, "COMMON", NamesOf(table.common));
    Fill(script, "OWN\n", own);
    Fill(script, "KINDS\n", kinds);
    return script;
}

} // namespace nq::completion
