// SPDX-License-Identifier: Apache-2.0
// The engine for features by name, a library that came with this program and that the verbs for features, `grab` and
// `events` load.
#pragma once

#include "feature_tree.h"

#include <memory>
#include <string>

namespace nq::tool
{

/// The features of a description, an XML text or a zip with one, behind a port that outlives them. Throws ToolFailure
/// with what to install when there is no engine, and when the description is none.
std::unique_ptr<FeatureTree> OpenFeatureTree(const std::string& description, const FeaturePort& port);

/// The XML text of a file that may be a zip. Throws as OpenFeatureTree() does, without an engine for a zip alone.
std::string PlainDescription(const std::string& file);

/// Throws the ToolFailure of a machine without the engine before a camera is looked for.
void NeedFeatureEngine();

} // namespace nq::tool
