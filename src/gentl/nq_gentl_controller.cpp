// SPDX-License-Identifier: Apache-2.0
// The object behind the exported interface: library state, list of live modules, last errors.
#include "gentl/nq_gentl_controller.h"

#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_module_base.h"
#include "gentl/nq_gentl_system.h"

#include <cstring>
#include <memory>

namespace GigERDMA
{
namespace
{

// The form that all port operations share.
template <class Operation>
int OnPort(NQGenTLModuleContainer& modules, void* hPort, Operation operation)
{
    NQGenTLModuleBase* const module = modules.FindByHandle(hPort, false);
    if (module == nullptr)
    {
        return GenTL::GC_ERR_INVALID_HANDLE;
    }
    return module->IsPortImplemented() ? operation(*module) : static_cast<int>(GenTL::GC_ERR_NOT_IMPLEMENTED);
}

} // namespace

NQGenTLController::NQGenTLController() : m_pSystem(nullptr), m_bInitialized(false), m_answers(&kStatedAnswers) {}

NQGenTLController::~NQGenTLController() = default;

int NQGenTLController::Init()
{
    const NQGenTLLock lock(m_lifeLock);
    if (IsInitialized())
    {
        return GenTL::GC_ERR_RESOURCE_IN_USE;
    }
    if (const int result = DoInit(); result != GenTL::GC_ERR_SUCCESS)
    {
        return NQFailed(result, "%s ret", "Init");
    }
    m_answers = &AnswersAskedFor();
    m_pSystem = CreateSystem();
    if (m_pSystem == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_ERROR, "%s GC_ERR_ERROR", "Init");
    }
    m_bInitialized.store(true, std::memory_order_release);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGenTLController::Close()
{
    const NQGenTLLock lock(m_lifeLock);
    if (!IsInitialized())
    {
        return GenTL::GC_ERR_NOT_INITIALIZED;
    }
    NQGenTLSystem* const system = m_pSystem.load();
    if (!UnregisterModule(static_cast<NQGenTLModuleBase*>(system), true))
    {
        // Deliberate(ClosedSystemStays): a system module that is not open is left allocated, and m_pSystem goes on
        // pointing at it. Were it deleted, a handle that a consumer still holds could become the handle of something
        // else.
        system->Abandon();
        m_abandoned.Add(system);
    }
    const int result = DoClose();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        NQTrace(NQTraceLevel::Failure, "%s ret", "Close");
    }
    m_moduleList.Clear(false);
    m_bInitialized.store(false, std::memory_order_release);
    return result;
}

bool NQGenTLController::IsInitialized() const
{
    return m_bInitialized.load(std::memory_order_acquire);
}

const NQAnswers& NQGenTLController::Answers() const
{
    return *m_answers;
}

int NQGenTLController::GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return m_pSystem.load()->GetInfo(iInfoCmd, piType, pBuffer, piSize);
}

int NQGenTLController::OpenSystemModule(void** phTL)
{
    if (phTL == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_PARAMETER, "%s Failed: GC_ERR_INVALID_PARAMETER", "OpenSystemModule");
    }
    NQGenTLModuleBase* const system = m_pSystem.load();
    const int result = system->Open();
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        *phTL = system;
    }
    return result;
}

int NQGenTLController::CloseSystemModule(void* hTL)
{
    NQGenTLModuleBase* const system = m_pSystem.load();
    if (hTL != system)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_HANDLE, "%s Failed: GC_ERR_INVALID_HANDLE", "CloseSystemModule");
    }
    return system->Close();
}

bool NQGenTLController::RegisterModule(void* hModule)
{
    return m_moduleList.FindByHandle(hModule, false) == nullptr &&
           m_moduleList.Add(static_cast<NQGenTLModuleBase*>(hModule));
}

bool NQGenTLController::UnregisterModule(void* hModule, bool bDestroy)
{
    NQGenTLModuleBase* const module = m_moduleList.FindByHandle(hModule, true);
    if (module != nullptr && bDestroy)
    {
        const std::unique_ptr<NQGenTLModuleBase> owned(module);
        owned->Close();
    }
    return module != nullptr;
}

