// SPDX-License-Identifier: Apache-2.0
// Where the files are that came with this program.
#include "installed_folder.h"

#include <system_error>

namespace nq::tool
{

namespace fs = std::filesystem;

fs::path FolderOf(const fs::path& file, const fs::path& installed)
{
    std::error_code ignored;
    const fs::path here = fs::read_symlink("/proc/self/exe", ignored).parent_path();
    const fs::path there = (here / installed).lexically_normal();
    return !fs::exists(here / file, ignored) && fs::exists(there / file, ignored) ? there : here;
}

fs::path FolderOfOurProducer()
{
    return FolderOf("libnq_gev_rdma_tl.cti", "../lib/gentl");
}

} // namespace nq::tool
