// SPDX-License-Identifier: Apache-2.0
// One producer, asked for its cameras in a process of its own.
//
// What it says by a pipe are messages: their size in 4 bytes, then CBOR, which keeps texts that are no UTF-8. A message
// is {} (alive), {"facts": ...} as its first, {"modules": ...} where the plan asks for them, {"interfaces": ...} after
// a whole scan, or {"problem": ..., "code": ...} as its last.
#include "producer_child.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool
{

namespace
{

using nlohmann::json;

constexpr std::chrono::milliseconds kGrace{5000}; // for loading, and between what the plan says
constexpr size_t kLongestMessage = size_t{256} << 20;

void Say(int pipe, const json& message)
{
    const std::vector<uint8_t> body = json::to_cbor(message);
    const auto size = static_cast<uint32_t>(body.size());
    std::string bytes(reinterpret_cast<const char*>(&size), sizeof size);
    bytes.append(body.begin(), body.end());
    for (size_t sent = 0; sent < bytes.size();)
    {
        const ssize_t part = write(pipe, bytes.data() + sent, bytes.size() - sent);
        if (part < 0 && errno != EINTR)
        {
            _exit(1); // nobody listens
        }
        sent += static_cast<size_t>(std::max<ssize_t>(part, 0));
    }
}

json ToJson(const ProducerFacts& facts)
{
    return {{"id", facts.id},     {"vendor", facts.vendor}, {"model", facts.model},    {"version", facts.version},
            {"type", facts.type}, {"gentl", facts.gentl},   {"answers", facts.answers}};
}

ProducerFacts FactsFrom(const json& from)
{
    ProducerFacts facts;
    from.at("id").get_to(facts.id);
    from.at("vendor").get_to(facts.vendor);
    from.at("model").get_to(facts.model);
    from.at("version").get_to(facts.version);
    from.at("type").get_to(facts.type);
    from.at("gentl").get_to(facts.gentl);
    from.at("answers").get_to(facts.answers);
    return facts;
}

json ToJson(const CameraEntry& camera)
{
    return {{"interface", camera.interfaceId}, {"id", camera.id},          {"vendor", camera.vendor},
            {"model", camera.model},           {"serial", camera.serial},  {"user_name", camera.userName},
            {"address", camera.address},       {"mac", camera.macAddress}, {"access", camera.accessStatus}};
}

CameraEntry CameraFrom(const json& from)
{
    CameraEntry camera;
    from.at("interface").get_to(camera.interfaceId);
    from.at("id").get_to(camera.id);
    from.at("vendor").get_to(camera.vendor);
    from.at("model").get_to(camera.model);
    from.at("serial").get_to(camera.serial);
    from.at("user_name").get_to(camera.userName);
    from.at("address").get_to(camera.address);
    from.at("mac").get_to(camera.macAddress);
    from.at("access").get_to(camera.accessStatus);
    return camera;
}

json ToJson(const std::vector<InterfaceEntry>& interfaces)
{
    json all = json::array();
    for (const InterfaceEntry& interface : interfaces)
    {
        json cameras = json::array();
        for (const CameraEntry& camera : interface.cameras)
        {
            cameras.push_back(ToJson(camera));
        }
        all.push_back({{"id", interface.id}, {"name", interface.displayName}, {"cameras", cameras}});
    }
    return all;
}

std::vector<InterfaceEntry> InterfacesFrom(const json& from)
{
    std::vector<InterfaceEntry> interfaces;
    for (const json& one : from)
    {
        InterfaceEntry& interface = interfaces.emplace_back();
        one.at("id").get_to(interface.id);
        one.at("name").get_to(interface.displayName);
        for (const json& camera : one.at("cameras"))
        {
            interface.cameras.push_back(CameraFrom(camera));
        }
    }
    return interfaces;
}

void ScanAndSay(const std::string& path, const SearchPlan& plan, int pipe)
{
    GenTLLibrary library(path);
    const System system(library);
    Say(pipe, {{"facts", ToJson(FactsOf(system))}});
    const auto alive = [pipe] { Say(pipe, json::object()); };
    if (plan.modulesMs)
    {
        Say(pipe, {{"modules", plan.Modules(system, alive)}});
    }
    std::optional<uint64_t> ms = plan.ScanMs(0);
    for (size_t scan = 0; ms; ms = plan.ScanMs(++scan))
    {
        const auto interfaces = plan.Scan(system, *ms, alive);
        Say(pipe, {{"interfaces", ToJson(interfaces)}});
    }
}

uint64_t LongestOf(const SearchPlan& plan)
{
    uint64_t longest = plan.modulesMs.value_or(0);
    for (const uint64_t ms : plan.scansMs)
    {
        longest = std::max(longest, ms);
    }
    return longest;
}

[[noreturn]] void RunChild(const std::string& path, const SearchPlan& plan, int pipe)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::signal(SIGPIPE, SIG_DFL);
    dup2(STDERR_FILENO, STDOUT_FILENO); // standard output is for the answer of the tool
    try
    {
        ScanAndSay(path, plan, pipe);
    }
    catch (const ToolFailure& failure)
    {
        Say(pipe, {{"problem", failure.what()}, {"code", static_cast<int>(failure.Code())}});
    }
    catch (const std::exception& failure)
    {
        Say(pipe, {{"problem", failure.what()}, {"code", static_cast<int>(ExitCode::Failure)}});
    }
    _exit(0); // what it holds of its parent is not its to clean up
}

} // namespace

