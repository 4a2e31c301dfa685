// SPDX-License-Identifier: Apache-2.0
// The handle of a queue pair that its user holds.
#pragma once

#include "verbs/reliable_transport.h"

#include <memory>

namespace nq::loopback
{

/// What the user calls a queue pair. The work happens in its transport, which may outlive it inside the engine.
class QueuePair : public ibv_qp, private Counted<Kind::QueuePair>
{
  public:
    /// Throws EINVAL for types, capacities or combinations that the device does not have. Writes the capacities given.
    QueuePair(ProtectionDomain& domain, ibv_qp_init_attr& attributes);
    ~QueuePair();

    static QueuePair& From(ibv_qp* pair) { return *static_cast<QueuePair*>(pair); }

    /// Moves to `attributes.qp_state`. Throws EINVAL for a step that the state machine does not have.
    void Modify(const ibv_qp_attr& attributes, int mask);

    /// The attributes known here; others are zero.
    void Query(ibv_qp_attr& attributes, ibv_qp_init_attr& initial) const;

    const std::shared_ptr<ReliableTransport>& Transport() const { return m_transport; }

    // The calls that reach a queue pair through its context.
    static int PostSend(ibv_qp* pair, ibv_send_wr* work, ibv_send_wr** bad);
    static int PostReceive(ibv_qp* pair, ibv_recv_wr* work, ibv_recv_wr** bad);

  private:
    ibv_qp_init_attr m_initial;
    std::shared_ptr<ReliableTransport> m_transport;
};

} // namespace nq::loopback
