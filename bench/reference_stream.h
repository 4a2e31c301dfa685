// SPDX-License-Identifier: Apache-2.0
// The stream of a camera by libibverbs and librdmacm alone, for the references of the benchmarks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <rdma/rdma_cma.h>
#include <string>
#include <vector>

namespace nq::bench
{

/// The memory of one frame, and its registration.
struct FrameBlock
{
    std::uint8_t* memory = nullptr;
    std::size_t size = 0;
    std::uint32_t received = 0; ///< Bytes of the last frame.
    ibv_mr* region = nullptr;
    std::uint32_t index = 0;

    std::uint64_t FrameId() const;
    /// Behind the three headers; null when a header says that the pixels are outside of what was received.
    const std::uint8_t* Pixels(std::size_t& bytes) const;
};

/// What allows the camera one more frame.
struct ReadyMessage
{
    std::uint8_t bytes[60] = {1, 0, 0, 1};
    ibv_mr* region = nullptr;
};

/// What a completion tells.
struct Completion
{
    bool failed = false;
    FrameBlock* frame = nullptr;   ///< of a receive
    ReadyMessage* ready = nullptr; ///< of a send
};

/// One connection with its blocks, as many ready messages, and one completion queue for both. Throws std::runtime_error
/// that names the call that failed. The work requests may be posted by one thread and polled for by another.
class ReferenceStream
{
  public:
    /// Connects to the camera at this dotted IPv4 address.
    explicit ReferenceStream(const std::string& camera);
    ~ReferenceStream();
    ReferenceStream(const ReferenceStream&) = delete;
    ReferenceStream& operator=(const ReferenceStream&) = delete;

    /// Registers blocks for frames of up to `frameBytes`. Posts all receives, then all ready messages.
    void Begin(std::size_t blocks, std::size_t frameBytes);

    void Post(FrameBlock& block);
    void Post(ReadyMessage& message);

    /// Sleeps until the completion queue tells of something, and arms it again. False when the channel is broken.
    bool AwaitEvent();
    /// One completion, if there is one.
    bool Poll(Completion& completion);

    /// Ends the connection: every work request that is still posted fails, and one receive more does so that none has
    /// to be posted. Any thread may call it.
    void Disconnect();

    std::size_t Blocks() const { return m_blocks.size(); }

  private:
    void Await(rdma_cm_event_type expected);
    void MakeQueuePair();

    rdma_event_channel* m_events;
    rdma_cm_id* m_id = nullptr;
    ibv_pd* m_domain = nullptr;
    ibv_comp_channel* m_channel = nullptr;
    ibv_cq* m_queue = nullptr;
    std::vector<FrameBlock> m_blocks;
    std::vector<ReadyMessage> m_ready;
};

} // namespace nq::bench
