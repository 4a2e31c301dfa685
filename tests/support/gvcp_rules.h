// SPDX-License-Identifier: Apache-2.0
// How a scripted camera answers: rules that make the datagrams of an answer, and the body of a discovery acknowledge.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace nq::test
{

using Bytes = std::vector<unsigned char>;

/// One datagram of an answer and how long after the command it leaves.
struct GvcpReply
{
    Bytes bytes;
    std::chrono::milliseconds delay{0};
};

/// Makes the datagrams that answer one command, given literally.
using GvcpRule = std::function<std::vector<GvcpReply>(const Bytes& command)>;

/// The answers a rule can be put together from. All of them answer with the code of the command plus one and the id of
/// the command unless told otherwise.
namespace gvcp
{

/// The big-endian number at `offset`. Throws std::out_of_range when the bytes end before.
std::uint16_t Get16(const Bytes& bytes, std::size_t offset);
std::uint32_t Get32(const Bytes& bytes, std::size_t offset);

/// The code of a command, 0 when it has none, and whether a command is as long as its code asks for.
std::uint16_t CodeOf(const Bytes& command);
bool IsWhole(const Bytes& command);

/// A command in words:
///
///     "read 0x0A00"                     "read memory 0x0200, 512 bytes"
///     "write 0x0A00 = 0x00000002"       "write memory 0x1000, 8 bytes"
///     "discovery"                       "other"
std::string Describe(const Bytes& command);

/// No answer.
GvcpRule Silent();

/// These bytes, whatever the command.
GvcpRule Literal(Bytes datagram);

/// An acknowledge with this body and status.
GvcpRule Acknowledge(Bytes body = {}, std::uint16_t status = 0);

/// The answer to a read register command: a 4-byte body.
GvcpRule Value(std::uint32_t value);

/// The answer to a read memory command: the address as in the command, then the data.
GvcpRule Memory(Bytes data);

/// A pending acknowledge that asks for `milliseconds` more.
GvcpRule Pending(std::uint16_t milliseconds);

/// The rule's datagrams, changed: each later by `delay`, each twice, ids or codes replaced, cut to `size` bytes, or
/// made `size` bytes long with bytes of 0xEE.
GvcpRule Late(std::chrono::milliseconds delay, GvcpRule rule);
GvcpRule Twice(GvcpRule rule);
GvcpRule WithId(std::uint16_t id, GvcpRule rule);
GvcpRule WrongId(GvcpRule rule);
GvcpRule WithCode(std::uint16_t code, GvcpRule rule);
GvcpRule Short(std::size_t size, GvcpRule rule);
GvcpRule Oversized(std::size_t size, GvcpRule rule);

/// The rule's datagrams as a camera sends them that works on one command at a time: their delays are counted from the
/// time when the datagrams for the command before were sent.
GvcpRule OneAfterTheOther(GvcpRule rule);

/// The datagrams of all the rules, in this order.
GvcpRule Sequence(std::vector<GvcpRule> rules);

} // namespace gvcp

/// The body of a discovery acknowledge: 248 bytes. Numbers in host order; a text of full width has no end.
struct GvcpDiscovery
{
    std::uint16_t specMajor = 2;
    std::uint16_t specMinor = 1;
    std::uint32_t deviceMode = 0x80000001;
    std::uint16_t macHigh = 0x0211;
    std::uint32_t macLow = 0x22334455;
    std::uint32_t ipConfigOptions = 0x80000007;
    std::uint32_t ipConfigCurrent = 0x00000005;
    std::uint32_t ipAddress = 0x7F000001;
    std::uint32_t subnetMask = 0xFF000000;
    std::uint32_t gateway = 0;
    std::string manufacturer = "Maker";
    std::string model = "Model";
    std::string deviceVersion = "1.0";
    std::string manufacturerInfo = "Info";
    std::string serialNumber = "S0001";
    std::string userDefinedName = "Name";

    Bytes Body() const;
};

} // namespace nq::test
