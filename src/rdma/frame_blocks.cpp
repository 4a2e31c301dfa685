// SPDX-License-Identifier: Apache-2.0
// The moves of a frame block between the camera, the acquisition thread and the buffers.
#include "rdma/frame_blocks.h"

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
    // Ids come back from the consumer, possibly from a run long gone: only compared, never followed.
    for (Block& block : m_blocks)
    {
        if (id != nullptr && block.id == id)
        {
            return block.state == state ? &block : nullptr;
        }
    }
    return nullptr;
}
