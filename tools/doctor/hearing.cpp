// SPDX-License-Identifier: Apache-2.0
// Which cameras answer a discovery that is broadcast from every adapter, beside every producer.
#include "doctor/hearing.h"

#include <algorithm>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

constexpr uint16_t kControlPort = 3956;
constexpr size_t kHeaderSize = 8;
constexpr size_t kAnswerSize = kHeaderSize + 0xF8;

sockaddr_in Endpoint(uint32_t address, uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = htonl(address);
    endpoint.sin_port = htons(port);
    return endpoint;
}

/// A bound UDP socket, or none.
class Ear
{
  public:
    /// Bound to the adapter alone where `byAdapter`.
    Ear(const Adapter& adapter, uint32_t address, uint16_t port, bool byAdapter)
        : m_adapter(&adapter), m_socket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))
    {
        const sockaddr_in local = Endpoint(address, port);
        constexpr int kOn = 1;
        setsockopt(m_socket, SOL_SOCKET, SO_BROADCAST, &kOn, sizeof kOn);
        const auto length = static_cast<socklen_t>(adapter.name.size());
        if ((byAdapter && setsockopt(m_socket, SOL_SOCKET, SO_BINDTODEVICE, adapter.name.c_str(), length) != 0) ||
            bind(m_socket, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0)
        {
            Close();
        }
    }
    Ear(Ear&& other) noexcept : m_adapter(other.m_adapter), m_socket(other.m_socket) { other.m_socket = -1; }
    Ear(const Ear&) = delete;
    Ear& operator=(const Ear&) = delete;
    Ear& operator=(Ear&&) = delete;
    ~Ear() { Close(); }

    int Socket() const { return m_socket; }
    const Adapter& At() const { return *m_adapter; }

    uint16_t Port() const
    {
        sockaddr_in local{};
        socklen_t size = sizeof local;
        getsockname(m_socket, reinterpret_cast<sockaddr*>(&local), &size);
        return ntohs(local.sin_port);
    }

    /// Does nothing at the second one of an address.
    void Ask() const
    {
        // DISCOVERY with an acknowledge, which may be a broadcast.
        constexpr uint8_t kCommand[kHeaderSize] = {0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0x4E, 0x51};
        const sockaddr_in all = Endpoint(INADDR_BROADCAST, kControlPort);
        static_cast<void>(sendto(m_socket, kCommand, sizeof kCommand, MSG_NOSIGNAL,
                                 reinterpret_cast<const sockaddr*>(&all), sizeof all));
    }

  private:
    void Close()
    {
        if (m_socket >= 0)
        {
            close(m_socket);
            m_socket = -1;
        }
    }

    const Adapter* m_adapter;
    int m_socket;
};

/// Linux hands a broadcast to no socket that is bound to an address of the host, so each address has two.
std::vector<Ear> EarsAt(const std::vector<Adapter>& adapters)
{
    std::vector<Ear> ears;
    for (const Adapter& adapter : adapters)
    {
        if (adapter.up && adapter.addresses.empty())
        {
            ears.emplace_back(adapter, INADDR_ANY, 0, true);
        }
        for (const Subnet& subnet : adapter.addresses)
        {
            if (adapter.up)
            {
                ears.emplace_back(adapter, subnet.address, 0, false);
                ears.emplace_back(adapter, INADDR_BROADCAST, ears.back().Port(), true);
            }
        }
    }
    return ears;
}

/// The answer of one camera, read field by field.
class Answer
{
  public:
    explicit Answer(std::string_view bytes) : m_body(bytes.substr(std::min(kHeaderSize, bytes.size()))) {}

    uint32_t Number(size_t at) const
    {
        uint32_t value = 0;
        for (size_t byte = at; byte < at + 4; ++byte)
        {
            value = value << 8 | static_cast<uint8_t>(m_body[byte]);
        }
        return value;
    }

    std::string Text(size_t at, size_t size) const
    {
        const std::string_view field = m_body.substr(at, size);
        return std::string(field.substr(0, field.find('\0')));
    }

  private:
    std::string_view m_body;
};

void Take(const Ear& ear, std::vector<HeardCamera>& heard)
{
    char bytes[1024];
    const ssize_t size = recv(ear.Socket(), bytes, sizeof bytes, 0);
    const bool answers =
        size >= static_cast<ssize_t>(kAnswerSize) && std::string_view(bytes, 4) == std::string_view("\0\0\0\x03", 4);
    if (!answers)
    {
        return;
    }
    const Answer answer(std::string_view(bytes, static_cast<size_t>(size)));
    HeardCamera camera;
    camera.adapter = ear.At().name;
    camera.macAddress = uint64_t{answer.Number(0x08) & 0xFFFF} << 32 | answer.Number(0x0C);
    camera.subnet = {answer.Number(0x24), answer.Number(0x34)};
    camera.model = answer.Text(0x68, 32);
    camera.version = answer.Text(0x88, 32);
    camera.serial = answer.Text(0xD8, 16);
    camera.userName = answer.Text(0xE8, 16);
    const bool known = std::any_of(heard.begin(), heard.end(), [&](const HeardCamera& other) {
        return other.adapter == camera.adapter && other.macAddress == camera.macAddress;
    });
    constexpr size_t kMost = 256;
    if (!known && heard.size() < kMost)
    {
        heard.push_back(camera);
    }
}

} // namespace

std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time)
{
    using Clock = std::chrono::steady_clock;
    const std::vector<Ear> ears = EarsAt(adapters);
    std::vector<pollfd> waits;
    waits.reserve(ears.size());
    for (const Ear& ear : ears)
    {
        waits.push_back({ear.Socket(), POLLIN, 0});
    }
    std::vector<HeardCamera> heard;
    const auto start = Clock::now();
    const auto end = start + time;
    auto ask = start; // once more half-way: a new cable loses its first packets
    for (auto now = start; now < end; now = Clock::now())
    {
        if (now >= ask)
        {
            std::for_each(ears.begin(), ears.end(), [](const Ear& ear) { ear.Ask(); });
            ask = ask == start ? start + time / 2 : end;
        }
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(ask - now);
        poll(waits.data(), waits.size(), static_cast<int>(left.count()));
        for (size_t at = 0; at < ears.size(); ++at)
        {
            if (waits[at].revents != 0)
            {
                Take(ears[at], heard);
            }
        }
    }
    return heard;
}

} // namespace nq::tool::doctor
