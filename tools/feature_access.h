// SPDX-License-Identifier: Apache-2.0
// The features of one port, as the verbs see them.
#pragma once

#include "feature_engine.h"
#include "port_access.h"

#include <functional>
#include <string>
#include <vector>

namespace nq::tool
{

/// "Gain", or "Gain[AnalogAll]" for one of its values, with a value for each selector.
struct FeatureName
{
    std::string name;
    std::vector<std::string> selection;
};

/// Throws ToolFailure(Usage) for brackets that are not closed or hold nothing.
FeatureName ParseFeatureName(const std::string& text);

/// "NAME=VALUE" taken apart.
struct Setting
{
    std::string name;
    std::string value;
};

/// Throws ToolFailure(Usage) for a text without "=".
Setting ParseSetting(const std::string& text);

/// A feature as it is now.
struct Reading
{
    std::string name; ///< as it was asked for
    Feature feature;
    FeatureValue value;
    std::string problem; ///< why there is no value; empty for a command as well
};

/// Used from one thread. Failures are ToolFailure: Usage for what never works, Failure for what does not work now,
/// CameraLost when the camera went silent, StopCode() when the user asked to stop before a feature. Their texts name
/// the feature, the value and the limit.
class Features
{
  public:
    /// Without `mayWrite` nothing is written, selectors neither.
    explicit Features(PortAccess port, bool mayWrite = true);

    const std::vector<std::string>& Names() const { return m_tree->Names(); }

    bool Has(const std::string& name) const { return m_tree->Has(name); }

    /// What hinders the feature at the moment is in the reading.
    Reading Read(const std::string& text);

    void Set(const Setting& setting);

    /// In order, when all of them name features and values of their types; the text of a failure tells what was set
    /// before it.
    void SetAll(const std::vector<std::string>& settings);

    void Execute(const std::string& name);

    /// The name of the event with that id; nothing when no feature is about it.
    std::optional<std::string> EventName(uint64_t id) { return m_tree->EventName(id); }

    /// Runs `work` with the selectors at the values that the name tells, and puts them back.
    void Selected(const FeatureName& name, const std::function<void()>& work);

  private:
    Feature Look(const std::string& name);
    void NeedKnown(const std::string& name);
    void CheckType(const Setting& setting);
    void Select(const Feature& feature, const FeatureName& name,
                std::vector<std::pair<std::string, FeatureValue>>& before);
    void Write(const Setting& setting, const std::string& name);

    /// Runs `work`, and makes a ToolFailure of the engine's failure.
    void Try(const std::string& what, const std::function<void()>& work);

    PortAccess m_port;
    bool m_mayWrite;
    FeaturePort m_access;
    std::unique_ptr<FeatureTree> m_tree;
};

/// "; nothing was changed", or what was.
std::string StateText(const std::vector<std::string>& done);

} // namespace nq::tool
