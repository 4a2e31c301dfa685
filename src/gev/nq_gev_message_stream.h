// SPDX-License-Identifier: Apache-2.0
// The GVCP message channel: receives a camera's event packets and turns them into remote device events.
#pragma once

#include "gentl/nq_gentl_message_stream.h"
#include "gige/nq_gev_socket_linux.h"

#include <condition_variable>
#include <mutex>

class NQGevRemoteDevice;

/// One message channel of a camera on a UDP socket of its own.
///
/// OnInit runs on the thread that opens the device, OnGetMessage and OnDestroy on the receiver thread. A set-up that
/// fails leaves the camera without events and the receiver thread idle until it is stopped; it then touches no
/// descriptor.
class NQGevMessageStream : public GigERDMA::NQGenTLMessageStream
{
  public:
    /// `device` gets the events, `remote` is the camera; neither is owned, both outlive the running channel.
    NQGevMessageStream(int channelId, GigERDMA::NQGenTLDevice* device, NQGevRemoteDevice* remote);
    ~NQGevMessageStream() override;
    NQGevMessageStream(const NQGevMessageStream&) = delete;
    NQGevMessageStream& operator=(const NQGevMessageStream&) = delete;

    /// Binds a port and tells the camera about it. False when no port was free or the camera did not take it.
    bool OnInit() override;

    /// Closes the socket and switches the camera's events off.
    void OnDestroy() override;

    /// Waits up to 100 ms for one packet and signals it when it is an event.
    void OnGetMessage() override;

    /// Ends the waits of OnGetMessage from now on, so that Stop() returns without delay. For stopping many channels.
    void Hurry();

  private:
    unsigned short BindPort();

    NQGevSocket m_socket;
    NQGevRemoteDevice* m_remote;

    bool m_bound = false; // written before the receiver thread starts
    std::mutex m_idleMutex;
    std::condition_variable m_idle;
    bool m_hurry = false;
};
