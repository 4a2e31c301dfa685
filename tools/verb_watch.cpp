// SPDX-License-Identifier: Apache-2.0
// nq-gev watch: cameras and interfaces as they come, go and change.
#include "live_output.h"
#include "printable.h"
#include "producers.h"
#include "stop_signals.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <map>
#include <memory>
#include <set>
#include <utility>
#include <vector>

namespace nq::tool
{

namespace
{

enum class Change
{
    Came,
    Went,
    Changed,
};

/// A camera or an interface, as it is told.
struct Watched
{
    std::string line;
    std::vector<std::pair<std::string, std::string>> fields; ///< by their names
    bool whole = true;                                       ///< all of them could be asked for
    int missed = 0;                                          ///< scans in a row that did not see it
};

/// By "interface" or "camera" and the id: the interfaces stand behind the cameras.
using WatchedById = std::map<std::pair<std::string, std::string>, Watched>;

/// What the last scan of the producer saw.
WatchedById SeenBy(const ProducerEntry& producer)
{
    WatchedById seen;
    for (const InterfaceEntry& interface : producer.interfaces)
    {
        Watched& watched = seen[{"interface", interface.id}];
        watched.line = fmt::format("interface  {}  {}", Printable(interface.id), Printable(interface.displayName));
        watched.fields = {
            {"what", "interface"}, {"id", interface.id}, {"name", interface.displayName}, {"producer", producer.path}};
        watched.whole = !interface.displayName.empty();
    }
    for (const FoundCamera& found : CamerasOf({producer}))
    {
        const CameraEntry& camera = found.camera;
        const std::string access = AccessStatusText(camera.accessStatus);
        Watched& watched = seen[{"camera", camera.id}];
        watched.line = fmt::format("camera     {}  model {}  serial {}  address {}  access {}", Printable(camera.id),
                                   Printable(camera.model), Printable(camera.serial),
                                   camera.address.empty() ? "-" : camera.address, access);
        watched.fields = {{"what", "camera"},          {"id", camera.id},         {"vendor", camera.vendor},
                          {"model", camera.model},     {"serial", camera.serial}, {"user_name", camera.userName},
                          {"address", camera.address}, {"access", access},        {"interface", camera.interfaceId},
                          {"producer", producer.path}};
        watched.whole = camera.accessStatus != GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
    }
    return seen;
}

/// What was seen by one producer, and told.
class ProducerWatch
{
  public:
    using Tell = std::function<void(Change, const Watched&)>;

    /// Tells what a further scan changes. One that is gone is told when it is missed twice in a row by scans that
    /// `mayMiss` stands for, as a packet may be lost.
    void Look(const ProducerEntry& producer, bool mayMiss, const Tell& tell)
    {
        if (producer.scans == m_scans)
        {
            return;
        }
        m_scans = producer.scans;
        WatchedById seen = SeenBy(producer);
        ForgetMissed(seen, mayMiss, tell);
        for (auto at = seen.rbegin(); at != seen.rend(); ++at) // interfaces first
        {
            const auto known = m_known.find(at->first);
            if (known == m_known.end() || IsNews(*known, *at))
            {
                tell(known == m_known.end() ? Change::Came : Change::Changed, at->second);
                m_known[at->first] = at->second;
            }
            m_known[at->first].missed = 0;
        }
    }

  private:
    /// What could not be asked for is the loss of one answer, and no news.
    static bool IsNews(const WatchedById::value_type& known, const WatchedById::value_type& seen)
    {
        return seen.second.whole && known.second.fields != seen.second.fields;
    }

    void ForgetMissed(const WatchedById& seen, bool mayMiss, const Tell& tell)
    {
        constexpr int kGoneAfter = 2;
        for (auto at = m_known.begin(); at != m_known.end();)
        {
            at->second.missed += mayMiss && !seen.contains(at->first) ? 1 : 0;
            if (at->second.missed < kGoneAfter)
            {
                ++at;
                continue;
            }
            tell(Change::Went, at->second);
            at = m_known.erase(at);
        }
    }

    size_t m_scans = 0;
    WatchedById m_known;
};

void Put(LiveOutput& output, bool json, Change change, const Watched& watched)
{
    const std::string time = MomentText(std::chrono::system_clock::now());
    if (!json)
    {
        const char* const sign = change == Change::Came ? "+" : change == Change::Went ? "-" : "*";
        output.Put(fmt::format("{}  {}  {}", time, sign, watched.line));
        return;
    }
    const char* const word = change == Change::Came ? "came" : change == Change::Went ? "went" : "changed";
    nlohmann::ordered_json line = {{"time", time}, {"change", word}};
    for (const auto& [name, value] : watched.fields)
    {
        line[name] = value;
    }
    output.Put(line);
}

ExitCode Watch(const CommonOptions& common, const LiveOptions& options)
{
    CatchStopSignals();
    LiveOutput output(options);
    std::map<std::string, ProducerWatch> watches;
    std::set<std::string> warned;
    SearchPlan plan;
    plan.endless = true;
    plan.scansMs = ShortScansFirst(common.timeoutMs);
    plan.enough = [&](const std::vector<ProducerEntry>& producers) {
        for (const ProducerEntry& producer : producers)
        {
            if (!producer.problem.empty() && warned.insert(producer.path).second)
            {
                WarnOfProblem(producer);
            }
            // A camera may be too slow for the short scans.
            watches[producer.path].Look(
                producer, producer.scans >= plan.scansMs.size(),
                [&](Change change, const Watched& watched) { Put(output, common.json, change, watched); });
        }
        return output.IsOver();
    };
    AskProducers(common.producer, plan);
    return LiveOutput::Code();
}

} // namespace

void AddWatchVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* const verb =
        app.add_subcommand("watch", "Print interfaces and cameras as they come, go and change, a line each");
    auto options = std::make_shared<LiveOptions>();
    AddLiveOptions(*verb, *options);
    verb->callback([&, options] { chosen = [&common, options] { return Watch(common, *options); }; });
}

} // namespace nq::tool
