// SPDX-License-Identifier: Apache-2.0
// A bound address and what is offered to it.
#pragma once

#include "cm/connection.h"
#include "cm/rendezvous.h"

#include <deque>
#include <memory>
#include <set>

namespace nq::loopback
{

/// Accepts the offers to one bound id and turns those that fit into connect requests, at most the backlog of them
/// unread at a time. All operations but OnReady and OnTimer are called under CmMutex().
class Listener final : public Pollable
{
  public:
    Listener(const Endpoint& address, std::shared_ptr<NetScope> scope, CmId& id);

    /// Begins to answer, at first that nobody listens.
    void Start();

    /// Begins to take connect requests.
    void Listen(int backlog);

    /// The id goes away, and with it whatever nobody has accepted.
    void Close();

    /// What to answer to an offer or a question.
    CmKind Judge(const CmMessage& message) const;

    /// An offer has become a request.
    void Take(Connection& connection);

    /// An offer came to nothing.
    void Forget(Connection& connection);

    /// The user has read a connect request, which makes room for the next.
    void OnRequestRead();

    void OnReady(int fd, uint32_t events) override;
    void OnTimer() override;

  private:
    struct Request
    {
        std::shared_ptr<Connection> connection;
        Clock::time_point arrives;
    };

    void PostRequests();

    const Endpoint m_address;
    const std::shared_ptr<NetScope> m_scope;
    CmId* m_id;
    BoundSocket m_socket;
    Watch m_watch;
    int m_backlog = 0;
    int m_unread = 0;
    std::set<std::shared_ptr<Connection>> m_offers;
    std::deque<Request> m_waiting;
};

} // namespace nq::loopback
