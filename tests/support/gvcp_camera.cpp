// SPDX-License-Identifier: Apache-2.0
// The scripted camera: one thread that records, asks the script and sends what is due.
#include "support/gvcp_camera.h"

#include "support/network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <poll.h>
#include <sched.h>
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

GvcpCamera::GvcpCamera(const Host* host, const std::string& address, std::uint16_t port)
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
    m_begun.wait();
}

GvcpCamera::~GvcpCamera()
{
    eventfd_write(m_wake, 1);
    m_thread.join();
    close(m_wake);
    close(m_socket);
}

void GvcpCamera::Next(GvcpRule rule)
{
    const std::lock_guard guard(m_mutex);
    m_rules.push_back(std::move(rule));
}

void GvcpCamera::Otherwise(GvcpRule rule)
{
    const std::lock_guard guard(m_mutex);
    m_otherwise = std::move(rule);
    m_ownRule = false;
}

void GvcpCamera::SetRegister(std::uint32_t address, std::uint32_t value)
{
    Bytes data;
    for (const int shift : {24, 16, 8, 0})
    {
        data.push_back(static_cast<unsigned char>(value >> shift & 0xFF));
    }
    SetMemory(address, data);
}

std::uint32_t GvcpCamera::GetRegister(std::uint32_t address)
{
    return gvcp::Get32(GetMemory(address, 4), 0);
}

void GvcpCamera::SetMemory(std::uint32_t address, const Bytes& data)
{
    const std::lock_guard guard(m_mutex);
    for (const unsigned char byte : data)
    {
        m_memory[address++] = byte;
    }
}

void GvcpCamera::SetMemory(std::uint32_t address, const std::string& text)
{
    SetMemory(address, Bytes(text.begin(), text.end()));
}

Bytes GvcpCamera::GetMemory(std::uint32_t address, std::size_t count)
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

void GvcpCamera::SetStatus(std::uint32_t address, std::uint16_t status)
{
    const std::lock_guard guard(m_mutex);
    m_status[address] = status;
}

std::uint16_t GvcpCamera::StatusOf(std::uint32_t address)
{
    const std::lock_guard guard(m_mutex);
    const auto found = m_status.find(address);
    return found == m_status.end() ? std::uint16_t{0} : found->second;
}

void GvcpCamera::SetSilent(bool silent)
{
    const std::lock_guard guard(m_mutex);
    m_silent = silent;
}

void GvcpCamera::OnWrite(std::function<void(std::uint32_t, std::uint32_t)> reaction)
{
    const std::lock_guard guard(m_mutex);
    m_reaction = std::move(reaction);
}

std::vector<GvcpReply> GvcpCamera::AnswerFromMemory(const Bytes& command)
{
    if (!gvcp::IsWhole(command))
    {
        return {};
    }
    if (gvcp::CodeOf(command) == 0x0002)
    {
        const std::lock_guard guard(m_mutex);
        return gvcp::Acknowledge(m_discovery.Body())(command);
    }
    Bytes body;
    switch (gvcp::CodeOf(command))
    {
    case 0x0080:
        body = GetMemory(gvcp::Get32(command, 8), 4);
        break;
    case 0x0084: {
        body.assign(command.begin() + 8, command.begin() + 12);
        const Bytes data = GetMemory(gvcp::Get32(command, 8), gvcp::Get16(command, 14));
        body.insert(body.end(), data.begin(), data.end());
        break;
    }
    case 0x0082:
    case 0x0086:
        body = Write(command);
        break;
    default:
        return {};
    }
    return gvcp::Acknowledge(body, StatusOf(gvcp::Get32(command, 8)))(command);
}

// The body of the answer.
Bytes GvcpCamera::Write(const Bytes& command)
{
    const std::uint32_t address = gvcp::Get32(command, 8);
    const bool isRegister = gvcp::CodeOf(command) == 0x0082;
    if (StatusOf(address) == 0)
    {
        SetMemory(address, Bytes(command.begin() + 12, isRegister ? command.begin() + 16 : command.end()));
    }
    if (!isRegister)
    {
        return {0, 0, 0, 0};
    }
    std::function<void(std::uint32_t, std::uint32_t)> reaction;
    {
        const std::lock_guard guard(m_mutex);
        reaction = m_reaction;
    }
    if (reaction)
    {
        reaction(address, gvcp::Get32(command, 12));
    }
    return {0, 0, 0, 1};
}

void GvcpCamera::SetDiscovery(const GvcpDiscovery& discovery)
{
    const std::lock_guard guard(m_mutex);
    m_discovery = discovery;
}

