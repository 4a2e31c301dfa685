// SPDX-License-Identifier: Apache-2.0
// A host made of one plain UDP socket, for tests that state every byte.
#pragma once

#include "support/virtual_camera.h"

#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace nq::test
{

using Octets = std::vector<std::uint8_t>;

/// The bytes of "42 01 00 80"; anything but hexadecimal digits separates.
inline Octets Hex(const std::string& text)
{
    Octets bytes;
    std::string digits;
    for (const char c : text)
    {
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0)
        {
            continue;
        }
        digits += c;
        if (digits.size() == 2)
        {
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return bytes;
}

inline Octets operator+(Octets left, const Octets& right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline Octets TextBytes(const std::string& text, std::size_t width)
{
    Octets bytes(text.begin(), text.end());
    bytes.resize(width);
    return bytes;
}

/// Whether an attempt succeeds. One that fails after `most` or more proves nothing, as the machine stood still for
/// longer than the camera waits: it is made again.
template <typename Attempt>
bool SucceedsIfWithin(std::chrono::milliseconds most, Attempt attempt)
{
    while (true)
    {
        const auto start = std::chrono::steady_clock::now();
        if (attempt())
        {
            return true;
        }
        if (std::chrono::steady_clock::now() - start < most)
        {
            return false;
        }
    }
}

/// A UDP socket bound to the host's end of the cable. Waits are generous and only end early.
class RawHost
{
  public:
    explicit RawHost(const std::string& address = "10.77.0.1", std::uint16_t port = 0)
        : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof(on));
        const sockaddr_in place = Place(address, port);
        if (bind(m_fd, reinterpret_cast<const sockaddr*>(&place), sizeof(place)) != 0)
        {
            throw std::runtime_error("bind to " + address + " failed");
        }
    }
    ~RawHost() { close(m_fd); }
    RawHost(const RawHost&) = delete;
    RawHost& operator=(const RawHost&) = delete;

    std::uint16_t Port() const
    {
        sockaddr_in place{};
        socklen_t size = sizeof(place);
        getsockname(m_fd, reinterpret_cast<sockaddr*>(&place), &size);
        return ntohs(place.sin_port);
    }

    void Send(const Octets& bytes, const std::string& to = VirtualCamera::kAddress, std::uint16_t port = 3956) const
    {
        const sockaddr_in place = Place(to, port);
        if (sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&place), sizeof(place)) < 0)
        {
            throw std::runtime_error("sendto " + to + " failed");
        }
    }

    /// The next datagram; empty when none came in time.
    Octets Receive(std::chrono::milliseconds wait = std::chrono::seconds(10)) const
    {
        pollfd waiting{m_fd, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(wait.count())) != 1)
        {
            return {};
        }
        Octets bytes(65536);
        sockaddr_in from{};
        socklen_t size = sizeof(from);
        const ssize_t got = recvfrom(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        m_senderPort = ntohs(from.sin_port);
        return bytes;
    }

    /// Sends a command and gives its answer.
    Octets Ask(const Octets& command) const
    {
        Send(command);
        return Receive();
    }
    Octets Ask(const std::string& command) const { return Ask(Hex(command)); }

    /// Port that the last received datagram came from.
    std::uint16_t SenderPort() const { return m_senderPort; }

    /// Takes control, with request id 0x7001.
    void TakeControl() const { Ask("42 01 00 82 00 08 70 01 00 00 0A 00 00 00 00 02"); }

    /// The status of a register write with this request id.
    unsigned Write(std::uint16_t id, std::uint32_t address, std::uint32_t value) const
    {
        Octets command = Hex("42 01 00 82 00 08");
        Append(command, id, 2);
        Append(command, address, 4);
        Append(command, value, 4);
        const Octets answer = Ask(command);
        return answer.size() < 2 ? 0xFFFFFFFF : static_cast<unsigned>(answer[0] * 256 + answer[1]);
    }

    /// Takes control and keeps it for a minute without a word, so that a machine that stands still loses nothing. One
    /// that stood still for a heartbeat in between begins anew.
    void KeepControl() const
    {
        for (int tries = 0; tries < 10; ++tries)
        {
            TakeControl();
            if (Write(0x7002, 0x0938, 60000) != 0x8006)
            {
                return;
            }
        }
    }

    /// The value of a register; 0xDEADDEAD when the camera answered with an error or not at all.
    std::uint32_t Read(std::uint32_t address) const
    {
        Octets command = Hex("42 01 00 80 00 04 7A 00");
        Append(command, address, 4);
        const Octets answer = Ask(command);
        if (answer.size() != 12 || answer[0] != 0)
        {
            return 0xDEADDEAD;
        }
        std::uint32_t value = 0;
        for (std::size_t i = 8; i < 12; ++i)
        {
            value = value << 8 | answer[i];
        }
        return value;
    }

    /// Memory in pieces of up to 512 bytes; shorter than `count` when the camera refused.
    Octets ReadMemory(std::uint32_t address, std::uint32_t count) const
    {
        Octets all;
        while (all.size() < count)
        {
            const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(512, count - all.size()));
            Octets command = Hex("42 01 00 84 00 08 7B 00");
            Append(command, static_cast<std::uint32_t>(address + all.size()), 4);
            Append(command, (piece + 3) & ~3U, 4);
            const Octets answer = Ask(command);
            if (answer.size() < 12 + piece)
            {
                break;
            }
            all.insert(all.end(), answer.begin() + 12, answer.begin() + 12 + piece);
        }
        return all;
    }

  private:
    static sockaddr_in Place(const std::string& address, std::uint16_t port)
    {
        sockaddr_in place{};
        place.sin_family = AF_INET;
        place.sin_port = htons(port);
        inet_pton(AF_INET, address.c_str(), &place.sin_addr);
        return place;
    }

    static void Append(Octets& bytes, std::uint32_t value, int count)
    {
        for (int shift = 8 * (count - 1); shift >= 0; shift -= 8)
        {
            bytes.push_back(static_cast<std::uint8_t>(value >> shift));
        }
    }

    int m_fd;
    mutable std::uint16_t m_senderPort = 0;
};

} // namespace nq::test
