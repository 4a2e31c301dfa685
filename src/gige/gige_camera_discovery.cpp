// SPDX-License-Identifier: Apache-2.0
// Discovery of cameras by broadcast.
#include "gige/gige_camera.h"
#include "gige/gige_camera_map.h"
#include "gige/gige_wait.h"
#include "gige/gvcp_wire.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <list>
#include <mutex>

namespace GigETL
{
namespace
{

/// Copies a text up to its end or the field's, and fills the rest of the field with zeros.
template <std::size_t Size>
void copyText(const Command& ack, int offset, char (&field)[Size])
{
    ack.readMemory(offset, field, Size);
    std::fill(std::find(std::begin(field), std::end(field), '\0'), std::end(field), '\0');
}

template <std::size_t Size>
void formatAddress(unsigned int address, char (&field)[Size])
{
    std::snprintf(field, Size, "%u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF, address & 0xFF);
}

template <std::size_t Size>
void formatMac(unsigned int upper, unsigned int lower, char (&field)[Size])
{
    std::snprintf(field, Size, "%2.2x:%2.2x:%2.2x:%2.2x:%2.2x:%2.2x", upper >> 8 & 0xFF, upper & 0xFF, lower >> 24,
                  lower >> 16 & 0xFF, lower >> 8 & 0xFF, lower & 0xFF);
}

void fillRecord(const Command& ack, unsigned int localIP, NQGigE_CAMERA& camera)
{
    camera.ipAddress = ack.getDWord(gvcp_wire::kDiscoveryIpAddress);
    camera.subnetMask = ack.getDWord(gvcp_wire::kDiscoverySubnetMask);
    camera.defaultGateway = ack.getDWord(gvcp_wire::kDiscoveryGateway);
    const unsigned int macUpper = ack.getDWord(gvcp_wire::kDiscoveryMacWord) & 0xFFFF;
    const unsigned int macLower = ack.getDWord(gvcp_wire::kDiscoveryMacLow);
    camera.macUpper = macUpper;
    camera.macLower = macLower;
    formatAddress(camera.ipAddress, camera.ipAddressText);
    formatAddress(camera.subnetMask, camera.subnetMaskText);
    formatMac(macUpper, macLower, camera.macText);
    copyText(ack, gvcp_wire::kDiscoveryManufacturer, camera.manufacturer);
    copyText(ack, gvcp_wire::kDiscoveryModel, camera.model);
    copyText(ack, gvcp_wire::kDiscoveryManufacturerInfo, camera.manufacturerInfo);
    copyText(ack, gvcp_wire::kDiscoveryDeviceVersion, camera.deviceVersion);
    copyText(ack, gvcp_wire::kDiscoverySerialNumber, camera.serialNumber);
    copyText(ack, gvcp_wire::kDiscoveryUserDefinedName, camera.userDefinedName);
    const unsigned int version = ack.getDWord(gvcp_wire::kDiscoverySpecVersion);
    camera.specVersionMajor = static_cast<std::uint16_t>(version >> 16);
    camera.specVersionMinor = static_cast<std::uint16_t>(version & 0xFFFF);
    camera.adapterIpAddress = localIP;
}

/// Receives until no more answers come, and takes every good one. The code that ended it.
NQGigE_RETURN collectAnswers(Network& network, timeval wait, unsigned int localIP, NQGigE_CALLBACK callback,
                             void* context)
{
    const auto camera = std::make_unique<NQGigE_CAMERA>();
    NQGigE_RETURN result = network.broadcastCommand(Command(gvcp_wire::kDiscovery, gvcp_wire::kDiscoveryZeros,
                                                            gvcp_wire::kAckRequired | gvcp_wire::kBroadcastAckAllowed));
    if (result != NQGigE_SUCCESS)
    {
        return result;
    }
    while (true)
    {
        Command ack;
        unsigned long sender = 0;
        result = network.receiveCommand(ack, &wait, &sender, nullptr);
        if (result != NQGigE_SUCCESS)
        {
            return result;
        }
        if (Camera::validateAck(network, ack, Command::getRequestID(), gvcp_wire::kDiscoveryAck) != NQGigE_SUCCESS)
        {
            continue;
        }
        fillRecord(ack, localIP, *camera);
        NQGigE_SIGNAL signal{kSignalCameraFound, camera.get(), sizeof(NQGigE_CAMERA)};
        callback(&signal, context);
        cameras.store(*camera);
    }
}

/// Keeps a network that got no port, for the life of the process.
void keepUnusable(std::unique_ptr<Network> network)
{
    // Never destroyed: a discovery may still run on another thread while the process exits.
    static NQMutex& mutex = *new NQMutex;
    static auto& kept NQ_GUARDED_BY(mutex) = *new std::list<std::unique_ptr<Network>>;
    const NQLock lock(mutex);
    kept.push_back(std::move(network));
}

} // namespace

NQGigE_RETURN Camera::discoverCameras(unsigned int port, unsigned int localIP, unsigned long timeoutMs,
                                      NQGigE_CALLBACK callback, void* context)
{
    auto network = std::make_unique<Network>(0U, port, localIP, 0U);
    if (network->getLocalPort() == 0)
    {
        // Deliberate(PortlessNetworkStays): a network without a port is not freed, so its place in the count of living
        // networks stays taken and the count tells how often the host had no port to give.
        keepUnusable(std::move(network));
        return NQGigE_NO_LOCAL_PORT;
    }
    const timeval wait = timevalFromMs(static_cast<long>(timeoutMs));
    const NQGigE_RETURN result = collectAnswers(*network, wait, localIP, callback, context);
    // Deliberate(EarlierCamerasCount): the map is not emptied before a discovery, since cameras of an earlier one can
    // still be opened by their records; they make this one succeed as well.
    return cameras.empty() ? result : NQGigE_SUCCESS;
}

NQGigE_RETURN Camera::shutdownCameras()
{
    cameras.clear();
    return NQGigE_SUCCESS;
}

} // namespace GigETL
