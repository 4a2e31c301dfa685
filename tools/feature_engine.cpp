// SPDX-License-Identifier: Apache-2.0
// The engine for features by name, a library that came with this program and that the verbs for features, `grab` and
// `events` load.
#include "feature_engine.h"

#include "exit_codes.h"
#include "installed_folder.h"

#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

/// What the library exports under `name`.
void* Symbol(const char* name)
{
    std::error_code ignored;
    const fs::path file = FolderOf("nq-gev-features.so", "../lib/nq-gev") / "nq-gev-features.so";
    if (!fs::exists(file, ignored))
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("features by name need {}, which this build left out: install libaravis-dev "
                                      "(`apt-get install libaravis-dev`) and build again",
                                      file.string()));
    }
    // Never closed: the types of its libraries stay registered.
    void* const library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const symbol = library == nullptr ? nullptr : dlsym(library, name);
    if (symbol == nullptr)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("features by name need libaravis: install libaravis-0.8-0 "
                                                         "(`apt-get install libaravis-0.8-0`): {}",
                                                         dlerror()));
    }
    return symbol;
}

} // namespace

void NeedFeatureEngine()
{
    Symbol(kFeatureEngineEntry);
}

std::unique_ptr<FeatureTree> OpenFeatureTree(const std::string& description, const FeaturePort& port)
{
    const auto open = reinterpret_cast<FeatureEngineEntry>(Symbol(kFeatureEngineEntry));
    try
    {
        return std::unique_ptr<FeatureTree>(open(description, port));
    }
    catch (const FeatureError& error)
    {
        throw ToolFailure(ExitCode::Failure, error.what());
    }
}

std::string PlainDescription(const std::string& file)
{
    if (!file.starts_with("PK\x03\x04"))
    {
        return file;
    }
    const auto unzip = reinterpret_cast<FeatureEngineUnzip>(Symbol(kFeatureEngineUnzip));
    try
    {
        return *std::unique_ptr<std::string>(unzip(file));
    }
    catch (const FeatureError& error)
    {
        throw ToolFailure(ExitCode::Failure, error.what());
    }
}

} // namespace nq::tool
