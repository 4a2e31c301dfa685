// SPDX-License-Identifier: Apache-2.0
// Discovery: finding the cameras behind an interface, and asking one who controls it.
#include "base/nq_answers.h"
#include "base/nq_trace.h"
#include "gentl/nq_gentl_util.h"
#include "gev/nq_gev_interface.h"
#include "gev/nq_gev_query.h"
#include "gev/nq_gev_util.h"
#include "gige/gvcp_wire.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>
#include <string_view>

using namespace GigERDMA;

namespace
{

constexpr unsigned short kRequestId = 1;
constexpr unsigned int kPrivilegeAckSize = gvcp_wire::kReadValueOffset + 4;

constexpr int kReceiveWait = 100; // milliseconds

// With the standard's answers a scan that would take longer than the first takes the second; milliseconds.
constexpr unsigned long kLongestScan = 60000;
constexpr unsigned long kBoundedScan = 1000;

// Plain text comparison, so 3.0 and 10.0.0 are older.
constexpr std::string_view kOldestVersion = "3.0.0";

// More cameras than a network carries. What answers beyond it within one scan is noise that must not eat the memory.
constexpr std::size_t kMaxCameras = 4096;

enum AccessStatus : unsigned int
{
    StatusUnknown = 0,
    StatusReadWrite = 1,
    StatusReadOnly = 2,
    StatusNoAccess = 3,
    StatusBusy = 4
};

/// One datagram. What was not received reads as zero.
class Packet
{
  public:
    unsigned char* Bytes() { return m_bytes.data(); }
    char* Chars() { return reinterpret_cast<char*>(m_bytes.data()); }

    const unsigned char* At(std::size_t offset) const { return m_bytes.data() + offset; }
    unsigned short AckCode() const { return static_cast<unsigned short>(Word(gvcp_wire::kCodeOffset)); }

    unsigned int Word(std::size_t offset) const
    {
        return static_cast<unsigned int>(m_bytes[offset]) << 8 | m_bytes[offset + 1];
    }

    unsigned int DWord(std::size_t offset) const { return Word(offset) << 16 | Word(offset + 2); }

    /// The text from `offset` to the first zero byte, or to the end of the packet.
    std::string Text(std::size_t offset) const
    {
        const char* const text = reinterpret_cast<const char*>(At(offset));
        return {text, strnlen(text, m_bytes.size() - offset)};
    }

