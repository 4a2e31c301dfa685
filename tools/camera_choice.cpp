// SPDX-License-Identifier: Apache-2.0
// Which of the cameras that answer is meant.
#include "camera_choice.h"

#include "gvcp_reader.h"
#include "name_pattern.h"
#include "printable.h"

#include <algorithm>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <string_view>

namespace nq::tool
{

namespace
{

/// Hexadecimal digits in six pairs with or without separators, in three groups, or with single digits between
/// separators; 0 for what is no MAC address.
uint64_t MacFrom(std::string_view text)
{
    constexpr std::string_view kDigits = "0123456789abcdefABCDEF";
    uint64_t mac = 0;
    size_t groups = 0;
    size_t width = 0; // of a group, in digits
    for (size_t at = 0; at < text.size(); ++groups)
    {
        const size_t end = std::min(text.find_first_not_of(kDigits, at), text.size());
        const size_t length = end - at;
        width = groups == 0 ? (length == 12 || length == 4 ? length : 2) : width;
        const bool last = end == text.size();
        if (length == 0 || length > width || (width > 2 && length != width) ||
            (!last && (std::string_view(":-. ").find(text[end]) == std::string_view::npos || end + 1 == text.size())))
        {
            return 0;
        }
        mac = (width == 12 ? 0 : mac << (4 * width)) | std::stoull(std::string(text.substr(at, length)), nullptr, 16);
        at = end + 1;
    }
    return groups * width == 12 ? mac : 0;
}

uint64_t MacOf(const CameraEntry& camera)
{
    if (camera.macAddress != 0)
    {
        return camera.macAddress;
    }
    // Most producers have it at the end of the id.
    const std::string_view id = camera.id;
    const uint64_t separated = id.size() < 17 ? 0 : MacFrom(id.substr(id.size() - 17));
    return separated != 0 || id.size() < 12 ? separated : MacFrom(id.substr(id.size() - 12));
}

/// The cameras that fit. One that is called by its id is meant, whatever others are named.
std::vector<FoundCamera> Fitting(std::vector<FoundCamera> cameras, const std::string& wanted)
{
    const auto keep = [&cameras](const auto& fits) {
        std::vector<FoundCamera> kept;
        std::copy_if(cameras.begin(), cameras.end(), std::back_inserter(kept),
                     [&](const FoundCamera& found) { return fits(found.camera); });
        return kept;
    };
    if (wanted.empty())
    {
        return cameras;
    }
    std::vector<FoundCamera> fitting = keep([&](const CameraEntry& camera) { return camera.id == wanted; });
    if (fitting.empty())
    {
        fitting = keep([&](const CameraEntry& camera) { return HasName(camera, wanted); });
    }
    return fitting;
}

/// Enough is what every producer that works has looked for so often that a camera would have answered: once for cameras
/// that are there, twice to say that there is no other.
Enough EnoughFor(const std::vector<std::string>& wanted)
{
    return [wanted](const std::vector<ProducerEntry>& producers) {
        const size_t scans = wanted.empty() ? 2 : 1;
        const std::vector<FoundCamera> cameras = CamerasOf(producers);
        return std::all_of(producers.begin(), producers.end(),
                           [scans](const ProducerEntry& producer) {
                               return !producer.problem.empty() || producer.scans >= scans;
                           }) &&
               !cameras.empty() && std::all_of(wanted.begin(), wanted.end(), [&](const std::string& name) {
                   return !Fitting(cameras, name).empty();
               });
    };
}

std::string LineOf(const FoundCamera& found)
{
    const CameraEntry& camera = found.camera;
    return fmt::format("  {}  serial {}  name {}  address {}  producer {}\n", Printable(camera.id),
                       camera.serial.empty() ? "-" : Printable(camera.serial),
                       camera.userName.empty() ? "-" : Printable(camera.userName),
                       camera.address.empty() ? "-" : camera.address, Printable(found.producer));
}

bool AreOne(const FoundCamera& one, const FoundCamera& other)
{
    const uint64_t mac = MacOf(one.camera);
    return one.camera.id == other.camera.id || (mac != 0 && MacOf(other.camera) == mac);
}

/// How to name one of these: --camera, unless they are one camera that several producers see.
const char* WayOut(const std::vector<FoundCamera>& cameras)
{
    const bool same = std::all_of(cameras.begin(), cameras.end(),
                                  [&](const FoundCamera& found) { return AreOne(found, cameras.front()); });
    return same ? "they are one that several producers see: choose by --producer" : "choose one by --camera ID";
}

void ListThem(const std::vector<FoundCamera>& cameras)
{
    for (const FoundCamera& found : cameras)
    {
        fmt::print(stderr, "{}", LineOf(found));
    }
}

/// The first camera that is among them twice.
std::optional<FoundCamera> Doubled(const std::vector<FoundCamera>& cameras)
{
    for (auto one = cameras.begin(); one != cameras.end(); ++one)
    {
        if (std::any_of(cameras.begin(), one, [&](const FoundCamera& other) { return AreOne(*one, other); }))
        {
            return *one;
        }
    }
    return std::nullopt;
}

FoundCamera TheOne(const std::vector<FoundCamera>& all, const std::string& wanted)
{
    const std::vector<FoundCamera> fitting = Fitting(all, wanted);
    if (fitting.size() == 1)
    {
        return fitting.front();
    }
    ListThem(fitting.empty() ? all : fitting);
    if (fitting.empty())
    {
        throw ToolFailure(ExitCode::NoCamera, fmt::format("no camera fits \"{}\"; the above answered", wanted));
    }
    throw ToolFailure(ExitCode::Usage,
                      fmt::format("{} cameras {}; {}", fitting.size(),
                                  wanted.empty() ? "answered" : fmt::format("fit \"{}\"", wanted), WayOut(fitting)));
}

/// The cameras that answer. Throws ToolFailure(NoCamera) when none does.
std::vector<FoundCamera> Answering(const CommonOptions& common, const Enough& enough)
{
    const SearchPlan plan{ShortScansFirst(common.timeoutMs), enough};
    const std::vector<ProducerEntry> producers = AskProducers(common.producer, plan);
    std::vector<FoundCamera> all = CamerasOf(producers);
    if (all.empty())
    {
        throw ToolFailure(ExitCode::NoCamera, NoCameraAdvice(producers));
    }
    return all;
}

} // namespace

bool HasName(const CameraEntry& camera, const std::string& wanted)
{
    const uint64_t mac = MacFrom(wanted);
    return camera.serial == wanted || camera.userName == wanted || camera.address == wanted ||
           (mac != 0 && mac == MacOf(camera));
}

std::vector<FoundCamera> ChooseCameras(const CommonOptions& common, const std::vector<std::string>& wanted)
{
    const std::vector<FoundCamera> all = Answering(common, EnoughFor(wanted));
    if (wanted.empty())
    {
        return {TheOne(all, "")};
    }
    std::vector<FoundCamera> chosen;
    chosen.reserve(wanted.size());
    for (const std::string& name : wanted)
    {
        chosen.push_back(TheOne(all, name));
    }
    if (const std::optional<FoundCamera> twice = Doubled(chosen))
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("--camera names {} twice", twice->camera.id));
    }
    return chosen;
}

