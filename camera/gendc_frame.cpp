// SPDX-License-Identifier: Apache-2.0
// The GenDC descriptor that stands before the pixels of a frame.
#include "gendc_frame.h"

#include "byte_order.h"

#include <algorithm>

namespace nq::camera
{

namespace
{

constexpr std::uint32_t kSignature = 0x43444E47; // "GNDC"
constexpr std::uint16_t kContainerType = 0x1000;
constexpr std::uint16_t kComponentType = 0x2000;
constexpr std::uint16_t kPart2DType = 0x4200;
constexpr std::uint64_t kTypeIntensity = 1;

void WriteContainer(const FrameTicket& ticket, std::uint8_t* at)
{
    PutLittle(at + 0, kSignature);
    at[4] = 1; // version 1.1.0
    at[5] = 1;
    PutLittle(at + 8, kContainerType);
    PutLittle(at + 12, gendc::kContainerSize);
    PutLittle(at + 16, ticket.id);
    PutLittle(at + 32, ticket.picture.Payload());
    PutLittle(at + 40, std::uint64_t{gendc::kDescriptorSize});
    PutLittle(at + 48, gendc::kDescriptorSize);
    PutLittle(at + 52, std::uint32_t{1});
    PutLittle(at + gendc::kFirstComponentOffsetAt, std::uint64_t{gendc::kContainerSize});
}

void WriteComponent(const FrameTicket& ticket, std::uint8_t* at)
{
    PutLittle(at + 0, kComponentType);
    PutLittle(at + 4, gendc::kComponentSize);
    PutLittle(at + 16, ticket.offsetX);
    PutLittle(at + 20, ticket.offsetY);
    PutLittle(at + 24, ticket.timestamp);
    PutLittle(at + 32, kTypeIntensity);
    PutLittle(at + 40, ticket.picture.format.code);
    PutLittle(at + 46, std::uint16_t{1});
    PutLittle(at + 48, std::uint64_t{gendc::kPart});
}

void WritePart(const FrameTicket& ticket, std::uint8_t* at)
{
    PutLittle(at + 0, kPart2DType);
    PutLittle(at + 4, gendc::kPartSize);
    PutLittle(at + 8, ticket.picture.format.code);
    PutLittle(at + 24, ticket.picture.Payload());
    PutLittle(at + 32, std::uint64_t{gendc::kDescriptorSize});
    PutLittle(at + 40, ticket.picture.width);
    PutLittle(at + 44, ticket.picture.height);
}

} // namespace

void WriteGenDcDescriptor(const FrameTicket& ticket, std::span<std::uint8_t, gendc::kDescriptorSize> descriptor)
{
    std::fill(descriptor.begin(), descriptor.end(), std::uint8_t{0});
    WriteContainer(ticket, descriptor.data());
    WriteComponent(ticket, descriptor.data() + gendc::kContainerSize);
    WritePart(ticket, descriptor.data() + gendc::kPart);
}

} // namespace nq::camera
