// SPDX-License-Identifier: Apache-2.0
// The language of the control socket.
#include "control_commands.h"

#include "udp_socket.h"

#include <limits>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace nq::camera
{

namespace
{

using nlohmann::json;

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
    return {{"address", AddressText(camera.Network().address)},
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

/// A member that is a whole number up to `most`, or `absent` when there is no such member.
std::uint64_t NumberOf(const json& request, const char* name, std::uint64_t absent,
                       std::uint64_t most = std::numeric_limits<std::uint64_t>::max())
{
    const auto member = request.find(name);
    if (member == request.end())
    {
        return absent;
    }
    if (!member->is_number_unsigned() || member->get<std::uint64_t>() > most)
    {
        throw std::invalid_argument(std::string("'") + name + "' is no whole number from 0 to " + std::to_string(most));
    }
    return member->get<std::uint64_t>();
}

std::string FaultText(const json& request)
{
    if (request.contains("fault"))
    {
        return request["fault"].get<std::string>();
    }
    const FaultInfo& info = FaultOf(request);
    const auto argument = NumberOf(request, "arg", info.argument);
    const auto count = NumberOf(request, "count", info.count);
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
        return {{"sent", camera.SendEvent(static_cast<std::uint16_t>(NumberOf(request, "id", 0x9000, 0xFFFF)))}};
    }
    else
    {
        throw std::invalid_argument("there is no command '" + command + "'");
    }
    return json::object();
}

} // namespace

std::string AnswerControlLine(const std::vector<std::unique_ptr<VirtualCamera>>& cameras, const std::string& line)
{
    json answer;
    try
    {
        const json request = json::parse(line);
        // {"fault": "NAME:ARG"} is short for the command of that name.
        const auto command = request.contains("fault") ? std::string("fault") : request.at("cmd").get<std::string>();
        answer["ok"] = true;
        if (request.contains("camera") || cameras.size() == 1)
        {
            const auto number = NumberOf(request, "camera", 0, cameras.size() - 1);
            answer.update(Execute(*cameras[number], command, request));
        }
        else
        {
            for (const auto& camera : cameras)
            {
                answer["cameras"].push_back(Execute(*camera, command, request));
            }
        }
    }
    catch (const std::exception& error)
    {
        answer = {{"ok", false}, {"error", error.what()}};
    }
    // Texts of the request and of the command line stand in the answer, and they may be no UTF-8.
    return answer.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace nq::camera
