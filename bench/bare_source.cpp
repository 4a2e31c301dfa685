// SPDX-License-Identifier: Apache-2.0
// The reference with one thread: what frames cost at least.
#include "frame_source.h"
#include "reference_control.h"
#include "reference_stream.h"

#include <cstring>
#include <deque>
#include <optional>
#include <stdexcept>
#include <vector>

namespace nq::bench
{

namespace
{

class BareSource : public FrameSource
{
  public:
    explicit BareSource(const SourcePlan& plan) : m_plan(plan), m_control(plan.camera) { m_control.TakeControl(); }

    void Start() override
    {
        m_control.EnableStream(false);
        m_stream.emplace(m_plan.camera);
        const std::size_t payload = m_control.PayloadSize();
        m_control.EnableStream(true);
        if (m_plan.announced)
        {
            m_buffers.assign(m_plan.buffers, std::vector<std::uint8_t>(payload));
        }
        m_stream->Begin(m_plan.buffers, payload + kHeaders);
    }

    bool Next(SourceFrame& frame) override
    {
        while (m_frames.empty())
        {
            if (!TakeCompletion())
            {
                return false;
            }
        }
        FrameBlock& block = *m_frames.front();
        m_frames.pop_front();
        frame.id = block.FrameId();
        frame.pixels = block.Pixels(frame.size);
        frame.token = &block;
        if (m_plan.announced && frame.pixels != nullptr)
        {
            std::vector<std::uint8_t>& buffer = m_buffers[block.index];
            std::memcpy(buffer.data(), frame.pixels, frame.size);
            frame.pixels = buffer.data();
        }
        return true;
    }

    void Return(const SourceFrame& frame) override
    {
        while (m_free.empty())
        {
            if (!TakeCompletion())
            {
                throw std::runtime_error("the connection failed");
            }
        }
        m_stream->Post(*static_cast<FrameBlock*>(frame.token));
        m_stream->Post(*m_free.back());
        m_free.pop_back();
    }

    void Stop() override
    {
        m_control.EnableStream(false);
        m_stream->Disconnect();
        m_stream.reset();
        m_frames.clear();
        m_free.clear();
    }

  private:
    static constexpr std::size_t kHeaders = 176;

    /// Sleeps until there is one. False when the connection failed.
    bool TakeCompletion()
    {
        Completion completion;
        while (!m_stream->Poll(completion))
        {
            if (!m_stream->AwaitEvent())
            {
                return false;
            }
        }
        if (completion.frame != nullptr)
        {
            m_frames.push_back(completion.frame);
        }
        else if (completion.ready != nullptr)
        {
            m_free.push_back(completion.ready);
        }
        return !completion.failed;
    }

    SourcePlan m_plan;
    ReferenceControl m_control;
    std::optional<ReferenceStream> m_stream;
    std::deque<FrameBlock*> m_frames; ///< came while a ready message was waited for
    std::vector<ReadyMessage*> m_free;
    std::vector<std::vector<std::uint8_t>> m_buffers;
};

} // namespace

std::unique_ptr<FrameSource> MakeBareSource(const SourcePlan& plan)
{
    return std::make_unique<BareSource>(plan);
}

} // namespace nq::bench
