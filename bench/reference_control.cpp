// SPDX-License-Identifier: Apache-2.0
// GVCP by hand: READREG, WRITEREG and READMEM of GigE Vision, each as one datagram and its answer.
#include "reference_control.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <endian.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace nq::bench
{

namespace
{

constexpr std::uint16_t kGvcpPort = 3956;
constexpr std::size_t kHeader = 8;

constexpr std::uint16_t kReadRegister = 0x0080;
constexpr std::uint16_t kWriteRegister = 0x0082;
constexpr std::uint16_t kReadMemory = 0x0084;

constexpr std::uint32_t kHeartbeatTimeout = 0x0938;
constexpr std::uint32_t kPrivilege = 0x0A00;
constexpr std::uint32_t kControl = 2;
constexpr std::uint32_t kTenMinutes = 600000;

constexpr std::uint32_t kStreamEnable = 0xE030;
constexpr std::uint32_t kStreamOn = 0x80000000;
constexpr std::uint32_t kSettings = 0xE600;
constexpr std::size_t kPayloadSizeAt = 32;

template <typename Packet>
void Put16(Packet& packet, std::size_t at, std::uint16_t value)
{
    value = htons(value);
    std::memcpy(packet.data() + at, &value, sizeof value);
}

template <typename Packet>
void Put32(Packet& packet, std::size_t at, std::uint32_t value)
{
    value = htonl(value);
    std::memcpy(packet.data() + at, &value, sizeof value);
}

template <typename Packet>
std::uint16_t Get16(const Packet& packet, std::size_t at)
{
    std::uint16_t value = 0;
    std::memcpy(&value, packet.data() + at, sizeof value);
    return ntohs(value);
}

std::system_error SocketFailed(const char* call)
{
    return {errno, std::generic_category(), call};
}

void Require(std::uint16_t status, const char* command)
{
    if (status != 0)
    {
        throw std::runtime_error(std::string("the camera refuses ") + command + " with status " +
                                 std::to_string(status));
    }
}

} // namespace

ReferenceControl::ReferenceControl(const std::string& camera) : m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in place{};
    place.sin_family = AF_INET;
    place.sin_port = htons(kGvcpPort);
    inet_pton(AF_INET, camera.c_str(), &place.sin_addr);
    const timeval second{1, 0};
    if (m_socket < 0 || setsockopt(m_socket, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second) != 0 ||
        connect(m_socket, reinterpret_cast<const sockaddr*>(&place), sizeof place) != 0)
    {
        throw SocketFailed("UDP socket");
    }
}

ReferenceControl::~ReferenceControl()
{
    if (m_heartbeat != 0)
    {
        try
        {
            TryWrite(kHeartbeatTimeout, m_heartbeat);
            TryWrite(kPrivilege, 0);
        }
        catch (const std::exception&)
        {
            // A camera that does not hear it any more gives the control up by itself.
        }
    }
    close(m_socket);
}

void ReferenceControl::TakeControl()
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (TryWrite(kPrivilege, kControl) != 0)
    {
        if (std::chrono::steady_clock::now() > end)
        {
            throw std::runtime_error("somebody else has control of the camera");
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    m_heartbeat = ReadRegister(kHeartbeatTimeout);
    WriteRegister(kHeartbeatTimeout, kTenMinutes);
}

std::uint32_t ReferenceControl::ReadRegister(std::uint32_t address)
{
    Put32(m_command, kHeader, address);
    Require(Exchange(kReadRegister, kHeader + 4), "READREG");
    std::uint32_t value = 0;
    std::memcpy(&value, m_answer.data() + kHeader, sizeof value);
    return ntohl(value);
}

std::uint16_t ReferenceControl::TryWrite(std::uint32_t address, std::uint32_t value)
{
    Put32(m_command, kHeader, address);
    Put32(m_command, kHeader + 4, value);
    return Exchange(kWriteRegister, kHeader + 8);
}

void ReferenceControl::WriteRegister(std::uint32_t address, std::uint32_t value)
{
    Require(TryWrite(address, value), "WRITEREG");
}

void ReferenceControl::ReadMemory(std::uint32_t address, void* out, std::uint16_t size)
{
    Put32(m_command, kHeader, address);
    Put32(m_command, kHeader + 4, size); // two reserved bytes, then the count
    Require(Exchange(kReadMemory, kHeader + 8), "READMEM");
    std::memcpy(out, m_answer.data() + kHeader + 4, size);
}

std::uint16_t ReferenceControl::Exchange(std::uint16_t code, std::size_t size)
{
    m_id = static_cast<std::uint16_t>(m_id == 0xFFFF ? 1 : m_id + 1);
    m_command[0] = 0x42;
    m_command[1] = 0x01; // an acknowledge is wanted
    Put16(m_command, 2, code);
    Put16(m_command, 4, static_cast<std::uint16_t>(size - kHeader));
    Put16(m_command, 6, m_id);
    if (send(m_socket, m_command.data(), size, 0) < 0)
    {
        throw SocketFailed("send");
    }
    do
    {
        if (recv(m_socket, m_answer.data(), m_answer.size(), 0) < 0)
        {
            throw std::runtime_error("the camera is silent");
        }
    } while (Get16(m_answer, 6) != m_id);
    return Get16(m_answer, 0);
}

std::uint64_t ReferenceControl::PayloadSize()
{
    std::array<std::uint8_t, 176> settings{};
    ReadMemory(kSettings, settings.data(), settings.size());
    std::uint64_t size = 0;
    std::memcpy(&size, settings.data() + kPayloadSizeAt, sizeof size);
    return le64toh(size);
}

void ReferenceControl::EnableStream(bool on)
{
    WriteRegister(kStreamEnable, on ? kStreamOn : 0);
}

} // namespace nq::bench
