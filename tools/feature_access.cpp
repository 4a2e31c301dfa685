// SPDX-License-Identifier: Apache-2.0
// The features of one port, as the verbs see them.
#include "feature_access.h"

#include "feature_text.h"
#include "stop_signals.h"

#include <algorithm>
#include <fmt/format.h>
#include <sstream>

namespace nq::tool
{

namespace
{

std::string Joined(const std::vector<std::string>& words, const char* between)
{
    std::string text;
    for (const std::string& word : words)
    {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

[[noreturn]] void Refuse(ExitCode code, const std::string& what, const std::string& why)
{
    throw ToolFailure(code, what + ": " + why);
}

/// The feature as far as its type goes, whatever its limits are at the moment.
Feature TypeAlone(Feature feature)
{
    feature.min = feature.max = feature.step = FeatureValue();
    for (FeatureEntry& entry : feature.entries)
    {
        entry.available = true;
    }
    return feature;
}

} // namespace

FeatureName ParseFeatureName(const std::string& text)
{
    const size_t open = text.find('[');
    if (open == std::string::npos)
    {
        return {text, {}};
    }
    FeatureName name{text.substr(0, open), {}};
    if (open == 0 || !text.ends_with("]"))
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("\"{}\" is no feature: NAME or NAME[SELECTION]", text));
    }
    std::istringstream inside(text.substr(open + 1, text.size() - open - 2));
    for (std::string one; std::getline(inside, one, ',');)
    {
        name.selection.push_back(one);
    }
    const auto& selection = name.selection;
    if (text.ends_with(",]") || std::find(selection.begin(), selection.end(), "") != selection.end() ||
        selection.empty())
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("\"{}\" selects nothing: NAME or NAME[SELECTION]", text));
    }
    return name;
}

Setting ParseSetting(const std::string& text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
    {
        throw ToolFailure(ExitCode::Usage, fmt::format("\"{}\" is not NAME=VALUE", text));
    }
    return {text.substr(0, equals), text.substr(equals + 1)};
}

std::string StateText(const std::vector<std::string>& done)
{
    return done.empty() ? "; nothing was changed" : "; set before it: " + Joined(done, ", ");
}

Features::Features(PortAccess port, bool mayWrite)
    : m_port(std::move(port)), m_mayWrite(mayWrite),
      m_access{[this](uint64_t address, void* data, size_t size) { return m_port.Read(address, data, size); },
               [this](uint64_t address, const void* data, size_t size) { return m_port.Write(address, data, size); }},
      m_tree(OpenFeatureTree(m_port.Description().bytes, m_access))
{
}

void Features::Try(const std::string& what, const std::function<void()>& work)
{
    m_port.ForgetFailure();
    try
    {
        work();
    }
    catch (const FeatureError& error)
    {
        if (m_port.Failure() != GenTL::GC_ERR_SUCCESS)
        {
            throw ToolFailure(m_port.Explained(what));
        }
        Refuse(ExitCode::Failure, what, error.what());
    }
}

void Features::NeedKnown(const std::string& name)
{
    if (!m_tree->Has(name))
    {
        const std::vector<std::string> near = NearNames(name, Names());
        Refuse(ExitCode::Usage, name,
               near.empty() ? "there is no such feature: `nq-gev features` lists all"
                            : "there is no such feature; near to it: " + Joined(near, ", "));
    }
}

Feature Features::Look(const std::string& name)
{
    NeedKnown(name);
    Feature feature;
    Try(name, [&] { feature = m_tree->Look(name); });
    return feature;
}

void Features::Select(const Feature& feature, const FeatureName& name,
                      std::vector<std::pair<std::string, FeatureValue>>& before)
{
    const std::string what = fmt::format("{}[{}]", name.name, Joined(name.selection, ","));
    if (feature.selectors.size() != name.selection.size())
    {
        Refuse(ExitCode::Usage, what,
               feature.selectors.empty()
                   ? name.name + " has no selector"
                   : fmt::format("{} is selected by {}", name.name, Joined(feature.selectors, ", ")));
    }
    for (size_t at = 0; at < name.selection.size(); ++at)
    {
        const std::string& selector = feature.selectors[at];
        const Feature looked = Look(selector);
        FeatureValue wanted;
        FeatureValue now;
        try
        {
            wanted = ParseValue(looked, name.selection[at]);
        }
        catch (const FeatureError& error)
        {
            Refuse(ExitCode::Usage, what, selector + " " + error.what());
        }
        Try(what, [&] { now = m_tree->Value(selector); });
        if (now == wanted)
        {
            continue;
        }
        if (!m_mayWrite)
        {
            Refuse(ExitCode::CameraInUse, what,
                   fmt::format("{} is {}, and only the program that controls the camera can change it", selector,
                               ValueText(looked, now)));
        }
        before.emplace_back(selector, now);
        Try(what, [&] { m_tree->Write(selector, wanted); });
    }
}

