// SPDX-License-Identifier: Apache-2.0
// Findings about what the adapters have lost, and how often they paused their peers.
#include "doctor/checks.h"

#include "doctor/adapter_driver.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace nq::tool::doctor
{

namespace
{

/// What /proc/net/dev tells of received packets.
struct Received
{
    uint64_t packets = 0;
    uint64_t lost = 0;
};

std::optional<Received> ReceivedBy(const Machine& machine, const std::string& adapter)
{
    std::istringstream lines(machine.Text("proc/net/dev").value_or(""));
    for (std::string line; std::getline(lines, line);)
    {
        const size_t colon = line.find(':');
        const size_t start = line.find_first_not_of(' ');
        if (colon == std::string::npos || line.substr(start, colon - start) != adapter)
        {
            continue;
        }
        std::istringstream numbers(line.substr(colon + 1));
        uint64_t bytes = 0;
        uint64_t broken = 0;
        uint64_t dropped = 0;
        uint64_t overrun = 0;
        uint64_t misframed = 0;
        Received received;
        if (numbers >> bytes >> received.packets >> broken >> dropped >> overrun >> misframed)
        {
            received.lost = broken + dropped + overrun + misframed;
            return received;
        }
    }
    return std::nullopt;
}

void CheckLoss(const Scene& scene, const std::string& adapter, Findings& findings)
{
    const std::optional<Received> received = ReceivedBy(scene.machine, adapter);
    if (!received)
    {
        findings.NotKnown("adapter.loss", adapter, "/proc/net/dev does not have it");
        return;
    }
    const std::string text = fmt::format("{} of {} packets were broken or dropped", received->lost, received->packets);
    received->lost > std::max<uint64_t>(100, received->packets / 10000)
        ? findings.Wrong("adapter.loss", adapter, text, {{"ADAPTER", adapter}})
        : findings.Right("adapter.loss", adapter, text);
}

/// Drivers have names of their own for the pause frames that they send.
bool IsSentPause(const std::string& counter)
{
    const bool sent = counter.find("tx") != std::string::npos;
    const bool pause =
        counter.find("pause") != std::string::npos || counter.find("flow_control_xoff") != std::string::npos;
    return sent && pause && counter.find("duration") == std::string::npos &&
           counter.find("transition") == std::string::npos;
}

void CheckPause(const Scene& scene, const std::string& adapter, Findings& findings)
{
    const auto counters = CountersOf(scene.machine, adapter);
    uint64_t pauses = 0;
    bool known = false;
    for (const auto& [name, value] : counters.value_or(std::map<std::string, uint64_t>()))
    {
        known = known || IsSentPause(name);
        pauses += IsSentPause(name) ? value : 0;
    }
    if (!known)
    {
        findings.NotKnown("adapter.pause", adapter, "its driver counts no pause frames");
        return;
    }
    const std::string text = fmt::format("it has sent {} pause frames", pauses);
    pauses == 0 ? findings.Right("adapter.pause", adapter, text)
                : findings.Wrong("adapter.pause", adapter, text, {{"ADAPTER", adapter}});
}

} // namespace

void CheckCounters(const Scene& scene, Findings& findings)
{
    for (const Adapter& adapter : scene.concerned)
    {
        CheckLoss(scene, adapter.name, findings);
        CheckPause(scene, adapter.name, findings);
    }
    findings.NotKnownElse({"adapter.loss", "adapter.pause"}, "there is no adapter (adapter.found)");
}

} // namespace nq::tool::doctor
