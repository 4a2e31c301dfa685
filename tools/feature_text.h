// SPDX-License-Identifier: Apache-2.0
// Values of features as people write them.
#pragma once

#include "feature_tree.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace nq::tool
{

/// What stands behind "NAME = ", without the unit: 640, 0x1F, 10.0.0.1, true, Mono8, "a text", 0a0b0c.
std::string ValueText(const Feature& feature, const FeatureValue& value);

/// The same with the unit.
std::string ValueAndUnit(const Feature& feature, const FeatureValue& value);

/// The value that a text means for the feature, in its type, range and steps. Throws FeatureError with what the
/// feature takes, for example "takes a whole number from 1 to 640 in steps of 4".
FeatureValue ParseValue(const Feature& feature, const std::string& text);

/// The values that the feature takes, as the failure of ParseValue() tells them.
std::string TakenValues(const Feature& feature);

/// Two digits for each byte.
std::string HexBytes(std::string_view bytes);

/// The bytes of such a text, in small or capital letters; nothing for another one.
std::optional<std::string> BytesFromHex(std::string_view text);

/// "RO", "RW", "WO" or "--" for what can be done now.
const char* AccessText(const Feature& feature);

const char* TypeText(FeatureType type);

/// Up to three names that a person may have meant.
std::vector<std::string> NearNames(const std::string& name, const std::vector<std::string>& names);

} // namespace nq::tool
