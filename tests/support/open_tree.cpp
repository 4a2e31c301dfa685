// SPDX-License-Identifier: Apache-2.0
// The library opened down to a data stream of a scripted camera, one virtual cable away.
#include "support/open_tree.h"

#include "support/ask_until.h"

#include <stdexcept>

namespace nq::test
{
namespace
{

void Require(int result, const char* what)
{
    if (result != 0)
    {
        throw std::runtime_error(std::string(what) + " gives " + std::to_string(result));
    }
}

const Host* Connected(const Host& host)
{
    host.Connect("cam0", "10.9.0.1/24", "eth0", "10.9.0.2/24");
    Shell("ip route add 255.255.255.255/32 dev cam0"); // the way of the discovery broadcast
    return &host;
}

// The id at which the query's other answer, an address, is `address`; empty when there is none.
std::string InterfaceAt(const Producer& producer, void* system, const std::string& address)
{
    uint32_t count = 0;
    Require(producer.TLGetNumInterfaces(system, &count), "TLGetNumInterfaces");
    for (uint32_t index = 0; index < count; ++index)
    {
        char id[256];
        size_t size = sizeof(id);
        Require(producer.TLGetInterfaceID(system, index, id, &size), "TLGetInterfaceID");
        char text[64];
        size = sizeof(text);
        int type = 0;
        Require(producer.TLGetInterfaceInfo(system, id, 0xA001, &type, text, &size), "TLGetInterfaceInfo");
        if (text == address)
        {
            return id;
        }
    }
    throw std::runtime_error("no interface has the address " + address);
}

} // namespace

GvcpDiscovery DiscoveryFrom(unsigned char subnet)
{
    return {.specMajor = 2,
            .specMinor = 1,
            .macHigh = 0x0200,
            .macLow = 0x00000009U | unsigned{subnet} << 8,
            .ipConfigOptions = 0,
            .ipConfigCurrent = 0,
            .ipAddress = 0x0A090002U | unsigned{subnet} << 8,
            .subnetMask = 0xFFFFFF00,
            .manufacturer = "Vendor",
            .model = "Model",
            .deviceVersion = "3.0.0", // older ones are not listed
            .manufacturerInfo = "",
            .serialNumber = "S1",
            .userDefinedName = ""};
}

OpenTree::OpenTree(const Producer& producer, std::uint32_t heartbeatMs) : camera(Connected(host))
{
    camera.SetRegister(0x0938, heartbeatMs);
    camera.SetRegister(0x0904, 1);          // one stream channel
    camera.SetRegister(0x092C, 0x04000000); // which is capable of RDMA
    camera.SetDiscovery(DiscoveryFrom(0));

    Require(producer.GCInitLib(), "GCInitLib");
    Require(producer.TLOpen(&system), "TLOpen");
    Require(producer.TLUpdateInterfaceList(system, nullptr, 1000), "TLUpdateInterfaceList");
    interfaceId = InterfaceAt(producer, system, "10.9.0.1");
    Require(producer.TLOpenInterface(system, interfaceId.c_str(), &interface), "TLOpenInterface");
    const auto listed = [&] {
        std::uint32_t count = 0;
        Require(producer.IFUpdateDeviceList(interface, nullptr, 100), "IFUpdateDeviceList");
        Require(producer.IFGetNumDevices(interface, &count), "IFGetNumDevices");
        return count;
    };
    AskUntil(1U, listed);
    char id[256];
    size_t size = sizeof(id);
    Require(producer.IFGetDeviceID(interface, 0, id, &size), "IFGetDeviceID");
    deviceId = id;
    const auto open = [&] { return producer.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device); };
    Require(AskUntil(0, open), "IFOpenDevice");
    size = sizeof(id);
    Require(producer.DevGetDataStreamID(device, 0, id, &size), "DevGetDataStreamID");
    Require(AskUntil(0, [&] { return producer.DevOpenDataStream(device, id, &stream); }), "DevOpenDataStream");
}

} // namespace nq::test
