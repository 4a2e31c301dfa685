// SPDX-License-Identifier: Apache-2.0
// The choice of a stream's road, and what a transport without blocks does for it.
#include "gentl/nq_gentl_frame_road.h"

#include "base/nq_answers.h"
#include "gentl/nq_gentl_bound_blocks.h"
#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_own_blocks.h"

namespace GigERDMA
{

std::unique_ptr<NQGenTLFrameRoad> MakeFrameRoad(NQGenTLDataStream& stream, NQGenTLBufferQueue& buffers)
{
    if (stream.Answers().queueingPosts)
    {
        return std::make_unique<NQGenTLOwnBlocks>(stream, buffers);
    }
    return std::make_unique<NQGenTLBoundBlocks>(stream, buffers);
}

std::shared_ptr<const void> NQGenTLDataStream::DoHandOver(void*, const NQGenTLBuffer*)
{
    return nullptr;
}

void NQGenTLDataStream::DoEndShow(void*, const NQGenTLBuffer*) {}

NQBlockMemory NQGenTLDataStream::DoMakeMemory(unsigned long size)
{
    const auto memory = std::make_shared<unsigned char[]>(size);
    return {memory.get(), memory};
}

void* NQGenTLDataStream::DoRegisterBuffer(NQGenTLBuffer&)
{
    return nullptr;
}

void NQGenTLDataStream::DoForgetBuffer(void*) {}

} // namespace GigERDMA
