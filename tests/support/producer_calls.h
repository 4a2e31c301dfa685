// SPDX-License-Identifier: Apache-2.0
// Every exported function called once with a handle of the test's choice, under its name.
#pragma once

#include "support/producer.h"

#include <functional>
#include <string>
#include <vector>

namespace nq::test
{

struct NamedCall
{
    std::string name;
    std::function<GenTL::GC_ERROR()> call;
};

/// The 57 functions but GCInitLib, GCCloseLib and DSGetBufferPartInfo, each on `handle` and otherwise with arguments
/// that name nothing: null pointers, zero numbers.
std::vector<NamedCall> CallsOn(const Producer& producer, void* handle);

} // namespace nq::test
