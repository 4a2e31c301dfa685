// SPDX-License-Identifier: Apache-2.0
// The reliable connection behind a queue pair.
#pragma once

#include "base/engine.h"
#include "base/unique_fd.h"
#include "verbs/completion.h"

#include <cstdint>
#include <deque>
#include <mutex>
#include <sys/uio.h>
#include <vector>

namespace nq::loopback
{

class QueuePair;

/// Carries SENDs between two queue pairs over two pairs of Unix sockets made by the side that connects.
///
/// The data stream carries, in each direction, a header and the bytes of each message. Its receiver reads the bytes
/// only while a receive is posted, and straight into it, so a SEND without a receive waits in the stream and in the
/// sender's memory; its header is read at once, which is how it is counted. The acknowledgement stream is never blocked
/// by that: it brings back that a message waits, and for each message placed its sequence number, or the error that the
/// sender's completion has to show.
///
///     Reset --Modify--> Init --Attach or Modify--> ReadyToReceive/ReadyToSend --ToError, peer's error--> Error
///
/// Sends complete in order when acknowledged. In the error state every request posted or outstanding completes as
/// flushed. Guarded by one lock, under which the engine's thread and the posting threads move the bytes; all operations
/// may be called on any thread.
class ReliableTransport final : public Pollable
{
  public:
    ReliableTransport(QueuePair& pair, const ibv_qp_cap& capacity, bool signalAll);

    /// Queues one work request. Throws EINVAL for one that this queue pair or its state does not take, ENOMEM when the
    /// queue is full.
    void PostSend(const ibv_send_wr& work);
    void PostReceive(const ibv_recv_wr& work);

    /// Takes the streams to the peer and becomes ready to send. Does nothing in the error state.
    void Attach(UniqueFd data, UniqueFd acknowledgements, uint32_t peerNumber);

    /// A step of the state machine asked for by the user. Throws EINVAL.
    void Modify(ibv_qp_state state);

    /// Flushes both queues and cuts the streams.
    void ToError();

    /// Forgets the queue pair, its queues and its streams, without completions.
    void Close();

    ibv_qp_state State() const;
    uint32_t PeerNumber() const;

    void OnReady(int fd, uint32_t events) override;
    void OnTimer() override;
    void OnBreak() override;

  private:
    struct SendWork
    {
        uint64_t id = 0;
        uint64_t sequence = 0;
        uint64_t length = 0;
        uint64_t transmitted = 0; // header and payload
        unsigned flags = 0;
        bool withImmediate = false;
        __be32 immediate = 0;
        ibv_wc_status failure = IBV_WC_SUCCESS;
        Clock::time_point notBefore{};
        std::vector<ibv_sge> entries;
        std::vector<uint8_t> inlineData;
    };

    struct ReceiveWork
    {
        uint64_t id = 0;
        uint64_t room = 0;
        std::vector<ibv_sge> entries;
    };

    struct Header
    {
        uint32_t magic;
        uint32_t flags;
        uint64_t sequence;
        uint64_t length;
        __be32 immediate;
        uint32_t reserved;
    };
    static_assert(sizeof(Header) == 32);
    static constexpr uint32_t kHeaderMagic = 0x4E51524D;
    static constexpr uint32_t kFlagSolicited = 1;
    static constexpr uint32_t kFlagImmediate = 2;

    enum class AckKind : uint32_t
    {
        Placed,
        Refused,
        LinkDown,
        LinkUp,
        Waiting // the message has found no receive
    };

    struct Acknowledgement
    {
        AckKind kind;
        uint32_t status; // an ibv_wc_status when refused
        uint64_t sequence;
    };
    static_assert(sizeof(Acknowledgement) == 16);

    enum class Step
    {
        Continue,
        Stop
    };

    // Sending half (reliable_send.cpp). All below run under the lock.
    SendWork MakeSend(const ibv_send_wr& work) const;
    void Transmit();
    Step TransmitFront(SendWork& work);
    static Header HeaderOf(const SendWork& work);
    void ReadAcknowledgements();
    void OnAcknowledgement(const Acknowledgement& acknowledgement);
    void CompleteSendsBefore(uint64_t sequence);
    void CompleteFrontSend(ibv_wc_status status);
    void FailStalledSend();
    void CheckRetryDeadline();

    // Receiving half (reliable_receive.cpp).
    void Receive();
    Step ReceiveHeader();
    bool HeaderIsWhole() const { return m_headerBytes == sizeof m_header; }
    void CountWaiting();
    Step ReceivePayload();
    ssize_t ReadInto(const ReceiveWork& work);
    Step OnReadResult(ssize_t count);
    Step RefuseMessage(ibv_wc_status local, ibv_wc_status remote);
    void CompleteFrontReceive(ibv_wc_status status);
    void Acknowledge();
    bool SendAcknowledgement(const Acknowledgement& acknowledgement);

    // Both.
    void EnterError();
    void Flush();
    void CutStreams();
    void PeerIsGone();
    void Complete(CompletionQueue& queue, const ibv_wc& completion, bool solicited);
    void UpdateInterest();
    void Settle();
    void FollowLink();
    bool LinkCarries() const;

    mutable std::mutex m_mutex;
    QueuePair* m_pair;
    const ibv_qp_cap m_capacity;
    const bool m_signalAll;
    ibv_qp_state m_state = IBV_QPS_RESET;
    uint32_t m_peerNumber = 0;
    bool m_overflowed = false;

    UniqueFd m_data;
    UniqueFd m_acknowledgements;
    Watch m_dataWatch;
    Watch m_acknowledgementWatch;
    bool m_peerGone = false;
    bool m_linkWasUp = true;
    bool m_peerLinkUp = true;
    Clock::time_point m_retryDeadline{};

    std::deque<SendWork> m_sends;
    size_t m_transmittedSends = 0;
    uint64_t m_lastSequence = 0;

    std::deque<ReceiveWork> m_receives;
    Header m_header{};
    size_t m_headerBytes = 0;
    uint64_t m_payloadBytes = 0;
    uint64_t m_placed = 0;
    uint64_t m_acknowledged = 0;
};

} // namespace nq::loopback