  private:
    std::array<unsigned char, gvcp_wire::kLargestPacket> m_bytes{};
};

/// The camera that a discovery acknowledge describes; what belongs to the interface is left out.
_NQ_GEV_DEVICE_INFO Describe(const Packet& ack)
{
    _NQ_GEV_DEVICE_INFO info;
    const unsigned char* const mac = ack.At(gvcp_wire::kDiscoveryMac);
    // Deliberate(TextsRunOn): the texts run to their zero byte, so one that fills its field continues with the next
    // field. The id holds the model's name: cut differently, a stored id would no longer find its camera.
    info.vendorName = ack.Text(gvcp_wire::kDiscoveryManufacturer);
    info.modelName = ack.Text(gvcp_wire::kDiscoveryModel);
    info.displayName = info.modelName;
    info.tlType = "GEV";
    info.id = info.modelName + ":" +
              NQGenTLUtil::Printf("%02x-%02x-%02x-%02x-%02x-%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    info.userDefinedName = ack.Text(gvcp_wire::kDiscoveryUserDefinedName);
    info.serialNumber = ack.Text(gvcp_wire::kDiscoverySerialNumber);
    info.deviceVersion = ack.Text(gvcp_wire::kDiscoveryDeviceVersion);
    info.specVersion = ack.DWord(gvcp_wire::kDiscoverySpecVersion);
    info.deviceMode = ack.DWord(gvcp_wire::kDiscoveryDeviceMode);
    info.macHigh = ack.Word(gvcp_wire::kDiscoveryMac);
    info.macLow = ack.DWord(gvcp_wire::kDiscoveryMacLow);
    info.ipConfigOptions = ack.DWord(gvcp_wire::kDiscoveryIpOptions);
    info.ipConfigCurrent = ack.DWord(gvcp_wire::kDiscoveryIpCurrent);
    info.ipAddress = ack.DWord(gvcp_wire::kDiscoveryIpAddress);
    info.subnetMask = ack.DWord(gvcp_wire::kDiscoverySubnetMask);
    info.gateway = ack.DWord(gvcp_wire::kDiscoveryGateway);
    info.controlAddress.sin_family = AF_INET;
    info.controlAddress.sin_port = htons(gvcp_wire::kControlPort);
    std::memcpy(&info.controlAddress.sin_addr, ack.At(gvcp_wire::kDiscoveryIpAddress),
                sizeof info.controlAddress.sin_addr);
    return info;
}

/// Who holds a camera, as its control privilege register says.
AccessStatus StatusOf(unsigned int privilege)
{
    switch (privilege)
    {
    case gvcp_wire::kNoControl:
        return StatusReadWrite;
    case gvcp_wire::kExclusiveAccess:
        return StatusNoAccess;
    case gvcp_wire::kControlAccess:
        return StatusReadOnly;
    default:
        return StatusUnknown;
    }
}

std::vector<unsigned char> ReadPrivilegeCommand(unsigned short requestId)
{
    auto address =
        std::bit_cast<std::array<unsigned char, gvcp_wire::kAddressSize>>(htonl(gvcp_wire::kRegControlPrivilege));
    return NQGevUtil::CreateGVCPCommand(gvcp_wire::kReadRegister, address.data(), address.size(),
                                        gvcp_wire::kAckRequired, requestId);
}

// Deliberate(EachSideHasItsMask): each side is masked with its own mask, so equal networks of different length can
// differ: to one of the two the other is then behind a router, and no answer comes back.
bool OnOneNetwork(unsigned int ip, unsigned int mask, unsigned int otherIp, unsigned int otherMask)
{
    return (ip & mask) == (otherIp & otherMask);
}

bool HoldsId(const std::vector<_NQ_GEV_DEVICE_INFO>& infos, const std::string& id)
{
    return std::ranges::any_of(infos, NQGevHasId(id));
}

/// The answers of one scan: of each camera the first and the latest further one, as the merge needs no more.
struct ScanAnswers
{
    std::vector<_NQ_GEV_DEVICE_INFO> first;
    std::vector<_NQ_GEV_DEVICE_INFO> further;

    void Add(_NQ_GEV_DEVICE_INFO&& info)
    {
        if (const auto known = std::ranges::find_if(further, NQGevHasId(info.id)); known != further.end())
        {
            *known = std::move(info);
        }
        else if (HoldsId(first, info.id))
        {
            further.push_back(std::move(info));
        }
        else if (first.size() < kMaxCameras)
        {
            first.push_back(std::move(info));
        }
    }
};

} // namespace

int NQGevInterface::UpdateDeviceList(bool* changed, unsigned long timeout)
{
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    _discoverDevices(found, Answers().boundedScans && timeout > kLongestScan ? kBoundedScan : timeout);
    // Deliberate(FailedScanEmptiesTheList): a scan that could not be made found nothing, so it empties the list.
    _updateDeviceList(found, changed);
    return GenTL::GC_ERR_SUCCESS;
}

bool NQGevInterface::_isExcluded() const
{
    return m_info.ipAddress == "0.0.0.0" || m_info.ipAddress == "127.0.0.1";
}

bool NQGevInterface::_discoverDevices(std::vector<_NQ_GEV_DEVICE_INFO>& found, unsigned long timeout, const char* until)
{
    if (_isExcluded())
    {
        return false;
    }
    if (Answers().openEndsWithAnswer)
    {
        _dropOldAnswers();
    }
    std::vector<unsigned char> command = NQGevUtil::CreateGVCPCommand(
        gvcp_wire::kDiscovery, nullptr, 0, gvcp_wire::kAckRequired | gvcp_wire::kBroadcastAckAllowed, kRequestId);
    sockaddr_in everyone{};
    everyone.sin_family = AF_INET;
    everyone.sin_port = htons(gvcp_wire::kControlPort);
    everyone.sin_addr.s_addr = htonl(INADDR_BROADCAST);
    if (!m_socket.SendTo(reinterpret_cast<sockaddr*>(&everyone), reinterpret_cast<char*>(command.data()),
                         static_cast<unsigned short>(command.size())))
    {
        return false;
    }
    ScanAnswers answers;
    const unsigned long start = NQGenTLUtil::QueryCounterMS();
    while (NQGenTLUtil::QueryCounterMS() - start < timeout)
    {
        Packet ack;
        unsigned int received = 0;
        if (!m_broadcasts.Receive(m_socket, ack.Chars(), gvcp_wire::kLargestPacket, received, kReceiveWait) ||
            received < gvcp_wire::kDiscoveryAckSize || ack.AckCode() != gvcp_wire::kDiscoveryAck)
        {
            continue;
        }
        _NQ_GEV_DEVICE_INFO info = Describe(ack);
        info.interfaceIp = NQGevUtil::IPAddressToUint32(m_info.ipAddress);
        info.interfaceMask = NQGevUtil::IPAddressToUint32(m_info.subnetMask);
        if (info.deviceVersion >= kOldestVersion)
        {
            const bool last = until != nullptr && info.id == until;
            answers.Add(std::move(info));
            if (last)
            {
                break;
            }
        }
    }
    std::ranges::move(answers.first, std::back_inserter(found));
    std::ranges::move(answers.further, std::back_inserter(found));
    return true;
}

/// A scan that ended with the camera it was for has left the answers of others: cameras that may be gone by now.
void NQGevInterface::_dropOldAnswers()
{
    Packet old;
    unsigned int received = 0;
    for (std::size_t i = 0; i < kMaxCameras; ++i)
    {
        if (!m_broadcasts.Receive(m_socket, old.Chars(), gvcp_wire::kLargestPacket, received, 0))
        {
            return;
        }
    }
}

void NQGevInterface::_updateDeviceList(const std::vector<_NQ_GEV_DEVICE_INFO>& found, bool* changed)
{
    bool differs = false;
    {
        const NQGenTLLock lock(m_moduleLock);
        differs = std::erase_if(m_deviceList, [&found](const _NQ_GEV_DEVICE_INFO& listed) {
                      return !HoldsId(found, listed.id);
                  }) != 0;
        for (const _NQ_GEV_DEVICE_INFO& listed : m_deviceList)
        {
            const auto latest = std::find_if(found.rbegin(), found.rend(), NQGevHasId(listed.id));
            _updateDeviceInfoById(listed.id, *latest);
        }
        for (const _NQ_GEV_DEVICE_INFO& info : found)
        {
            if (!HoldsId(m_deviceList, info.id))
            {
                m_deviceList.push_back(info);
                differs = true;
            }
        }
        if (Answers().nodeMaps && m_deviceSelector >= m_deviceList.size())
        {
            m_deviceSelector = 0;
        }
    }
    if (changed != nullptr)
    {
        *changed = differs;
    }
}

unsigned int NQGevInterface::_getDeviceAccessStatus(const sockaddr_in* controlAddress, unsigned int interfaceIp,
                                                    unsigned int interfaceMask, unsigned int ipAddress,
                                                    unsigned int subnetMask)
{
    if (!OnOneNetwork(interfaceIp, interfaceMask, ipAddress, subnetMask))
    {
        return StatusNoAccess;
    }
    if (Answers().probeOneCamera)
    {
        return _probeAlone(*controlAddress);
    }
    std::vector<unsigned char> command = ReadPrivilegeCommand(kRequestId);
    sockaddr_in camera = *controlAddress;
    if (!m_socket.SendTo(reinterpret_cast<sockaddr*>(&camera), reinterpret_cast<char*>(command.data()),
                         static_cast<unsigned short>(command.size())))
    {
        return StatusUnknown;
    }
    Packet ack;
    unsigned int received = 0;
    if (!m_socket.ReceiveFrom(reinterpret_cast<sockaddr*>(&camera), ack.Bytes(), gvcp_wire::kLargestPacket, received,
                              kReceiveWait))
    {
        return StatusUnknown;
    }
    if (ack.AckCode() != gvcp_wire::kReadRegisterAck)
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! WRONG ACK", "_getDeviceAccessStatus");
        return StatusUnknown;
    }
    return StatusOf(ack.DWord(gvcp_wire::kReadValueOffset));
}

