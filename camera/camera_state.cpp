// SPDX-License-Identifier: Apache-2.0
// What a camera keeps when it is switched off, as a JSON file.
#include "camera_state.h"

#include "feature_table.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace nq::camera
{

namespace
{

using nlohmann::json;

std::span<const FeatureEntry> Sets()
{
    return FeatureByName("UserSetSelector").entries;
}

FeatureValues ValuesOf(const json& set)
{
    FeatureValues values;
    for (const auto& [name, list] : set.items())
    {
        for (const json& number : list)
        {
            if (number.is_number())
            {
                values[name].push_back(number.get<double>());
            }
        }
    }
    return values;
}

/// Where the next state is written before it takes the place of the last.
std::string DraftOf(const std::string& path)
{
    return path + ".new";
}

[[noreturn]] void Refuse(const std::string& path, const std::string& why)
{
    throw std::runtime_error("cannot keep the state in '" + path + "': " + why);
}

} // namespace

void NeedUsableState(const std::string& path)
{
    std::error_code unknown;
    const std::filesystem::file_status there = std::filesystem::status(path, unknown);
    if (std::filesystem::exists(there) && !std::filesystem::is_regular_file(there))
    {
        Refuse(path, "it is no plain file");
    }
    static_cast<void>(ReadState(path, {}));
    const std::string draft = DraftOf(path);
    const int file = open(draft.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    if (file < 0)
    {
        Refuse(path, std::generic_category().message(errno));
    }
    close(file);
    std::filesystem::remove(draft, unknown);
}

CameraState ReadState(const std::string& path, const CameraState& absent)
{
    if (!std::filesystem::exists(path))
    {
        return absent;
    }
    std::ifstream file(path);
    if (!file)
    {
        throw std::runtime_error("cannot read the state '" + path + "': " + std::generic_category().message(errno));
    }
    try
    {
        const json text = json::parse(file);
        CameraState state = absent;
        state.userName = text.value("DeviceUserID", absent.userName);
        const auto wanted = text.value("UserSetDefault", std::string());
        const json ip = text.value("IPConfiguration", json::object());
        state.ip = {ip.value("Flags", absent.ip.flags), ip.value("PersistentIPAddress", absent.ip.address),
                    ip.value("PersistentSubnetMask", absent.ip.netmask),
                    ip.value("PersistentDefaultGateway", absent.ip.gateway)};
        const json sets = text.value("UserSets", json::object());
        for (const FeatureEntry& entry : Sets())
        {
            state.defaultSet = entry.name == wanted ? entry.value : state.defaultSet;
            if (entry.value != 0 && sets.contains(entry.name))
            {
                state.sets[entry.value] = ValuesOf(sets[entry.name]);
            }
        }
        return state;
    }
    catch (const json::exception& error)
    {
        throw std::runtime_error("cannot read the state '" + path + "': " + error.what());
    }
}

bool WriteState(const std::string& path, const CameraState& state)
{
    json text = {{"DeviceUserID", state.userName}, {"UserSets", json::object()}};
    for (const FeatureEntry& entry : Sets())
    {
        if (entry.value == state.defaultSet)
        {
            text["UserSetDefault"] = entry.name;
        }
        const auto set = state.sets.find(entry.value);
        if (set != state.sets.end())
        {
            text["UserSets"][entry.name] = set->second;
        }
    }
    text["IPConfiguration"] = {{"Flags", state.ip.flags},
                               {"PersistentIPAddress", state.ip.address},
                               {"PersistentSubnetMask", state.ip.netmask},
                               {"PersistentDefaultGateway", state.ip.gateway}};
    const std::string draft = DraftOf(path);
    std::ofstream file(draft, std::ios::trunc);
    file << text.dump(2, ' ', false, json::error_handler_t::replace) << "\n";
    file.close();
    std::error_code error;
    if (file.good())
    {
        std::filesystem::rename(draft, path, error);
    }
    return file.good() && !error;
}

} // namespace nq::camera
