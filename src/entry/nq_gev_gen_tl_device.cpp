// SPDX-License-Identifier: Apache-2.0
// The exported functions of the device.
#include "entry/nq_gev_entry_frame.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_interface.h"

#include "GenTL/GenTL.h"

using namespace GigERDMA;

namespace GenTL
{

GC_API DevGetPort(DEV_HANDLE hDevice, PORT_HANDLE* phRemoteDevice)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        frame.Finish(device->GetPort(phRemoteDevice));
    }
    return frame.Result();
}

GC_API DevGetNumDataStreams(DEV_HANDLE hDevice, uint32_t* piNumDataStreams)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        frame.Finish(device->GetNumDataStreams(piNumDataStreams));
    }
    return frame.Result();
}

GC_API DevGetDataStreamID(DEV_HANDLE hDevice, uint32_t iIndex, char* sDataStreamID, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        frame.Finish(device->GetDataStreamID(iIndex, sDataStreamID, piSize));
    }
    return frame.Result();
}

GC_API DevOpenDataStream(DEV_HANDLE hDevice, const char* sDataStreamID, DS_HANDLE* phDataStream)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        frame.Finish(device->OpenDataStream(sDataStreamID, phDataStream));
    }
    return frame.Result();
}

GC_API DevGetInfo(DEV_HANDLE hDevice, DEVICE_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        frame.Finish(device->GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.Result();
}

GC_API DevClose(DEV_HANDLE hDevice)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (auto* const device = frame.FindDevice(hDevice))
    {
        if (auto* const iface = dynamic_cast<NQGenTLInterface*>(device->GetParent()))
        {
            // Deliberate(PortAskedBeforeTheClose): the device is asked for its port before it closes, and the answer
            // is dropped: the calls that a device sees keep their order, and this one changes nothing.
            void* scratch = nullptr;
            device->GetPort(&scratch);
            frame.Finish(iface->CloseDevice(hDevice));
        }
        else
        {
            frame.Refuse(GC_ERR_ERROR, "%s Failed: GC_ERR_ERROR");
        }
    }
    return frame.Result();
}

GC_API DevGetParentIF(DEV_HANDLE hDevice, IF_HANDLE* phIface)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.HasOutput(phIface))
    {
        if (auto* const device = frame.FindDevice(hDevice))
        {
            *phIface = device->GetParent();
            frame.Finish(GC_ERR_SUCCESS);
        }
    }
    return frame.Result();
}

} // namespace GenTL
