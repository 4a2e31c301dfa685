// SPDX-License-Identifier: Apache-2.0
// The files of the page, which the build puts into the program.
#pragma once

#include <string_view>

namespace nq::tool::view
{

struct PageFile
{
    std::string_view name;
    std::string_view bytes;
};

/// The file of that name; null when there is none.
const PageFile* FindPageFile(std::string_view name);

/// The media type of a file by its extension.
const char* TypeOf(std::string_view name);

} // namespace nq::tool::view
