// SPDX-License-Identifier: Apache-2.0
// The controller instance, and the exported functions of library, ports and events.
#include "base/nq_export.h"
#include "entry/nq_gev_entry_frame.h"
#include "gentl/nq_gentl_event.h"
#include "gev/nq_gev_controller.h"

#include <cstddef>
#include <new>

extern "C"
{
/// Memory in which no destructor runs: the controller, under the name by which the library reaches its own. A program
/// and a second copy may take the exported name for themselves.
alignas(NQGevController) std::byte g_ownController[sizeof(NQGevController)];
}
NQ_EXPORT extern NQGevController g_exportedController __asm__("g_Controller") __attribute__((alias("g_ownController")));

namespace
{

[[maybe_unused]] const NQGevController* const kBuiltAtLoad = new (g_ownController) NQGevController;

} // namespace

GigERDMA::NQGenTLController& GigERDMA::TheController()
{
    return g_Controller;
}

namespace GenTL
{

GC_API GCInitLib()
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    frame.Finish(g_Controller.Init());
    return frame.TraceExit("%s Exit ret:%d");
}

GC_API GCCloseLib()
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.Close());
    }
    return frame.TraceExit("%s Exit ret:%d");
}

GC_API GCGetInfo(TL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry iInfoCmd:%d", iInfoCmd);
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit iInfoCmd:%d ret:%d", iInfoCmd);
}

GC_API GCGetLastError(GC_ERROR* piErrorCode, char* sErrText, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetLastError(piErrorCode, sErrText, piSize), NQGevEntryFrame::Failures::Unrecorded);
    }
    return frame.Result();
}

GC_API GCReadPort(PORT_HANDLE hPort, uint64_t iAddress, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hPort:0x%x address:0x%llx", Low32(hPort), static_cast<unsigned long long>(iAddress));
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.ReadPort(hPort, iAddress, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit hPort:0x%x address:0x%llx ret:%d", Low32(hPort),
                           static_cast<unsigned long long>(iAddress));
}

GC_API GCWritePort(PORT_HANDLE hPort, uint64_t iAddress, const void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hPort:0x%x address:0x%llx", Low32(hPort), static_cast<unsigned long long>(iAddress));
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.WritePort(hPort, iAddress, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit hPort:0x%x address:0x%llx ret:%d", Low32(hPort),
                           static_cast<unsigned long long>(iAddress));
}

GC_API GCGetPortURL(PORT_HANDLE hPort, char* sURL, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    const size_t space = TracedSpace(piSize);
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetPortURL(hPort, sURL, piSize));
    }
    return frame.TraceExit("%s Exit hPort:0x%x sURL:0x%s ret:%d", Low32(hPort),
                           OutputText(sURL, space, "NULL").c_str());
}

GC_API GCGetPortInfo(PORT_HANDLE hPort, PORT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hPort:0x%x iInfoCmd:%d", Low32(hPort), iInfoCmd);
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetPortInfo(hPort, iInfoCmd, piType, pBuffer, piSize));
    }
    // Deliberate(ExitLineSaysEntry): the exit line says Entry. The result behind it tells it from the other; log lines
    // keep their wording, so that a search for one finds it in every log.
    return frame.TraceExit("%s Entry hPort:0x%x iInfoCmd:%d ret:%d", Low32(hPort), iInfoCmd);
}

GC_API GCGetNumPortURLs(PORT_HANDLE hPort, uint32_t* piNumURLs)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetNumPortURLs(hPort, piNumURLs));
    }
    return frame.Result();
}

GC_API GCGetPortURLInfo(PORT_HANDLE hPort, uint32_t iURLIndex, URL_INFO_CMD iInfoCmd, INFO_DATATYPE* piType,
                        void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.GetPortURLInfo(hPort, iURLIndex, iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.Result();
}

GC_API GCReadPortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.ReadPortStacked(hPort, pEntries, piNumEntries));
    }
    return frame.Result();
}

