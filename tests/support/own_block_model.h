// SPDX-License-Identifier: Apache-2.0
// What a stream has to do whose buffers are their own blocks, as a model without threads and memory.
#pragma once

#include "support/buffer_model.h"

namespace nq::test
{

/// As BufferModel, by the standard's answers. The credits are the posted buffers; each shows its own block for its
/// life. The memory of every second buffer is the consumer's.
class OwnBlockModel : public BufferModel
{
  public:
    using BufferModel::BufferModel;

    bool operator==(const OwnBlockModel&) const = default;

    Outcome Apply(const Step& step)
    {
        switch (step.move)
        {
        case Move::Announce: {
            const Outcome made = BufferModel::Announce();
            At(made.buffer).shows = {0, m_blocks++};
            m_copied.erase(made.buffer);
            return made;
        }
        case Move::Queue:
            return Queue(step.argument);
        case Move::Take:
            return Take();
        case Move::Flush:
            Flush(step.argument);
            return {};
        case Move::Revoke:
            return Revoke(step.argument);
        case Move::Frame:
            DeliverFrame(++frames);
            return {};
        case Move::OddFrame:
            ++frames;
            credits.pop_front();
            Post();
            return {};
        case Move::Stop:
            running = false;
            credits.clear();
            return {};
        case Move::Start:
            if (announced.empty())
            {
                return {-1013};
            }
            running = true;
            delivered = 0;
            copies = 0;
            Post();
            return {};
        }
        return {};
    }

    Place NextPlace() const
    {
        return credits.empty() ? Place{} : buffers[static_cast<std::size_t>(credits.front())].shows;
    }

    static bool IsConsumers(int buffer) { return buffer % 2 == 1; }
    Place HandsOut(int buffer) const { return IsConsumers(buffer) ? BufferModel::HandsOut(buffer) : Place{}; }
    bool HasHeaders(int buffer) const { return !IsConsumers(buffer) && !m_copied.contains(buffer); }

    std::uint64_t copies = 0; ///< Frames of the run that were copied.

  private:
    bool IsPosted(int buffer) const { return std::find(credits.begin(), credits.end(), buffer) != credits.end(); }
    bool Waits(int buffer) const { return std::find(input.begin(), input.end(), buffer) != input.end(); }

    Outcome Queue(int buffer)
    {
        if (At(buffer).queued)
        {
            return {-1004};
        }
        At(buffer).queued = true;
        At(buffer).holds = false;
        At(buffer).newData = false;
        input.push_back(buffer);
        Post();
        return {};
    }

    /// As many buffers wait unposted as posted ones do not wait.
    void Post()
    {
        auto without = std::count_if(credits.begin(), credits.end(), [this](int buffer) { return !Waits(buffer); });
        for (const int buffer : input)
        {
            if (running && !IsPosted(buffer) && without-- <= 0)
            {
                credits.push_back(buffer);
            }
        }
    }

    void Flush(int operation)
    {
        if (operation == 0)
        {
            output.insert(output.end(), input.begin(), input.end());
            input.clear();
        }
        if (operation == 1 || operation == 2 || operation == 4)
        {
            for (const int buffer : output)
            {
                At(buffer).queued = false;
            }
            output.clear();
        }
        if (operation == 2 || operation == 3)
        {
            for (const int buffer : announced)
            {
                Queue(buffer);
            }
        }
        if (operation == 4)
        {
            for (const int buffer : input)
            {
                At(buffer).queued = false;
                At(buffer).newData = false;
            }
            input.clear();
        }
    }

    Outcome Revoke(int buffer)
    {
        if (At(buffer).queued || IsPosted(buffer))
        {
            return {-1022};
        }
        std::erase(announced, buffer);
        At(buffer) = {};
        return {};
    }

    void DeliverFrame(std::uint64_t frame)
    {
        const int own = credits.front();
        const auto taker = std::find_if(input.begin(), input.end(),
                                        [&](int buffer) { return Waits(own) ? buffer == own : !IsPosted(buffer); });
        const int buffer = taker != input.end() ? *taker : -1;
        if (buffer < 0)
        {
            ++underrun;
            credits.pop_front();
            return;
        }
        input.erase(taker);
        credits.pop_front();
        Post();
        At(buffer).frame = frame;
        At(buffer).holds = true;
        At(buffer).newData = true;
        m_copied.erase(buffer);
        if (buffer != own)
        {
            m_copied.insert(buffer);
            ++copies;
        }
        output.push_back(buffer);
        ++delivered;
    }

    int m_blocks = 0;
    std::set<int> m_copied; ///< Buffers whose frame came in another one's block.
};

} // namespace nq::test
