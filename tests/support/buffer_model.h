// SPDX-License-Identifier: Apache-2.0
// What a stream's buffers and frame blocks have to do, as a model without threads and memory.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>
#include <deque>
#include <iterator>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace nq::test
{

enum class Move
{
    Announce,
    Queue,
    Take,
    Flush,
    Revoke,
    Frame,
    OddFrame, ///< One that no buffer may see.
    Stop,
    Start
};

inline std::ostream& operator<<(std::ostream& out, Move move)
{
    static constexpr std::array kNames = {"Announce", "Queue",    "Take", "Flush", "Revoke",
                                          "Frame",    "OddFrame", "Stop", "Start"};
    return out << kNames[static_cast<std::size_t>(move)];
}

/// One move. `argument` is the buffer for Queue and Revoke, the operation for Flush.
struct Step
{
    Move move;
    int argument = 0;
};

/// What a move returned, and the buffer that it announced or took, if any.
struct Outcome
{
    int result = 0;
    int buffer = -1;

    bool operator==(const Outcome&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome)
    {
        return out << outcome.result << " (buffer " << outcome.buffer << ")";
    }
};

/// A block of a certain run; `block` below 0 for none.
struct Place
{
    int run = 0;
    int block = -1;

    auto operator<=>(const Place&) const = default;
};

/// Buffers without memory of their own, known by small numbers. A running stream has as many blocks as it had buffers
/// when it started.
class BufferModel
{
  public:
    struct Buffer
    {
        bool announced = false;
        int id = -1;             ///< The block it is bound to.
        Place shows;             ///< Where its data pointer points.
        std::uint64_t frame = 0; ///< The frame it took last.
        bool holds = false; ///< That frame is still there: it was neither queued since nor has it taken another one.
        bool queued = false;
        bool newData = false;

        bool operator==(const Buffer&) const = default;
    };

    explicit BufferModel(std::size_t count) : buffers(count) {}

    bool operator==(const BufferModel&) const = default;

    /// Whether there is anything that the move could be made with.
    bool Possible(const Step& step) const
    {
        const bool isBuffer = step.move == Move::Queue || step.move == Move::Revoke;
        const bool isFrame = step.move == Move::Frame || step.move == Move::OddFrame;
        return (!isBuffer || buffers[static_cast<std::size_t>(step.argument)].announced) &&
               (!isFrame || !credits.empty()) && (step.move != Move::Stop || running) &&
               (step.move != Move::Start || !running) &&
               (step.move != Move::Announce || announced.size() < buffers.size());
    }

    Outcome Apply(const Step& step)
    {
        switch (step.move)
        {
        case Move::Announce:
            return Announce();
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
            TakeCredit();
            return {};
        case Move::Stop:
            running = false;
            credits.clear();
            return {};
        case Move::Start:
            Start();
            return {};
        }
        return {};
    }

    /// The block that the next frame comes into.
    Place NextPlace() const { return credits.empty() ? Place{} : Place{run, credits.front()}; }

    /// Whether the memory of the buffer is announced, rather than asked for.
    static bool IsConsumers(int) { return false; }

    /// Whose address a revocation of the buffer hands out.
    Place HandsOut(int buffer) const { return buffers[static_cast<std::size_t>(buffer)].shows; }

    /// Whether the headers of the frame that a buffer holds lie in front of its pixels.
    bool HasHeaders(int) const { return true; }

    std::vector<Buffer> buffers;
    std::vector<int> announced; ///< In order.
    std::vector<int> input;     ///< A buffer can be on it twice.
    std::vector<int> output;
    std::deque<int> credits;  ///< The blocks that the camera may fill, in this order.
    std::vector<int> shownBy; ///< For each block the buffer whose frame is on show there, kNobody or kCamera.
    std::set<Place> handedOut;
    bool running = false;
    int run = 0;
    std::uint64_t frames = 0; ///< Sent, over all runs; the id of the last one.
    std::uint64_t delivered = 0;
    std::uint64_t underrun = 0;

  protected:
    Buffer& At(int buffer) { return buffers[static_cast<std::size_t>(buffer)]; }

    Outcome Announce()
    {
        const auto unused =
            std::find_if(buffers.begin(), buffers.end(), [](const Buffer& one) { return !one.announced; });
        *unused = {};
        unused->announced = true;
        announced.push_back(static_cast<int>(unused - buffers.begin()));
        return {0, announced.back()};
    }

    Outcome Take()
    {
        if (output.empty())
        {
            return {-1011};
        }
        const int buffer = output.front();
        output.erase(output.begin());
        At(buffer).queued = false;
        return {0, buffer};
    }

  private:
    static constexpr int kNobody = -1;
    static constexpr int kCamera = -2;

    int& ShownBy(int block) { return shownBy[static_cast<std::size_t>(block)]; }

    void EndShow(int buffer)
    {
        At(buffer).holds = false;
        if (At(buffer).id >= 0 && ShownBy(At(buffer).id) == buffer)
        {
            ShownBy(At(buffer).id) = kNobody;
        }
    }

    Outcome Queue(int buffer)
    {
        if (At(buffer).queued)
        {
            return {-1004};
        }
        EndShow(buffer);
        const int block = At(buffer).id;
        if (running && block >= 0 && ShownBy(block) == kNobody)
        {
            ShownBy(block) = kCamera;
            credits.push_back(block);
        }
        At(buffer).queued = true;
        input.push_back(buffer);
        return {};
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
            std::copy_if(announced.begin(), announced.end(), std::back_inserter(input),
                         [this](int buffer) { return !At(buffer).queued; });
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
        if (std::find(input.begin(), input.end(), buffer) != input.end())
        {
            return {-1022};
        }
        EndShow(buffer);
        if (At(buffer).shows.block >= 0)
        {
            handedOut.insert(At(buffer).shows);
        }
        std::erase(output, buffer);
        std::erase(announced, buffer);
        At(buffer) = {};
        return {};
    }

    int TakeCredit()
    {
        const int block = credits.front();
        credits.pop_front();
        ShownBy(block) = kNobody;
        return block;
    }

    void DeliverFrame(std::uint64_t frame)
    {
        const int block = TakeCredit();
        auto found = std::find_if(input.begin(), input.end(), [&](int buffer) { return At(buffer).id == block; });
        if (found == input.end())
        {
            found = input.begin();
        }
        if (found == input.end())
        {
            ++underrun;
            return;
        }
        const int taker = *found;
        input.erase(found);
        EndShow(taker);
        At(taker).id = block;
        At(taker).shows = {run, block};
        At(taker).frame = frame;
        At(taker).holds = true;
        At(taker).newData = true;
        ShownBy(block) = taker;
        output.push_back(taker);
        ++delivered;
    }

    void Start()
    {
        running = true;
        ++run;
        delivered = 0;
        underrun = 0;
        handedOut.clear();
        shownBy.assign(announced.size(), kCamera);
        credits.clear();
        for (std::size_t block = 0; block < announced.size(); ++block)
        {
            credits.push_back(static_cast<int>(block));
        }
        for (Buffer& buffer : buffers)
        {
            buffer.id = -1;
        }
    }
};

} // namespace nq::test