NQGenTLModuleBase* NQGenTLController::GetSystemModule(void* hModule)
{
    return m_moduleList.FindByHandleAndName(hModule, "TLSystem", false);
}

NQGenTLModuleBase* NQGenTLController::GetInterfaceModule(void* hModule)
{
    return m_moduleList.FindByHandleAndName(hModule, "TLInterface", false);
}

NQGenTLModuleBase* NQGenTLController::GetDeviceModule(void* hModule)
{
    return m_moduleList.FindByHandleAndName(hModule, "TLDevice", false);
}

NQGenTLModuleBase* NQGenTLController::GetDataStreamModule(void* hModule)
{
    return m_moduleList.FindByHandleAndName(hModule, "TLDataStream", false);
}

NQGenTLModuleBase* NQGenTLController::GetRemoteDeviceModule(void* hModule)
{
    return m_moduleList.FindByHandleAndName(hModule, "Device", false);
}

int NQGenTLController::ReadPort(void* hPort, unsigned long address, void* pBuffer, unsigned long* piSize)
{
    return OnPort(m_moduleList, hPort,
                  [=](NQGenTLModuleBase& module) { return module.ReadPort(address, pBuffer, piSize); });
}

int NQGenTLController::WritePort(void* hPort, unsigned long address, const void* pBuffer, unsigned long* piSize)
{
    return OnPort(m_moduleList, hPort,
                  [=](NQGenTLModuleBase& module) { return module.WritePort(address, pBuffer, piSize); });
}

int NQGenTLController::ReadPortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                       unsigned long* piNumEntries)
{
    return OnPort(m_moduleList, hPort,
                  [=](NQGenTLModuleBase& module) { return module.ReadPortStacked(pEntries, piNumEntries); });
}

int NQGenTLController::WritePortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries,
                                        unsigned long* piNumEntries)
{
    return OnPort(m_moduleList, hPort,
                  [=](NQGenTLModuleBase& module) { return module.WritePortStacked(pEntries, piNumEntries); });
}

int NQGenTLController::GetPortURL(void* hPort, char* sURL, unsigned long* piSize)
{
    return OnPort(m_moduleList, hPort, [=](NQGenTLModuleBase& module) { return module.GetPortURL(sURL, piSize); });
}

int NQGenTLController::GetPortInfo(void* hPort, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize)
{
    return OnPort(m_moduleList, hPort,
                  [=](NQGenTLModuleBase& module) { return module.GetPortInfo(iInfoCmd, piType, pBuffer, piSize); });
}

int NQGenTLController::GetNumPortURLs(void* hPort, unsigned int* piNumURLs)
{
    return OnPort(m_moduleList, hPort, [=](NQGenTLModuleBase& module) { return module.GetNumPortURLs(piNumURLs); });
}

int NQGenTLController::GetPortURLInfo(void* hPort, unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer,
                                      unsigned long* piSize)
{
    return OnPort(m_moduleList, hPort, [=](NQGenTLModuleBase& module) {
        return module.GetPortURLInfo(iURLIndex, iInfoCmd, piType, pBuffer, piSize);
    });
}

NQGenTLEvent* NQGenTLController::FindEventModule(void* hEvent)
{
    return hEvent == nullptr ? nullptr : m_moduleList.FindEventByHandle(hEvent, Answers().waitersEnd);
}

int NQGenTLController::RegisterEvent(void* hEventSrc, int iEventID, void** phEvent)
{
    NQGenTLModuleBase* const module = m_moduleList.FindByHandle(hEventSrc, false);
    return module == nullptr ? static_cast<int>(GenTL::GC_ERR_INVALID_HANDLE)
                             : module->RegisterEvent(iEventID, phEvent);
}

int NQGenTLController::UnregisterEvent(void* hEventSrc, int iEventID)
{
    NQGenTLModuleBase* const module = m_moduleList.FindByHandle(hEventSrc, false);
    return module == nullptr ? static_cast<int>(GenTL::GC_ERR_INVALID_HANDLE) : module->UnregisterEvent(iEventID);
}

