// SPDX-License-Identifier: Apache-2.0
// The rows of the table of features, by category.
#pragma once

#include "feature_table.h"

namespace nq::camera
{

std::span<const Feature> DeviceFeatures();
std::span<const Feature> ImageFeatures();
std::span<const Feature> AcquisitionFeatures();
std::span<const Feature> LineFeatures();
std::span<const Feature> CounterFeatures();
std::span<const Feature> AnalogFeatures();
std::span<const Feature> LutFeatures();
std::span<const Feature> EventFeatures();
std::span<const Feature> UserSetFeatures();
std::span<const Feature> TestFeatures();
std::span<const Feature> TransportFeatures();

} // namespace nq::camera
