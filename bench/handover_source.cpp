// SPDX-License-Identifier: Apache-2.0
// The reference with the threads and hand-overs of the library, and nothing else of it.
#include "frame_source.h"
#include "reference_control.h"
#include "reference_stream.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

namespace nq::bench
{

namespace
{

/// A queue of pointers under a mutex; who finds it empty sleeps on a condition variable.
template <typename Item>
class HandOver
{
  public:
    void Open(std::size_t room)
    {
        m_ring.assign(room, nullptr);
        m_front = m_count = 0;
        m_closed = false;
    }

    void Push(Item* item)
    {
        {
            const std::lock_guard lock(m_mutex);
            m_ring[(m_front + m_count) % m_ring.size()] = item;
            ++m_count;
        }
        m_changed.notify_one();
    }

    /// Null once closed, or after five seconds.
    Item* Pop()
    {
        std::unique_lock lock(m_mutex);
        const auto something = [this] { return m_count > 0 || m_closed; };
        if (!m_changed.wait_for(lock, std::chrono::seconds(5), something) || m_closed)
        {
            return nullptr;
        }
        Item* const item = m_ring[m_front];
        m_front = (m_front + 1) % m_ring.size();
        --m_count;
        return item;
    }

    /// Nothing comes out any more, and nobody sleeps.
    void Close()
    {
        {
            const std::lock_guard lock(m_mutex);
            m_closed = true;
        }
        m_changed.notify_all();
    }

  private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Item*> m_ring;
    std::size_t m_front = 0;
    std::size_t m_count = 0;
    bool m_closed = false;
};

class HandoverSource : public FrameSource
{
  public:
    explicit HandoverSource(const SourcePlan& plan) : m_plan(plan), m_control(plan.camera) { m_control.TakeControl(); }
    ~HandoverSource() override { End(); }
    HandoverSource(const HandoverSource&) = delete;
    HandoverSource& operator=(const HandoverSource&) = delete;

    void Start() override
    {
        m_control.EnableStream(false);
        m_stream.emplace(m_plan.camera);
        const std::size_t payload = m_control.PayloadSize();
        m_control.EnableStream(true);
        m_slots.assign(m_plan.buffers, {});
        for (Slot& slot : m_slots)
        {
            slot.copy.resize(m_plan.announced ? payload : 0);
        }
        // One more than there are: the receive behind a disconnect is one twice.
        m_arrived.Open(m_plan.buffers + 1);
        m_delivered.Open(m_plan.buffers + 1);
        m_returned.Open(m_plan.buffers + 1);
        m_free.Open(m_plan.buffers);
        m_completions = std::thread([this] { TakeCompletions(); });
        m_stream->Begin(m_plan.buffers, payload + kHeaders);
        m_worker = std::thread([this] { Work(); });
        m_acquisition = std::thread([this] { Acquire(); });
    }

    bool Next(SourceFrame& frame) override
    {
        const Slot* const slot = m_delivered.Pop();
        if (slot == nullptr)
        {
            return false;
        }
        frame = slot->frame;
        return true;
    }

    void Return(const SourceFrame& frame) override { m_returned.Push(static_cast<FrameBlock*>(frame.token)); }

    void Stop() override
    {
        m_control.EnableStream(false);
        End();
    }

  private:
    static constexpr std::size_t kHeaders = 176;

    /// What became of the frame of one block.
    struct Slot
    {
        SourceFrame frame;
        std::vector<std::uint8_t> copy;
    };

    void TakeCompletions()
    {
        while (m_stream->AwaitEvent())
        {
            Completion completion;
            while (m_stream->Poll(completion))
            {
                if (completion.failed)
                {
                    return;
                }
                if (completion.frame != nullptr)
                {
                    m_arrived.Push(completion.frame);
                }
                else
                {
                    m_free.Push(completion.ready);
                }
            }
        }
    }

    void Acquire()
    {
        while (FrameBlock* const block = m_arrived.Pop())
        {
            Slot& slot = m_slots[block->index];
            slot.frame.id = block->FrameId();
            slot.frame.pixels = block->Pixels(slot.frame.size);
            slot.frame.token = block;
            if (m_plan.announced && slot.frame.pixels != nullptr)
            {
                std::memcpy(slot.copy.data(), slot.frame.pixels, slot.frame.size);
                slot.frame.pixels = slot.copy.data();
            }
            m_delivered.Push(&slot);
        }
    }

    void Work()
    {
        while (FrameBlock* const block = m_returned.Pop())
        {
            ReadyMessage* const ready = m_free.Pop();
            if (ready == nullptr)
            {
                return;
            }
            m_stream->Post(*block);
            m_stream->Post(*ready);
        }
    }

    void End()
    {
        if (!m_stream)
        {
            return;
        }
        m_arrived.Close();
        m_delivered.Close();
        m_returned.Close();
        m_free.Close();
        for (std::thread* const thread : {&m_acquisition, &m_worker})
        {
            if (thread->joinable())
            {
                thread->join();
            }
        }
        m_stream->Disconnect();
        m_completions.join();
        m_stream.reset();
    }

    SourcePlan m_plan;
    ReferenceControl m_control;
    std::optional<ReferenceStream> m_stream;
    std::vector<Slot> m_slots;
    HandOver<FrameBlock> m_arrived;
    HandOver<Slot> m_delivered;
    HandOver<FrameBlock> m_returned;
    HandOver<ReadyMessage> m_free;
    std::thread m_completions;
    std::thread m_acquisition;
    std::thread m_worker;
};

} // namespace

std::unique_ptr<FrameSource> MakeHandoverSource(const SourcePlan& plan)
{
    return std::make_unique<HandoverSource>(plan);
}

} // namespace nq::bench
