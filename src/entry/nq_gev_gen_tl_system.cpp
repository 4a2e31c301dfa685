// SPDX-License-Identifier: Apache-2.0
// The exported functions of system and interface.
#include "entry/nq_gev_entry_frame.h"
#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_system.h"
#include "gev/nq_gev_controller.h"

#include "nq_gev_gentl.h"

using namespace GigERDMA;

namespace GenTL
{

GC_API TLOpen(TL_HANDLE* phTL)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x", Low32(HandleAt(phTL)));
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.OpenSystemModule(phTL));
    }
    return frame.TraceExit("%s Exit hTL:0x%x ret:%d", Low32(HandleAt(phTL)));
}

GC_API TLClose(TL_HANDLE hTL)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.CloseSystemModule(hTL));
    }
    return frame.TraceExit("%s Exit ret:%d");
}

GC_API TLGetInfo(TL_HANDLE hTL, TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x iInfoCmd:%d", Low32(hTL), iInfoCmd);
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit hTL:0x%x iInfoCmd:%d ret:%d", Low32(hTL), iInfoCmd);
}

GC_API TLGetNumInterfaces(TL_HANDLE hTL, uint32_t* piNumIfaces)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x", Low32(hTL));
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->GetNumInterfaces(piNumIfaces));
    }
    return frame.TraceExit("%s Exit hTL:0x%x iNumIfaces:%d ret:%d", Low32(hTL),
                           piNumIfaces != nullptr ? *piNumIfaces : 0);
}

GC_API TLGetInterfaceID(TL_HANDLE hTL, uint32_t iIndex, char* sID, size_t* piSize)
{
    const size_t space = TracedSpace(piSize);
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x iIndex:%d sID:%s", Low32(hTL), iIndex, OutputText(sID, space, "").c_str());
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->GetInterfaceID(iIndex, sID, piSize));
    }
    return frame.TraceExit("%s Exit hTL:0x%x iIndex:%d sID:%s ret:%d", Low32(hTL), iIndex,
                           OutputText(sID, space, "").c_str());
}

GC_API TLGetInterfaceInfo(TL_HANDLE hTL, const char* sIfaceID, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                          void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x sIfaceID:%s iInfoCmd:%d", Low32(hTL), TextOrEmpty(sIfaceID), iInfoCmd);
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->GetInterfaceInfo(sIfaceID, iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit hTL:0x%x sIfaceID:%s iInfoCmd:%d ret:%d", Low32(hTL), TextOrEmpty(sIfaceID),
                           iInfoCmd);
}

GC_API TLOpenInterface(TL_HANDLE hTL, const char* sIfaceID, IF_HANDLE* phIface)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x sIfaceID:%s", Low32(hTL), TextOrEmpty(sIfaceID));
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->OpenInterface(sIfaceID, phIface));
    }
    return frame.TraceExit("%s Exit hTL:0x%x sIfaceID:%s hIface:0x%x ret:%d", Low32(hTL), TextOrEmpty(sIfaceID),
                           Low32(HandleAt(phIface)));
}

GC_API TLUpdateInterfaceList(TL_HANDLE hTL, bool8_t* pbChanged, uint64_t iTimeout)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hTL:0x%x iTimeout:%lld", Low32(hTL), static_cast<long long>(iTimeout));
    if (auto* const system = frame.FindSystem(hTL))
    {
        frame.Finish(system->UpdateInterfaceList(pbChanged, iTimeout), NQGevEntryFrame::Failures::TimeoutsExpected);
    }
    return frame.TraceExit("%s Exit hTL:0x%x iTimeout:%lld ret:%d", Low32(hTL), static_cast<long long>(iTimeout));
}

GC_API IFClose(IF_HANDLE hIface)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hIface:0x%x", Low32(hIface));
    if (auto* const iface = frame.FindInterface(hIface))
    {
        if (auto* const system = dynamic_cast<NQGenTLSystem*>(iface->GetParent()))
        {
            frame.Finish(system->CloseInterface(hIface));
        }
        else
        {
            frame.Refuse(GC_ERR_ERROR, "%s Failed: GC_ERR_ERROR");
        }
    }
    return frame.TraceExit("%s Exit hIface:0x%x ret:%d", Low32(hIface));
}

GC_API IFGetInfo(IF_HANDLE hIface, INTERFACE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hIface:0x%x iInfoCmd:%d", Low32(hIface), iInfoCmd);
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.Result();
}

GC_API IFGetNumDevices(IF_HANDLE hIface, uint32_t* piNumDevices)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->GetNumDevices(piNumDevices));
    }
    return frame.Result();
}

GC_API IFGetDeviceID(IF_HANDLE hIface, uint32_t iIndex, char* sIDeviceID, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->GetDeviceID(iIndex, sIDeviceID, piSize));
    }
    return frame.Result();
}

GC_API IFUpdateDeviceList(IF_HANDLE hIface, bool8_t* pbChanged, uint64_t iTimeout)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->UpdateDeviceList(pbChanged, iTimeout), NQGevEntryFrame::Failures::TimeoutsExpected);
    }
    return frame.Result();
}

GC_API IFGetDeviceInfo(IF_HANDLE hIface, const char* sDeviceID, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                       void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->GetDeviceInfo(sDeviceID, iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.Result();
}

GC_API IFOpenDevice(IF_HANDLE hIface, const char* sDeviceID, DEVICE_ACCESS_FLAGS iOpenFlags, DEV_HANDLE* phDevice)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const iface = frame.FindInterface(hIface))
    {
        frame.Finish(iface->OpenDevice(sDeviceID, iOpenFlags, phDevice));
    }
    return frame.Result();
}

GC_API IFGetParentTL(IF_HANDLE hIface, TL_HANDLE* phSystem)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.HasOutput(phSystem))
    {
        if (auto* const iface = frame.FindInterface(hIface))
        {
            *phSystem = iface->GetParent();
            frame.Finish(GC_ERR_SUCCESS);
        }
    }
    return frame.Result();
}

GC_ERROR NQSetIPConfig(void*, bool, bool, unsigned int, unsigned int, unsigned int)
{
    return GC_ERR_NOT_IMPLEMENTED;
}

} // namespace GenTL
