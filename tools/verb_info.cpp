// SPDX-License-Identifier: Apache-2.0
// nq-gev info: what this program and the producers are, which answers ours gives, and every info of every module.
#include "nq_version.h"
#include "printable.h"
#include "producers.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

namespace nq::tool
{

using nlohmann::ordered_json;

namespace
{

void PrintModules(const std::vector<ProducerEntry>& producers)
{
    fmt::print("nq-gev     {}, commit {}\n", NQ_VERSION, NQ_COMMIT);
    for (const ProducerEntry& producer : producers)
    {
        fmt::print("producer   {}\n", Printable(producer.path));
        if (!producer.problem.empty())
        {
            fmt::print("  problem    {}\n", Printable(producer.problem));
            continue;
        }
        const ProducerFacts& facts = producer.facts;
        for (const auto& [name, text] : {std::pair("id", facts.id),
                                         {"vendor", facts.vendor},
                                         {"model", facts.model},
                                         {"version", facts.version},
                                         {"type", facts.type},
                                         {"GenTL", facts.gentl}})
        {
            fmt::print("  {:<10} {}\n", name, text.empty() ? "-" : Printable(text));
        }
        fmt::print("  {:<10} {}\n", "answers", facts.answers.empty() ? "its own" : facts.answers);
    }
}

/// The modules of all producers.
ordered_json ModulesOf(const std::vector<ProducerEntry>& producers)
{
    ordered_json all = ordered_json::array();
    for (const ProducerEntry& producer : producers)
    {
        for (const ordered_json& module :
             producer.modules.empty() ? ordered_json::array() : ordered_json::from_cbor(producer.modules))
        {
            all.push_back(module);
        }
    }
    return all;
}

/// The value of an info as people write it.
std::string ValueText(const ordered_json& value)
{
    if (!value.is_array())
    {
        return value.is_string() ? Printable(value.get<std::string>()) : value.dump();
    }
    std::string all;
    for (const ordered_json& one : value)
    {
        all += (all.empty() ? "" : ", ") + ValueText(one);
    }
    return all;
}

void PrintModule(const ordered_json& module)
{
    const auto text = [](const ordered_json& from) { return Printable(from.get<std::string>()); };
    const std::string id = text(module["id"]);
    fmt::print("\n{}{}{}, {}\n", text(module["module"]), id.empty() ? "" : " ", id, text(module["state"]));
    if (!module["problem"].get<std::string>().empty())
    {
        fmt::print("  {}\n", text(module["problem"]));
    }
    std::string title;
    for (const ordered_json& info : module["infos"])
    {
        const std::string call = text(info["function"]) + (info["index"].is_null() ? "" : " " + info["index"].dump());
        if (call != title)
        {
            title = call;
            fmt::print("  {}\n", title);
        }
        const bool told = info["error"].is_null();
        const std::string value = told ? ValueText(info["value"]) : "(" + text(info["error"]) + ")";
        fmt::print("    {:<39} {:<10} {}\n", text(info["name"]), told ? text(info["type"]) : "-", value);
    }
}

ordered_json TextOrNull(const std::string& text)
{
    return text.empty() ? ordered_json(nullptr) : ordered_json(text);
}

void PrintModulesAsJson(const std::vector<ProducerEntry>& producers)
{
    ordered_json all = ordered_json::array();
    for (const ProducerEntry& producer : producers)
    {
        const ProducerFacts& facts = producer.facts;
        all.push_back({{"path", producer.path},
                       {"problem", producer.problem},
                       {"id", TextOrNull(facts.id)},
                       {"vendor", TextOrNull(facts.vendor)},
                       {"model", TextOrNull(facts.model)},
                       {"version", TextOrNull(facts.version)},
                       {"type", TextOrNull(facts.type)},
                       {"gentl", TextOrNull(facts.gentl)},
                       {"answers", TextOrNull(facts.answers)}});
    }
    const ordered_json info = {{"nq_gev", {{"version", NQ_VERSION}, {"commit", NQ_COMMIT}}},
                               {"producers", all},
                               {"modules", ModulesOf(producers)}};
    fmt::print("{}\n", info.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

ExitCode ShowInfo(const CommonOptions& common)
{
    SearchPlan plan;
    plan.modulesMs = common.timeoutMs;
    const std::vector<ProducerEntry> producers = AskProducers(common.producer, plan);
    if (common.json)
    {
        PrintModulesAsJson(producers);
        return ExitCode::Success;
    }
    PrintModules(producers);
    for (const ordered_json& module : ModulesOf(producers))
    {
        PrintModule(module);
    }
    return ExitCode::Success;
}

} // namespace

void AddInfoVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("info", "Show versions, the producers, which answers ours gives, and all that "
                                                "producers, interfaces and cameras say about themselves");
    verb->callback([&] { chosen = [&common] { return ShowInfo(common); }; });
}

} // namespace nq::tool