void NQGenTLController::SetLastError(int code)
{
    m_errors.SetError(code, _getErrorTxt(code));
}

int NQGenTLController::GetLastError(int* piErrorCode, char* sErrText, unsigned long* piSize)
{
    if (piErrorCode == nullptr || piSize == nullptr)
    {
        return GenTL::GC_ERR_INVALID_PARAMETER;
    }
    int code = 0;
    std::string text;
    m_errors.GetError(&code, text);
    const unsigned long needed = text.size() + 1;
    if (sErrText != nullptr)
    {
        // Deliberate(ErrorTextSizeStays): the size needed is not reported here, so the caller's size still says how
        // large its buffer is; a null text asks for it.
        if (*piSize < needed)
        {
            *piSize = Answers().errorSizeTold ? needed : *piSize;
            return GenTL::GC_ERR_BUFFER_TOO_SMALL;
        }
        std::memcpy(sErrText, text.c_str(), needed);
    }
    *piSize = needed;
    *piErrorCode = code;
    return GenTL::GC_ERR_SUCCESS;
}

std::string NQGenTLController::_getErrorTxt(int code)
{
    switch (code)
    {
    case GenTL::GC_ERR_SUCCESS:
        return "No Error";
    case GenTL::GC_ERR_ERROR:
        return "GC_ERR_ERROR";
    case GenTL::GC_ERR_NOT_INITIALIZED:
        return "GC_ERR_NOT_INITIALIZED";
    case GenTL::GC_ERR_NOT_IMPLEMENTED:
        return "GC_ERR_NOT_IMPLEMENTED";
    case GenTL::GC_ERR_RESOURCE_IN_USE:
        return "GC_ERR_RESOURCE_IN_USE";
    case GenTL::GC_ERR_ACCESS_DENIED:
        return "GC_ERR_ACCESS_DENIED";
    case GenTL::GC_ERR_INVALID_HANDLE:
        return "GC_ERR_INVALID_HANDLE";
    case GenTL::GC_ERR_INVALID_ID:
        return "GC_ERR_INVALID_ID";
    case GenTL::GC_ERR_NO_DATA:
        return "GC_ERR_NO_DATA";
    case GenTL::GC_ERR_INVALID_PARAMETER:
        return "GC_ERR_INVALID_PARAMETER";
    case GenTL::GC_ERR_IO:
        return "GC_ERR_IO";
    case GenTL::GC_ERR_TIMEOUT:
        return "GC_ERR_TIMEOUT";
    case GenTL::GC_ERR_ABORT:
        return "GC_ERR_ABORT";
    case GenTL::GC_ERR_INVALID_BUFFER:
        return "GC_ERR_INVALID_BUFFER";
    case GenTL::GC_ERR_NOT_AVAILABLE:
        return "GC_ERR_NOT_AVAILABLE";
    case GenTL::GC_ERR_INVALID_ADDRESS:
        return "GC_ERR_INVALID_ADDRESS";
    case GenTL::GC_ERR_BUFFER_TOO_SMALL:
        return "GC_ERR_BUFFER_TOO_SMALL";
    case GenTL::GC_ERR_INVALID_INDEX:
        return "GC_ERR_INVALID_INDEX";
    case GenTL::GC_ERR_PARSING_CHUNK_DATA:
        return "GC_ERR_PARSING_CHUNK_DATA";
    case GenTL::GC_ERR_INVALID_VALUE:
        return "GC_ERR_INVALID_VALUE";
    case GenTL::GC_ERR_RESOURCE_EXHAUSTED:
        return "GC_ERR_RESOURCE_EXHAUSTED";
    case GenTL::GC_ERR_OUT_OF_MEMORY:
        return "GC_ERR_OUT_OF_MEMORY";
    case GenTL::GC_ERR_BUSY:
        return "GC_ERR_BUSY";
    case GenTL::GC_ERR_CUSTOM_ID:
        return "GC_ERR_CUSTOM_ID";
    default:
        return {};
    }
}

} // namespace GigERDMA
