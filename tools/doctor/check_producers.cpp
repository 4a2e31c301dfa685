// SPDX-License-Identifier: Apache-2.0
// Findings about the libraries: whether programs find them, and whether they load.
#include "doctor/checks.h"
#include "shell_word.h"

#include "installed_folder.h"

#include <filesystem>
#include <fmt/format.h>

namespace nq::tool::doctor
{

namespace
{

constexpr const char* kPath = "GENICAM_GENTL64_PATH";

/// The folder that programs should look in.
std::string FolderToName(const Scene& scene)
{
    if (!scene.producers.empty())
    {
        return std::filesystem::absolute(scene.producers.front().path).parent_path();
    }
    return FolderOfOurProducer();
}

/// A colon ends a folder in the variable, so one with a colon gets another name.
std::string FolderWord(const std::string& folder)
{
    const std::string word = ShellWord(folder);
    return folder.find(':') == std::string::npos
               ? word
               : fmt::format("~/nq-gev-producer && ln -sfn {} ~/nq-gev-producer", word);
}

void CheckPath(const Scene& scene, const CommonOptions& common, Findings& findings)
{
    const std::string path = StartedWith(kPath).value_or("");
    const Findings::Words words = {{"FOLDER", FolderWord(FolderToName(scene))}};
    if (!common.producer.empty())
    {
        findings.Right("producer.path", "", fmt::format("not needed: {} was named", common.producer));
    }
    else if (path.empty())
    {
        findings.Wrong("producer.path", "", fmt::format("{} is not set: programs but nq-gev find no producer", kPath),
                       words);
    }
    else if (!scene.whyNoProducer.empty())
    {
        findings.Wrong("producer.path", "", scene.whyNoProducer, words);
    }
    else
    {
        findings.Right("producer.path", "", fmt::format("{} leads to {} .cti", kPath, scene.producers.size()));
    }
}

/// The library that the loader did not find; empty when that is not the problem.
std::string MissingLibrary(const ProducerEntry& producer)
{
    constexpr std::string_view kBefore = "cannot load the producer: ";
    constexpr std::string_view kBehind = ": cannot open shared object file";
    const size_t end = producer.problem.find(kBehind);
    if (!producer.problem.starts_with(kBefore) || end == std::string::npos)
    {
        return {};
    }
    std::string library = producer.problem.substr(kBefore.size(), end - kBefore.size());
    return library == producer.path ? "" : library;
}

/// How Debian calls the package of a library: libabc.so.1 is in libabc1, libabc2.so.1 in libabc2-1.
std::string PackageOf(const std::string& library)
{
    const size_t end = library.find(".so");
    if (end == std::string::npos || end == 0)
    {
        return library;
    }
    const std::string version = library.size() > end + 4 ? library.substr(end + 4) : "";
    const bool digit = library[end - 1] >= '0' && library[end - 1] <= '9';
    return library.substr(0, end) + (digit && !version.empty() ? "-" : "") + version;
}

void CheckOne(const ProducerEntry& producer, Findings& findings)
{
    const std::string missing = MissingLibrary(producer);
    if (!missing.empty())
    {
        findings.Wrong("producer.libraries", producer.path, fmt::format("{} is missing", missing),
                       {{"PACKAGE", PackageOf(missing)}});
        findings.NotKnown("producer.load", producer.path, "a library that it needs is missing");
        return;
    }
    findings.Right("producer.libraries", producer.path, "all are there");
    if (producer.problem.empty())
    {
        findings.Right("producer.load", producer.path,
                       fmt::format("{} {}, GenTL {}", producer.facts.id, producer.facts.version, producer.facts.gentl));
        return;
    }
    findings.Wrong("producer.load", producer.path, producer.problem, {{"FILE", ShellWord(producer.path)}});
}

void CheckAnswers(const CommonOptions& common, Findings& findings)
{
    constexpr const char* kId = "producer.answers";
    const std::string set = StartedWith("NQ_GEV_TL_STANDARD").value_or("");
    const std::string answers = set == "1" ? "standard" : "stated";
    const char* const told =
        set == "1" ? "the standard's (NQ_GEV_TL_STANDARD=1)" : "our producer's own, for its own hosts";
    if (answers == common.answers)
    {
        findings.Right(kId, "", told);
        return;
    }
    findings.Wrong(kId, "", told,
                   {{"SETTING", set == "1" ? "unset NQ_GEV_TL_STANDARD" : "export NQ_GEV_TL_STANDARD=1"}});
}

} // namespace

void CheckProducers(const Scene& scene, const CommonOptions& common, Findings& findings)
{
    CheckPath(scene, common, findings);
    for (const ProducerEntry& producer : scene.producers)
    {
        CheckOne(producer, findings);
    }
    CheckAnswers(common, findings);
    findings.NotKnownElse({"producer.libraries", "producer.load"}, "no .cti was found (producer.path)");
}

} // namespace nq::tool::doctor
