// SPDX-License-Identifier: Apache-2.0
// Cameras that answer a broadcast on the cable, on whatever subnet they are, and the command that moves one.
#include "heard_cameras.h"

#include "exit_codes.h"
#include "gvcp_reader.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nq::tool
{

namespace
{

using Clock = std::chrono::steady_clock;
using Octets = std::vector<uint8_t>;

constexpr uint16_t kDiscovery = 0x0002;
constexpr uint16_t kForceIp = 0x0004;
constexpr size_t kHeader = 8;
constexpr size_t kDiscoveryBody = 248;
constexpr uint16_t kDiscoveryId = 1;
constexpr size_t kMostCameras = 256;

uint32_t Big(const Octets& bytes, size_t at, size_t count)
{
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i)
    {
        value = value << 8 | bytes.at(at + i);
    }
    return value;
}

void PutBig(Octets& bytes, size_t at, uint64_t value, size_t count)
{
    for (size_t i = 0; i < count; ++i)
    {
        bytes.at(at + i) = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
    }
}

/// The text of a register up to its first 0.
std::string Text(const Octets& bytes, size_t at, size_t size)
{
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, std::find(begin, begin + static_cast<std::ptrdiff_t>(size), 0)};
}

/// A UDP socket that sends and hears on one adapter alone, on all its addresses, broadcasts of other subnets too.
class AdapterSocket
{
  public:
    explicit AdapterSocket(const Adapter& adapter) : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        const auto size = static_cast<socklen_t>(adapter.name.size());
        if (m_fd < 0 || setsockopt(m_fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
            setsockopt(m_fd, SOL_SOCKET, SO_BINDTODEVICE, adapter.name.c_str(), size) != 0)
        {
            m_problem = errno;
            return;
        }
        m_isOpen = true;
    }
    ~AdapterSocket()
    {
        if (m_fd >= 0)
        {
            close(m_fd);
        }
    }
    AdapterSocket(const AdapterSocket&) = delete;
    AdapterSocket& operator=(const AdapterSocket&) = delete;

    int Fd() const { return m_fd; }

    /// What went wrong last.
    std::string Problem() const { return std::generic_category().message(m_problem); }

    /// Sends to every camera on the cable; `from` is an address of the adapter, 0 for its first. False, and why, when
    /// it could not.
    bool Broadcast(Octets command, uint32_t from = 0)
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(kControlPort);
        to.sin_addr.s_addr = htonl(INADDR_BROADCAST);
        iovec bytes{command.data(), command.size()};
        alignas(cmsghdr) unsigned char control[CMSG_SPACE(sizeof(in_pktinfo))] = {};
        msghdr message{};
        message.msg_name = &to;
        message.msg_namelen = sizeof to;
        message.msg_iov = &bytes;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        in_pktinfo source{};
        source.ipi_spec_dst.s_addr = htonl(from);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = IPPROTO_IP;
        header->cmsg_type = IP_PKTINFO;
        header->cmsg_len = CMSG_LEN(sizeof source);
        std::memcpy(CMSG_DATA(header), &source, sizeof source);
        if (m_isOpen && sendmsg(m_fd, &message, MSG_NOSIGNAL) >= 0)
        {
            return true;
        }
        m_problem = m_isOpen ? errno : m_problem;
        return false;
    }

    std::optional<Octets> Receive() const
    {
        Octets bytes(1500);
        const ssize_t size = recv(m_fd, bytes.data(), bytes.size(), MSG_DONTWAIT);
        if (size < 0)
        {
            return std::nullopt;
        }
        bytes.resize(static_cast<size_t>(size));
        return bytes;
    }

  private:
    int m_fd;
    int m_problem = 0;
    bool m_isOpen = false;
};

/// A command that may be answered by broadcast.
Octets Command(uint16_t code, uint16_t id, const Octets& body)
{
    Octets bytes{0x42, 0x11};
    bytes.resize(kHeader);
    PutBig(bytes, 2, code, 2);
    PutBig(bytes, 4, body.size(), 2);
    PutBig(bytes, 6, id, 2);
    bytes.insert(bytes.end(), body.begin(), body.end());
    return bytes;
}

/// A good answer to the command of this code and id.
bool IsAnswer(const Octets& bytes, uint16_t code, uint16_t id)
{
    return bytes.size() >= kHeader && Big(bytes, 0, 2) == 0 && Big(bytes, 2, 2) == code + 1U && Big(bytes, 6, 2) == id;
}

HeardCamera CameraOf(const Adapter& adapter, const Octets& answer)
{
    const Octets body(answer.begin() + kHeader, answer.end());
    HeardCamera camera;
    camera.adapter = adapter;
    camera.mac = uint64_t{Big(body, 0x0A, 2)} << 32 | Big(body, 0x0C, 4);
    camera.supported = Big(body, 0x10, 4);
    camera.configured = Big(body, 0x14, 4);
    camera.network = {Big(body, 0x24, 4), Big(body, 0x34, 4)};
    camera.gateway = Big(body, 0x44, 4);
    camera.model = Text(body, 0x68, 32);
    camera.version = Text(body, 0x88, 32);
    camera.serial = Text(body, 0xD8, 16);
    camera.userName = Text(body, 0xE8, 16);
    return camera;
}

