// SPDX-License-Identifier: Apache-2.0
// Every exported function called once with a handle of the test's choice, under its name.
#include "support/producer_calls.h"

namespace nq::test
{

std::vector<NamedCall> CallsOn(const Producer& producer, void* handle)
{
    const Producer* const p = &producer;
    return {
        {"GCGetInfo", [=] { return p->GCGetInfo(0, nullptr, nullptr, nullptr); }},
        {"GCGetLastError", [=] { return p->GCGetLastError(nullptr, nullptr, nullptr); }},
        {"GCReadPort", [=] { return p->GCReadPort(handle, 0, nullptr, nullptr); }},
        {"GCWritePort", [=] { return p->GCWritePort(handle, 0, nullptr, nullptr); }},
        {"GCGetPortURL", [=] { return p->GCGetPortURL(handle, nullptr, nullptr); }},
        {"GCGetPortInfo", [=] { return p->GCGetPortInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"GCRegisterEvent", [=] { return p->GCRegisterEvent(handle, 0, nullptr); }},
        {"GCUnregisterEvent", [=] { return p->GCUnregisterEvent(handle, 0); }},
        {"EventGetData", [=] { return p->EventGetData(handle, nullptr, nullptr, 0); }},
        {"EventGetDataInfo", [=] { return p->EventGetDataInfo(handle, nullptr, 0, 0, nullptr, nullptr, nullptr); }},
        {"EventGetInfo", [=] { return p->EventGetInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"EventFlush", [=] { return p->EventFlush(handle); }},
        {"EventKill", [=] { return p->EventKill(handle); }},
        {"TLOpen", [=] { return p->TLOpen(nullptr); }},
        {"TLClose", [=] { return p->TLClose(handle); }},
        {"TLGetInfo", [=] { return p->TLGetInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"TLGetNumInterfaces", [=] { return p->TLGetNumInterfaces(handle, nullptr); }},
        {"TLGetInterfaceID", [=] { return p->TLGetInterfaceID(handle, 0, nullptr, nullptr); }},
        {"TLGetInterfaceInfo", [=] { return p->TLGetInterfaceInfo(handle, nullptr, 0, nullptr, nullptr, nullptr); }},
        {"TLOpenInterface", [=] { return p->TLOpenInterface(handle, nullptr, nullptr); }},
        {"TLUpdateInterfaceList", [=] { return p->TLUpdateInterfaceList(handle, nullptr, 0); }},
        {"IFClose", [=] { return p->IFClose(handle); }},
        {"IFGetInfo", [=] { return p->IFGetInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"IFGetNumDevices", [=] { return p->IFGetNumDevices(handle, nullptr); }},
        {"IFGetDeviceID", [=] { return p->IFGetDeviceID(handle, 0, nullptr, nullptr); }},
        {"IFUpdateDeviceList", [=] { return p->IFUpdateDeviceList(handle, nullptr, 0); }},
        {"IFGetDeviceInfo", [=] { return p->IFGetDeviceInfo(handle, nullptr, 0, nullptr, nullptr, nullptr); }},
        {"IFOpenDevice", [=] { return p->IFOpenDevice(handle, nullptr, 0, nullptr); }},
        {"DevGetPort", [=] { return p->DevGetPort(handle, nullptr); }},
        {"DevGetNumDataStreams", [=] { return p->DevGetNumDataStreams(handle, nullptr); }},
        {"DevGetDataStreamID", [=] { return p->DevGetDataStreamID(handle, 0, nullptr, nullptr); }},
        {"DevOpenDataStream", [=] { return p->DevOpenDataStream(handle, nullptr, nullptr); }},
        {"DevGetInfo", [=] { return p->DevGetInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"DevClose", [=] { return p->DevClose(handle); }},
        {"DSAnnounceBuffer", [=] { return p->DSAnnounceBuffer(handle, nullptr, 0, nullptr, nullptr); }},
        {"DSAllocAndAnnounceBuffer", [=] { return p->DSAllocAndAnnounceBuffer(handle, 0, nullptr, nullptr); }},
        {"DSFlushQueue", [=] { return p->DSFlushQueue(handle, 0); }},
        {"DSStartAcquisition", [=] { return p->DSStartAcquisition(handle, 0, 0); }},
        {"DSStopAcquisition", [=] { return p->DSStopAcquisition(handle, 0); }},
        {"DSGetInfo", [=] { return p->DSGetInfo(handle, 0, nullptr, nullptr, nullptr); }},
        {"DSGetBufferID", [=] { return p->DSGetBufferID(handle, 0, nullptr); }},
        {"DSClose", [=] { return p->DSClose(handle); }},
        {"DSRevokeBuffer", [=] { return p->DSRevokeBuffer(handle, nullptr, nullptr, nullptr); }},
        {"DSQueueBuffer", [=] { return p->DSQueueBuffer(handle, nullptr); }},
        {"DSGetBufferInfo", [=] { return p->DSGetBufferInfo(handle, nullptr, 0, nullptr, nullptr, nullptr); }},
        {"GCGetNumPortURLs", [=] { return p->GCGetNumPortURLs(handle, nullptr); }},
        {"GCGetPortURLInfo", [=] { return p->GCGetPortURLInfo(handle, 0, 0, nullptr, nullptr, nullptr); }},
        {"GCReadPortStacked", [=] { return p->GCReadPortStacked(handle, nullptr, nullptr); }},
        {"GCWritePortStacked", [=] { return p->GCWritePortStacked(handle, nullptr, nullptr); }},
        {"DSGetBufferChunkData", [=] { return p->DSGetBufferChunkData(handle, nullptr, nullptr, nullptr); }},
        {"IFGetParentTL", [=] { return p->IFGetParentTL(handle, nullptr); }},
        {"DevGetParentIF", [=] { return p->DevGetParentIF(handle, nullptr); }},
        {"DSGetParentDev", [=] { return p->DSGetParentDev(handle, nullptr); }},
        {"DSGetNumBufferParts", [=] { return p->DSGetNumBufferParts(handle, nullptr, nullptr); }},
    };
}

} // namespace nq::test
