// SPDX-License-Identifier: Apache-2.0
// nq-gev events: what the modules of a camera tell as it happens.
#include "camera_owner.h"
#include "feature_access.h"
#include "live_output.h"
#include "module_events.h"
#include "printable.h"
#include "stop_signals.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <memory>

namespace nq::tool
{

namespace
{

struct EventsOptions
{
    ModuleOptions module;
    LiveOptions live;
    bool readOnly = false;
    std::vector<std::string> settings;
};

/// The bytes without the zeros that producers fill them up with, in steps of 8.
std::string DataText(const std::string& data)
{
    constexpr size_t kStep = 8;
    const size_t told = data.find_last_not_of('\0') + 1; // 0 when all are zeros
    const size_t shown = std::min((told + kStep - 1) / kStep * kStep, data.size());
    const size_t zeros = data.size() - shown;
    return HexText(data.substr(0, shown)) + (zeros == 0 ? "" : fmt::format(" and {} zeros", zeros));
}

std::string LineOf(const HeardEvent& heard)
{
    std::string line = fmt::format("{}  {}  {}", MomentText(heard.time), heard.module, heard.kind);
    if (heard.id && heard.data)
    {
        line += fmt::format("  0x{:04X}", *heard.id);
    }
    line += heard.name ? "  " + *heard.name : "";
    line += heard.data ? "  " + DataText(*heard.data) : "";
    line += heard.text ? "  " + *heard.text : "";
    return Printable(line);
}

nlohmann::ordered_json JsonOf(const HeardEvent& heard)
{
    const auto orNull = [](const auto& value) {
        return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json(nullptr);
    };
    return {{"time", MomentText(heard.time)},
            {"module", heard.module},
            {"event", heard.kind},
            {"id", orNull(heard.id)},
            {"name", orNull(heard.name)},
            {"data", heard.data ? nlohmann::ordered_json(HexText(*heard.data)) : nlohmann::ordered_json(nullptr)},
            {"text", orNull(heard.text)}};
}

/// What is heard without control as well.
constexpr const char* kHeardHere = ", and here its loss and the events of this producer's modules alone are told";

/// What comes from the camera, beside what the producer tells.
std::string Reach(const ModuleSession& session, bool readOnly)
{
    if (session.HasControl())
    {
        return "";
    }
    if (readOnly)
    {
        return std::string(" without control of it: its own events go to the program that controls it") + kHeardHere;
    }
    const std::optional<CameraOwner> owner = AskForOwner(session.Camera());
    return fmt::format(", which {} controls: its own events go there{}", owner ? OwnerText(*owner) : "another program",
                       kHeardHere);
}

ExitCode Follow(const CommonOptions& common, ModuleEvents& events, LiveOutput& output, const std::string& camera)
{
    constexpr std::chrono::milliseconds kLook{100};
    while (!output.IsOver())
    {
        const std::optional<HeardEvent> heard = events.Next(kLook);
        if (!heard)
        {
            continue;
        }
        common.json ? output.Put(JsonOf(*heard)) : output.Put(LineOf(*heard));
        if (heard->lost && !output.HasEnough())
        {
            throw ToolFailure(ExitCode::CameraLost,
                              fmt::format("the camera {} is lost: it does not answer, or its control went to another "
                                          "program (`nq-gev list`)",
                                          camera));
        }
    }
    return LiveOutput::Code();
}

ExitCode ListenTo(const CommonOptions& common, const EventsOptions& options)
{
    CatchStopSignals();
    const bool sets = !options.settings.empty();
    sets ? NeedFeatureEngine() : void();
    ModuleSession session(common, options.module,
                          options.readOnly ? ModuleUse::Read
                          : sets           ? ModuleUse::Control
                                           : ModuleUse::ControlIfFree);
    session.OpenStreamIfAny();
    ModuleEvents events(session);
    events.LearnNames();
    if (sets)
    {
        Features(session.Port()).SetAll(options.settings);
    }
    LiveOutput output(options.live);
    fmt::print(stderr, "nq-gev: listening to the camera {}{}\n", Printable(session.Camera().id),
               Reach(session, options.readOnly));
    return Follow(common, events, output, session.Camera().id);
}

} // namespace

void AddEventsVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* const verb =
        app.add_subcommand("events", "Print the events of a camera and its modules as they come, a line each");
    auto options = std::make_shared<EventsOptions>();
    AddCameraOptions(*verb, options->module, true);
    AddLiveOptions(*verb, options->live);
    CLI::Option* const readOnly =
        verb->add_flag("--read-only", options->readOnly, "Leave the control of the camera to other programs");
    verb->add_option("SETTING", options->settings,
                     "NAME=VALUE: features to set first, as EventNotification[FrameEnd]=On")
        ->excludes(readOnly);
    verb->callback([&, options] { chosen = [&common, options] { return ListenTo(common, *options); }; });
}

} // namespace nq::tool