std::vector<FoundCamera> AllCameras(const CommonOptions& common)
{
    std::vector<FoundCamera> all = Answering(common, [](const std::vector<ProducerEntry>&) { return false; });
    if (const std::optional<FoundCamera> twice = Doubled(all))
    {
        ListThem(all);
        throw ToolFailure(ExitCode::Usage,
                          fmt::format("several producers see {}; choose by --producer", twice->camera.id));
    }
    return all;
}

std::vector<std::string> ShortNames(const std::vector<FoundCamera>& cameras)
{
    for (const auto field : {&CameraEntry::userName, &CameraEntry::serial, &CameraEntry::id})
    {
        std::vector<std::string> names;
        std::set<std::string> different;
        for (const FoundCamera& found : cameras)
        {
            names.push_back(found.camera.*field);
            different.insert(names.back().empty() ? "" : SafeName(names.back()));
        }
        if (different.size() == cameras.size() && different.count("") == 0)
        {
            return names;
        }
    }
    if (cameras.size() == 1)
    {
        return {cameras.front().camera.id};
    }
    throw ToolFailure(ExitCode::Usage, "these cameras cannot be told apart by their names: grab them one by one");
}

std::string NoCameraAdvice(const std::vector<ProducerEntry>& producers)
{
    if (GvcpReader("127.0.0.1").Read(kControlPrivilege))
    {
        return "No camera answered where producers look, but one does at 127.0.0.1, which they leave out. Give it "
               "another address of this machine (`ip addr`).";
    }
    if (std::all_of(producers.begin(), producers.end(),
                    [](const ProducerEntry& producer) { return producer.interfaces.empty(); }))
    {
        return "No network interface was found. Look at: `ip addr` (is the adapter up, with an IPv4 address?).";
    }
    return "No camera answered. Look at: the camera's power and link; `ip addr` (is the adapter on the camera's "
           "subnet?); a firewall that drops UDP port 3956; another application on the camera; --timeout for a slow "
           "network.";
}

} // namespace nq::tool
