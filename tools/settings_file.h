// SPDX-License-Identifier: Apache-2.0
// The settings of a module as a file that people read and edit.
#pragma once

#include "feature_access.h"

#include <string>
#include <string_view>
#include <vector>

namespace nq::tool
{

/// Lines "NAME = VALUE", in an order in which they can be set: each value of what a selector selects by itself, then
/// the selectors as they are. Empty lines and comments, which begin with "#", tell things apart; the first names the
/// module `who`. Texts are in quotes as in JSON, or "hex:" and their bytes when they are no UTF-8. Without `control`
/// the selectors stay, and one value stands for all. What has more than 4096 values of that kind, as large tables have,
/// is left out, and the text says so.
struct SavedSettings
{
    std::string text;
    std::vector<std::string> left; ///< what is left out and why, a sentence each
};
SavedSettings SettingsText(Features& features, const std::string& who, bool control);

/// Such a text, read.
struct SettingsFile
{
    std::string who; ///< the module that it was saved from, as Printable(); empty when it does not tell
    std::vector<Setting> settings;
};

/// Throws ToolFailure(Usage) with the number of the first line that is no setting.
SettingsFile ParseSettings(std::string_view text);

/// What is not set.
struct UnsetSetting
{
    Setting setting;
    std::string reason;
};

/// Takes out what makes a camera this one among others, unless the file was saved from `who`: no second camera gets the
/// name and the address of the first.
std::vector<UnsetSetting> LeaveOutIdentity(SettingsFile& file, const std::string& who);

/// Sets all of them in order, and what failed a second time, since some depend on others. Throws ToolFailure when the
/// camera went silent or obeys another program, or the user asked to stop, with what was set before.
std::vector<UnsetSetting> ApplySettings(Features& features, const std::vector<Setting>& settings);

} // namespace nq::tool
