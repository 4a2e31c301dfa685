// SPDX-License-Identifier: Apache-2.0
// The host's network adapters as the kernel lists them, and addresses between text and number.
#include "base/nq_rollback.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_common.h"
#include "gev/nq_gev_util.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

// Deliberate(TwentyFiveAddresses): one request of a fixed 1024 bytes, so 25 addresses; what does not fit is not seen,
// and no second request asks for it.
constexpr std::size_t kTableSize = 1024;
constexpr std::size_t kMaxEntries = kTableSize / sizeof(ifreq);
static_assert(kMaxEntries == 25);

/// A datagram socket on which to ask about adapters.
class AdapterQuery
{
  public:
    explicit AdapterQuery(const char* operation) : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        if (!IsOpen())
        {
            NQTrace(NQTraceLevel::Failure, "%s socket creation failed!", operation);
        }
    }

    bool IsOpen() const { return m_socket >= 0; }

    /// Fills the table with all adapter addresses; false, told on standard error, when the kernel refuses.
    bool List()
    {
        ifconf request{};
        request.ifc_len = kTableSize;
        request.ifc_req = m_table.data();
        if (ioctl(m_socket, SIOCGIFCONF, &request) < 0)
        {
            perror("ioctl(SIOCGIFCONF)");
            // Deliberate(UnreadableTableKeepsItsSocket): the socket stays open, as the console line is the only other
            // trace of a host in this state.
            m_closing.Dismiss();
            return false;
        }
        m_count = std::min(static_cast<std::size_t>(request.ifc_len) / sizeof(ifreq), kMaxEntries);
        return true;
    }

    const ifreq* begin() const { return m_table.data(); }
    const ifreq* end() const { return m_table.data() + m_count; }

    bool Ask(unsigned long what, ifreq& request) const { return ioctl(m_socket, what, &request) >= 0; }

  private:
    std::array<ifreq, kMaxEntries + 1> m_table{}; ///< With room for the odd bytes of the table.
    std::size_t m_count = 0;
    int m_socket;
    NQRollback m_closing{[this] {
        if (IsOpen())
        {
            close(m_socket);
        }
    }};
};

std::string AddressText(const sockaddr& address)
{
    sockaddr_in internet;
    std::memcpy(&internet, &address, sizeof internet);
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &internet.sin_addr, text, sizeof text);
    return text;
}

std::string NameOf(const ifreq& entry)
{
    return {entry.ifr_name, strnlen(entry.ifr_name, sizeof entry.ifr_name)};
}

/// A request about the adapter of that entry, with nothing else in it.
ifreq RequestAbout(const ifreq& entry)
{
    ifreq request{};
    std::memcpy(request.ifr_name, entry.ifr_name, sizeof request.ifr_name);
    return request;
}

std::optional<_NQ_GEV_INTERFACE_INFO> Describe(const AdapterQuery& query, const ifreq& entry)
{
    _NQ_GEV_INTERFACE_INFO info;
    info.ipAddress = AddressText(entry.ifr_addr);
    // Deliberate(OneLoopbackIsLeftOut): only this one text is left out, so further loopback addresses are interfaces,
    // on which a camera in software is tried without a network.
    if (info.ipAddress == "127.0.0.1")
    {
        return std::nullopt;
    }
    ifreq request = RequestAbout(entry);
    if (!query.Ask(SIOCGIFNETMASK, request))
    {
        return std::nullopt;
    }
    info.subnetMask = AddressText(request.ifr_netmask);
    if (!query.Ask(SIOCGIFHWADDR, request))
    {
        return std::nullopt;
    }
    std::array<unsigned char, 6> mac;
    std::memcpy(mac.data(), request.ifr_hwaddr.sa_data, mac.size());
    info.macAddress = NQGevUtil::MacAddressToString(mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    info.adapterName = NameOf(entry);
    info.id = "Linux Socket:" + info.macAddress;
    info.displayName = info.adapterName + ":" + info.ipAddress;
    info.tlType = "GEV";
    return info;
}

} // namespace

bool NQGevUtil::DiscoverInterfaces(int /*tlType*/, std::vector<_NQ_GEV_INTERFACE_INFO>& interfaces)
{
    AdapterQuery query("DiscoverInterfaces");
    if (!query.IsOpen())
    {
        return false;
    }
    if (!query.List())
    {
        // Deliberate(UnreadableTableIsEmpty): an unreadable table counts as a host without adapters here, but not in
        // GetAdapterInfo: a list may be empty, while a question about one adapter wants an answer.
        return true;
    }
    for (const ifreq& entry : query)
    {
        if (const std::optional<_NQ_GEV_INTERFACE_INFO> info = Describe(query, entry))
        {
            interfaces.push_back(*info);
        }
    }
    return true;
}

bool NQGevUtil::GetAdapterInfo(std::string adapterName, std::string& ipAddress, std::string& subnetMask,
                               std::string& /*gateway*/)
{
    AdapterQuery query("GetAdapterInfo");
    if (!query.IsOpen() || !query.List())
    {
        return false;
    }
    // Deliberate(LastEntryStands): no stop at a match. An adapter has an entry for each of its addresses and nothing
    // tells which one is meant, so the last one stands.
    for (const ifreq& entry : query)
    {
        if (NameOf(entry) != adapterName)
        {
            continue;
        }
        ipAddress = AddressText(entry.ifr_addr);
        ifreq request = RequestAbout(entry);
        if (query.Ask(SIOCGIFNETMASK, request))
        {
            subnetMask = AddressText(request.ifr_netmask);
        }
    }
    return true;
}

unsigned int NQGevUtil::IPAddressToUint32(std::string address)
{
    in_addr parsed{};
    if (inet_pton(AF_INET, address.c_str(), &parsed) != 1)
    {
        return 0;
    }
    return ntohl(parsed.s_addr);
}

std::string NQGevUtil::IPAddressToString(unsigned int address)
{
    // Deliberate(AddressTextIsNotSwapped): no byte swap, so this is not the inverse of IPAddressToUint32; it takes
    // network byte order.
    const in_addr internet{address};
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &internet, text, sizeof text);
    return text;
}

unsigned long NQGevUtil::MacAddressToUint64(std::string address)
{
    std::array<unsigned int, 6> pair{};
    if (sscanf(address.c_str(), "%x-%x-%x-%x-%x-%x", &pair[0], &pair[1], &pair[2], &pair[3], &pair[4], &pair[5]) != 6)
    {
        return 0;
    }
    unsigned long value = 0;
    unsigned int shift = 40;
    for (const unsigned int field : pair)
    {
        value |= static_cast<unsigned long>(field) << shift;
        shift -= 8;
    }
    return value;
}

std::string NQGevUtil::MacAddressToString(unsigned char first, unsigned char second, unsigned char third,
                                          unsigned char fourth, unsigned char fifth, unsigned char sixth)
{
    return NQGenTLUtil::Printf("%02x-%02x-%02x-%02x-%02x-%02x", first, second, third, fourth, fifth, sixth);
}
