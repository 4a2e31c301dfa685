// SPDX-License-Identifier: Apache-2.0
// The rules of each family; a family is a file rules_NAME.cpp.
#pragma once

#include "rule.h"

namespace nq::check
{

std::span<const Rule> LibraryRules();

} // namespace nq::check
