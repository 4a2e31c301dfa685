// SPDX-License-Identifier: Apache-2.0
// The search for the largest packet that gets from the camera to this host.
#include "base/nq_rollback.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/gige_wait.h"
#include "gige/gvcp_wire.h"

#include <chrono>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace
{

constexpr unsigned int kLargestSize = 9000;  // bytes
constexpr unsigned int kStandardSize = 1500; // bytes
constexpr unsigned int kPacketHeaders = 28;  // bytes of IPv4 and UDP header
constexpr int kAttempts = 4;

/// A UDP socket on the first free port of the test range, and the block its packets go to.
class TestSocket
{
  public:
    explicit TestSocket(std::size_t blockSize)
        : m_block(new unsigned char[blockSize]), m_blockSize(blockSize),
          m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
    }

    /// The bound port, 0 when none was free.
    unsigned short Bind() const
    {
        for (unsigned short port = gvcp_wire::kFirstTestPort; port <= gvcp_wire::kLastTestPort; ++port)
        {
            sockaddr_in local = {};
            local.sin_family = AF_INET;
            local.sin_port = htons(port);
            if (bind(m_socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0)
            {
                return port;
            }
        }
        return 0;
    }

    /// Leaves the socket open for the rest of the process.
    void Abandon() { m_closing.Dismiss(); }

    void SendOpener(unsigned int ip, unsigned short port) const
    {
        const unsigned char opener[gvcp_wire::kTestOpener] = {};
        sockaddr_in camera = {};
        camera.sin_family = AF_INET;
        camera.sin_port = htons(port);
        camera.sin_addr.s_addr = htonl(ip);
        GigETL::uninterrupted([&] {
            return sendto(m_socket, opener, sizeof opener, 0, reinterpret_cast<const sockaddr*>(&camera),
                          sizeof camera);
        });
    }

    /// 1 when a packet waits, 0 when the time is over, -1 on a failure. One budget of 20 ms serves all waits.
    int Wait() { return GigETL::waitReadable(m_socket, &m_left); }

    /// Takes the waiting packet; its length in bytes, without headers.
    unsigned int Receive() const
    {
        return static_cast<unsigned int>(
            recvfrom(m_socket, m_block.get(), m_blockSize, MSG_DONTWAIT, nullptr, nullptr));
    }

  private:
    std::unique_ptr<unsigned char[]> m_block;
    std::size_t m_blockSize;
    int m_socket;
    timeval m_left = {0, 20000};
    NQRollback m_closing{[this] {
        if (m_socket != -1)
        {
            close(m_socket);
        }
    }};
};

} // namespace

unsigned int NQGevRemoteDevice::GetMaxSizeMTU(unsigned int, unsigned int bufferExtra)
{
    const unsigned int size = MeasurePacketSize(bufferExtra);
    unsigned int accepted = 0;
    _gvcpWritereg(gvcp_wire::kRegStreamPacketSize, size, false);
    _gvcpReadReg(gvcp_wire::kRegStreamPacketSize, &accepted, false);
    if (size >= accepted)
    {
        return accepted;
    }
    _gvcpWritereg(gvcp_wire::kRegStreamPacketSize, accepted - 512, false);
    _gvcpReadReg(gvcp_wire::kRegStreamPacketSize, &accepted, false);
    return accepted;
}

unsigned int NQGevRemoteDevice::MeasurePacketSize(unsigned int bufferExtra)
{
    TestSocket test(std::size_t{bufferExtra} + 36);
    const unsigned short port = test.Bind();
    if (port == 0)
    {
        // Deliberate(PortlessSocketStaysOpen): a socket for which there is no port is not closed. Whoever counts
        // descriptors sees the attempt.
        test.Abandon();
        return kLargestSize;
    }
    test.SendOpener(m_info.ipAddress, port);
    if (test.Wait() != 0)
    {
        test.Receive();
    }
    unsigned int tested = 0;
    _gvcpWritereg(gvcp_wire::kRegStreamPacketSize, kLargestSize, false);
    _gvcpWritereg(gvcp_wire::kRegStreamAddress, m_info.interfaceIp, false);
    _gvcpWritereg(gvcp_wire::kRegStreamPort, port, false);
    _gvcpReadReg(gvcp_wire::kRegStreamPacketSize, &tested, false);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    int ready = 0;
    for (int attempt = 0; attempt < kAttempts && ready == 0; ++attempt)
    {
        _gvcpWritereg(gvcp_wire::kRegStreamPacketSize,
                      tested + (gvcp_wire::kFireTestPacket | gvcp_wire::kDoNotFragment), false);
        // Deliberate(OneBudgetForAllTests): the budget is not renewed, so that a camera without test packets costs an
        // open 20 ms and not four times as much; the later waits are short or only look.
        ready = test.Wait();
    }
    unsigned int size = kStandardSize;
    if (ready < 0)
    {
        size = kLargestSize;
    }
    else if (ready > 0 && test.Receive() + kPacketHeaders == tested)
    {
        size = tested;
    }
    _gvcpWritereg(gvcp_wire::kRegStreamPort, 0, false);
    return size;
}
