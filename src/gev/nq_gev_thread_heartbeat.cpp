// SPDX-License-Identifier: Apache-2.0
// One beat: read the camera's control privilege and report a change of status.
#include "gev/nq_gev_thread_heartbeat.h"

#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "gentl/nq_gentl_event_device_connection.h"
#include "gev/nq_gev_remote_device.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>

namespace
{

constexpr int kConnectionEvent = 4000;

} // namespace

NQGevThreadHeartbeat::NQGevThreadHeartbeat(NQGevRemoteDevice* remote) : m_remote(remote) {}

NQGevThreadHeartbeat::~NQGevThreadHeartbeat()
{
    if (IsRunning())
    {
        RequestExit();
        Wait();
    }
}

void NQGevThreadHeartbeat::OnHeartBeat()
{
    // Deliberate(OneStatusForTheProcess): one status for the whole process, kept across close and open, so that a
    // camera which comes back unchanged is not reported anew. Cameras in the same state report it once; cameras in
    // different states report a change at each other's beats.
    static std::atomic<int> currAccessStatus = 0;

    const _NQ_GEV_DEVICE_INFO info = m_remote->GetDeviceInfo();
    const int status = m_remote->GetAccessStatus();
    const bool lost = status == GenTL::DEVICE_ACCESS_STATUS_NOACCESS || status == GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
    if (lost)
    {
        m_remote->TellStreamsOfLoss();
    }
    std::atomic<int>& current = m_remote->Answers().statusOfEach ? m_ownStatus : currAccessStatus;
    if (current.exchange(status, std::memory_order_relaxed) == status)
    {
        return;
    }
    _sendConnectionEvent(status, info.id);
    if (lost)
    {
        RequestExit();
    }
}

void NQGevThreadHeartbeat::_sendConnectionEvent(int status, std::string text)
{
    GigERDMA::NQGenTLModuleBase* const device = m_remote->GetParent();
    if (device == nullptr)
    {
        return;
    }
    if (device->FindEventById(kConnectionEvent, false) == nullptr)
    {
        return;
    }
    auto record = std::make_unique<GigERDMA::NQGenTLEventDeviceConnectionRecord>();
    record->status = status;
    text.resize(std::min(std::strlen(text.c_str()), sizeof record->text - 1));
    std::memcpy(record->text, text.data(), text.size());
    if (device->SignalEvent(kConnectionEvent, record.get()))
    {
        static_cast<void>(record.release()); // the event's from here on
    }
}
