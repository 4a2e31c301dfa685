// SPDX-License-Identifier: Apache-2.0
// The heartbeat of a GigE Vision camera: keeps its control channel alive and reports changes of its access status.
#pragma once

#include "gentl/nq_gentl_thread_heartbeat.h"

#include <atomic>
#include <string>

class NQGevRemoteDevice;

/// Reads the camera's control privilege at each beat. A change of status goes to the device's connection event; a
/// status that means no control (0 or 3) ends the thread. Nobody restarts it then, and IsRunning() stays true until
/// Wait().
class NQGevThreadHeartbeat : public GigERDMA::NQGenTLThreadHeartbeat
{
  public:
    /// `remote` owns this object.
    explicit NQGevThreadHeartbeat(NQGevRemoteDevice* remote);

    /// Stops a thread that still runs.
    ~NQGevThreadHeartbeat() override;
    NQGevThreadHeartbeat(const NQGevThreadHeartbeat&) = delete;
    NQGevThreadHeartbeat& operator=(const NQGevThreadHeartbeat&) = delete;

    /// One beat. Thread-bound to the heartbeat thread.
    void OnHeartBeat() override;

    /// Signals the connection event of the remote device's parent, if the consumer registered it. Of `text` at most 255
    /// characters go with it. Thread-safe.
    void _sendConnectionEvent(int status, std::string text);

  private:
    NQGevRemoteDevice* m_remote;
    std::atomic<int> m_ownStatus = 0; ///< Of this camera, with the standard's answers.
};
