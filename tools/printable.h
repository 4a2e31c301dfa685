// SPDX-License-Identifier: Apache-2.0
// Texts and bytes of cameras, producers and files, made fit for a terminal.
#pragma once

#include <string>
#include <string_view>

namespace nq::tool
{

/// The text with every byte that a terminal could obey, or that is no UTF-8, as \xNN: control characters, and the
/// invisible ones that change the direction or the order of what is read. Everything else stays as it is.
std::string Printable(std::string_view text);

/// Two hexadecimal digits for each byte, with `between` between bytes.
std::string HexText(std::string_view bytes, std::string_view between = "");

} // namespace nq::tool
