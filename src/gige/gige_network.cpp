// SPDX-License-Identifier: Apache-2.0
// UDP sending and receiving of GVCP packets, with the pending acknowledge.
#include "gige/gige_network.h"

#include "gige/gige_wait.h"
#include "gige/gvcp_wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace GigETL
{
namespace
{

constexpr in_addr_t kBroadcastAddress = 0xFFFFFFFF;
constexpr timeval kAnswerTime{0, 400000};

// What one search for owed answers looks at, and what all searches set aside: nobody who floods the port may hold a
// search up, or fill the memory.
constexpr int kMostLookedAt = 256;
constexpr std::size_t kMostSetAside = 256;

sockaddr_in ipv4(unsigned int ip, unsigned int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(ip);
    return address;
}

const sockaddr* generic(const sockaddr_in& address)
{
    return reinterpret_cast<const sockaddr*>(&address);
}

sockaddr* generic(sockaddr_in& address)
{
    return reinterpret_cast<sockaddr*>(&address);
}

void allowBroadcast(int descriptor, int allowed)
{
    setsockopt(descriptor, SOL_SOCKET, SO_BROADCAST, &allowed, sizeof allowed);
}

int wordAt(const std::vector<unsigned char>& packet, std::size_t offset)
{
    return packet[offset] << 8 | packet[offset + 1];
}

/// The command or acknowledge code of a packet, and its request id; 0 when it has none.
unsigned int codeOf(const std::vector<unsigned char>& packet)
{
    return packet.size() < gvcp_wire::kHeaderSize ? 0U
                                                  : static_cast<unsigned int>(wordAt(packet, gvcp_wire::kCodeOffset));
}

unsigned int idOf(const std::vector<unsigned char>& packet)
{
    return packet.size() < gvcp_wire::kHeaderSize ? 0U
                                                  : static_cast<unsigned int>(wordAt(packet, gvcp_wire::kIdOffset));
}

/// The waiting time in milliseconds that a received packet asks for, or -1 when it is no pending acknowledge.
int pendingTime(const std::vector<unsigned char>& packet)
{
    if (packet.size() < gvcp_wire::kPendingAckSize || codeOf(packet) != gvcp_wire::kPendingAck)
    {
        return -1;
    }
    return wordAt(packet, gvcp_wire::kPendingTimeOffset);
}

} // namespace

std::atomic<int> Network::mInstanceCounter{0};

Network::Network(unsigned int remoteIP, unsigned int remotePort, unsigned int localIP, unsigned int localPort)
{
    init(remoteIP, remotePort, localIP, localPort);
}

Network::~Network()
{
    if (mSocket != -1)
    {
        close(mSocket);
        mSocket = -1;
    }
    mInstanceCounter.fetch_sub(1, std::memory_order_relaxed);
}

void Network::init(unsigned int remoteIP, unsigned int remotePort, unsigned int localIP, unsigned int localPort)
{
    if (mInstanceCounter.load(std::memory_order_relaxed) == 0)
    {
        initWinsocks();
    }
    if (mSocket != -1)
    {
        close(mSocket);
    }
    mSocket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    mOrigin = NQOrigin();
    mOwed.forget();
    mSetAside.clear();
    mValid = mSocket != -1;
    mLocal = ipv4(localIP, localPort);
    if (bind(mSocket, generic(mLocal), sizeof mLocal) == -1)
    {
        mValid = false;
    }
    mRemote = ipv4(remoteIP == 0 ? kBroadcastAddress : remoteIP, remotePort);
    mInstanceCounter.fetch_add(1, std::memory_order_relaxed);
}

bool Network::canExchange() const
{
    return mSocket != -1 && !mOrigin.IsInherited();
}

NQGigE_RETURN Network::sendCommand(const Command& command)
{
    if (!canExchange())
    {
        return NQGigE_NO_CONNECTION;
    }
    const auto size = static_cast<std::size_t>(std::clamp(command.getSize(), 0, command.getMaxSize()));
    const ssize_t sent = uninterrupted(
        [&] { return sendto(mSocket, command.mBuffer.data(), size, 0, generic(mRemote), sizeof mRemote); });
    // Deliberate(FailedSendIsATimeout): a failed send has the code of a timeout. Callers treat a camera that cannot be
    // reached as a silent one.
    if (sent < 0)
    {
        return NQGigE_TIMEOUT;
    }
    mLastSend = waitClock();
    mOwed.owe(idOf(command.mBuffer), codeOf(command.mBuffer));
    return NQGigE_SUCCESS;
}

/// Takes the datagram that is to be seen next: one that was set aside, or else one from the socket. The number of its
/// bytes; 0 or less when nothing was taken, and then the command stays as it was.
ssize_t Network::take(Command& command, sockaddr_in& sender)
{
    std::vector<unsigned char>& buffer = command.mBuffer;
    ssize_t received = 0;
    if (!mSetAside.empty())
    {
        const Datagram datagram = std::move(mSetAside.front());
        mSetAside.pop_front();
        const std::vector<unsigned char>& bytes = datagram.packet.mBuffer;
        sender = datagram.sender;
        received = std::min(static_cast<ssize_t>(datagram.packet.mSize), static_cast<ssize_t>(buffer.size()));
        std::copy_n(bytes.begin(), received, buffer.begin());
    }
    else
    {
        socklen_t length = sizeof sender;
        received = recvfrom(mSocket, buffer.data(), buffer.size(), 0, generic(sender), &length);
    }
    if (received > 0)
    {
        std::fill(buffer.begin() + received, buffer.end(), static_cast<unsigned char>(0));
        command.setReceivedSize(static_cast<int>(received));
    }
    return received;
}

NQGigE_RETURN Network::receiveCommand(Command& command, timeval* timeout, unsigned long* senderIP,
                                      unsigned int* senderPort)
{
    if (!canExchange())
    {
        return NQGigE_NO_CONNECTION;
    }
    while (true)
    {
        const int ready = mSetAside.empty() ? waitReadable(mSocket, timeout) : 1;
        if (ready == -1)
        {
            return NQGigE_SOCKET_ERROR;
        }
        if (ready == 0)
        {
            return NQGigE_TIMEOUT;
        }
        sockaddr_in sender{};
        const ssize_t received = take(command, sender);
        if (received == -1 && errno == EINTR)
        {
            continue;
        }
        if (received <= 0)
        {
            // Deliberate(NothingTakenIsASuccess): nothing taken is a success and leaves the packet alone; the check of
            // the acknowledge decides, as it does for every other datagram that is no answer.
            return NQGigE_SUCCESS;
        }
        const std::vector<unsigned char>& buffer = command.mBuffer;
        mOwed.pay(idOf(buffer), codeOf(buffer));
        const int pending = pendingTime(buffer);
        if (pending == -1)
        {
            if (senderIP != nullptr)
            {
                *senderIP = ntohl(sender.sin_addr.s_addr);
            }
            if (senderPort != nullptr)
            {
                *senderPort = ntohs(sender.sin_port);
            }
            return NQGigE_SUCCESS;
        }
        // Deliberate(PendingHasNoLimit): there is no limit, so a busy camera may extend the wait as often as it has to.
        if (timeout != nullptr)
        {
            *timeout = timevalFromMs(pending);
        }
    }
}

void Network::dropOwedAnswers()
{
    if (!canExchange() || !mOwed.any())
    {
        return;
    }
    timeval wait = timeLeft(kAnswerTime, mLastSend);
    std::deque<Datagram> others = std::move(mSetAside);
    mSetAside.clear();
    for (int looked = 0;
         looked < kMostLookedAt && others.size() < kMostSetAside && mOwed.any() && waitReadable(mSocket, &wait) == 1;
         ++looked)
    {
        Datagram datagram;
        if (take(datagram.packet, datagram.sender) == -1 && errno == EINTR)
        {
            continue;
        }
        if (!dropIfOwed(datagram.packet, wait))
        {
            others.push_back(std::move(datagram));
        }
    }
    mSetAside = std::move(others);
    mOwed.forget();
}

/// Whether the datagram belongs to a command whose answer is owed. A pending acknowledge does not pay, but says how
/// long the answer takes.
bool Network::dropIfOwed(const Command& ack, timeval& wait)
{
    const unsigned int id = idOf(ack.mBuffer);
    if (!mOwed.owes(id))
    {
        return false;
    }
    const int pending = pendingTime(ack.mBuffer);
    if (pending != -1)
    {
        wait = timevalFromMs(pending);
    }
    mOwed.pay(id, codeOf(ack.mBuffer));
    return true;
}

NQGigE_RETURN Network::broadcastCommand(const Command& command)
{
    if (!canExchange())
    {
        return NQGigE_NO_CONNECTION;
    }
    allowBroadcast(mSocket, 1);
    const sockaddr_in remote = mRemote;
    mRemote.sin_addr.s_addr = kBroadcastAddress;
    const NQGigE_RETURN result = sendCommand(command);
    allowBroadcast(mSocket, 0);
    mRemote = remote;
    return result;
}

bool Network::isBroadcasting() const
{
    return mRemote.sin_addr.s_addr == kBroadcastAddress;
}

bool Network::askLocalAddress()
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(mSocket, generic(address), &length) == -1)
    {
        return false;
    }
    mLocal = address;
    return true;
}

