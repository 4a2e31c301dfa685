// SPDX-License-Identifier: Apache-2.0
// All that the doctor has gathered before it judges.
#include "doctor/scene.h"

#include "camera_choice.h"
#include "heard_cameras.h"
#include "software_rdma.h"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

namespace nq::tool::doctor
{

namespace
{

/// Our producer goes by the first address of an adapter. What another one reaches is in reach.
void Place(SeenCamera& camera, const std::vector<Adapter>& adapters)
{
    const auto adapter =
        std::find_if(adapters.begin(), adapters.end(), [&](const Adapter& one) { return one.name == camera.adapter; });
    if (adapter == adapters.end())
    {
        return;
    }
    camera.adapterSubnet = adapter->networks.empty() ? Ipv4Network() : adapter->networks.front();
    const bool reached = !camera.producer.empty() &&
                         camera.entry.accessStatus != GenTL::DEVICE_ACCESS_STATUS_NOACCESS &&
                         camera.entry.accessStatus != GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
    // Both ways: with a longer mask than the adapter's the camera may have no way back to it.
    camera.isForeign =
        !reached && (camera.adapterSubnet.mask == 0 || !camera.adapterSubnet.Contains(camera.subnet.address) ||
                     !camera.subnet.Contains(camera.adapterSubnet.address));
}

SeenCamera SeenBy(const HeardCamera& heard)
{
    SeenCamera camera;
    camera.entry.model = heard.model;
    camera.entry.serial = heard.serial;
    camera.entry.userName = heard.userName;
    camera.entry.macAddress = heard.mac;
    camera.entry.address = DottedAddress(heard.network.address);
    camera.adapter = heard.adapter.name;
    camera.subnet = heard.network;
    camera.version = heard.version;
    return camera;
}

/// Those that were heard first, with what producers call them, then those that only a producer sees.
std::vector<SeenCamera> Joined(const std::vector<HeardCamera>& heard, const std::vector<FoundCamera>& listed)
{
    std::vector<SeenCamera> cameras;
    cameras.reserve(heard.size() + listed.size());
    for (const HeardCamera& one : heard)
    {
        cameras.push_back(SeenBy(one));
    }
    for (const FoundCamera& found : listed)
    {
        bool known = false;
        for (SeenCamera& camera : cameras)
        {
            const bool same = found.camera.macAddress == 0
                                  ? !camera.entry.serial.empty() && found.camera.serial == camera.entry.serial
                                  : found.camera.macAddress == camera.entry.macAddress;
            if (same)
            {
                known = true;
                const std::string address = camera.entry.address;
                camera.entry = found.camera;
                camera.entry.address = address;
                camera.producer = found.producer;
            }
        }
        if (!known)
        {
            SeenCamera& camera = cameras.emplace_back();
            camera.entry = found.camera;
            camera.producer = found.producer;
        }
    }
    return cameras;
}

/// Also of cameras that are not meant.
void FindTwins(std::vector<SeenCamera>& cameras)
{
    for (SeenCamera& camera : cameras)
    {
        const auto twin = std::find_if(cameras.begin(), cameras.end(), [&](const SeenCamera& one) {
            return !camera.adapter.empty() && one.adapter == camera.adapter &&
                   one.subnet.address == camera.subnet.address && one.entry.macAddress != camera.entry.macAddress;
        });
        camera.twin = twin == cameras.end() ? 0 : twin->entry.macAddress;
    }
}

/// Enough is when every camera that was heard is listed.
Enough EnoughFor(const std::vector<HeardCamera>& heard)
{
    return [heard](const std::vector<ProducerEntry>& producers) {
        const std::vector<FoundCamera> listed = CamerasOf(producers);
        const auto isListed = [&listed](const HeardCamera& one) {
            return std::any_of(listed.begin(), listed.end(),
                               [&one](const FoundCamera& found) { return found.camera.macAddress == one.mac; });
        };
        return !heard.empty() && std::all_of(heard.begin(), heard.end(), isListed) &&
               std::all_of(producers.begin(), producers.end(), [](const ProducerEntry& producer) {
                   return producer.scans > 0 || !producer.problem.empty();
               });
    };
}

/// None where no adapter can be asked: findings about the adapters say why.
std::vector<HeardCamera> Heard(const std::vector<Adapter>& adapters, std::chrono::milliseconds time)
{
    try
    {
        return HearCameras(adapters, time);
    }
    catch (const ToolFailure&)
    {
        return {};
    }
}

void AskAll(Scene& scene, const CommonOptions& common, const std::vector<HeardCamera>& heard)
{
    try
    {
        const SearchPlan plan{ShortScansFirst(common.timeoutMs), EnoughFor(heard)};
        scene.producers = AskApart(FindProducers(common.producer), plan);
    }
    catch (const ToolFailure& failure)
    {
        scene.whyNoProducer = failure.what();
    }
}

std::vector<Adapter> Concerned(const Scene& scene)
{
    std::vector<Adapter> withCamera;
    std::vector<Adapter> withRdma;
    for (const Adapter& adapter : scene.adapters)
    {
        if (std::any_of(scene.cameras.begin(), scene.cameras.end(),
                        [&](const SeenCamera& camera) { return camera.adapter == adapter.name; }))
        {
            withCamera.push_back(adapter);
        }
        if (std::any_of(scene.ports.begin(), scene.ports.end(),
                        [&](const RdmaPort& port) { return port.adapters.contains(adapter.name); }))
        {
            withRdma.push_back(adapter);
        }
    }
    return !withCamera.empty() ? withCamera : !withRdma.empty() ? withRdma : scene.adapters;
}

void FindPayload(Scene& scene)
{
    if (scene.options.frameBytes != 0)
    {
        scene.payload = scene.options.frameBytes;
        return;
    }
    scene.whyNoPayload = "no camera answered that could tell how long a frame is";
    for (const SeenCamera& camera : scene.cameras)
    {
        if (camera.isForeign || camera.producer.empty())
        {
            scene.whyNoPayload = fmt::format("{} cannot be opened yet", camera.Name());
            continue;
        }
        const std::optional<uint64_t> payload = AskPayload({camera.producer, camera.entry}, scene.whyNoPayload);
        scene.payload = std::max(scene.payload, payload); // nothing is less than any number
    }
}

} // namespace

std::string SeenCamera::Name() const
{
    return fmt::format("{}{}{}{}{}", entry.model, entry.serial.empty() ? "" : " ", entry.serial,
                       entry.address.empty() ? "" : " at ", entry.address);
}

Scene Gather(const CommonOptions& common, const DoctorOptions& options)
{
    Scene scene;
    scene.options = options;
    scene.machine = Machine(options.root);
    scene.onSoftwareRdma = RunsOnSoftwareRdma();
    scene.adapters = FindAdapters();
    scene.ports = FindRdmaPorts(scene.machine);
    const std::vector<HeardCamera> heard = Heard(scene.adapters, std::chrono::milliseconds(common.timeoutMs));
    AskAll(scene, common, heard);
    scene.cameras = Joined(heard, CamerasOf(scene.producers));
    std::for_each(scene.cameras.begin(), scene.cameras.end(),
                  [&](SeenCamera& camera) { Place(camera, scene.adapters); });
    FindTwins(scene.cameras);
    scene.otherCameras = std::erase_if(scene.cameras, [&](const SeenCamera& camera) {
        return !options.camera.empty() && camera.entry.id != options.camera && !HasName(camera.entry, options.camera);
    });
    scene.concerned = Concerned(scene);
    FindPayload(scene);
    return scene;
}

const Adapter* AdapterCalled(const Scene& scene, const std::string& name)
{
    const auto found = std::find_if(scene.adapters.begin(), scene.adapters.end(),
                                    [&](const Adapter& adapter) { return adapter.name == name; });
    return found == scene.adapters.end() ? nullptr : &*found;
}

} // namespace nq::tool::doctor