GC_API GCWritePortStacked(PORT_HANDLE hPort, PORT_REGISTER_STACK_ENTRY* pEntries, size_t* piNumEntries)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry");
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.WritePortStacked(hPort, pEntries, piNumEntries));
    }
    return frame.Result();
}

GC_API GCRegisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID, EVENT_HANDLE* phEvent)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEventSrc:0x%x iEventID:%d hEvent:0x%x", Low32(hEventSrc), iEventID,
                     Low32(HandleAt(phEvent)));
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.RegisterEvent(hEventSrc, iEventID, phEvent));
    }
    return frame.TraceExit("%s Exit hEventSrc:0x%x iEventID:%d hEvent:0x%x ret:%d", Low32(hEventSrc), iEventID,
                           Low32(HandleAt(phEvent)));
}

GC_API GCUnregisterEvent(EVENTSRC_HANDLE hEventSrc, EVENT_TYPE iEventID)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEventSrc:0x%x iEventID:%d", Low32(hEventSrc), iEventID);
    if (frame.IsInitialized())
    {
        frame.Finish(g_Controller.UnregisterEvent(hEventSrc, iEventID));
    }
    return frame.TraceExit("%s Exit hEventSrc:0x%x iEventID:%d ret:%d", Low32(hEventSrc), iEventID);
}

GC_API EventGetData(EVENT_HANDLE hEvent, void* pBuffer, size_t* piSize, uint64_t iTimeout)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEvent:0x%x iTimeout:%lld", Low32(hEvent), static_cast<long long>(iTimeout));
    if (auto* const event = frame.FindEvent(hEvent))
    {
        frame.Finish(event->GetData(pBuffer, piSize, iTimeout), NQGevEntryFrame::Failures::TimeoutsUnrecorded);
    }
    return frame.TraceExit("%s Exit hEvent:0x%x iTimeout:%lld ret:%d", Low32(hEvent), static_cast<long long>(iTimeout));
}

GC_API EventGetDataInfo(EVENT_HANDLE hEvent, const void* pInBuffer, size_t iInSize, EVENT_DATA_INFO_CMD iInfoCmd,
                        INFO_DATATYPE* piType, void* pOutBuffer, size_t* piOutSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEvent:0x%x iInfoCmd:%d", Low32(hEvent), iInfoCmd);
    if (auto* const event = frame.FindEvent(hEvent))
    {
        frame.Finish(event->GetDataInfo(pInBuffer, iInSize, iInfoCmd, piType, pOutBuffer, piOutSize));
    }
    return frame.TraceExit("%s Exit hEvent:0x%x iInfoCmd:%d ret:%d", Low32(hEvent), iInfoCmd);
}

GC_API EventGetInfo(EVENT_HANDLE hEvent, EVENT_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEvent:0x%x iInfoCmd:%d", Low32(hEvent), iInfoCmd);
    if (auto* const event = frame.FindEvent(hEvent))
    {
        frame.Finish(event->GetInfo(iInfoCmd, piType, pBuffer, piSize));
    }
    return frame.TraceExit("%s Exit hEvent:0x%x iInfoCmd:%d ret:%d", Low32(hEvent), iInfoCmd);
}

GC_API EventFlush(EVENT_HANDLE hEvent)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEvent:0x%x", Low32(hEvent));
    if (auto* const event = frame.FindEvent(hEvent))
    {
        frame.Finish(event->Flush());
    }
    return frame.TraceExit("%s Exit hEvent:0x%x ret:%d", Low32(hEvent));
}

GC_API EventKill(EVENT_HANDLE hEvent)
{
    NQGevEntryFrame frame(__func__);
    frame.TraceEntry("%s Entry hEvent:0x%x", Low32(hEvent));
    if (auto* const event = frame.FindEvent(hEvent))
    {
        frame.Finish(event->Kill());
    }
    return frame.TraceExit("%s Exit hEvent:0x%x ret:%d", Low32(hEvent));
}

} // namespace GenTL
