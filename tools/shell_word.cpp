// SPDX-License-Identifier: Apache-2.0
// Words of lines that people paste into a shell.
#include "shell_word.h"

#include <cerrno>
#include <string_view>

namespace nq::tool
{

std::string ShellWord(const std::string& text)
{
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+";
    if (text.find_first_not_of(kPlain) == std::string::npos)
    {
        return text;
    }
    std::string quoted = "'";
    for (const char one : text)
    {
        quoted += one == '\'' ? "'\\''" : std::string(1, one);
    }
    return quoted + "'";
}

std::string ThisProgram()
{
    return ShellWord(program_invocation_name);
}

} // namespace nq::tool