std::vector<GvcpCamera::Datagram> GvcpCamera::Received()
{
    const std::lock_guard guard(m_mutex);
    return m_received;
}

std::vector<Bytes> GvcpCamera::ReceivedBytes()
{
    std::vector<Bytes> all;
    for (Datagram& datagram : Received())
    {
        all.push_back(std::move(datagram.bytes));
    }
    return all;
}

std::vector<std::string> GvcpCamera::Accesses()
{
    std::vector<std::string> all;
    for (const Datagram& datagram : Received())
    {
        all.push_back(gvcp::Describe(datagram.bytes));
    }
    return all;
}

std::vector<std::string> GvcpCamera::AccessesBut(const std::string& left)
{
    std::vector<std::string> accesses = Accesses();
    std::erase(accesses, left);
    return accesses;
}

std::size_t GvcpCamera::Count(const std::string& access)
{
    const std::lock_guard guard(m_mutex);
    return CountLocked(access);
}

std::size_t GvcpCamera::CountLocked(const std::string& access) const
{
    return static_cast<std::size_t>(std::count_if(m_received.begin(), m_received.end(), [&](const Datagram& datagram) {
        return gvcp::Describe(datagram.bytes) == access;
    }));
}

void GvcpCamera::Forget()
{
    const std::lock_guard guard(m_mutex);
    m_received.clear();
}

bool GvcpCamera::WaitForCount(std::size_t count, std::chrono::milliseconds timeout)
{
    std::unique_lock guard(m_mutex);
    return m_recorded.wait_for(guard, timeout, [&] { return m_received.size() >= count; });
}

bool GvcpCamera::WaitFor(const std::string& access, std::size_t times, std::chrono::milliseconds timeout)
{
    std::unique_lock guard(m_mutex);
    return m_recorded.wait_for(guard, timeout, [&] { return CountLocked(access) >= times; });
}

void GvcpCamera::Send(const Bytes& datagram, const std::string& address, std::uint16_t port)
{
    const sockaddr_in to = SocketAddress(address, port);
    if (sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) == -1)
    {
        ThrowErrno("sendto");
    }
}

void GvcpCamera::AwaitPath(const std::string& address)
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

void GvcpCamera::Run()
{
    // The library gives a camera 100 ms for some answers, and on a machine under load an ordinary thread may get no
    // processor for longer. Where this is refused, a case has to be lucky. A thread that a rule starts is ordinary
    // again.
    const sched_param priority{.sched_priority = 1};
    sched_setscheduler(0, SCHED_RR | SCHED_RESET_ON_FORK, &priority);
    m_begun.count_down();
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

int GvcpCamera::MillisecondsToNextDue()
{
    const std::lock_guard guard(m_mutex);
    if (m_due.empty())
    {
        return -1;
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_due.begin()->first - Clock::now());
    return static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
}

void GvcpCamera::SendDue()
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

namespace
{

std::uint64_t KeyOf(const sockaddr_in& sender)
{
    return std::uint64_t{sender.sin_addr.s_addr} << 16 | sender.sin_port;
}

} // namespace

bool GvcpCamera::AnswerRepeated(const Bytes& command, const sockaddr_in& from)
{
    const std::lock_guard guard(m_mutex);
    const auto last = m_answered.find(KeyOf(from));
    if (m_silent || !m_rules.empty() || !m_ownRule || last == m_answered.end() || last->second.command != command)
    {
        return false;
    }
    for (const GvcpReply& reply : last->second.replies)
    {
        m_due.emplace(Clock::now(), Due{reply.bytes, from});
    }
    return true;
}

void GvcpCamera::TakeDatagram()
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
    if (AnswerRepeated(bytes, from))
    {
        SendDue();
        return;
    }
    GvcpRule rule;
    bool fromMemory = false;
    {
        const std::lock_guard guard(m_mutex);
        m_received.push_back({bytes, text.data(), ntohs(from.sin_port)});
        if (m_silent)
        {
            rule = gvcp::Silent();
        }
        else if (m_rules.empty())
        {
            rule = m_otherwise;
            fromMemory = m_ownRule && gvcp::CodeOf(bytes) != 0x0002;
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
        m_answered[KeyOf(from)] = fromMemory && !replies.empty() ? Answered{bytes, replies} : Answered{};
        for (const GvcpReply& reply : replies)
        {
            m_due.emplace(now + reply.delay, Due{reply.bytes, from});
        }
    }
    m_recorded.notify_all();
    SendDue();
}

} // namespace nq::test
