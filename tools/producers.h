// SPDX-License-Identifier: Apache-2.0
// Which producers there are, and what each of them sees.
#pragma once

#include "camera_tree.h"
#include "exit_codes.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

/// The producers to ask: `argument` alone if not empty, else every .cti in the folders of GENICAM_GENTL64_PATH, or
/// that came with this program where that is unset or empty. Each file once. Throws ToolFailure(NoProducer).
std::vector<std::string> FindProducers(const std::string& argument);

/// What a producer says about itself; empty where it says nothing.
struct ProducerFacts
{
    std::string id;
    std::string vendor;
    std::string model;
    std::string version;
    std::string type;    ///< of its transport layer
    std::string gentl;   ///< the version of the standard that it follows
    std::string answers; ///< "standard" or "stated", which are in use; empty for a producer that is not ours
};

ProducerFacts FactsOf(const System& system);

/// One producer and what it saw.
struct ProducerEntry
{
    std::string path;
    ProducerFacts facts;
    std::vector<InterfaceEntry> interfaces; ///< as the last whole scan has them
    size_t scans = 0;                       ///< whole scans, each of every interface
    std::string modules;                    ///< what ModuleInfos() gave, in CBOR; empty where the plan has none
    std::string problem;                    ///< why it sees nothing; empty for a producer that works
    ExitCode code = ExitCode::Success;      ///< the exit code that fits the problem
};

/// One camera and the producer that sees it.
struct FoundCamera
{
    std::string producer;
    CameraEntry camera;
};

/// Every camera once: of several interfaces of a producer that see it, the one that gives the most access.
std::vector<FoundCamera> CamerasOf(const std::vector<ProducerEntry>& producers);

/// Says after a scan that no further one is needed.
using Enough = std::function<bool(const std::vector<ProducerEntry>&)>;

/// How to look for cameras.
struct SearchPlan
{
    std::vector<uint64_t>
        scansMs; ///< how long each scan listens on each interface, in milliseconds; none for the facts
    Enough enough = [](const std::vector<ProducerEntry>&) { return false; };
    std::optional<uint64_t> modulesMs =
        std::nullopt;     ///< asks for all infos, and looks so long for cameras; nothing for no infos
    bool endless = false; ///< repeats the last scan until there is enough, for interfaces that come and go

    /// How long the scan with that number, from 0 on, listens; nothing when there is none.
    std::optional<uint64_t> ScanMs(size_t scan) const;

    /// What is to stand in ProducerEntry::modules.
    std::string Modules(const System& system, const std::function<void()>& afterEach) const;

    /// One scan of `ms` milliseconds, with `afterEach` called behind each interface.
    std::vector<InterfaceEntry> Scan(const System& system, uint64_t ms, const std::function<void()>& afterEach) const;
};

/// Asks the producers. One that the user named runs in this process; the ones that were found run in a child process
/// each, side by side, so that one that crashes, hangs or cannot be loaded is a problem of its own alone. Those are
/// warned of on standard error, unless the search is endless. Throws ToolFailure when no producer works.
std::vector<ProducerEntry> AskProducers(const std::string& argument, const SearchPlan& plan);

/// Warns of a producer that does not work.
void WarnOfProblem(const ProducerEntry& producer);

/// Asks each in a child process, whoever named it, and tells and throws nothing: every problem is in its entry.
std::vector<ProducerEntry> AskApart(const std::vector<std::string>& paths, const SearchPlan& plan);

} // namespace nq::tool
