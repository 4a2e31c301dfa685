// SPDX-License-Identifier: Apache-2.0
// One text for those who help from afar.
#include "doctor/report.h"

#include "doctor/adapter_driver.h"
#include "doctor/doctor.h"
#include "doctor/hear_child.h"
#include "doctor/memory_rights.h"
#include "nq_version.h"
#include "printable.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/resource.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace nq::tool::doctor
{

namespace
{

struct Section
{
    const char* title;
    std::string text;
};

std::string SectionText(const Section& section)
{
    std::string shown = fmt::format("\n== {} ==\n", section.title);
    std::istringstream lines(section.text);
    for (std::string line; std::getline(lines, line);)
    {
        shown += Printable(line) + "\n";
    }
    return shown;
}

/// What nq-gev itself says with this verb, in a process that is ended after a minute.
std::string SaidBy(const std::string& verb, const CommonOptions& common)
{
    std::vector<std::string> words = {"nq-gev", "--answers", common.answers, "--timeout",
                                      std::to_string(common.timeoutMs)};
    if (!common.producer.empty())
    {
        words.insert(words.end(), {"--producer", common.producer});
    }
    words.push_back(verb);
    return HearChild(
        [&words](int pipe) {
            std::vector<char*> arguments;
            arguments.reserve(words.size() + 1);
            for (std::string& word : words)
            {
                arguments.push_back(word.data());
            }
            arguments.push_back(nullptr);
            dup2(pipe, STDOUT_FILENO);
            dup2(pipe, STDERR_FILENO);
            execv("/proc/self/exe", arguments.data());
        },
        std::chrono::seconds(60));
}

/// The value of a line NAME="value" in /etc/os-release.
std::string Distribution()
{
    constexpr std::string_view kName = "PRETTY_NAME=";
    const std::string text = Machine("/").Text("etc/os-release").value_or("");
    const size_t start = text.find(kName);
    return start == std::string::npos
               ? "-"
               : text.substr(start + kName.size(), text.find('\n', start) - start - kName.size());
}

std::string Versions()
{
    utsname kernel{};
    uname(&kernel);
    return fmt::format("nq-gev        {}, commit {}\nkernel        {} {} {}\ndistribution  {}\n", NQ_VERSION, NQ_COMMIT,
                       kernel.release, kernel.version, kernel.machine, Distribution());
}

std::string AdaptersText()
{
    std::string text;
    for (const Adapter& adapter : FindAdapters())
    {
        text += fmt::format("{}  {}, {}, MTU {}, MAC {}\n  driver   {}\n", adapter.name, adapter.up ? "up" : "down",
                            adapter.linked ? "link" : "no link", adapter.mtu, HardwareAddressOf(adapter.name),
                            DriverOf(adapter.name));
        for (const Ipv4Network& one : adapter.networks)
        {
            text += fmt::format("  address  {}\n", NetworkText(one));
        }
    }
    return text + Machine("/").Text("proc/net/dev").value_or("");
}

std::string RdmaText(const Machine& machine)
{
    std::string text;
    for (const RdmaPort& port : FindRdmaPorts(machine))
    {
        text += fmt::format("{} port {}  {}, {}\n", port.device, port.port, port.state, port.linkLayer);
        for (const std::string& adapter : port.adapters)
        {
            text += fmt::format("  adapter  {}\n", adapter);
        }
        for (const std::string& gid : port.v2Gids)
        {
            text += fmt::format("  RoCE v2  {}\n", gid);
        }
        text += port.verbs.problem.empty() ? fmt::format("  packets of {} bytes, messages of {} bytes\n",
                                                         port.verbs.activeMtu, port.verbs.longestMessage)
                                           : fmt::format("  {}\n", port.verbs.problem);
    }
    for (const std::string& name : machine.Names("dev/infiniband"))
    {
        const std::string why = machine.WhyNotOpen("dev/infiniband/" + name);
        text += fmt::format("/dev/infiniband/{}  {}\n", name, why.empty() ? "can be opened" : why);
    }
    return text.empty() ? "no RDMA device\n" : text;
}

std::string KernelText(const Machine& machine)
{
    std::string text;
    for (const char* name : {"net/ipv4/conf/all/rp_filter", "net/ipv4/conf/default/rp_filter",
                             "net/ipv4/ping_group_range", "net/core/rmem_max", "net/core/rmem_default"})
    {
        text += fmt::format("{}  {}\n", name, machine.Text("proc/sys/" + std::string(name)).value_or("-"));
    }
    std::istringstream modules(machine.Text("proc/modules").value_or(""));
    for (std::string line; std::getline(modules, line);)
    {
        const std::string name = line.substr(0, line.find(' '));
        for (const char* part : {"rdma", "ib_", "_ib", "mlx", "rxe", "siw"})
        {
            if (name.find(part) != std::string::npos)
            {
                text += "module  " + name + "\n";
                break;
            }
        }
    }
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    const std::string lockable =
        LockableBytes() == RLIM_INFINITY ? "any amount" : fmt::format("{} KiB", LockableBytes() / 1024);
    return text + fmt::format("may lock  {}{}\nmay open  {} files\nuser id   {}\n", lockable,
                              MayLockAnything(machine) ? ", CAP_IPC_LOCK" : "", files.rlim_cur, geteuid());
}

std::string EnvironmentText()
{
    std::string text;
    for (const char* name : {"GENICAM_GENTL64_PATH", "NQ_GEV_TL_STANDARD", "LD_LIBRARY_PATH", "LD_PRELOAD",
                             "RDMAV_FORK_SAFE", "IBV_FORK_SAFE", "NQ_RDMA_LOOPBACK_DIR"})
    {
        text += fmt::format("{}={}\n", name, StartedWith(name).value_or("(not set)"));
    }
    return text;
}

/// All that stands behind the findings.
std::vector<Section> Facts(const CommonOptions& common, const DoctorOptions& options)
{
    const Machine machine(options.root);
    return {{"info", SaidBy("info", common)}, {"list", SaidBy("list", common)}, {"adapters", AdaptersText()},
            {"RDMA", RdmaText(machine)},      {"kernel", KernelText(machine)},  {"environment", EnvironmentText()}};
}

} // namespace

std::string ReportContents()
{
    return "This report holds: versions of nq-gev, the kernel and the distribution; what is right and wrong; every "
           ".cti,\n"
           "with its path and what it and its modules say of themselves; names, MAC and IP addresses, counters and\n"
           "drivers of the network adapters; RDMA devices; models, serial numbers, names and addresses of the cameras\n"
           "that answered, what else they say of themselves, and who controls them; settings of the kernel for\n"
           "networks; limits of this user; and of the environment the variables at its end. It holds no pictures, no\n"
           "passwords, no other files. Look through it before you give it away.\n";
}

std::string ReportText(const CommonOptions& common, const DoctorOptions& options)
{
    std::string text = ReportContents() + SectionText({"versions", Versions()}) +
                       SectionText({"doctor", FindingsText(Examine(common, options))});
    for (const Section& section : Facts(common, options))
    {
        text += SectionText(section);
    }
    return text;
}

std::string ReportJson(const CommonOptions& common, const DoctorOptions& options)
{
    using Json = nlohmann::ordered_json;
    Json report = {{"holds", ReportContents()},
                   {"versions", Versions()},
                   {"doctor", Json::parse(FindingsJson(Examine(common, options)))}};
    for (const Section& section : Facts(common, options))
    {
        report[section.title] = section.text;
    }
    return report.dump(2, ' ', true, Json::error_handler_t::replace) + "\n";
}

} // namespace nq::tool::doctor
