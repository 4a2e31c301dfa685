// SPDX-License-Identifier: Apache-2.0
// The scripted GVCP peer: one thread that records, asks the script and sends what is due.
#include "support/gvcp_peer.h"

#include "support/network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <memory>
#include <poll.h>
#include <stdexcept>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nq::test
{
namespace
{

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

std::uint16_t Get16(const Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes.at(offset) << 8 | bytes.at(offset + 1));
}

std::uint32_t Get32(const Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(Get16(bytes, offset)) << 16 | Get16(bytes, offset + 2);
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

std::uint16_t CodeOf(const Bytes& command)
{
    return command.size() < 4 ? std::uint16_t{0} : Get16(command, 2);
}

/// Bytes that a command of this code has at least.
std::size_t SmallestSize(std::uint16_t code)
{
    switch (code)
    {
    case 0x0080:
    case 0x0086:
        return 12;
    case 0x0082:
    case 0x0084:
        return 16;
    default:
        return 8;
    }
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

sockaddr_in SocketAddress(const std::string& address, std::uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &result.sin_addr) != 1)
    {
        throw std::invalid_argument("no IPv4 address: " + address);
    }
    return result;
}

[[noreturn]] void ThrowErrno(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

int OpenSocket(const std::string& address, std::uint16_t port)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1)
    {
        ThrowErrno("socket");
    }
    const int on = 1;
    setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const sockaddr_in local = SocketAddress(address, port);
    if (bind(descriptor, reinterpret_cast<const sockaddr*>(&local), sizeof local) == -1)
    {
        const int error = errno;
        close(descriptor);
        throw std::system_error(error, std::generic_category(), "bind");
    }
    return descriptor;
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

GvcpPeer::GvcpPeer(const Host* host, const std::string& address, std::uint16_t port)
    : m_otherwise([this](const Bytes& command) { return AnswerFromMemory(command); })
{
    if (host != nullptr)
    {
        host->Run([&] { m_socket = OpenSocket(address, port); });
    }
    else
    {
        m_socket = OpenSocket(address, port);
    }
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(m_socket, reinterpret_cast<sockaddr*>(&bound), &length);
    m_port = ntohs(bound.sin_port);
    m_wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    m_thread = std::thread([this] { Run(); });
}

GvcpPeer::~GvcpPeer()
{
    eventfd_write(m_wake, 1);
    m_thread.join();
    close(m_wake);
    close(m_socket);
}

void GvcpPeer::Next(GvcpRule rule)
{
    const std::lock_guard guard(m_mutex);
    m_rules.push_back(std::move(rule));
}

void GvcpPeer::Otherwise(GvcpRule rule)
{
    const std::lock_guard guard(m_mutex);
    m_otherwise = std::move(rule);
}

void GvcpPeer::SetRegister(std::uint32_t address, std::uint32_t value)
{
    Bytes data(4);
    Put32(data, 0, value);
    SetMemory(address, data);
}

std::uint32_t GvcpPeer::GetRegister(std::uint32_t address)
{
    return Get32(GetMemory(address, 4), 0);
}

void GvcpPeer::SetMemory(std::uint32_t address, const Bytes& data)
{
    const std::lock_guard guard(m_mutex);
    for (const unsigned char byte : data)
    {
        m_memory[address++] = byte;
    }
}

Bytes GvcpPeer::GetMemory(std::uint32_t address, std::size_t count)
{
    const std::lock_guard guard(m_mutex);
    Bytes data(count);
    for (unsigned char& byte : data)
    {
        const auto found = m_memory.find(address++);
        byte = found == m_memory.end() ? static_cast<unsigned char>(0) : found->second;
    }
    return data;
}

std::vector<GvcpReply> GvcpPeer::AnswerFromMemory(const Bytes& command)
{
    if (command.size() < SmallestSize(CodeOf(command)))
    {
        return {};
    }
    switch (CodeOf(command))
    {
    case 0x0002: {
        const std::lock_guard guard(m_mutex);
        return {{MakeAcknowledge(command, 0x0003, 0, m_discovery.Body())}};
    }
    case 0x0080:
        return {{MakeAcknowledge(command, 0x0081, 0, GetMemory(Get32(command, 8), 4))}};
    case 0x0082:
        SetRegister(Get32(command, 8), Get32(command, 12));
        return {{MakeAcknowledge(command, 0x0083, 0, {0, 0, 0, 1})}};
    case 0x0084: {
        Bytes body(command.begin() + 8, command.begin() + 12);
        const Bytes data = GetMemory(Get32(command, 8), Get16(command, 14));
        body.insert(body.end(), data.begin(), data.end());
        return {{MakeAcknowledge(command, 0x0085, 0, body)}};
    }
    case 0x0086:
        SetMemory(Get32(command, 8), Bytes(command.begin() + 12, command.end()));
        return {{MakeAcknowledge(command, 0x0087, 0, {0, 0, 0, 0})}};
    default:
        return {};
    }
}

void GvcpPeer::SetDiscovery(const GvcpDiscovery& discovery)
{
    const std::lock_guard guard(m_mutex);
    m_discovery = discovery;
}

std::vector<GvcpPeer::Datagram> GvcpPeer::Received()
{
    const std::lock_guard guard(m_mutex);
    return m_received;
}

std::vector<Bytes> GvcpPeer::ReceivedBytes()
{
    std::vector<Bytes> all;
    for (Datagram& datagram : Received())
    {
        all.push_back(std::move(datagram.bytes));
    }
    return all;
}

void GvcpPeer::Forget()
{
    const std::lock_guard guard(m_mutex);
    m_received.clear();
}

bool GvcpPeer::WaitForCount(std::size_t count, std::chrono::milliseconds timeout)
{
    std::unique_lock guard(m_mutex);
    return m_recorded.wait_for(guard, timeout, [&] { return m_received.size() >= count; });
}

void GvcpPeer::Send(const Bytes& datagram, const std::string& address, std::uint16_t port)
{
    const sockaddr_in to = SocketAddress(address, port);
    if (sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) == -1)
    {
        ThrowErrno("sendto");
    }
}

