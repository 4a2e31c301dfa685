// SPDX-License-Identifier: Apache-2.0
// The moves of a frame block between the camera, the acquisition thread and the buffers.
#include "rdma/frame_blocks.h"

#include <algorithm>
#include <utility>

void FrameBlocks::Make(std::uint32_t count, std::size_t payloadSize)
{
    std::vector<Block> blocks(count);
    for (Block& block : blocks)
    {
        block.memory = std::make_shared<GenDCBuffer>(payloadSize);
    }
    const NQLock lock(m_lock);
    m_blocks = std::move(blocks);
}

std::size_t FrameBlocks::Count() const
{
    const NQLock lock(m_lock);
    return m_blocks.size();
}

GenDCBuffer& FrameBlocks::Memory(std::size_t index) const
{
    const NQLock lock(m_lock);
    return *m_blocks[index].memory;
}

void FrameBlocks::Register(std::size_t index, const void* id)
{
    const NQLock lock(m_lock);
    m_blocks[index].id = id;
}

void FrameBlocks::Taken(const void* id)
{
    const NQLock lock(m_lock);
    if (Block* const block = Find(id, State::Camera))
    {
        block->state = State::OnItsWay;
    }
}

std::shared_ptr<const void> FrameBlocks::HandOver(const void* id, const void* shownBy)
{
    const NQLock lock(m_lock);
    Block* const block = Find(id, State::OnItsWay);
    if (block == nullptr)
    {
        return nullptr;
    }
    block->state = shownBy != nullptr ? State::Shown : State::Nobody;
    block->shownBy = shownBy;
    return block->memory;
}

void FrameBlocks::EndShow(const void* id, const void* buffer)
{
    const NQLock lock(m_lock);
    Block* const block = Find(id, State::Shown);
    if (block != nullptr && block->shownBy == buffer)
    {
        block->state = State::Nobody;
        block->shownBy = nullptr;
    }
}

bool FrameBlocks::Return(const void* id)
{
    const NQLock lock(m_lock);
    Block* const block = Find(id, State::Nobody);
    if (block == nullptr)
    {
        return false;
    }
    block->state = State::Camera;
    return true;
}

void FrameBlocks::Clear()
{
    const NQLock lock(m_lock);
    m_blocks.clear();
}

FrameBlocks::Block* FrameBlocks::Find(const void* id, State state)
{
    if (id == nullptr)
    {
        return nullptr;
    }
    // Ids come back from the consumer, possibly from a run long gone: only compared, never followed.
    const auto named = [id](const Block& block) { return block.id == id; };
    const std::size_t place = PlaceInArray(id);
    const auto found = place < m_blocks.size() && named(m_blocks[place])
                           ? m_blocks.begin() + static_cast<std::ptrdiff_t>(place)
                           : std::find_if(m_blocks.begin(), m_blocks.end(), named);
    return found != m_blocks.end() && found->state == state ? &*found : nullptr;
}

/// Where the id would stand if all of them were addresses in one array, as those of the endpoint are; any number for
/// others.
std::size_t FrameBlocks::PlaceInArray(const void* id) const
{
    if (m_blocks.size() < 2)
    {
        return 0;
    }
    const auto first = reinterpret_cast<std::uintptr_t>(m_blocks[0].id);
    const std::uintptr_t step = reinterpret_cast<std::uintptr_t>(m_blocks[1].id) - first;
    return step == 0 ? 0 : (reinterpret_cast<std::uintptr_t>(id) - first) / step;
}
