// SPDX-License-Identifier: Apache-2.0
// Findings about what lets this process use RDMA: kernel modules, device files, the container.
#include "doctor/checks.h"
#include "doctor/memory_rights.h"
#include "shell_word.h"
#include "software_rdma.h"

#include <fmt/format.h>
#include <optional>
#include <sys/resource.h>

namespace nq::tool::doctor
{

namespace
{

constexpr const char* kFiles = "dev/infiniband";

/// The files that verbs and the connection manager open.
std::vector<std::string> NeededFiles(const Machine& machine)
{
    std::vector<std::string> files = {fmt::format("{}/rdma_cm", kFiles)};
    bool any = false;
    for (const std::string& name : machine.Names(kFiles))
    {
        if (name.starts_with("uverbs"))
        {
            files.push_back(fmt::format("{}/{}", kFiles, name));
            any = true;
        }
    }
    if (!any)
    {
        files.push_back(fmt::format("{}/uverbs0", kFiles));
    }
    return files;
}

void CheckModules(const Scene& scene, Findings& findings)
{
    std::string missing;
    // What is built into the kernel shows by its file alone.
    for (const auto& [module, file] : {std::pair("ib_uverbs", "/uverbs0"), {"rdma_ucm", "/rdma_cm"}})
    {
        if (!scene.machine.Has(std::string("sys/module/") + module) && !scene.machine.Has(kFiles + std::string(file)))
        {
            missing += (missing.empty() ? "" : ", ") + std::string(module);
        }
    }
    missing.empty() ? findings.Right("rdma.modules", "", "ib_uverbs and rdma_ucm are there")
                    : findings.Wrong("rdma.modules", "", missing + " not loaded");
}

void CheckFiles(const Scene& scene, Findings& findings)
{
    for (const std::string& file : NeededFiles(scene.machine))
    {
        const std::string why = scene.machine.WhyNotOpen(file);
        if (!why.empty() && !scene.machine.Has(file))
        {
            findings.NotKnown("rdma.files", "", fmt::format("there is no /{} (rdma.modules, rdma.device)", file));
            return;
        }
        if (!why.empty())
        {
            findings.Wrong("rdma.files", "", fmt::format("/{}: {}", file, why));
            return;
        }
    }
    findings.Right("rdma.files", "", "/dev/infiniband can be opened");
}

/// Container engines leave a file of theirs, or name themselves to the first process.
bool IsContainer(const Machine& machine)
{
    const std::string environment = machine.Text("proc/1/environ").value_or("");
    return machine.Has(".dockerenv") || machine.Has("run/.containerenv") || environment.starts_with("container=") ||
           environment.find(std::string("\0container=", 11)) != std::string::npos;
}

void CheckContainer(const Scene& scene, Findings& findings)
{
    constexpr const char* kId = "rdma.container";
    if (!IsContainer(scene.machine))
    {
        findings.Right(kId, "", "this is no container");
    }
    else if (!scene.machine.Has(kFiles))
    {
        findings.Wrong(kId, "", "/dev/infiniband is not in the container");
    }
    else if (!MayLockAnything(scene.machine) && LockableBytes() != RLIM_INFINITY)
    {
        findings.Wrong(kId, "", "memory to lock is limited, and CAP_IPC_LOCK is missing");
    }
    else
    {
        findings.Right(kId, "", "/dev/infiniband is there, and memory may be locked");
    }
}

void CheckFolder(Findings& findings)
{
    const std::optional<FolderProblem> problem = SoftwareRdmaFolderProblem();
    problem ? findings.Wrong("rdma.folder", "", fmt::format("{} is refused: {}", problem->folder, problem->why),
                             {{"FOLDER", ShellWord(problem->usable)}})
            : findings.Right("rdma.folder", "", "it is this user's alone");
}

} // namespace

void CheckRdmaRights(const Scene& scene, Findings& findings)
{
    if (scene.onSoftwareRdma)
    {
        for (const char* id : {"rdma.modules", "rdma.files", "rdma.container"})
        {
            findings.Right(id, "", "not needed on software RDMA");
        }
        CheckFolder(findings);
        return;
    }
    findings.Right("rdma.folder", "", "not needed without software RDMA");
    CheckModules(scene, findings);
    CheckFiles(scene, findings);
    CheckContainer(scene, findings);
}

} // namespace nq::tool::doctor
