// SPDX-License-Identifier: Apache-2.0
// One RDMA connection of a host.
#pragma once

#include "gendc_frame.h"
#include "registered_memory.h"

#include <cstdint>
#include <memory>
#include <rdma/rdma_cma.h>
#include <vector>

namespace nq::camera
{

/// The queue pair of one host, with the memory of its messages.
///
/// The host grants a credit by a ready message: 60 bytes, 1 in bytes 0 and 3, 0 in all others. Each credit allows one
/// SEND; a frame leaves from one of a few registered blocks, so that several may be on their way. Used from the stream
/// thread only.
class RdmaConnection
{
  public:
    /// Takes over `id`, whose connection request is still unanswered, and makes all that an answer needs. Throws
    /// std::system_error naming the call that failed; `id` is destroyed then as well.
    RdmaConnection(rdma_cm_id* id, std::uint32_t sendBuffers);
    ~RdmaConnection();
    RdmaConnection(const RdmaConnection&) = delete;
    RdmaConnection& operator=(const RdmaConnection&) = delete;

    /// Accepts the request. Throws std::system_error.
    void Accept();

    const rdma_cm_id* Id() const { return m_id.get(); }
    /// Readable when completions wait.
    int CompletionFd() const { return m_channel->fd; }

    /// Takes what made the descriptor readable; the next completion makes it so again. False when the connection is
    /// broken.
    bool TakeEvent();
    /// Takes all completions there are. False when the connection is broken. The ids of frames that have left go to
    /// `sent`.
    bool TakeCompletions(std::vector<std::uint64_t>& sent);

    /// A credit is there and a block to send from is free.
    bool CanSend() const { return m_credits > 0 && !m_free.empty(); }

    /// A free block, grown to `size` bytes if it is smaller. Throws std::system_error when it cannot be registered.
    struct Block
    {
        std::uint32_t index;
        std::span<std::uint8_t> bytes;
        std::uint64_t& picture; ///< What the block shows, by a number of the caller's; 0 in fresh memory.
    };
    Block TakeBlock(std::size_t size);

    /// Sends the first `size` bytes of a taken block as one message. False when the connection is broken.
    bool Send(const Block& block, std::size_t size, std::uint64_t frameId);

    std::uint64_t Credits() const { return m_credits; }
    /// Messages of the host that were no ready messages.
    std::uint64_t StrangeMessages() const { return m_strangeMessages; }

  private:
    struct IdDeleter
    {
        void operator()(rdma_cm_id* id) const { rdma_destroy_id(id); }
    };
    struct DomainDeleter
    {
        void operator()(ibv_pd* domain) const { ibv_dealloc_pd(domain); }
    };
    struct ChannelDeleter
    {
        void operator()(ibv_comp_channel* channel) const { ibv_destroy_comp_channel(channel); }
    };
    struct QueueDeleter
    {
        void operator()(ibv_cq* queue) const { ibv_destroy_cq(queue); }
    };
    struct SendBlock
    {
        std::unique_ptr<RegisteredMemory> memory;
        std::uint64_t frameId = 0;
        std::uint64_t picture = 0;
    };

    void CreateQueuePair(std::uint32_t sendBuffers);
    bool PostReceive(std::uint64_t index);
    void TakeMessage(const ibv_wc& completion);

    std::unique_ptr<rdma_cm_id, IdDeleter> m_id;
    std::unique_ptr<ibv_pd, DomainDeleter> m_domain;
    std::unique_ptr<ibv_comp_channel, ChannelDeleter> m_channel;
    std::unique_ptr<ibv_cq, QueueDeleter> m_queue;
    std::unique_ptr<RegisteredMemory> m_messages;
    std::vector<SendBlock> m_blocks;
    std::vector<std::uint32_t> m_free;
    std::uint64_t m_credits = 0;
    std::uint64_t m_strangeMessages = 0;
};

} // namespace nq::camera
