// SPDX-License-Identifier: Apache-2.0
// The settings of a module as a file that people read and edit.
#pragma once

#include "feature_access.h"

#include <string>
#include <vector>

namespace nq::tool
{

/// Lines "NAME = VALUE", in an order in which they can be set: each value of what a selector selects by itself, then
/// the selectors as they are. Empty lines and comments, which begin with "#", tell things apart. Without `control` the
/// selectors stay, and one value stands for all.
std::string SettingsText(Features& features, const std::string& who, bool control);

/// The settings of such a text. Throws ToolFailure(Usage) with the number of the first line that is none.
std::vector<Setting> ParseSettings(const std::string& text);

/// What could not be set.
struct UnsetSetting
{
    Setting setting;
    std::string reason;
};

/// Sets all of them in order, and what failed a second time, since some depend on others. Throws ToolFailure when the
/// camera went silent, with what was set before.
std::vector<UnsetSetting> ApplySettings(Features& features, const std::vector<Setting>& settings);

} // namespace nq::tool