/// An adapter that is listened on.
struct Ear
{
    explicit Ear(const Adapter& at) : adapter(at), socket(at) {}

    /// From each address, so that a camera of any of their subnets has a way back. False when not once.
    bool Ask()
    {
        const Octets command = Command(kDiscovery, kDiscoveryId, {});
        bool asked = adapter.networks.empty() && socket.Broadcast(command);
        for (const Ipv4Network& network : adapter.networks)
        {
            asked = socket.Broadcast(command, network.address) || asked;
        }
        return asked;
    }

    /// One answer, which is put in place of an earlier one of the camera.
    void Take(std::vector<HeardCamera>& cameras) const
    {
        const std::optional<Octets> answer = socket.Receive();
        if (!answer || answer->size() < kHeader + kDiscoveryBody || !IsAnswer(*answer, kDiscovery, kDiscoveryId))
        {
            return;
        }
        HeardCamera camera = CameraOf(adapter, *answer);
        const auto known = std::find_if(cameras.begin(), cameras.end(), [&](const HeardCamera& one) {
            return one.mac == camera.mac && one.adapter.name == adapter.name;
        });
        if (known != cameras.end())
        {
            *known = std::move(camera);
        }
        else if (cameras.size() < kMostCameras)
        {
            cameras.push_back(std::move(camera));
        }
    }

    const Adapter& adapter;
    AdapterSocket socket;
};

using Ears = std::vector<std::unique_ptr<Ear>>;

/// Empty, or why no adapter could be asked.
std::string Ask(const Ears& ears)
{
    bool asked = false;
    std::string problems = "no adapter lets this program ask for cameras.";
    for (const auto& ear : ears)
    {
        const bool one = ear->Ask();
        asked = asked || one;
        problems += one ? "" : fmt::format(" {}: {}.", ear->adapter.name, ear->socket.Problem());
    }
    return asked ? "" : problems;
}

void ListenUntil(Clock::time_point end, const Ears& ears, std::vector<HeardCamera>& cameras)
{
    std::vector<pollfd> files;
    files.reserve(ears.size());
    for (const auto& ear : ears)
    {
        files.push_back({ear->socket.Fd(), POLLIN, 0});
    }
    for (auto now = Clock::now(); now < end; now = Clock::now())
    {
        poll(files.data(), files.size(),
             static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
        for (size_t at = 0; at < files.size(); ++at)
        {
            if (files[at].revents != 0)
            {
                ears[at]->Take(cameras);
            }
        }
    }
}

} // namespace

std::vector<HeardCamera> HearCameras(const std::vector<Adapter>& adapters, std::chrono::milliseconds time)
{
    Ears ears;
    for (const Adapter& adapter : adapters)
    {
        if (adapter.up)
        {
            ears.push_back(std::make_unique<Ear>(adapter));
        }
    }
    std::vector<HeardCamera> cameras;
    const auto start = Clock::now();
    // A datagram may be lost, as the first ones of a new cable are; the answers to the last question have half the
    // time.
    for (const auto wait : {time / 4, time / 2, time})
    {
        const std::string problem = Ask(ears);
        if (!problem.empty() && cameras.empty())
        {
            throw ToolFailure(ExitCode::Failure, problem);
        }
        ListenUntil(start + wait, ears, cameras);
    }
    return cameras;
}

bool ForceAddress(const HeardCamera& camera, const Ipv4Network& network, uint32_t gateway,
                  std::chrono::milliseconds time)
{
    constexpr uint16_t kId = 2;
    Octets body(56);
    PutBig(body, 2, camera.mac, 6);
    PutBig(body, 20, network.address, 4);
    PutBig(body, 36, network.mask, 4);
    PutBig(body, 52, gateway, 4);
    AdapterSocket socket(camera.adapter);
    if (!socket.Broadcast(Command(kForceIp, kId, body)))
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{}: {}", camera.adapter.name, socket.Problem()));
    }
    const auto end = Clock::now() + time;
    for (auto now = Clock::now(); now < end; now = Clock::now())
    {
        pollfd file{socket.Fd(), POLLIN, 0};
        poll(&file, 1, static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()));
        const std::optional<Octets> answer = socket.Receive();
        if (answer && IsAnswer(*answer, kForceIp, kId))
        {
            return true;
        }
    }
    return false;
}

std::string MacText(uint64_t mac)
{
    return fmt::format("{:02X}:{:02X}:{:02X}:{:02X}:{:02X}:{:02X}", mac >> 40 & 0xFF, mac >> 32 & 0xFF,
                       mac >> 24 & 0xFF, mac >> 16 & 0xFF, mac >> 8 & 0xFF, mac & 0xFF);
}

} // namespace nq::tool