void GvcpPeer::AwaitPath(const std::string& address)
{
    const int descriptor = OpenSocket(address, 0);
    sockaddr_in bound{};
    socklen_t length = sizeof bound;
    getsockname(descriptor, reinterpret_cast<sockaddr*>(&bound), &length);
    bool reached = false;
    for (int attempt = 0; attempt < 300 && !reached; ++attempt)
    {
        Send({0}, address, ntohs(bound.sin_port));
        pollfd wait{descriptor, POLLIN, 0};
        reached = poll(&wait, 1, 100) == 1;
    }
    close(descriptor);
    if (!reached)
    {
        throw std::runtime_error("no datagram reaches " + address);
    }
}

void GvcpPeer::Run()
{
    while (true)
    {
        std::array<pollfd, 2> waits{pollfd{m_socket, POLLIN, 0}, pollfd{m_wake, POLLIN, 0}};
        poll(waits.data(), waits.size(), MillisecondsToNextDue());
        if (waits[1].revents != 0)
        {
            return;
        }
        SendDue();
        if (waits[0].revents != 0)
        {
            TakeDatagram();
        }
    }
}

int GvcpPeer::MillisecondsToNextDue()
{
    const std::lock_guard guard(m_mutex);
    if (m_due.empty())
    {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_due.begin()->first - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

void GvcpPeer::SendDue()
{
    const std::lock_guard guard(m_mutex);
    while (!m_due.empty() && m_due.begin()->first <= Clock::now())
    {
        const Due& due = m_due.begin()->second;
        sendto(m_socket, due.bytes.data(), due.bytes.size(), 0, reinterpret_cast<const sockaddr*>(&due.to),
               sizeof due.to);
        m_due.erase(m_due.begin());
    }
}

void GvcpPeer::TakeDatagram()
{
    Bytes bytes(65536);
    sockaddr_in from{};
    socklen_t length = sizeof from;
    const ssize_t size =
        recvfrom(m_socket, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&from), &length);
    if (size < 0)
    {
        return;
    }
    bytes.resize(static_cast<std::size_t>(size));
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &from.sin_addr, text.data(), text.size());

    GvcpRule rule;
    {
        const std::lock_guard guard(m_mutex);
        m_received.push_back({bytes, text.data(), ntohs(from.sin_port)});
        if (m_rules.empty())
        {
            rule = m_otherwise;
        }
        else
        {
            rule = std::move(m_rules.front());
            m_rules.pop_front();
        }
    }
    const std::vector<GvcpReply> replies = rule(bytes);
    const auto now = Clock::now();
    {
        const std::lock_guard guard(m_mutex);
        for (const GvcpReply& reply : replies)
        {
            m_due.emplace(now + reply.delay, Due{reply.bytes, from});
        }
    }
    m_recorded.notify_all();
    SendDue();
}

} // namespace nq::test
