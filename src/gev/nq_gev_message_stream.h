// SPDX-License-Identifier: Apache-2.0
// The GVCP message channel: receives a camera's event packets and turns them into remote device events.
#pragma once

#include "gentl/nq_gentl_message_stream.h"
#include "gige/nq_gev_socket_linux.h"

#include <atomic>

class NQGevRemoteDevice;

/// One message channel of a camera on a UDP socket of its own.
///
/// OnInit is thread-bound to the thread that opens the device, OnGetMessage and OnDestroy to the receiver thread. A
/// set-up that fails leaves the camera without events and the receiver thread idle until it is stopped.
class NQGevMessageStream : public GigERDMA::NQGenTLMessageStream
{
  public:
    /// `device` gets the events, `remote` is the camera; neither is owned, both outlive the running channel.
    NQGevMessageStream(int channelId, GigERDMA::NQGenTLDevice* device, NQGevRemoteDevice* remote);

    /// Stops a channel that still runs.
    ~NQGevMessageStream() override;
    NQGevMessageStream(const NQGevMessageStream&) = delete;
    NQGevMessageStream& operator=(const NQGevMessageStream&) = delete;

    /// Binds a port and tells the camera about it. False when no port was free or the camera did not take it.
    bool OnInit() override;

    /// Closes the socket and switches the camera's events off.
    void OnDestroy() override;

    /// Waits up to 100 ms for one packet and signals it when it is an event.
    void OnGetMessage() override;

    /// For a channel that a later one of the same camera has replaced: from now on it waits only briefly for packets,
    /// and its end leaves the camera's registers alone. Thread-safe.
    void Retire();

  private:
    unsigned short BindPort();

    NQGevSocket m_socket;
    NQGevRemoteDevice* m_remote;
    std::atomic<bool> m_retired = false;
};
