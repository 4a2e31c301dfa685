// SPDX-License-Identifier: Apache-2.0
// Set-up and end of a camera's message channel, and the check of what arrives on it.
#include "gev/nq_gev_message_stream.h"

#include "gev/nq_gev_remote_device.h"
#include "gige/gvcp_wire.h"

#include <algorithm>
#include <array>
#include <netinet/in.h>
#include <vector>

namespace
{

constexpr int kMessageReceiveTimeout = 100; // milliseconds
constexpr int kRetiredReceiveTimeout = 1;   // milliseconds

using Message = std::array<unsigned char, gvcp_wire::kLargestMessage>;

unsigned int WordAt(const Message& message, std::size_t offset)
{
    return static_cast<unsigned int>(message[offset] << 8 | message[offset + 1]);
}

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
    std::array<char, gvcp_wire::kMessageOpener> opener = {};
    m_socket.SendTo(reinterpret_cast<sockaddr*>(&camera), opener.data(), opener.size());
    return true;
}

unsigned short NQGevMessageStream::BindPort()
{
    for (unsigned short port = gvcp_wire::kFirstMessagePort; port <= gvcp_wire::kLastMessagePort; ++port)
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
    Message message = {};
    unsigned int received = 0;
    const int timeout = m_retired ? kRetiredReceiveTimeout : kMessageReceiveTimeout;
    if (!m_socket.ReceiveFrom(nullptr, message.data(), gvcp_wire::kLargestMessage, received, timeout) ||
        received < gvcp_wire::kEventPacketSize || message[gvcp_wire::kKeyOffset] != gvcp_wire::kKey ||
        WordAt(message, gvcp_wire::kCodeOffset) != gvcp_wire::kEvent)
    {
        return;
    }
    TriggerRemoteDeviceEvent(WordAt(message, gvcp_wire::kEventIdOffset), gvcp_wire::kEventDataSize,
                             message.data() + gvcp_wire::kEventDataOffset);
}

void NQGevMessageStream::Retire()
{
    m_retired = true;
}
