// SPDX-License-Identifier: Apache-2.0
// Words of lines that people paste into a shell.
#pragma once

#include <string>

namespace nq::tool
{

/// As a shell takes it for one word.
std::string ShellWord(const std::string& text);

/// This program as its user started it.
std::string ThisProgram();

} // namespace nq::tool
