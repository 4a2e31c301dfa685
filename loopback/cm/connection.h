// SPDX-License-Identifier: Apache-2.0
// The connection manager's side of one connection.
#pragma once

#include "base/engine.h"
#include "base/unique_fd.h"
#include "cm/cm_message.h"

#include <deque>
#include <memory>
#include <mutex>

namespace nq::loopback
{

class CmId;
class Listener;

/// Guards all state of the connection manager: ids, connections and listeners. Taken before the lock of a queue pair.
std::mutex& CmMutex();

/// The handshake that sets up, and takes down, a pair of queue pairs. It runs over a Unix socket of its own, so that it
/// is never held up by messages that wait for a receive; the end of that socket is the death of the peer.
///
///     active:  Requesting --Reply--> Replied --Establish--> Established
///     passive: Offered --Request--> Requested --Accept--> Accepted --ReadyToUse--> Established
///     both:    Established --Disconnect--> DisconnectSent --reply, end or timeout--> TimeWait --> Closed
///              Established --request or end--> DisconnectReceived --Disconnect--> TimeWait --> Closed
///
/// As with real RDMA the side that asks for the disconnect is told of it when the other side answers, which that side
/// does by disconnecting too or by destroying its id. All operations but OnReady, OnTimer and OnBreak are called under
/// CmMutex().
class Connection final : public Pollable
{
  public:
    enum class State
    {
        Offered,
        Requesting,
        Replied,
        Requested,
        Accepted,
        Established,
        DisconnectSent,
        DisconnectReceived,
        TimeWait,
        Closed
    };

    /// The active side, towards a listener that has taken the request. Without a control socket the connection is one
    /// to an unreachable peer.
    Connection(UniqueFd control, UniqueFd data, UniqueFd acknowledgements, CmId& id);

    /// The passive side of a socket that was just accepted.
    Connection(UniqueFd control, std::weak_ptr<Listener> listener);

    /// Begins to listen to the peer. One that is unreachable is reported as such at that time; an offer has to speak
    /// within the connect timeout.
    void Start(Clock::time_point unreachableAt = Clock::time_point::max());

    State Now() const { return m_state; }

    /// The request or reply of the peer.
    const CmMessage& Peer() const { return m_peer; }

    /// Passive side: which id events go to from now on.
    void SetId(CmId* id) { m_id = id; }

    /// Takes the streams for the queue pair; empty when taken before.
    UniqueFd TakeData() { return std::move(m_data); }
    UniqueFd TakeAcknowledgements() { return std::move(m_acknowledgements); }

    /// Passive side: sends `reply`. False when the connection is not waiting for it.
    bool Accept(const CmMessage& reply);

    /// Active side: confirms the reply. False when the connection is not waiting for it.
    bool Establish();

    /// Passive side: sends a rejection. False when the connection is not waiting for it.
    bool Reject(const CmMessage& rejection);

    /// Starts or answers a disconnect; does nothing when there is nothing to disconnect.
    void Disconnect();

    /// The id goes away: tells the peer whatever the state demands and closes.
    void Abandon();

    /// Passive side: tells the offering peer that its request waits for the listener's user.
    void ConfirmTaken();

    void OnReady(int fd, uint32_t events) override;
    void OnTimer() override;
    void OnBreak() override;

  private:
    struct Outgoing
    {
        CmMessage message;
        Clock::time_point notBefore;
    };

    void OnMessage(const CmMessage& message, UniqueFd data, UniqueFd acknowledgements);
    void OnOffer(const CmMessage& message, UniqueFd data, UniqueFd acknowledgements);
    void OnRejected(const CmMessage& message);
    void OnPeerDisconnects();
    void OnEnd();
    void OnSilentOffer();
    void EnterTimeWait();
    void Close();
    void Send(CmKind kind, uint32_t status = 0);
    void Send(CmMessage message);
    void FlushOutbox(Clock::time_point until);
    void Deadline(Clock::time_point when);
    void FollowLink();

    State m_state;
    CmId* m_id = nullptr;
    std::weak_ptr<Listener> m_listener;
    UniqueFd m_control;
    Watch m_watch;
    UniqueFd m_data;
    UniqueFd m_acknowledgements;
    CmMessage m_peer;
    std::deque<Outgoing> m_outbox;
    Clock::time_point m_deadline = Clock::time_point::max();
};

} // namespace nq::loopback
