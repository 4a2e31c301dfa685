// SPDX-License-Identifier: Apache-2.0
// The receiver thread of a message channel and the events it signals.
#include "gentl/nq_gentl_message_stream.h"

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_event_remote_device.h"
#include "gentl/nq_gentl_thread_message_receiver.h"

#include <cstdlib>
#include <cstring>

namespace GigERDMA
{

NQGenTLMessageStream::NQGenTLMessageStream(int channelId, NQGenTLDevice* device)
    : m_channelId(static_cast<unsigned int>(channelId)), m_device(device)
{
}

NQGenTLMessageStream::~NQGenTLMessageStream() = default;

void NQGenTLMessageStream::Start()
{
    if (m_receiver)
    {
        return;
    }
    m_receiver = std::make_unique<NQGenTLThreadMessageReceiver>(this);
    m_receiver->Start();
}

void NQGenTLMessageStream::Stop()
{
    if (!m_receiver)
    {
        return;
    }
    m_receiver->RequestExit();
    m_receiver->WaitForExit();
    m_receiver.reset();
}

void NQGenTLMessageStream::TriggerRemoteDeviceEvent(unsigned int id, unsigned short length, void* data)
{
    if (data == nullptr || m_device->FindEventById(GenTL::EVENT_REMOTE_DEVICE, false) == nullptr)
    {
        return;
    }
    auto record = std::make_unique<NQGenTLEventRemoteDeviceRecord>();
    if (length > sizeof(record->data))
    {
        std::abort(); // A mistake of the caller, not of the camera: it must never write past the record.
    }
    record->id = id;
    record->length = length;
    std::memcpy(record->data, data, length);
    if (m_device->SignalEvent(GenTL::EVENT_REMOTE_DEVICE, record.get()))
    {
        static_cast<void>(record.release());
    }
}

} // namespace GigERDMA