unsigned int Network::getLocalIP()
{
    if (mLocal.sin_addr.s_addr == 0 && !askLocalAddress())
    {
        return 0;
    }
    return ntohl(mLocal.sin_addr.s_addr);
}

unsigned int Network::getLocalPort()
{
    if (!mValid)
    {
        return 0;
    }
    if (mLocal.sin_port == 0 && !askLocalAddress())
    {
        return 0;
    }
    return ntohs(mLocal.sin_port);
}

unsigned int Network::getRemoteIP() const
{
    return ntohl(mRemote.sin_addr.s_addr);
}

unsigned int Network::getRemotePort() const
{
    return ntohs(mRemote.sin_port);
}

int Network::gvcp_send(void* data, int size, void* network)
{
    const auto* self = static_cast<const Network*>(network);
    if (self->canExchange())
    {
        uninterrupted([&] {
            return sendto(self->mSocket, data, static_cast<std::size_t>(std::max(size, 0)), 0, generic(self->mRemote),
                          sizeof self->mRemote);
        });
    }
    return 0;
}

unsigned int Network::getNetAdapterIP(int index)
{
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1)
    {
        return 0;
    }
    ifreq request{};
    if_indextoname(static_cast<unsigned int>(index), request.ifr_name);
    request.ifr_addr.sa_family = AF_INET;
    const int result = ioctl(descriptor, SIOCGIFADDR, &request);
    close(descriptor);
    if (result == -1 || request.ifr_addr.sa_family != AF_INET)
    {
        return 0;
    }
    sockaddr_in address{};
    std::memcpy(&address, &request.ifr_addr, sizeof address);
    return ntohl(address.sin_addr.s_addr);
}

void Network::initWinsocks() {}

void Network::printIP(unsigned int) {}

void Network::printMAC(unsigned int, unsigned int) {}

} // namespace GigETL
