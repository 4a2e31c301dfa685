// SPDX-License-Identifier: Apache-2.0
// The device module's life cycle, its data streams and its fixed answers.
#include "gev/nq_gev_device.h"

#include "GenTL/GenTL.h"
#include "base/nq_rollback.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_clear.h"
#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_data_stream.h"
#include "gev/nq_gev_message_stream.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_remote_device.h"

#include <algorithm>
#include <utility>

namespace
{

/// GigE Vision knows no camera with more stream or message channels, whatever a camera claims.
constexpr unsigned int kMaxChannels = 512;

} // namespace

NQGevDevice::NQGevDevice(NQGevTL* tl, const _NQ_GEV_DEVICE_INFO& info, int accessMode,
                         GigERDMA::NQGenTLModuleBase* parent)
    : NQGenTLDevice(parent), m_accessMode(accessMode), m_info(info),
      m_remote(std::make_unique<NQGevRemoteDevice>(tl, info, accessMode, this)), m_tl(tl)
{
}

NQGevDevice::~NQGevDevice()
{
    if (IsOpen())
    {
        Close();
    }
}

bool NQGevDevice::IsPortImplemented()
{
    return true;
}

bool NQGevDevice::IsEventImplemented(int type)
{
    constexpr int kRemoteDeviceEvent = 4;
    constexpr int kModuleEvent = 5;
    constexpr int kConnectionEvent = 4000;
    return type == kRemoteDeviceEvent || type == kModuleEvent || type == kConnectionEvent;
}

GigERDMA::_NQ_GENTL_PORT_INFO NQGevDevice::GetPortInfo()
{
    GigERDMA::_NQ_GENTL_PORT_INFO info = NQGevPortInfo("TLDevice", "DevicePort");
    // Deliberate(PortVersionOfItsOwn): the device port has a version of its own, one behind that of the producer, and
    // is not counted up with it.
    info.version = "2.5.4";
    return info;
}

GigERDMA::_NQ_GENTL_XML_INFO NQGevDevice::GetXMLInfo()
{
    return Answers().nodeMaps ? NQGevXmlInfo(kStandardXmlFileNameDevice, CreateStandardXmlFileDevice())
                              : NQGevXmlInfo(g_XmlFileNameDevice, CreateXmlFileDevice());
}

std::vector<std::string> NQGevDevice::GetURLList()
{
    return NQGevUrlList(GetXMLInfo());
}

std::string NQGevDevice::GetId()
{
    return m_info.id;
}

int NQGevDevice::DoOpen()
{
    if (!m_remote)
    {
        m_remote = std::make_unique<NQGevRemoteDevice>(m_tl, m_info, m_accessMode, this);
    }
    const int result = m_remote->Open();
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return NQFailed(result, "%s failed! NQGevRemoteDevice::Open %d", "DoOpen", result);
    }
    NQRollback undo([this] {
        StopMessageChannels();
        CloseStreams();
        CloseRemoteDevice();
    });
    MakeStreams();
    StartMessageChannels();
    g_Controller.RegisterModule(m_remote.get());
    g_Controller.RegisterModule(this);
    undo.Dismiss();
    return GenTL::GC_ERR_SUCCESS;
}

void NQGevDevice::MakeStreams()
{
    const unsigned int count = std::min(m_remote->GetStreamChannelCount(), kMaxChannels);
    for (unsigned int index = 0; index < count; ++index)
    {
        auto stream = std::make_unique<NQGevDataStream>(m_remote.get(), index, this);
        m_streams.Add(stream.get());
        NQGevDataStream* const listed = stream.release();
        g_Controller.RegisterModule(listed);
    }
}

void NQGevDevice::StartMessageChannels()
{
    const unsigned int count = std::min(m_remote->GetMessageChannelCount(), kMaxChannels);
    for (unsigned int index = 0; index < count; ++index)
    {
        auto channel = std::make_unique<NQGevMessageStream>(static_cast<int>(index), this, m_remote.get());
        if (m_messages)
        {
            m_earlierMessages.push_back(std::move(m_messages));
        }
        m_messages = std::move(channel);
        m_messages->Start();
    }
}

void NQGevDevice::StopMessageChannels()
{
    for (const auto& channel : m_earlierMessages)
    {
        channel->Retire();
    }
    if (m_messages)
    {
        m_messages->Stop();
        m_messages.reset();
    }
    for (const auto& channel : m_earlierMessages)
    {
        channel->Stop();
    }
    m_earlierMessages.clear();
}

void NQGevDevice::CloseStreams()
{
    while (GigERDMA::NQGenTLModuleBase* const stream = m_streams.FindByIndex(0, true))
    {
        if (!g_Controller.UnregisterModule(stream, true))
        {
            delete stream;
        }
    }
}

void NQGevDevice::CloseRemoteDevice()
{
    NQGevRemoteDevice* const remote = m_remote.release();
    if (!g_Controller.UnregisterModule(remote, true))
    {
        delete remote;
    }
}

int NQGevDevice::DoClose()
{
    StopMessageChannels();
    CloseStreams();
    CloseRemoteDevice();
    g_Controller.UnregisterModule(this, false);
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDevice::GetPort(void** port)
{
    if (port == nullptr)
    {
        return NQGevInvalidParameter("GetPort");
    }
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    *port = m_remote.get();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDevice::GetNumDataStreams(unsigned int* count)
{
    if (count == nullptr)
    {
        return NQGevInvalidParameter("GetNumDataStreams");
    }
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    *count = m_streams.GetCount();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevDevice::GetDataStreamID(unsigned int index, char* buffer, unsigned long* size)
{
    if (size == nullptr)
    {
        return NQGevInvalidParameter("GetDataStreamID");
    }
    GigERDMA::NQGenTLModuleBase* const stream = m_streams.FindByIndex(index, false);
    if (stream == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_INDEX, "%s GC_ERR_INVALID_INDEX", "GetDataStreamID");
    }
    GigERDMA::ClearForInfo(Answers(), buffer, size);
    int type = 0;
    return NQGenTLUtil::CopyInfoString(stream->GetId(), &type, buffer, size);
}

int NQGevDevice::OpenDataStream(const char* id, void** stream)
{
    if (id == nullptr || stream == nullptr)
    {
        return NQGevInvalidParameter("OpenDataStream");
    }
    GigERDMA::NQGenTLModuleBase* const module = m_streams.FindById(id, false);
    if (module == nullptr)
    {
        return NQFailed(GenTL::GC_ERR_INVALID_ID, "%s GC_ERR_INVALID_ID", "OpenDataStream");
    }
    const int result = module->Open();
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        g_Controller.RegisterModule(module); // A close may have ended its handle.
        *stream = module;
    }
    return result;
}
