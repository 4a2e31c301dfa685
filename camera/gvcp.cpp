// SPDX-License-Identifier: Apache-2.0
// GVCP packets: parsing of commands and building of acknowledges.
#include "gvcp.h"

#include "byte_order.h"

#include <algorithm>
#include <array>

namespace nq::camera
{

std::optional<GvcpCommand> ParseGvcpCommand(std::span<const std::uint8_t> datagram)
{
    if (datagram.size() < kGvcpHeaderSize || datagram[0] != kGvcpKey)
    {
        return std::nullopt;
    }
    GvcpCommand command;
    command.flags = datagram[1];
    command.code = GetBig<std::uint16_t>(&datagram[2]);
    const auto length = GetBig<std::uint16_t>(&datagram[4]);
    command.id = GetBig<std::uint16_t>(&datagram[6]);
    command.wellFormed = command.id != 0 && datagram.size() == kGvcpHeaderSize + length;
    command.body = datagram.subspan(kGvcpHeaderSize);
    return command;
}

std::vector<std::uint8_t> MakeGvcpAck(GvcpStatus status, std::uint16_t code, std::uint16_t id,
                                      std::span<const std::uint8_t> body)
{
    std::vector<std::uint8_t> packet(kGvcpHeaderSize + body.size());
    PutBig(&packet[0], static_cast<std::uint16_t>(status));
    PutBig(&packet[2], code);
    PutBig(&packet[4], static_cast<std::uint16_t>(body.size()));
    PutBig(&packet[6], id);
    std::copy(body.begin(), body.end(), packet.begin() + kGvcpHeaderSize);
    return packet;
}

std::vector<std::uint8_t> MakeGvcpCommand(GvcpCode code, std::uint8_t flags, std::uint16_t id,
                                          std::span<const std::uint8_t> body)
{
    std::vector<std::uint8_t> packet(kGvcpHeaderSize + body.size());
    packet[0] = kGvcpKey;
    packet[1] = flags;
    PutBig(&packet[2], static_cast<std::uint16_t>(code));
    PutBig(&packet[4], static_cast<std::uint16_t>(body.size()));
    PutBig(&packet[6], id);
    std::copy(body.begin(), body.end(), packet.begin() + kGvcpHeaderSize);
    return packet;
}

std::vector<std::uint8_t> MakePendingAck(std::uint16_t id, std::uint16_t milliseconds)
{
    std::array<std::uint8_t, 4> body{};
    PutBig(&body[2], milliseconds);
    return MakeGvcpAck(GvcpStatus::Success, static_cast<std::uint16_t>(GvcpCode::PendingAck), id, body);
}

} // namespace nq::camera
