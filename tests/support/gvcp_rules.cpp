// SPDX-License-Identifier: Apache-2.0
// The rules of the scripted camera: each makes datagrams, or changes those of another.
#include "support/gvcp_rules.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

namespace nq::test
{

namespace gvcp
{

std::uint16_t Get16(const Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes.at(offset) << 8 | bytes.at(offset + 1));
}

std::uint32_t Get32(const Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(Get16(bytes, offset)) << 16 | Get16(bytes, offset + 2);
}

std::uint16_t CodeOf(const Bytes& command)
{
    return command.size() < 4 ? std::uint16_t{0} : Get16(command, 2);
}

bool IsWhole(const Bytes& command)
{
    switch (CodeOf(command))
    {
    case 0x0080:
    case 0x0086:
        return command.size() >= 12;
    case 0x0082:
    case 0x0084:
        return command.size() >= 16;
    default:
        return command.size() >= 8;
    }
}

std::string Describe(const Bytes& command)
{
    const auto text = [](const char* format, unsigned int first, unsigned int second = 0) {
        char made[80];
        std::snprintf(made, sizeof made, format, first, second);
        return std::string(made);
    };
    if (!IsWhole(command))
    {
        return "other";
    }
    switch (CodeOf(command))
    {
    case 0x0002:
        return "discovery";
    case 0x0080:
        return text("read 0x%04X", Get32(command, 8));
    case 0x0082:
        return text("write 0x%04X = 0x%08X", Get32(command, 8), Get32(command, 12));
    case 0x0084:
        return text("read memory 0x%04X, %u bytes", Get32(command, 8), Get16(command, 14));
    case 0x0086:
        return text("write memory 0x%04X, %u bytes", Get32(command, 8), static_cast<unsigned int>(command.size() - 12));
    default:
        return "other";
    }
}

} // namespace gvcp

