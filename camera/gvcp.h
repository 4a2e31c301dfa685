// SPDX-License-Identifier: Apache-2.0
// GVCP packets: codes, status codes, parsing of commands and building of acknowledges.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace nq::camera
{

// Source of all values of this file: GigE Vision, chapters "GVCP header", "command and acknowledge values", "status
// codes". All numbers travel with the most significant byte first.
constexpr std::uint16_t kGvcpPort = 3956;
constexpr std::uint8_t kGvcpKey = 0x42;
constexpr std::uint8_t kFlagAckRequired = 0x01;
constexpr std::uint8_t kFlagAllowBroadcastAck = 0x10;
constexpr std::size_t kGvcpHeaderSize = 8;
/// Largest command or acknowledge: 576 bytes of IP packet without its 28 bytes of IP and UDP header.
constexpr std::size_t kGvcpMaxPacket = 548;
constexpr std::size_t kGvcpMaxBody = kGvcpMaxPacket - kGvcpHeaderSize;

enum class GvcpCode : std::uint16_t
{
    DiscoveryCommand = 0x0002,
    DiscoveryAck = 0x0003,
    ForceIpCommand = 0x0004,
    ForceIpAck = 0x0005,
    ReadRegCommand = 0x0080,
    ReadRegAck = 0x0081,
    WriteRegCommand = 0x0082,
    WriteRegAck = 0x0083,
    ReadMemCommand = 0x0084,
    ReadMemAck = 0x0085,
    WriteMemCommand = 0x0086,
    WriteMemAck = 0x0087,
    PendingAck = 0x0089,
    EventCommand = 0x00C0,
    EventAck = 0x00C1,
};

enum class GvcpStatus : std::uint16_t
{
    Success = 0x0000,
    NotImplemented = 0x8001,
    InvalidParameter = 0x8002,
    InvalidAddress = 0x8003,
    WriteProtect = 0x8004,
    BadAlignment = 0x8005,
    AccessDenied = 0x8006,
    InvalidHeader = 0x800E,
    Error = 0x8FFF,
};

/// Who sent a datagram: IPv4 address and UDP port in host order.
struct Endpoint
{
    std::uint32_t address = 0;
    std::uint16_t port = 0;

    bool operator==(const Endpoint&) const = default;
};

/// One received command; `body` refers to the datagram.
struct GvcpCommand
{
    std::uint8_t flags = 0;
    std::uint16_t code = 0;
    std::uint16_t id = 0;
    /// The length field agrees with the datagram and the id is not 0.
    bool wellFormed = false;
    std::span<const std::uint8_t> body;
};

/// Nothing when the datagram is no GVCP command at all (too short, wrong key): such a datagram gets no answer.
std::optional<GvcpCommand> ParseGvcpCommand(std::span<const std::uint8_t> datagram);

/// An acknowledge packet: header and body.
std::vector<std::uint8_t> MakeGvcpAck(GvcpStatus status, std::uint16_t code, std::uint16_t id,
                                      std::span<const std::uint8_t> body = {});

/// A command packet, as the camera sends it on its message channel.
std::vector<std::uint8_t> MakeGvcpCommand(GvcpCode code, std::uint8_t flags, std::uint16_t id,
                                          std::span<const std::uint8_t> body);

/// The packet that asks the host to wait `milliseconds` longer for the answer to command `id`.
std::vector<std::uint8_t> MakePendingAck(std::uint16_t id, std::uint16_t milliseconds);

} // namespace nq::camera
