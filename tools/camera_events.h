// SPDX-License-Identifier: Apache-2.0
// One event that a camera sends beside its frames.
#pragma once

#include "gentl_library.h"
#include "remote_acquisition.h"

#include <cstdint>
#include <map>
#include <string>

namespace nq::tool
{

/// Listens from the constructor on until it goes, before its device is closed. Used from one thread.
class CameraEvents
{
  public:
    /// Switches on the notification of the event with that name. Throws ToolFailure when the camera has no such event
    /// or the producer tells none.
    CameraEvents(GenTLLibrary& library, GenTL::DEV_HANDLE device, RemoteAcquisition& camera, std::string name);
    ~CameraEvents();
    CameraEvents(const CameraEvents&) = delete;
    CameraEvents& operator=(const CameraEvents&) = delete;

    /// Whether the event came since the last call.
    bool Came();

  private:
    bool IsIt(uint64_t id);

    GenTLLibrary& m_library;
    GenTL::DEV_HANDLE m_device;
    RemoteAcquisition& m_camera;
    const std::string m_name;
    GenTL::EVENT_HANDLE m_event = nullptr;
    std::string m_record;
    std::map<uint64_t, bool> m_known; ///< ids, and whether they are this event's
};

} // namespace nq::tool