ProducerChild::ProducerChild(const std::string& path, const SearchPlan& plan)
    : m_patience(kGrace + std::chrono::milliseconds(std::min(LongestOf(plan), uint64_t{1} << 40)))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
    {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    std::fflush(nullptr); // the child would print it again
    m_process = fork();
    if (m_process == 0)
    {
        RunChild(path, plan, ends[1]);
    }
    const int error = errno;
    close(ends[1]);
    m_pipe = ends[0];
    if (m_process < 0)
    {
        close(m_pipe);
        throw std::system_error(error, std::generic_category(), "fork");
    }
    SetDeadline();
}

ProducerChild::~ProducerChild()
{
    End();
}

void ProducerChild::SetDeadline()
{
    m_deadline = Clock::now() + m_patience;
}

void ProducerChild::Hear(ProducerEntry& entry)
{
    char bytes[65536];
    const ssize_t size = read(m_pipe, bytes, sizeof bytes);
    if (size < 0 && errno == EINTR)
    {
        return;
    }
    if (size <= 0)
    {
        const std::string end = HowItEnded();
        entry.problem = entry.problem.empty() ? end : entry.problem;
        entry.code = entry.code == ExitCode::Success && !entry.problem.empty() ? ExitCode::NoProducer : entry.code;
        return;
    }
    SetDeadline();
    m_heard.append(bytes, static_cast<size_t>(size));
    for (uint32_t length = 0; m_heard.size() >= sizeof length;)
    {
        std::memcpy(&length, m_heard.data(), sizeof length);
        if (m_heard.size() - sizeof length < length && length <= kLongestMessage)
        {
            return;
        }
        Take(m_heard.substr(sizeof length, length), entry);
        m_heard.erase(0, sizeof length + std::min<size_t>(length, m_heard.size() - sizeof length));
    }
}

void ProducerChild::Take(const std::string& message, ProducerEntry& entry)
{
    try
    {
        const json heard = json::from_cbor(message);
        if (heard.contains("facts"))
        {
            entry.facts = FactsFrom(heard["facts"]);
        }
        if (heard.contains("modules"))
        {
            entry.modules = heard["modules"].get<std::string>();
        }
        if (heard.contains("interfaces"))
        {
            entry.interfaces = InterfacesFrom(heard["interfaces"]);
            ++entry.scans;
        }
        if (heard.contains("problem"))
        {
            entry.problem = heard["problem"].get<std::string>();
            entry.code = static_cast<ExitCode>(heard.at("code").get<int>());
        }
    }
    catch (const json::exception&)
    {
        entry.problem = "what its process says makes no sense";
        entry.code = ExitCode::NoProducer;
    }
}

void ProducerChild::GiveUp(ProducerEntry& entry)
{
    entry.problem = fmt::format("it has not answered for {} ms", m_patience.count());
    entry.code = ExitCode::NoProducer;
    End();
}

std::string ProducerChild::HowItEnded()
{
    int status = 0;
    waitpid(m_process, &status, 0);
    m_process = -1;
    End();
    if (WIFSIGNALED(status))
    {
        return fmt::format("it crashed: {}", strsignal(WTERMSIG(status)));
    }
    return WEXITSTATUS(status) == 0 ? "" : fmt::format("it ended its process with {}", WEXITSTATUS(status));
}

void ProducerChild::End()
{
    if (m_pipe >= 0)
    {
        close(m_pipe);
        m_pipe = -1;
    }
    if (m_process > 0)
    {
        kill(m_process, SIGKILL);
        waitpid(m_process, nullptr, 0);
        m_process = -1;
    }
}

} // namespace nq::tool
