// SPDX-License-Identifier: Apache-2.0
// Serves the register map over UDP, one datagram at a time.
#include "support/register_camera.h"

#include "support/network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace nq::test
{

namespace
{

std::uint16_t Word(const RegisterCamera::Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint16_t>(bytes.at(offset) << 8 | bytes.at(offset + 1));
}

std::uint32_t Double(const RegisterCamera::Bytes& bytes, std::size_t offset)
{
    return static_cast<std::uint32_t>(Word(bytes, offset)) << 16 | Word(bytes, offset + 2);
}

void AppendWord(RegisterCamera::Bytes& bytes, std::size_t value)
{
    bytes.push_back(static_cast<unsigned char>(value >> 8));
    bytes.push_back(static_cast<unsigned char>(value));
}

void AppendDouble(RegisterCamera::Bytes& bytes, std::uint32_t value)
{
    AppendWord(bytes, value >> 16);
    AppendWord(bytes, value & 0xFFFF);
}

RegisterCamera::Bytes Acknowledge(std::uint16_t status, std::uint16_t code, std::uint16_t id,
                                  const RegisterCamera::Bytes& body = {})
{
    RegisterCamera::Bytes answer;
    AppendWord(answer, status);
    AppendWord(answer, code);
    AppendWord(answer, body.size());
    AppendWord(answer, id);
    answer.insert(answer.end(), body.begin(), body.end());
    return answer;
}

std::string Text(const char* format, unsigned int first, unsigned int second = 0)
{
    char text[80];
    std::snprintf(text, sizeof text, format, first, second);
    return text;
}

/// Offset of the first byte behind the header and the address.
constexpr std::size_t behindAddress = 12;

std::string Describe(const RegisterCamera::Bytes& datagram)
{
    const std::size_t size = datagram.size();
    const unsigned int code = size < 8 ? 0U : Word(datagram, 2);
    if (code == 0x0002)
    {
        return "discovery";
    }
    if (size < behindAddress)
    {
        return "other";
    }
    const std::uint32_t address = Double(datagram, 8);
    if (code == 0x0080)
    {
        return Text("read 0x%04X", address);
    }
    if (code == 0x0082 && size >= 16)
    {
        return Text("write 0x%04X = 0x%08X", address, Double(datagram, 12));
    }
    if (code == 0x0084 && size >= 16)
    {
        return Text("read memory 0x%04X, %u bytes", address, Word(datagram, 14));
    }
    if (code == 0x0086)
    {
        return Text("write memory 0x%04X, %u bytes", address, static_cast<unsigned int>(size - behindAddress));
    }
    return "other";
}

int MakeSocket()
{
    const int made = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in local = {};
    local.sin_family = AF_INET;
    local.sin_port = htons(3956);
    const int on = 1;
    if (made == -1 || setsockopt(made, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) == -1 ||
        bind(made, reinterpret_cast<const sockaddr*>(&local), sizeof local) == -1)
    {
        const int error = errno;
        close(made);
        throw std::system_error(error, std::generic_category(), "UDP port 3956");
    }
    return made;
}

} // namespace

RegisterCamera::RegisterCamera(const Host* host)
{
    if (host != nullptr)
    {
        host->Run([this] { m_socket = MakeSocket(); });
    }
    else
    {
        m_socket = MakeSocket();
    }
    m_stop = eventfd(0, EFD_CLOEXEC);
    m_thread = std::thread([this] { Serve(); });
}

RegisterCamera::~RegisterCamera()
{
    eventfd_write(m_stop, 1);
    m_thread.join();
    close(m_socket);
    close(m_stop);
}

void RegisterCamera::SetRegister(std::uint32_t address, std::uint32_t value)
{
    const std::lock_guard lock(m_mutex);
    m_registers[address] = value;
}

std::uint32_t RegisterCamera::Register(std::uint32_t address)
{
    const std::lock_guard lock(m_mutex);
    return m_registers[address];
}

void RegisterCamera::SetMemory(std::uint32_t address, const Bytes& bytes)
{
    const std::lock_guard lock(m_mutex);
    for (const unsigned char byte : bytes)
    {
        m_memory[address++] = byte;
    }
}

void RegisterCamera::SetMemory(std::uint32_t address, const std::string& text)
{
    SetMemory(address, Bytes(text.begin(), text.end()));
}

RegisterCamera::Bytes RegisterCamera::Memory(std::uint32_t address, std::size_t size)
{
    const std::lock_guard lock(m_mutex);
    Bytes bytes;
    while (bytes.size() < size)
    {
        bytes.push_back(m_memory[address++]);
    }
    return bytes;
}

void RegisterCamera::SetStatus(std::uint32_t address, std::uint16_t status)
{
    const std::lock_guard lock(m_mutex);
    m_status[address] = status;
}

void RegisterCamera::SetDiscovery(const Bytes& body)
{
    const std::lock_guard lock(m_mutex);
    m_discovery = body;
}

void RegisterCamera::OnWrite(std::function<void(std::uint32_t, std::uint32_t)> reaction)
{
    const std::lock_guard lock(m_mutex);
    m_reaction = std::move(reaction);
}

void RegisterCamera::Send(const std::string& address, std::uint16_t port, const Bytes& datagram) const
{
    sockaddr_in to = {};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    sendto(m_socket, datagram.data(), datagram.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
}

std::vector<std::string> RegisterCamera::Accesses()
{
    const std::lock_guard lock(m_mutex);
    return m_accesses;
}

std::vector<std::string> RegisterCamera::AccessesBut(const std::string& left)
{
    std::vector<std::string> accesses = Accesses();
    std::erase(accesses, left);
    return accesses;
}

std::size_t RegisterCamera::Count(const std::string& access)
{
    const std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(std::count(m_accesses.begin(), m_accesses.end(), access));
}

bool RegisterCamera::WaitFor(const std::string& access, std::size_t times, std::chrono::milliseconds timeout)
{
    std::unique_lock lock(m_mutex);
    return m_asked.wait_for(lock, timeout, [&] {
        return static_cast<std::size_t>(std::count(m_accesses.begin(), m_accesses.end(), access)) >= times;
    });
}

std::vector<RegisterCamera::Bytes> RegisterCamera::Datagrams()
{
    const std::lock_guard lock(m_mutex);
    return m_datagrams;
}

void RegisterCamera::Forget()
{
    const std::lock_guard lock(m_mutex);
    m_accesses.clear();
    m_datagrams.clear();
}

void RegisterCamera::Serve()
{
    pollfd waits[2] = {{m_socket, POLLIN, 0}, {m_stop, POLLIN, 0}};
    while (poll(waits, 2, -1) != -1 && waits[1].revents == 0)
    {
        Bytes datagram(2048);
        sockaddr_in from = {};
        socklen_t length = sizeof from;
        const ssize_t received = recvfrom(m_socket, datagram.data(), datagram.size(), MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr*>(&from), &length);
        if (received < 0)
        {
            continue;
        }
        datagram.resize(static_cast<std::size_t>(received));
        const Bytes answer = Answer(datagram);
        if (!answer.empty() && !m_silent)
        {
            sendto(m_socket, answer.data(), answer.size(), 0, reinterpret_cast<sockaddr*>(&from), length);
        }
    }
}

RegisterCamera::Bytes RegisterCamera::Answer(const Bytes& datagram)
{
    Bytes answer;
    std::function<void(std::uint32_t, std::uint32_t)> reaction;
    std::uint32_t address = 0;
    std::uint32_t value = 0;
    {
        const std::lock_guard lock(m_mutex);
        const std::string access = Describe(datagram);
        m_accesses.push_back(access);
        m_datagrams.push_back(datagram);
        m_asked.notify_all();
        if (access == "other" || m_silent)
        {
            return {};
        }
        const std::uint16_t id = Word(datagram, 6);
        if (access == "discovery")
        {
            return m_discovery.empty() ? Bytes() : Acknowledge(0, 0x0003, id, m_discovery);
        }
        address = Double(datagram, 8);
        switch (Word(datagram, 2))
        {
        case 0x0080:
            return Acknowledge(StatusOf(address), 0x0081, id, AnswerRead(address));
        case 0x0084:
            return Acknowledge(StatusOf(address), 0x0085, id, AnswerReadMemory(address, Word(datagram, 14)));
        case 0x0082:
            value = Double(datagram, behindAddress);
            answer = Acknowledge(Write(address, value), 0x0083, id, {0, 0, 0, 1});
            reaction = m_reaction;
            break;
        default:
            answer = Acknowledge(StatusOf(address), 0x0087, id, {0, 0, 0, 0});
            for (std::size_t index = behindAddress; index < datagram.size() && StatusOf(address) == 0; ++index)
            {
                m_memory[address + static_cast<std::uint32_t>(index - behindAddress)] = datagram[index];
            }
            break;
        }
    }
    if (reaction)
    {
        reaction(address, value);
    }
    return answer;
}

std::uint16_t RegisterCamera::StatusOf(std::uint32_t address) const
{
    const auto found = m_status.find(address);
    return found == m_status.end() ? std::uint16_t{0} : found->second;
}

RegisterCamera::Bytes RegisterCamera::AnswerRead(std::uint32_t address)
{
    Bytes body;
    AppendDouble(body, m_registers[address]);
    return body;
}

std::uint16_t RegisterCamera::Write(std::uint32_t address, std::uint32_t value)
{
    const std::uint16_t status = StatusOf(address);
    if (status == 0)
    {
        m_registers[address] = value;
    }
    return status;
}

RegisterCamera::Bytes RegisterCamera::AnswerReadMemory(std::uint32_t address, std::size_t count)
{
    Bytes body;
    AppendDouble(body, address);
    while (body.size() < count + 4)
    {
        const auto found = m_memory.find(address++);
        body.push_back(found == m_memory.end() ? static_cast<unsigned char>(0) : found->second);
    }
    return body;
}

} // namespace nq::test
