// SPDX-License-Identifier: Apache-2.0
// Reads registers of a GigE Vision camera beside every producer: it opens no device and writes nothing.
#include "gvcp_reader.h"

#include <arpa/inet.h>
#include <chrono>
#include <cstddef>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

constexpr uint16_t kControlPort = 3956;
constexpr int kTries = 3;
constexpr std::chrono::milliseconds kPatience{200};

uint32_t Big(const uint8_t* bytes, size_t count)
{
    uint32_t value = 0;
    for (size_t at = 0; at < count; ++at)
    {
        value = value << 8 | bytes[at];
    }
    return value;
}

uint8_t ByteOf(uint32_t value, unsigned shift)
{
    return static_cast<uint8_t>(value >> shift);
}

} // namespace

GvcpReader::GvcpReader(const std::string& address) : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_port = htons(kControlPort);
    if (m_socket >= 0 && (inet_pton(AF_INET, address.c_str(), &camera.sin_addr) != 1 ||
                          connect(m_socket, reinterpret_cast<const sockaddr*>(&camera), sizeof camera) != 0))
    {
        close(m_socket);
        m_socket = -1;
    }
}

GvcpReader::~GvcpReader()
{
    if (m_socket >= 0)
    {
        close(m_socket);
    }
}

std::optional<uint32_t> GvcpReader::Read(uint32_t registerAddress)
{
    ++m_request; // a camera may leave request 0 unanswered
    for (int attempt = 0; attempt < kTries; ++attempt)
    {
        // READREG with an acknowledge, one address of 4 bytes.
        const uint8_t command[12] = {0x42,
                                     0x01,
                                     0x00,
                                     0x80,
                                     0x00,
                                     0x04,
                                     ByteOf(m_request, 8),
                                     ByteOf(m_request, 0),
                                     ByteOf(registerAddress, 24),
                                     ByteOf(registerAddress, 16),
                                     ByteOf(registerAddress, 8),
                                     ByteOf(registerAddress, 0)};
        if (send(m_socket, command, sizeof command, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof command))
        {
            return std::nullopt; // nobody has that port
        }
        uint32_t value = 0;
        const Answer answer = Receive(value);
        if (answer != Answer::None)
        {
            return answer == Answer::Value ? std::optional<uint32_t>(value) : std::nullopt;
        }
    }
    return std::nullopt;
}

GvcpReader::Answer GvcpReader::Receive(uint32_t& value) const
{
    const auto end = std::chrono::steady_clock::now() + kPatience;
    for (auto now = end - kPatience; now < end; now = std::chrono::steady_clock::now())
    {
        pollfd readable{m_socket, POLLIN, 0};
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        if (poll(&readable, 1, static_cast<int>(left.count())) <= 0)
        {
            continue;
        }
        uint8_t answer[64];
        const ssize_t size = recv(m_socket, answer, sizeof answer, MSG_DONTWAIT);
        if (size < 0)
        {
            return Answer::Refused;
        }
        // READREG acknowledge of this request; anything else, such as PENDING, is waited past.
        if (size >= 8 && Big(answer + 2, 2) == 0x0081 && Big(answer + 6, 2) == m_request)
        {
            value = size >= 12 ? Big(answer + 8, 4) : 0;
            return size >= 12 && Big(answer, 2) == 0 ? Answer::Value : Answer::Refused;
        }
    }
    return Answer::None;
}

} // namespace nq::tool
