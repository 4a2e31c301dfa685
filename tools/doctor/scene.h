// SPDX-License-Identifier: Apache-2.0
// All that the doctor has gathered before it judges.
#pragma once

#include "common_options.h"
#include "doctor/machine.h"
#include "doctor/rdma_ports.h"
#include "network_adapters.h"
#include "producers.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool::doctor
{

struct DoctorOptions
{
    std::string camera;      ///< what names the camera that is meant; empty for all
    std::string root = "/";  ///< of sys, proc and dev
    uint64_t buffers = 4;    ///< that a consumer wants
    uint64_t frameBytes = 0; ///< of a frame; 0 to ask the camera
};

/// A camera that was heard, or that a producer lists, or both.
struct SeenCamera
{
    CameraEntry entry;         ///< with the id that the producer gives it; of one that is not listed without
    std::string producer;      ///< empty for one that is not listed
    std::string adapter;       ///< where it was heard; empty for one that was not
    Ipv4Network subnet;        ///< its own idea of it
    Ipv4Network adapterSubnet; ///< of the adapter, as its first address has it
    std::string version;       ///< of the device
    bool isForeign = false;    ///< it cannot be reached from there
    uint64_t twin = 0;         ///< MAC address of another one there that tells the same address; 0 for none

    /// For messages: its model and serial number, and its address.
    std::string Name() const;
};

struct Scene
{
    DoctorOptions options;
    Machine machine{"/"};
    bool onSoftwareRdma = false;
    std::vector<Adapter> adapters;
    std::vector<Adapter> concerned; ///< those that lead to a meant camera, else those with RDMA, else all
    std::vector<RdmaPort> ports;    ///< of the RDMA devices
    std::string whyNoProducer;      ///< empty when there is a .cti
    std::vector<ProducerEntry> producers;
    std::vector<SeenCamera> cameras; ///< the meant ones
    size_t otherCameras = 0;         ///< answered, and are not meant
    std::optional<uint64_t> payload; ///< the largest of the cameras, in bytes
    std::string whyNoPayload;
};

/// Looks at everything, which takes seconds and has an end whatever cameras and producers do. Takes control of nothing.
Scene Gather(const CommonOptions& common, const DoctorOptions& options);

/// The payload of a camera's first stream in bytes, by a process that opens the camera for reading. Nothing, and why,
/// when the producer refuses, crashes, or takes more than 8 s.
std::optional<uint64_t> AskPayload(const FoundCamera& camera, std::string& why);

/// The adapter of that name; nothing when it is gone.
const Adapter* AdapterCalled(const Scene& scene, const std::string& name);

} // namespace nq::tool::doctor
