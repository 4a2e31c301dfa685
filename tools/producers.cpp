// SPDX-License-Identifier: Apache-2.0
// Which producers there are, and what each of them sees.
#include "producers.h"

#include "installed_folder.h"
#include "module_infos.h"
#include "printable.h"
#include "producer_child.h"
#include "stop_signals.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <poll.h>
#include <set>
#include <sstream>
#include <thread>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

/// A link that leads nowhere is one too: it is told as a producer that cannot be loaded.
bool IsProducerFile(const fs::directory_entry& entry)
{
    std::error_code ignored;
    return entry.path().extension() == ".cti" &&
           (entry.is_regular_file(ignored) || (entry.is_symlink(ignored) && !entry.exists(ignored)));
}

/// The .cti files of a folder by name, without those of which `known` has the file already; none of a folder that
/// cannot be read, which `unread` tells.
std::vector<std::string> NewProducersIn(const fs::path& folder, std::set<fs::path>& known, std::error_code& unread)
{
    std::vector<fs::path> files;
    std::error_code ignored;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder, unread))
    {
        if (IsProducerFile(entry))
        {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<std::string> found;
    for (const fs::path& file : files)
    {
        if (known.insert(fs::weakly_canonical(file, ignored)).second)
        {
            found.push_back(file);
        }
    }
    return found;
}

std::vector<ProducerEntry> AskInThisProcess(const std::string& path, const SearchPlan& plan)
{
    GenTLLibrary library(path);
    const System system(library);
    std::vector<ProducerEntry> asked(1);
    asked[0].path = path;
    asked[0].facts = FactsOf(system);
    asked[0].modules = plan.Modules(system, [] {});
    while (const std::optional<uint64_t> ms = plan.ScanMs(asked[0].scans))
    {
        asked[0].interfaces = plan.Scan(system, *ms, [] {});
        ++asked[0].scans;
        if (plan.enough(asked))
        {
            break;
        }
    }
    return asked;
}

/// Every .cti in the folders, which colons part. Throws ToolFailure where there is none.
std::vector<std::string> ProducersOnPath(const std::string& folders)
{
    std::vector<std::string> found;
    std::set<fs::path> known;
    std::string problems;
    std::istringstream stream(folders);
    for (std::string folder; std::getline(stream, folder, ':');)
    {
        std::error_code unread;
        const std::vector<std::string> here = NewProducersIn(folder, known, unread);
        found.insert(found.end(), here.begin(), here.end());
        problems += unread && !folder.empty() ? fmt::format("; {}: {}", folder, unread.message()) : "";
    }
    if (found.empty())
    {
        throw ToolFailure(ExitCode::NoProducer,
                          fmt::format("no .cti in GENICAM_GENTL64_PATH ({}){}", folders, problems));
    }
    return found;
}

/// Waits until one of the children says something or is overdue, and takes it. False when all have ended.
bool HearNext(std::vector<std::unique_ptr<ProducerChild>>& children, std::vector<ProducerEntry>& asked)
{
    std::vector<pollfd> pipes;
    auto soonest = ProducerChild::Clock::time_point::max();
    for (const auto& child : children)
    {
        pipes.push_back({child->Pipe(), POLLIN, 0}); // one of -1 is not looked at
        soonest = child->Pipe() < 0 ? soonest : std::min(soonest, child->Deadline());
    }
    if (soonest == ProducerChild::Clock::time_point::max())
    {
        return false;
    }
    const auto wait = std::chrono::ceil<std::chrono::milliseconds>(soonest - ProducerChild::Clock::now());
    poll(pipes.data(), pipes.size(), static_cast<int>(std::clamp<int64_t>(wait.count(), 0, 1000)));
    for (size_t at = 0; at < children.size(); ++at)
    {
        if (pipes[at].revents != 0)
        {
            children[at]->Hear(asked[at]);
        }
        else if (pipes[at].fd >= 0 && ProducerChild::Clock::now() >= children[at]->Deadline())
        {
            children[at]->GiveUp(asked[at]);
        }
    }
    return true;
}

bool Works(const ProducerEntry& producer)
{
    return producer.problem.empty();
}

/// Throws when no producer works.
void NeedOneThatWorks(const std::vector<ProducerEntry>& asked)
{
    if (std::any_of(asked.begin(), asked.end(), Works))
    {
        return;
    }
    std::string all;
    for (const ProducerEntry& producer : asked)
    {
        all += fmt::format("{}{}: {}", all.empty() ? "" : "; ", producer.path, producer.problem);
    }
    const ProducerEntry& first = asked.front();
    // Of one that was loaded, and ended or hung, the problem does not name the file.
    const bool named = first.code != ExitCode::NoProducer || first.problem.find(first.path) != std::string::npos;
    const std::string alone = named ? first.problem : all;
    throw ToolFailure(first.code, asked.size() == 1 ? alone : fmt::format("no producer works: {}", all));
}

} // namespace

