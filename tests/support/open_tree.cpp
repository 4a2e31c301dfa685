// SPDX-License-Identifier: Apache-2.0
// The library opened down to a data stream of a scripted camera, one virtual cable away.
#include "support/open_tree.h"

#include <algorithm>
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

void Put(RegisterCamera::Bytes& body, std::size_t offset, const std::string& bytes)
{
    std::copy(bytes.begin(), bytes.end(), body.begin() + static_cast<std::ptrdiff_t>(offset));
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

RegisterCamera::Bytes DiscoveryFrom(unsigned char subnet)
{
    RegisterCamera::Bytes body(248);
    Put(body, 0, std::string("\x00\x02\x00\x01\x80\x00\x00\x01", 8)); // GigE Vision 2.1, big-endian
    Put(body, 10, std::string("\x02\x00\x00\x00\x00\x09", 6));        // MAC address
    Put(body, 36, std::string("\x0a\x09\x00\x02", 4));                // IP address
    body[14] = subnet;
    body[38] = subnet;
    Put(body, 52, std::string("\xff\xff\xff\x00", 4)); // subnet mask
    Put(body, 72, "Vendor");
    Put(body, 104, "Model");
    Put(body, 136, "3.0.0"); // older ones are not listed
    Put(body, 216, "S1");
    return body;
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
    Require(producer.IFUpdateDeviceList(interface, nullptr, 100), "IFUpdateDeviceList");
    char id[256];
    size_t size = sizeof(id);
    Require(producer.IFGetDeviceID(interface, 0, id, &size), "IFGetDeviceID");
    deviceId = id;
    Require(producer.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device), "IFOpenDevice");
    size = sizeof(id);
    Require(producer.DevGetDataStreamID(device, 0, id, &size), "DevGetDataStreamID");
    Require(producer.DevOpenDataStream(device, id, &stream), "DevOpenDataStream");
}

} // namespace nq::test
