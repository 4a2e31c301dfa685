// SPDX-License-Identifier: Apache-2.0
// nq-gev against a producer whose every answer the fuzzer chooses. Compared with: nothing; it ends, within its memory,
// and its numbers of frames add up.
#include "fuzz/fuzz_input.h"
#include "gentl_library.h"
#include "verbs.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace
{

using nq::fuzz::Require;
using nq::tool::ExitCode;

using ChooseAnswers = void (*)(const std::uint8_t*, std::size_t);

std::string g_folder; // pictures, and what nq-gev prints

/// Loaded once and for all: the fuzzer counts by addresses of this copy.
ChooseAnswers LoadProducer()
{
    void* library = dlopen(NQ_FAKE_PRODUCER_PATH, RTLD_NOW | RTLD_LOCAL);
    Require(library != nullptr, "the producer can be loaded");
    return reinterpret_cast<ChooseAnswers>(dlsym(library, "NQFakeProducerFuzz"));
}

/// Runs the verb of these arguments, as main() does. A failure that nq-gev tells gives its exit code.
int Run(std::vector<std::string> arguments)
{
    CLI::App app;
    nq::tool::CommonOptions common;
    nq::tool::Verb chosen;
    app.add_option("--producer", common.producer);
    app.add_flag("--json", common.json);
    app.fallthrough();
    AddListVerb(app, common, chosen);
    AddGrabVerb(app, common, chosen);
    std::reverse(arguments.begin(), arguments.end());
    app.parse(arguments);
    try
    {
        return static_cast<int>(chosen());
    }
    catch (const nq::tool::ToolFailure& failure)
    {
        return static_cast<int>(failure.Code());
    }
    catch (const nq::tool::GenTLError&)
    {
        return static_cast<int>(ExitCode::Failure);
    }
}

/// What was printed on standard output since the last call.
std::string Printed()
{
    std::fflush(stdout);
    std::ifstream file(g_folder + "/printed");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    Require(ftruncate(STDOUT_FILENO, 0) == 0, "what was printed can be forgotten");
    return text;
}

void CheckSummary(const std::string& text, std::uint64_t count, int exitCode)
{
    const auto summary = nlohmann::json::parse(text, nullptr, false);
    if (text.empty() && exitCode != 0)
    {
        return; // it failed before the end
    }
    Require(summary.is_object(), "the summary is JSON");
    const auto number = [&](const char* name) { return summary[name].get<std::uint64_t>(); };
    Require(number("frames") + number("refused") <= count, "no frame is counted twice");
    Require(number("pictures") <= number("frames"), "no picture shows a refused frame");
    Require(exitCode != 0 || (number("frames") == count && number("refused") == 0), "success means that all came");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string path = (std::filesystem::temp_directory_path() / "nq-fuzz-XXXXXX").string();
    Require(mkdtemp(path.data()) != nullptr, "there is a folder");
    g_folder = path;
    std::atexit([] { std::filesystem::remove_all(g_folder); });
    Require(std::freopen((g_folder + "/printed").c_str(), "ae", stdout) != nullptr, "standard output is a file");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const ChooseAnswers kChooseAnswers = LoadProducer();
    if (size == 0)
    {
        return 0;
    }
    const std::uint64_t count = 1 + (data[0] >> 5);
    std::vector<std::string> arguments = {"--producer", NQ_FAKE_PRODUCER_PATH, "--json"};
    if ((data[0] & 1) != 0)
    {
        arguments.insert(arguments.end(), {"list"});
    }
    else
    {
        arguments.insert(arguments.end(), {"grab", "--buffers", "2", "--count", std::to_string(count)});
        const struct
        {
            int bit;
            std::vector<std::string> words;
        } choices[] = {{2, {"--announce"}}, {4, {"--verify"}}, {8, {"--out", g_folder + "/pictures"}}};
        for (const auto& choice : choices)
        {
            if ((data[0] & choice.bit) != 0)
            {
                arguments.insert(arguments.end(), choice.words.begin(), choice.words.end());
            }
        }
    }
    kChooseAnswers(data + 1, size - 1);
    const int exitCode = Run(arguments);
    kChooseAnswers(nullptr, 0);
    const std::string printed = Printed();
    if ((data[0] & 1) == 0)
    {
        CheckSummary(printed, count, exitCode);
    }
    else if (!printed.empty())
    {
        Require(nlohmann::json::accept(printed), "the list is JSON");
    }
    std::filesystem::remove_all(g_folder + "/pictures");
    return 0;
}