namespace
{

using gvcp::CodeOf;
using gvcp::Get16;
using gvcp::Get32;

void Put16(Bytes& bytes, std::size_t offset, std::uint16_t value)
{
    bytes.at(offset) = static_cast<unsigned char>(value >> 8);
    bytes.at(offset + 1) = static_cast<unsigned char>(value & 0xFF);
}

void Put32(Bytes& bytes, std::size_t offset, std::uint32_t value)
{
    Put16(bytes, offset, static_cast<std::uint16_t>(value >> 16));
    Put16(bytes, offset + 2, static_cast<std::uint16_t>(value & 0xFFFF));
}

void PutText(Bytes& bytes, std::size_t offset, std::size_t width, const std::string& text)
{
    std::copy_n(text.begin(), std::min(width, text.size()), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

Bytes MakeAcknowledge(const Bytes& command, std::uint16_t code, std::uint16_t status, const Bytes& body)
{
    Bytes datagram(8);
    Put16(datagram, 0, status);
    Put16(datagram, 2, code);
    Put16(datagram, 4, static_cast<std::uint16_t>(body.size()));
    Put16(datagram, 6, command.size() < 8 ? std::uint16_t{0} : Get16(command, 6));
    datagram.insert(datagram.end(), body.begin(), body.end());
    return datagram;
}

/// Applies `change` to each datagram of the rule.
GvcpRule Changed(GvcpRule rule, std::function<void(GvcpReply&)> change)
{
    return [rule = std::move(rule), change = std::move(change)](const Bytes& command) {
        std::vector<GvcpReply> replies = rule(command);
        std::for_each(replies.begin(), replies.end(), change);
        return replies;
    };
}

} // namespace

namespace gvcp
{

GvcpRule Silent()
{
    return [](const Bytes&) { return std::vector<GvcpReply>{}; };
}

GvcpRule Literal(Bytes datagram)
{
    return [datagram = std::move(datagram)](const Bytes&) { return std::vector<GvcpReply>{{datagram}}; };
}

GvcpRule Acknowledge(Bytes body, std::uint16_t status)
{
    return [body = std::move(body), status](const Bytes& command) {
        const auto code = static_cast<std::uint16_t>(CodeOf(command) + 1);
        return std::vector<GvcpReply>{{MakeAcknowledge(command, code, status, body)}};
    };
}

GvcpRule Value(std::uint32_t value)
{
    Bytes body(4);
    Put32(body, 0, value);
    return Acknowledge(body);
}

GvcpRule Memory(Bytes data)
{
    return [data = std::move(data)](const Bytes& command) {
        Bytes body(4);
        Put32(body, 0, Get32(command, 8));
        body.insert(body.end(), data.begin(), data.end());
        return std::vector<GvcpReply>{{MakeAcknowledge(command, 0x0085, 0, body)}};
    };
}

GvcpRule Pending(std::uint16_t milliseconds)
{
    return [milliseconds](const Bytes& command) {
        Bytes body(4);
        Put16(body, 2, milliseconds);
        return std::vector<GvcpReply>{{MakeAcknowledge(command, 0x0089, 0, body)}};
    };
}

GvcpRule Late(std::chrono::milliseconds delay, GvcpRule rule)
{
    return Changed(std::move(rule), [delay](GvcpReply& reply) { reply.delay += delay; });
}

GvcpRule Twice(GvcpRule rule)
{
    return Sequence({rule, rule});
}

GvcpRule WithId(std::uint16_t id, GvcpRule rule)
{
    return Changed(std::move(rule), [id](GvcpReply& reply) { Put16(reply.bytes, 6, id); });
}

GvcpRule WrongId(GvcpRule rule)
{
    return Changed(std::move(rule), [](GvcpReply& reply) {
        Put16(reply.bytes, 6, static_cast<std::uint16_t>(Get16(reply.bytes, 6) ^ 0x8000));
    });
}

GvcpRule WithCode(std::uint16_t code, GvcpRule rule)
{
    return Changed(std::move(rule), [code](GvcpReply& reply) { Put16(reply.bytes, 2, code); });
}

GvcpRule Short(std::size_t size, GvcpRule rule)
{
    return Changed(std::move(rule),
                   [size](GvcpReply& reply) { reply.bytes.resize(std::min(size, reply.bytes.size())); });
}

GvcpRule Oversized(std::size_t size, GvcpRule rule)
{
    return Changed(std::move(rule), [size](GvcpReply& reply) {
        reply.bytes.resize(std::max(size, reply.bytes.size()), static_cast<unsigned char>(0xEE));
    });
}

GvcpRule OneAfterTheOther(GvcpRule rule)
{
    using Clock = std::chrono::steady_clock;
    // Shared, because the peer copies a rule for each command.
    return [rule = std::move(rule), free = std::make_shared<Clock::time_point>()](const Bytes& command) {
        const auto now = Clock::now();
        const auto start = std::max(now, *free);
        std::vector<GvcpReply> replies = rule(command);
        for (GvcpReply& reply : replies)
        {
            *free = std::max(*free, start + reply.delay);
            reply.delay += std::chrono::ceil<std::chrono::milliseconds>(start - now);
        }
        return replies;
    };
}

GvcpRule Sequence(std::vector<GvcpRule> rules)
{
    return [rules = std::move(rules)](const Bytes& command) {
        std::vector<GvcpReply> all;
        for (const GvcpRule& rule : rules)
        {
            const std::vector<GvcpReply> replies = rule(command);
            all.insert(all.end(), replies.begin(), replies.end());
        }
        return all;
    };
}

} // namespace gvcp

Bytes GvcpDiscovery::Body() const
{
    // Offsets of the datagram less its 8-byte header.
    Bytes body(248);
    Put16(body, 0, specMajor);
    Put16(body, 2, specMinor);
    Put32(body, 4, deviceMode);
    Put16(body, 10, macHigh);
    Put32(body, 12, macLow);
    Put32(body, 16, ipConfigOptions);
    Put32(body, 20, ipConfigCurrent);
    Put32(body, 36, ipAddress);
    Put32(body, 52, subnetMask);
    Put32(body, 68, gateway);
    PutText(body, 72, 32, manufacturer);
    PutText(body, 104, 32, model);
    PutText(body, 136, 32, deviceVersion);
    PutText(body, 168, 48, manufacturerInfo);
    PutText(body, 216, 16, serialNumber);
    PutText(body, 232, 16, userDefinedName);
    return body;
}

} // namespace nq::test
