// SPDX-License-Identifier: Apache-2.0
// The end of what a program prints.
#pragma once

namespace nq::tool
{

/// Brings all that was printed to where standard output goes. Throws ToolFailure when some of it did not get there.
void FlushOutput();

} // namespace nq::tool
