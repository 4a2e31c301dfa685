// SPDX-License-Identifier: Apache-2.0
// The names of the cameras that were listed last, for the completion of shells, which looks for none by itself.
#include "camera_cache.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

/// As the XDG folders are defined: a path that is not absolute counts as none. Empty when there is no such folder.
fs::path CacheFolder()
{
    const char* const cache = std::getenv("XDG_CACHE_HOME");
    if (cache != nullptr && *cache == '/')
    {
        return fs::path(cache) / "nq-gev";
    }
    const char* const home = std::getenv("HOME");
    return home != nullptr && *home == '/' ? fs::path(home) / ".cache/nq-gev" : fs::path();
}

bool IsPlain(const std::string& name)
{
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 .:_-";
    return !name.empty() && name.find_first_not_of(kPlain) == std::string::npos;
}

std::string LinesOf(const std::vector<FoundCamera>& cameras)
{
    std::set<std::string> lines;
    for (const FoundCamera& found : cameras)
    {
        const CameraEntry& camera = found.camera;
        const std::string about =
            IsPlain(camera.model) && IsPlain(camera.serial) ? fmt::format("\t{} {}", camera.model, camera.serial) : "";
        for (const std::string& name : {camera.id, camera.serial, camera.userName, camera.address})
        {
            if (IsPlain(name))
            {
                lines.insert(fmt::format("{}{}\n", name, about));
            }
        }
    }
    std::string all;
    for (const std::string& line : lines)
    {
        all += line;
    }
    return all;
}

} // namespace

void NoteCameras(const std::vector<FoundCamera>& cameras)
{
    const fs::path folder = CacheFolder();
    if (folder.empty())
    {
        return;
    }
    std::error_code failed;
    fs::create_directories(folder, failed);
    // Renamed into its place, so that no shell reads half of it.
    const fs::path made = folder / fmt::format("cameras.{}", getpid());
    bool written = false;
    {
        std::ofstream file(made, std::ios::trunc);
        written = static_cast<bool>((file << LinesOf(cameras)).flush());
    }
    if (written)
    {
        fs::rename(made, folder / "cameras", failed);
    }
    if (!written || failed)
    {
        fs::remove(made, failed);
    }
}

} // namespace nq::tool