/// Asks by a socket of its own, so that no scan takes the answer and no other camera's is taken for it.
unsigned int NQGevInterface::_probeAlone(const sockaddr_in& camera)
{
    NQGevSocket socket;
    sockaddr_in address = camera;
    const unsigned short id = ++m_probeId != 0 ? m_probeId.load() : ++m_probeId;
    std::vector<unsigned char> command = ReadPrivilegeCommand(id);
    if (!socket.Create(AF_INET, SOCK_DGRAM, IPPROTO_UDP) ||
        !socket.Bind(NQGevUtil::IPAddressToUint32(m_info.ipAddress), 0) ||
        !socket.SendTo(reinterpret_cast<sockaddr*>(&address), reinterpret_cast<char*>(command.data()),
                       static_cast<unsigned short>(command.size())))
    {
        return StatusUnknown;
    }
    const unsigned long start = NQGenTLUtil::QueryCounterMS();
    for (unsigned long past = 0; past < kReceiveWait; past = NQGenTLUtil::QueryCounterMS() - start)
    {
        Packet ack;
        unsigned int received = 0;
        sockaddr_in from{};
        if (socket.ReceiveFrom(reinterpret_cast<sockaddr*>(&from), ack.Bytes(), gvcp_wire::kLargestPacket, received,
                               kReceiveWait - static_cast<int>(past)) &&
            received >= kPrivilegeAckSize && from.sin_addr.s_addr == camera.sin_addr.s_addr &&
            from.sin_port == camera.sin_port && ack.AckCode() == gvcp_wire::kReadRegisterAck &&
            ack.Word(gvcp_wire::kIdOffset) == id)
        {
            return ack.Word(gvcp_wire::kStatusOffset) == 0 ? StatusOf(ack.DWord(gvcp_wire::kReadValueOffset))
                                                           : StatusUnknown;
        }
    }
    return StatusUnknown;
}

unsigned int NQGevInterface::_getListedAccessStatus(const _NQ_GEV_DEVICE_INFO& info)
{
    const unsigned int status = _getDeviceAccessStatus(&info.controlAddress, info.interfaceIp, info.interfaceMask,
                                                       info.ipAddress, info.subnetMask);
    const bool held = status == StatusReadOnly ||
                      (status == StatusNoAccess &&
                       OnOneNetwork(info.interfaceIp, info.interfaceMask, info.ipAddress, info.subnetMask));
    return Answers().statusOfEach && held ? static_cast<unsigned int>(StatusBusy) : status;
}
