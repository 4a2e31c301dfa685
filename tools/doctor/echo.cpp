// SPDX-License-Identifier: Apache-2.0
// How long a packet may be on its way to a camera and back.
#include "doctor/echo.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <netinet/in.h>
#include <netinet/ip_icmp.h>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace nq::tool::doctor
{

namespace
{

constexpr uint32_t kIpHeader = 20;
constexpr uint32_t kShortest = 576; ///< every host takes that
constexpr std::chrono::milliseconds kPatience{300};

/// The one's complement sum that ICMP wants. `bytes` has an even size.
uint16_t Checksum(const std::vector<uint8_t>& bytes)
{
    uint32_t sum = 0;
    for (size_t at = 0; at + 1 < bytes.size(); at += 2)
    {
        sum += uint32_t{bytes[at]} << 8 | bytes[at + 1];
    }
    while (sum > 0xFFFF)
    {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

class EchoSocket
{
  public:
    /// Users without rights have a socket that only echoes, where the system allows that (ping_group_range).
    explicit EchoSocket(const std::string& address)
    {
        m_file = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, IPPROTO_ICMP);
        if (m_file < 0)
        {
            m_file = socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_ICMP);
            m_raw = true;
        }
        m_problem = m_file < 0 ? "this user may not send echo requests: " + std::generic_category().message(errno) : "";
        sockaddr_in peer{};
        peer.sin_family = AF_INET;
        constexpr int kNoFragments = IP_PMTUDISC_PROBE;
        if (m_file >= 0 && (inet_pton(AF_INET, address.c_str(), &peer.sin_addr) != 1 ||
                            setsockopt(m_file, IPPROTO_IP, IP_MTU_DISCOVER, &kNoFragments, sizeof kNoFragments) != 0 ||
                            connect(m_file, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) != 0))
        {
            m_problem = "no echo request can be sent there: " + std::generic_category().message(errno);
            close(m_file);
            m_file = -1;
        }
    }
    ~EchoSocket()
    {
        if (m_file >= 0)
        {
            close(m_file);
        }
    }
    EchoSocket(const EchoSocket&) = delete;
    EchoSocket& operator=(const EchoSocket&) = delete;

    bool IsOpen() const { return m_file >= 0; }

    /// Why it is not open.
    const std::string& Problem() const { return m_problem; }

    /// True when an IP packet of that length comes back.
    bool Returns(uint32_t bytes) { return Try(bytes) || Try(bytes); }

  private:
    bool Try(uint32_t bytes)
    {
        // A multiple of two, for the sum.
        std::vector<uint8_t> packet(size_t{(bytes - kIpHeader) / 2} * 2);
        ++m_sequence;
        packet[0] = ICMP_ECHO;
        packet[4] = 0x4E;
        packet[6] = static_cast<uint8_t>(m_sequence >> 8);
        packet[7] = static_cast<uint8_t>(m_sequence);
        const uint16_t sum = Checksum(packet);
        packet[2] = static_cast<uint8_t>(sum >> 8);
        packet[3] = static_cast<uint8_t>(sum);
        return send(m_file, packet.data(), packet.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(packet.size()) &&
               Comes(packet.size());
    }

    bool Comes(size_t size) const
    {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        for (auto now = end - kPatience; now < end; now = std::chrono::steady_clock::now())
        {
            pollfd readable{m_file, POLLIN, 0};
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
            if (poll(&readable, 1, static_cast<int>(left.count())) <= 0)
            {
                continue;
            }
            uint8_t answer[65536];
            const ssize_t length = recv(m_file, answer, sizeof answer, MSG_DONTWAIT);
            const size_t start = m_raw ? kIpHeader : 0;
            if (length == static_cast<ssize_t>(start + size) && answer[start] == ICMP_ECHOREPLY &&
                (answer[start + 6] << 8 | answer[start + 7]) == m_sequence)
            {
                return true;
            }
        }
        return false;
    }

    int m_file = -1;
    std::string m_problem;
    bool m_raw = false;
    uint16_t m_sequence = 0;
};

} // namespace

EchoResult LongestEcho(const std::string& address, uint32_t mtu)
{
    EchoSocket echoes(address);
    if (!echoes.IsOpen())
    {
        return {0, echoes.Problem()};
    }
    const uint32_t longest = mtu < 65535 ? mtu : 65535;
    if (longest >= kShortest && echoes.Returns(longest))
    {
        return {mtu, ""};
    }
    if (!echoes.Returns(kShortest))
    {
        return {0, "it answers no echo request"};
    }
    for (const uint32_t bytes : {9000U, 8000U, 4200U, 4000U, 2000U, 1500U, 1400U})
    {
        if (bytes < longest && echoes.Returns(bytes))
        {
            return {bytes, ""};
        }
    }
    return {kShortest, ""};
}

} // namespace nq::tool::doctor
