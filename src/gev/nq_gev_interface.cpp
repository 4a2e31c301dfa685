// SPDX-License-Identifier: Apache-2.0
// The interface module: its identity, its life and the queries about itself and its device list.
#include "gev/nq_gev_interface.h"

#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_util.h"
#include "nq_gev_gentl.h"

using namespace GigERDMA;

namespace
{

constexpr int kReceiveTimeout = 100;      // milliseconds
constexpr int kReceiveBufferSize = 54800; // bytes: room for a hundred full packets

/// The addresses of an adapter as they are now, empty for an adapter that is gone.
struct AdapterAddresses
{
    explicit AdapterAddresses(const std::string& adapterName)
    {
        NQGevUtil::GetAdapterInfo(adapterName, ip, subnetMask, gateway);
    }

    std::string ip;
    std::string subnetMask;
    std::string gateway;
};

} // namespace

NQGevInterface::NQGevInterface(const _NQ_GEV_INTERFACE_INFO& info, NQGenTLModuleBase* parent)
    : NQGenTLInterface(parent), m_info(info)
{
}

std::string NQGevInterface::GetId()
{
    return m_info.id;
}

int NQGevInterface::DoOpen()
{
    if (!m_socket.Create(AF_INET, SOCK_DGRAM, IPPROTO_UDP))
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s socket create failed!", "DoOpen");
    }
    if (!m_socket.Bind(NQGevUtil::IPAddressToUint32(m_info.ipAddress), 0))
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s socket bind failed!", "DoOpen");
    }
    m_socket.SetBroadcast();
    m_socket.SetReceiveTimeout(kReceiveTimeout);
    m_socket.SetReceiveBufferSize(kReceiveBufferSize);
    if (!_isExcluded())
    {
        // Deliberate(ReceiverMayBeMissing): without it cameras of other subnets are not heard, and nothing else is
        // missing.
        m_broadcasts.Open(m_socket, m_info.adapterName, kReceiveBufferSize);
    }
    g_Controller.RegisterModule(this);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevInterface::DoClose()
{
    m_socket.Destroy();
    m_broadcasts.Close();
    while (NQGenTLModuleBase* const child = m_devices.FindByIndex(0, true))
    {
        g_Controller.UnregisterModule(child, true);
    }
    g_Controller.UnregisterModule(this, false);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevInterface::GetInfo(int command, int* type, void* buffer, unsigned long* size)
{
    if (type == nullptr || size == nullptr)
    {
        return NQGevInvalidParameter("GetInfo");
    }
    ClearForInfo(Answers(), buffer, size);
    switch (command)
    {
    case GenTL::INTERFACE_INFO_ID:
        return NQGenTLUtil::CopyInfoString(m_info.id, type, buffer, size);
    case GenTL::INTERFACE_INFO_DISPLAYNAME:
        return NQGenTLUtil::CopyInfoString(m_info.displayName, type, buffer, size);
    case GenTL::INTERFACE_INFO_TLTYPE:
        return NQGenTLUtil::CopyInfoString(m_info.tlType, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_MAC:
        return NQGenTLUtil::CopyInfoString(m_info.macAddress, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_IP:
        return NQGenTLUtil::CopyInfoString(AdapterAddresses(m_info.adapterName).ip, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_SUBNET:
        return NQGenTLUtil::CopyInfoString(AdapterAddresses(m_info.adapterName).subnetMask, type, buffer, size);
    case GenTL::NQ_INTERFACE_INFO_GATEWAY:
        return NQGenTLUtil::CopyInfoString(AdapterAddresses(m_info.adapterName).gateway, type, buffer, size);
    default:
        return NQFailed(GenTL::GC_ERR_NOT_IMPLEMENTED, "%s GC_ERR_NOT_IMPLEMENTED :%d", "GetInfo", command);
    }
}

int NQGevInterface::GetNumDevices(unsigned int* count)
{
    if (count == nullptr)
    {
        return NQGevInvalidParameter("GetNumDevices");
    }
    const NQGenTLLock lock(m_moduleLock);
    *count = static_cast<unsigned int>(m_deviceList.size());
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevInterface::GetDeviceID(unsigned int index, char* buffer, unsigned long* size)
{
    if (size == nullptr)
    {
        return NQGevInvalidParameter("GetDeviceID");
    }
    _NQ_GEV_DEVICE_INFO info;
    if (!_findDeviceInfoByIndex(index, info))
    {
        // Deliberate(PastTheEndIsExpected): traced as an expected condition, unlike the other failures here: a list is
        // walked by asking until there is no next one.
        NQTrace(NQTraceLevel::Expected, "%s GC_ERR_INVALID_INDEX", "GetDeviceID");
        return GenTL::GC_ERR_INVALID_INDEX;
    }
    ClearForInfo(Answers(), buffer, size);
    int type = 0;
    return NQGenTLUtil::CopyInfoString(info.id, &type, buffer, size);
}
