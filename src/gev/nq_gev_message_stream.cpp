// SPDX-License-Identifier: Apache-2.0
// Set-up and end of a camera's message channel, and the check of what arrives on it.
#include "gev/nq_gev_message_stream.h"

#include "gev/nq_gev_remote_device.h"

#include <algorithm>
#include <array>
#include <netinet/in.h>
#include <vector>

namespace
{

constexpr unsigned short firstPort = 3456;
constexpr unsigned short lastPort = 3520;
constexpr int receiveTimeout = 100;      // milliseconds
constexpr int retiredReceiveTimeout = 1; // milliseconds
constexpr unsigned short messageSize = 612;

// Event packet (GigE Vision, GVCP): key, flags, command code at 2, event data from 8 on with the event id at 10.
constexpr std::size_t eventPacketSize = 24;
constexpr unsigned char gvcpKey = 0x42;
constexpr unsigned char eventCodeHigh = 0x00;
constexpr unsigned char eventCodeLow = 0xC0;
constexpr std::size_t eventDataOffset = 8;
constexpr unsigned short eventDataSize = 16;
constexpr std::size_t eventIdOffset = 10;

} // namespace

NQGevMessageStream::NQGevMessageStream(int channelId, GigERDMA::NQGenTLDevice* device, NQGevRemoteDevice* remote)
    : NQGenTLMessageStream(channelId, device), m_remote(remote)
{
}

NQGevMessageStream::~NQGevMessageStream()
{
    Stop();
}

bool NQGevMessageStream::OnInit()
{
    if (!m_socket.Create(AF_INET, SOCK_DGRAM, 0))
    {
        return false;
    }
    const unsigned short port = BindPort();
    if (port == 0)
    {
        return false;
    }
    const _NQ_GEV_DEVICE_INFO info = m_remote->GetDeviceInfo();
    if (!m_remote->SetMessageAddress(static_cast<int>(info.interfaceIp)) || !m_remote->SetMessagePort(port))
    {
        return false;
    }
    // The packet opens the way for the camera's events through a firewall between the two.
    sockaddr_in camera = {};
    camera.sin_family = AF_INET;
    camera.sin_port = htons(static_cast<unsigned short>(m_remote->GetSourcePort()));
    camera.sin_addr.s_addr = htonl(info.ipAddress);
    std::array<char, 12> opener = {};
    m_socket.SendTo(reinterpret_cast<sockaddr*>(&camera), opener.data(), opener.size());
    return true;
}

unsigned short NQGevMessageStream::BindPort()
{
    for (unsigned short port = firstPort; port <= lastPort; ++port)
    {
        if (m_socket.Bind(INADDR_ANY, port))
        {
            return port;
        }
    }
    return 0;
}

void NQGevMessageStream::OnDestroy()
{
    m_socket.Destroy();
    if (!m_retired)
    {
        m_remote->SetMessagePort(0);
    }
}

void NQGevMessageStream::OnGetMessage()
{
    std::array<unsigned char, messageSize> message = {};
    unsigned int received = 0;
    const int timeout = m_retired ? retiredReceiveTimeout : receiveTimeout;
    if (!m_socket.ReceiveFrom(nullptr, message.data(), messageSize, received, timeout) || received < eventPacketSize ||
        message[0] != gvcpKey || message[2] != eventCodeHigh || message[3] != eventCodeLow)
    {
        return;
    }
    const auto id = static_cast<unsigned int>(message[eventIdOffset] << 8 | message[eventIdOffset + 1]);
    TriggerRemoteDeviceEvent(id, eventDataSize, message.data() + eventDataOffset);
}

void NQGevMessageStream::Retire()
{
    m_retired = true;
}
