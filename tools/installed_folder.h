// SPDX-License-Identifier: Apache-2.0
// Where the files are that came with this program.
#pragma once

#include <filesystem>

namespace nq::tool
{

/// The folder of `file`: that of this program, as a build leaves both, or `installed`, relative to it. That of this
/// program where neither has the file.
std::filesystem::path FolderOf(const std::filesystem::path& file, const std::filesystem::path& installed);

/// The folder of the producer that was built or installed with this program.
std::filesystem::path FolderOfOurProducer();

} // namespace nq::tool
