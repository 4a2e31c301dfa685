// SPDX-License-Identifier: Apache-2.0
// Reads and writes registers of a GigE Vision camera beside every producer: it opens no device.
#include "gvcp_reader.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace nq::tool
{

namespace
{

constexpr uint16_t kReadRegister = 0x0080;
constexpr uint16_t kWriteRegister = 0x0082;
constexpr uint16_t kPending = 0x0089;
constexpr int kTries = 3;
constexpr std::chrono::milliseconds kPatience{200};
constexpr std::chrono::seconds kMostPending{10}; ///< a camera may ask for more again and again

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
    uint32_t value = 0;
    return Ask(kReadRegister, {registerAddress}, value) == Answer::Value ? std::optional(value) : std::nullopt;
}

bool GvcpReader::Write(uint32_t registerAddress, uint32_t value)
{
    uint32_t written = 0;
    return Ask(kWriteRegister, {registerAddress, value}, written) == Answer::Value;
}

GvcpReader::Answer GvcpReader::Ask(uint16_t code, std::initializer_list<uint32_t> words, uint32_t& value)
{
    const Answer answer = AskAgainAndAgain(code, words, value);
    m_silent = answer == Answer::None || answer == Answer::Nobody;
    return answer;
}

GvcpReader::Answer GvcpReader::AskAgainAndAgain(uint16_t code, std::initializer_list<uint32_t> words, uint32_t& value)
{
    ++m_request; // a camera may leave request 0 unanswered
    // With an acknowledge.
    std::vector<uint8_t> command{0x42,
                                 0x01,
                                 ByteOf(code, 8),
                                 ByteOf(code, 0),
                                 0x00,
                                 ByteOf(static_cast<uint32_t>(4 * words.size()), 0),
                                 ByteOf(m_request, 8),
                                 ByteOf(m_request, 0)};
    for (const uint32_t word : words)
    {
        command.insert(command.end(), {ByteOf(word, 24), ByteOf(word, 16), ByteOf(word, 8), ByteOf(word, 0)});
    }
    for (int attempt = 0; attempt < kTries; ++attempt)
    {
        if (send(m_socket, command.data(), command.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(command.size()))
        {
            return Answer::None; // nobody has that port
        }
        const Answer answer = Receive(code, value);
        if (answer != Answer::None)
        {
            return answer;
        }
    }
    return Answer::None;
}

GvcpReader::Answer GvcpReader::Receive(uint16_t code, uint32_t& value) const
{
    auto end = std::chrono::steady_clock::now() + kPatience;
    const auto atLast = end + kMostPending;
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
        if (size < 0 && errno == EAGAIN)
        {
            continue; // the kernel threw a broken datagram away
        }
        if (size < 0)
        {
            return Answer::Nobody;
        }
        // A camera that writes its memory asks for patience.
        if (size >= 12 && Big(answer + 2, 2) == kPending && Big(answer + 6, 2) == m_request)
        {
            const std::chrono::milliseconds asked(Big(answer + 10, 2));
            end = std::min(std::chrono::steady_clock::now() + asked + kPatience, atLast);
            continue;
        }
        // The acknowledge of this request; anything else is waited past.
        if (size >= 8 && Big(answer + 2, 2) == code + 1U && Big(answer + 6, 2) == m_request)
        {
            value = size >= 12 ? Big(answer + 8, 4) : 0;
            return size >= 12 && Big(answer, 2) == 0 ? Answer::Value : Answer::Refused;
        }
    }
    return Answer::None;
}

} // namespace nq::tool
