// SPDX-License-Identifier: Apache-2.0
// Who has an IPv4 address on a cable, asked by ARP.
#include "address_holder.h"

#include "camera_tree.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <chrono>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace nq::tool
{

namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kListening{1};
constexpr std::chrono::milliseconds kAgain{300}; ///< after that a question counts as lost

/// The packet of RFC 826 on Ethernet for IPv4. Numbers are in network order.
struct ArpPacket
{
    std::array<uint8_t, 6> head{0x00, 0x01, 0x08, 0x00, 6, 4};
    uint16_t operation = htons(ARPOP_REQUEST);
    std::array<uint8_t, ETH_ALEN> senderMac{};
    std::array<uint8_t, 4> senderAddress{}; ///< none: no host notes down who asks
    std::array<uint8_t, ETH_ALEN> targetMac{};
    std::array<uint8_t, 4> targetAddress{};
};
static_assert(sizeof(ArpPacket) == 28);

/// Sends and hears ARP on one adapter.
class ArpSocket
{
  public:
    explicit ArpSocket(const std::string& adapter) : m_fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        m_place.sll_family = AF_PACKET;
        m_place.sll_protocol = htons(ETH_P_ARP);
        m_place.sll_ifindex = static_cast<int>(if_nametoindex(adapter.c_str()));
        socklen_t size = sizeof m_place;
        m_isOpen = m_fd >= 0 && bind(m_fd, reinterpret_cast<const sockaddr*>(&m_place), sizeof m_place) == 0 &&
                   getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_place), &size) == 0 &&
                   m_place.sll_hatype == ARPHRD_ETHER;
    }
    ~ArpSocket()
    {
        if (m_fd >= 0)
        {
            close(m_fd);
        }
    }
    ArpSocket(const ArpSocket&) = delete;
    ArpSocket& operator=(const ArpSocket&) = delete;

    /// False for a user who may not, and for an adapter that is no Ethernet.
    bool IsOpen() const { return m_isOpen; }

    void Ask(const std::array<uint8_t, 4>& address) const
    {
        ArpPacket question;
        std::copy_n(m_place.sll_addr, question.senderMac.size(), question.senderMac.begin());
        question.targetAddress = address;
        sockaddr_ll everybody = m_place;
        everybody.sll_halen = ETH_ALEN;
        std::fill_n(everybody.sll_addr, ETH_ALEN, uint8_t{0xFF});
        sendto(m_fd, &question, sizeof question, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&everybody),
               sizeof everybody);
    }

    /// The MAC address of a host that says within the time that it has the address; empty for none.
    std::string Hear(const std::array<uint8_t, 4>& address, Clock::time_point end) const
    {
        for (auto now = Clock::now(); now < end; now = Clock::now())
        {
            pollfd file{m_fd, POLLIN, 0};
            poll(&file, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
            ArpPacket packet;
            const ArpPacket expected;
            const ssize_t size = recv(m_fd, &packet, sizeof packet, MSG_DONTWAIT);
            if (size == static_cast<ssize_t>(sizeof packet) && packet.head == expected.head &&
                packet.senderAddress == address)
            {
                return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", packet.senderMac[0],
                                   packet.senderMac[1], packet.senderMac[2], packet.senderMac[3], packet.senderMac[4],
                                   packet.senderMac[5]);
            }
        }
        return "";
    }

  private:
    int m_fd;
    sockaddr_ll m_place{};
    bool m_isOpen = false;
};

std::string MacInTable(const std::string& adapter, uint32_t address)
{
    std::ifstream table("/proc/net/arp");
    return FindNeighbour(table, adapter, address).mac;
}

/// To send anything the kernel asks by ARP who has the address, unless it has an answer already.
void HaveKernelAsk(const std::string& adapter, uint32_t address)
{
    const int file = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9); // where it is thrown away
    to.sin_addr.s_addr = htonl(address);
    if (setsockopt(file, SOL_SOCKET, SO_BINDTODEVICE, adapter.c_str(), static_cast<socklen_t>(adapter.size())) == 0)
    {
        sendto(file, "", 1, MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    close(file);
}

AddressHolder HolderByKernel(const std::string& adapter, uint32_t address)
{
    std::string mac = MacInTable(adapter, address);
    if (!mac.empty())
    {
        return {mac, false};
    }
    HaveKernelAsk(adapter, address);
    const auto end = Clock::now() + kListening;
    while (mac.empty() && Clock::now() < end)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        mac = MacInTable(adapter, address);
    }
    return {mac, true};
}

} // namespace

Neighbour FindNeighbour(std::istream& table, const std::string& adapter, uint32_t address)
{
    std::string line;
    while (std::getline(table, line))
    {
        std::istringstream words(line);
        std::string place;
        std::string type;
        std::string flags;
        std::string mac;
        std::string mask;
        std::string device;
        words >> place >> type >> flags >> mac >> mask >> device;
        const bool isFixed = flags == "0x6";
        if ((flags == "0x2" || isFixed) && place == DottedAddress(address) && device == adapter)
        {
            return {mac, isFixed};
        }
    }
    return {};
}

AddressHolder FindHolder(const std::string& adapter, uint32_t address)
{
    const ArpSocket socket(adapter);
    if (!socket.IsOpen())
    {
        return HolderByKernel(adapter, address);
    }
    std::array<uint8_t, 4> bytes{};
    const uint32_t big = htonl(address);
    std::memcpy(bytes.data(), &big, bytes.size());
    const auto end = Clock::now() + kListening;
    AddressHolder holder;
    while (holder.mac.empty() && Clock::now() < end)
    {
        socket.Ask(bytes);
        holder.mac = socket.Hear(bytes, std::min(end, Clock::now() + kAgain));
    }
    return holder;
}

} // namespace nq::tool