void Features::Selected(const FeatureName& name, const std::function<void()>& work)
{
    if (name.selection.empty())
    {
        work();
        return;
    }
    std::vector<std::pair<std::string, FeatureValue>> before;
    const auto putBack = [&] {
        while (!before.empty())
        {
            Try(before.back().first, [&] { m_tree->Write(before.back().first, before.back().second); });
            before.pop_back();
        }
    };
    try
    {
        Select(Look(name.name), name, before);
        work();
        putBack();
    }
    catch (const ToolFailure& failure)
    {
        try
        {
            putBack();
        }
        catch (const ToolFailure&) // what came first is told
        {
            std::vector<std::string> moved(before.size());
            std::transform(before.begin(), before.end(), moved.begin(), [](const auto& one) { return one.first; });
            throw ToolFailure(failure.With(fmt::format("; {} may stand elsewhere now", Joined(moved, ", "))));
        }
        throw;
    }
}

Reading Features::Read(const std::string& text)
{
    EndIfStopAsked("stopped");
    const FeatureName name = ParseFeatureName(text);
    NeedKnown(name.name);
    Reading reading;
    reading.name = text;
    Selected(name, [&] {
        reading.feature = Look(name.name);
        if (!reading.feature.available)
        {
            reading.problem = "not available now";
            return;
        }
        if (!reading.feature.readable)
        {
            return;
        }
        try
        {
            Try(text, [&] { reading.value = m_tree->Value(name.name); });
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() != ExitCode::Failure)
            {
                throw;
            }
            reading.problem = std::string(failure.what()).substr(text.size() + 2);
        }
    });
    return reading;
}

void Features::CheckType(const Setting& setting)
{
    const FeatureName name = ParseFeatureName(setting.name);
    const Feature feature = Look(name.name);
    const std::string what = setting.name + "=" + setting.value;
    if (feature.type == FeatureType::Command)
    {
        Refuse(ExitCode::Usage, what, "takes " + TakenValues(feature));
    }
    try
    {
        static_cast<void>(ParseValue(TypeAlone(feature), setting.value));
    }
    catch (const FeatureError&)
    {
        Refuse(ExitCode::Usage, what, "takes " + TakenValues(feature));
    }
}

void Features::Write(const Setting& setting, const std::string& name)
{
    const std::string what = setting.name + "=" + setting.value;
    const Feature feature = Look(name);
    if (!feature.available)
    {
        Refuse(ExitCode::Failure, what, name + " is not available now");
    }
    if (feature.locked)
    {
        Refuse(ExitCode::Failure, what, name + " is locked now, as features are while the camera streams");
    }
    if (!feature.writable)
    {
        Refuse(ExitCode::Usage, what, name + " is read-only");
    }
    FeatureValue value;
    try
    {
        value = ParseValue(feature, setting.value);
    }
    catch (const FeatureError& error)
    {
        Refuse(ExitCode::Usage, what, error.what());
    }
    Try(what, [&] { m_tree->Write(name, value); });
}

void Features::Set(const Setting& setting)
{
    EndIfStopAsked("stopped");
    CheckType(setting);
    const FeatureName name = ParseFeatureName(setting.name);
    Selected(name, [&] { Write(setting, name.name); });
}

void Features::SetAll(const std::vector<std::string>& settings)
{
    std::vector<Setting> parsed;
    std::vector<std::string> done;
    try
    {
        for (const std::string& text : settings)
        {
            parsed.push_back(ParseSetting(text));
            CheckType(parsed.back());
        }
        for (const Setting& setting : parsed)
        {
            Set(setting);
            done.push_back(setting.name + "=" + setting.value);
        }
    }
    catch (const ToolFailure& failure)
    {
        const bool unknown = failure.Code() == ExitCode::CameraLost && done.size() < parsed.size();
        const std::string state = unknown && done.empty() ? "" : StateText(done);
        throw ToolFailure(failure.With(state + (unknown ? "; this one may be set or not" : "")));
    }
}

void Features::Execute(const std::string& name)
{
    EndIfStopAsked("stopped");
    const Feature feature = Look(name);
    if (feature.type != FeatureType::Command)
    {
        Refuse(ExitCode::Usage, name, "it is no command, but takes " + TakenValues(feature));
    }
    if (!feature.available || feature.locked)
    {
        Refuse(ExitCode::Failure, name,
               feature.available ? "it is locked now, as features are while the camera streams"
                                 : "it is not available now");
    }
    Try(name, [&] { m_tree->Execute(name); });
}

} // namespace nq::tool
