// SPDX-License-Identifier: Apache-2.0
// The end of what a program prints.
#pragma once

#include <string>

namespace nq::tool
{

/// What the user hears of an output that could not be written, by its errno.
std::string UnwrittenText(int error);

/// Brings all that was printed to where standard output goes. Throws ToolFailure when some of it did not get there.
void FlushOutput();

} // namespace nq::tool
