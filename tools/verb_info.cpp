// SPDX-License-Identifier: Apache-2.0
// nq-gev info: what this program and the producers are, and which answers ours gives.
#include "nq_version.h"
#include "printable.h"
#include "producers.h"
#include "verbs.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <utility>

namespace nq::tool
{

namespace
{

void PrintText(const std::vector<ProducerEntry>& producers)
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

nlohmann::ordered_json TextOrNull(const std::string& text)
{
    return text.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(text);
}

void PrintJson(const std::vector<ProducerEntry>& producers)
{
    nlohmann::ordered_json all = nlohmann::ordered_json::array();
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
    const nlohmann::ordered_json info = {{"nq_gev", {{"version", NQ_VERSION}, {"commit", NQ_COMMIT}}},
                                         {"producers", all}};
    fmt::print("{}\n", info.dump(2, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
}

} // namespace

void AddInfoVerb(CLI::App& app, const CommonOptions& common, Verb& chosen)
{
    CLI::App* verb = app.add_subcommand("info", "Show versions, the producers, and which answers ours gives");
    verb->callback([&] {
        chosen = [&common] {
            const std::vector<ProducerEntry> producers = AskProducers(common.producer, SearchPlan{});
            common.json ? PrintJson(producers) : PrintText(producers);
            return ExitCode::Success;
        };
    });
}

} // namespace nq::tool
