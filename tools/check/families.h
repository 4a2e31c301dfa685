// SPDX-License-Identifier: Apache-2.0
// The rules of each family; a family is a file rules_NAME.cpp.
#pragma once

#include "rule.h"

namespace nq::check
{

std::span<const Rule> LibraryRules();
std::span<const Rule> InfoRules();
std::span<const Rule> HandleRules();
std::span<const Rule> ListRules();
std::span<const Rule> EventRules();
std::span<const Rule> BufferRules();
std::span<const Rule> AcquisitionRules();
std::span<const Rule> DeliveryRules();
std::span<const Rule> PortRules();
std::span<const Rule> FeatureRules();
std::span<const Rule> ProcessRules();

} // namespace nq::check