std::optional<uint64_t> SearchPlan::ScanMs(size_t scan) const
{
    if (scansMs.empty() || (scan >= scansMs.size() && !endless))
    {
        return std::nullopt;
    }
    return scansMs[std::min(scan, scansMs.size() - 1)];
}

std::string SearchPlan::Modules(const System& system, const std::function<void()>& afterEach) const
{
    std::string modules;
    if (modulesMs)
    {
        nlohmann::ordered_json::to_cbor(ModuleInfos(system, *modulesMs, afterEach), modules);
    }
    return modules;
}

std::vector<InterfaceEntry> SearchPlan::Scan(const System& system, uint64_t ms,
                                             const std::function<void()>& afterEach) const
{
    if (!endless)
    {
        return ScanAll(system, ms, afterEach);
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    std::vector<InterfaceEntry> interfaces = ScanAnew(system, ms, afterEach);
    while (std::chrono::steady_clock::now() < end && !StopAsked()) // a producer need not take the time that it has
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return interfaces;
}

ProducerFacts FactsOf(const System& system)
{
    const auto number = [&system](GenTL::TL_INFO_CMD command) {
        return GenTLLibrary::Number([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
            return system.Library().TLGetInfo(system.Handle(), command, type, buffer, size);
        });
    };
    const std::optional<uint64_t> major = number(GenTL::TL_INFO_GENTL_VER_MAJOR);
    const std::optional<uint64_t> minor = number(GenTL::TL_INFO_GENTL_VER_MINOR);
    ProducerFacts facts;
    facts.id = system.Text(GenTL::TL_INFO_ID);
    facts.vendor = system.Text(GenTL::TL_INFO_VENDOR);
    facts.model = system.Text(GenTL::TL_INFO_MODEL);
    facts.version = system.Text(GenTL::TL_INFO_VERSION);
    facts.type = system.Text(GenTL::TL_INFO_TLTYPE);
    facts.gentl = major && minor ? fmt::format("{}.{}", *major, *minor) : "";
    facts.answers = !system.IsOurs() ? "" : system.GivesStatedAnswers() ? "stated" : "standard";
    return facts;
}

std::vector<std::string> FindProducers(const std::string& argument)
{
    if (!argument.empty())
    {
        return {argument};
    }
    const char* folders = std::getenv("GENICAM_GENTL64_PATH");
    if (folders != nullptr && *folders != '\0')
    {
        return ProducersOnPath(folders);
    }
    std::set<fs::path> known;
    std::error_code ignored;
    std::vector<std::string> found = NewProducersIn(FolderOfOurProducer(), known, ignored);
    if (found.empty())
    {
        throw ToolFailure(ExitCode::NoProducer, "no producer: give --producer PATH or set GENICAM_GENTL64_PATH");
    }
    return found;
}

std::vector<FoundCamera> CamerasOf(const std::vector<ProducerEntry>& producers)
{
    std::vector<FoundCamera> cameras;
    for (const ProducerEntry& producer : producers)
    {
        for (const InterfaceEntry& interface : producer.interfaces)
        {
            for (const CameraEntry& camera : interface.cameras)
            {
                const auto known = std::find_if(cameras.begin(), cameras.end(), [&](const FoundCamera& other) {
                    return other.producer == producer.path && other.camera.id == camera.id;
                });
                if (known == cameras.end())
                {
                    cameras.push_back({producer.path, camera});
                }
                else if (camera.accessStatus == GenTL::DEVICE_ACCESS_STATUS_READWRITE &&
                         known->camera.accessStatus != GenTL::DEVICE_ACCESS_STATUS_READWRITE)
                {
                    known->camera = camera;
                }
            }
        }
    }
    return cameras;
}

void WarnOfProblem(const ProducerEntry& producer)
{
    fmt::print(stderr, "nq-gev: warning: {} is left out: {}\n", Printable(producer.path), Printable(producer.problem));
}

std::vector<ProducerEntry> AskApart(const std::vector<std::string>& paths, const SearchPlan& plan)
{
    std::vector<ProducerEntry> asked;
    std::vector<std::unique_ptr<ProducerChild>> children;
    for (const std::string& path : paths)
    {
        asked.emplace_back().path = path;
        children.push_back(std::make_unique<ProducerChild>(path, plan));
    }
    while (!plan.enough(asked) && HearNext(children, asked))
    {
    }
    return asked;
}

std::vector<ProducerEntry> AskProducers(const std::string& argument, const SearchPlan& plan)
{
    if (!argument.empty())
    {
        return AskInThisProcess(argument, plan);
    }
    std::vector<ProducerEntry> asked = AskApart(FindProducers(argument), plan);
    NeedOneThatWorks(asked);
    for (const ProducerEntry& producer : asked)
    {
        if (!Works(producer) && !plan.endless)
        {
            WarnOfProblem(producer);
        }
    }
    return asked;
}

} // namespace nq::tool
