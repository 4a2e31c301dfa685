// SPDX-License-Identifier: Apache-2.0
// Remote control of the cameras of one program.
#include "control_socket.h"

#include "udp_socket.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>

namespace nq::camera
{

namespace
{

using nlohmann::json;

constexpr std::size_t kLongestLine = 65536;

json Status(VirtualCamera& camera)
{
    const auto state = camera.Observe();
    json faults = json::object();
    for (const FaultInfo& info : kFaults)
    {
        const auto strikes = camera.Faults().Strikes(info.fault);
        const bool armed = camera.Faults().Armed(info.fault).has_value();
        if (armed || strikes > 0)
        {
            faults[info.name] = {{"armed", armed}, {"strikes", strikes}};
        }
    }
    return {{"address", AddressText(camera.Options().network.address)},
            {"serial", camera.Options().serial},
            {"rdma", camera.StreamProblem().empty()},
            {"privilege", state.privilege},
            {"stream_enabled", state.acquisition.streamEnabled},
            {"acquiring", state.acquisition.started},
            {"frames_taken", state.acquisition.taken},
            {"frames_lost", state.acquisition.lost},
            {"frames_sent", state.stream.sent},
            {"connected", state.stream.connected},
            {"credits", state.stream.credits},
            {"connections_accepted", state.stream.accepted},
            {"connections_rejected", state.stream.rejected},
            {"strange_messages", state.stream.strangeMessages},
            {"events_sent", state.events},
            {"faults", faults}};
}

const FaultInfo& FaultOf(const json& request)
{
    const auto name = request.at("name").get<std::string>();
    const FaultInfo* info = FaultPlan::Find(name);
    if (info == nullptr)
    {
        throw std::invalid_argument("there is no fault '" + name + "'");
    }
    return *info;
}

std::string FaultText(const json& request)
{
    if (request.contains("fault"))
    {
        return request["fault"].get<std::string>();
    }
    const FaultInfo& info = FaultOf(request);
    const auto argument = request.value("arg", info.argument);
    const auto count = request.value("count", info.count);
    return info.name + (":" + std::to_string(argument)) + ":" + std::to_string(count);
}

json Execute(VirtualCamera& camera, const std::string& command, const json& request)
{
    if (command == "status")
    {
        return Status(camera);
    }
    if (command == "fault")
    {
        camera.Arm(FaultText(request));
    }
    else if (command == "clear")
    {
        for (const FaultInfo& info : kFaults)
        {
            if (!request.contains("name") || FaultOf(request).fault == info.fault)
            {
                camera.Clear(info.fault);
            }
        }
    }
    else if (command == "trigger")
    {
        camera.Trigger();
    }
    else if (command == "event")
    {
        return {{"sent", camera.SendEvent(request.value("id", std::uint16_t{0x9000}))}};
    }
    else
    {
        throw std::invalid_argument("there is no command '" + command + "'");
    }
    return json::object();
}

} // namespace

ControlSocket::ControlSocket(std::string path, const std::vector<std::unique_ptr<VirtualCamera>>& cameras)
    : m_path(std::move(path)), m_cameras(cameras), m_listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (m_path.size() >= sizeof(address.sun_path))
    {
        throw std::system_error(ENAMETOOLONG, std::generic_category(), "control socket " + m_path);
    }
    std::memcpy(address.sun_path, m_path.c_str(), m_path.size());
    unlink(m_path.c_str());
    if (m_listener.Get() < 0 ||
        bind(m_listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(m_listener.Get(), 8) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "control socket " + m_path);
    }
    m_thread = std::thread([this] { Run(); });
}

ControlSocket::~ControlSocket()
{
    m_stop = true;
    m_wake.Signal();
    m_thread.join();
    unlink(m_path.c_str());
}

void ControlSocket::Run()
{
    while (!m_stop)
    {
        std::vector<pollfd> fds{{m_wake.Fd(), POLLIN, 0}, {m_listener.Get(), POLLIN, 0}};
        for (const auto& [fd, client] : m_clients)
        {
            fds.push_back({fd, POLLIN, 0});
        }
        poll(fds.data(), fds.size(), -1);
        for (std::size_t i = 2; i < fds.size(); ++i)
        {
            if (fds[i].revents != 0 && !Serve(m_clients[fds[i].fd]))
            {
                m_clients.erase(fds[i].fd);
            }
        }
        if ((fds[1].revents & POLLIN) != 0)
        {
            AcceptClient();
        }
    }
}

void ControlSocket::AcceptClient()
{
    const int fd = accept4(m_listener.Get(), nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0)
    {
        m_clients[fd].fd = UniqueFd(fd);
    }
}

bool ControlSocket::Serve(Client& client) const
{
    std::array<char, 4096> buffer;
    const ssize_t size = recv(client.fd.Get(), buffer.data(), buffer.size(), 0);
    if (size <= 0 || client.received.size() > kLongestLine)
    {
        return false;
    }
    client.received.append(buffer.data(), static_cast<std::size_t>(size));
    for (std::size_t end = 0; (end = client.received.find('\n')) != std::string::npos;)
    {
        const std::string answer = Answer(client.received.substr(0, end)) + "\n";
        client.received.erase(0, end + 1);
        if (send(client.fd.Get(), answer.data(), answer.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(answer.size()))
        {
            return false;
        }
    }
    return true;
}

std::string ControlSocket::Answer(const std::string& line) const
{
    json answer;
    try
    {
        const json request = json::parse(line);
        // {"fault": "NAME:ARG"} is short for the command of that name.
        const auto command = request.contains("fault") ? std::string("fault") : request.at("cmd").get<std::string>();
        answer["ok"] = true;
        if (request.contains("camera") || m_cameras.size() == 1)
        {
            answer.update(Execute(*m_cameras.at(request.value("camera", std::size_t{0})), command, request));
        }
        else
        {
            for (const auto& camera : m_cameras)
            {
                answer["cameras"].push_back(Execute(*camera, command, request));
            }
        }
    }
    catch (const std::exception& error)
    {
        answer = {{"ok", false}, {"error", error.what()}};
    }
    return answer.dump();
}

} // namespace nq::camera
