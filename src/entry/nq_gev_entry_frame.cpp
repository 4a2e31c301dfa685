// SPDX-License-Identifier: Apache-2.0
// The call frame that all exported GenTL functions share.
#include "entry/nq_gev_entry_frame.h"

#include "base/nq_answers.h"
#include "base/nq_logger.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_event.h"
#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_system.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_data_stream.h"

#include <cstring>
#include <typeinfo>

using namespace GigERDMA;

namespace
{

/// The module as what its name says that it is; null for one that only has the name.
template <class Module>
Module* As(NQGenTLModuleBase* module)
{
    return dynamic_cast<Module*>(module);
}

/// Streams are asked for several times with every frame, and the walk through their classes would be half of the way
/// from a handle to its stream.
template <>
NQGenTLDataStream* As(NQGenTLModuleBase* module)
{
    const bool isOurs = module != nullptr && typeid(*module) == typeid(NQGevDataStream);
    return isOurs ? static_cast<NQGevDataStream*>(module) : dynamic_cast<NQGenTLDataStream*>(module);
}

} // namespace

NQGevEntryFrame::~NQGevEntryFrame()
{
    if (m_entered != nullptr)
    {
        m_entered->Leave();
    }
}

bool NQGevEntryFrame::IsInitialized()
{
    if (!g_Controller.IsInitialized())
    {
        Refuse(GenTL::GC_ERR_NOT_INITIALIZED, "%s GC_ERR_NOT_INITIALIZED");
        return false;
    }
    return true;
}

template <class Object>
Object* NQGevEntryFrame::Known(Object* object, const char* refusal)
{
    if (object == nullptr)
    {
        Refuse(GenTL::GC_ERR_INVALID_HANDLE, refusal);
    }
    return object;
}

template <class Module>
Module* NQGevEntryFrame::FindModule(NQGenTLModuleBase* (*lookup)(void*), void* handle)
{
    return IsInitialized() ? Known(As<Module>(lookup(handle)), "%s Failed: GC_ERR_INVALID_HANDLE") : nullptr;
}

NQGenTLSystem* NQGevEntryFrame::FindSystem(void* hTL)
{
    return FindModule<NQGenTLSystem>([](void* handle) { return g_Controller.GetSystemModule(handle); }, hTL);
}

NQGenTLInterface* NQGevEntryFrame::FindInterface(void* hIface)
{
    return FindModule<NQGenTLInterface>([](void* handle) { return g_Controller.GetInterfaceModule(handle); }, hIface);
}

NQGenTLDevice* NQGevEntryFrame::FindDevice(void* hDevice)
{
    return FindModule<NQGenTLDevice>([](void* handle) { return g_Controller.GetDeviceModule(handle); }, hDevice);
}

NQGenTLDataStream* NQGevEntryFrame::FindDataStream(void* hDataStream)
{
    return FindModule<NQGenTLDataStream>([](void* handle) { return g_Controller.GetDataStreamModule(handle); },
                                         hDataStream);
}

NQGenTLEvent* NQGevEntryFrame::FindEvent(void* hEvent)
{
    if (!IsInitialized())
    {
        return nullptr;
    }
    NQGenTLEvent* const event = Known(g_Controller.FindEventModule(hEvent), "%s GC_ERR_INVALID_HANDLE");
    m_entered = g_Controller.Answers().waitersEnd ? event : nullptr;
    return event;
}

bool NQGevEntryFrame::HasOutput(void** output)
{
    if (!IsInitialized())
    {
        return false;
    }
    if (output == nullptr)
    {
        Refuse(GenTL::GC_ERR_INVALID_PARAMETER, "%s GC_ERR_INVALID_PARAMETER");
    }
    return output != nullptr;
}

void NQGevEntryFrame::Record(int code)
{
    g_Controller.SetLastError(code);
    m_result = code;
}

void NQGevEntryFrame::Finish(int result, Failures failures)
{
    m_result = result;
    m_finished = true;
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        return;
    }
    const bool timeoutsDiffer = failures == Failures::TimeoutsExpected || failures == Failures::TimeoutsUnrecorded;
    const bool isExpected = timeoutsDiffer && result == GenTL::GC_ERR_TIMEOUT;
    if (isExpected)
    {
        NQTrace(NQTraceLevel::Expected, "%s Failed! GC_ERR_TIMEOUT", m_name);
    }
    else
    {
        NQTrace(NQTraceLevel::Failure, "%s Failed:%d", m_name, result);
    }
    if (failures != Failures::Unrecorded && !(isExpected && failures == Failures::TimeoutsUnrecorded))
    {
        Record(result);
    }
}

std::size_t TracedSpace(const std::size_t* piSize)
{
    const bool readable = piSize != nullptr && NQLogger::getInstance().IsLoaded() && g_Controller.IsInitialized();
    return readable ? *piSize : 0;
}

std::string OutputText(const char* text, std::size_t space, const char* ifNull)
{
    if (!NQLogger::getInstance().IsLoaded())
    {
        return {};
    }
    return text != nullptr ? std::string(text, strnlen(text, space)) : std::string(ifNull);
}
