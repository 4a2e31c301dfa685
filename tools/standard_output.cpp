// SPDX-License-Identifier: Apache-2.0
// The end of what a program prints.
#include "standard_output.h"

#include "exit_codes.h"

#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>

namespace nq::tool
{

std::string UnwrittenText(int error)
{
    return "cannot write the output: " + std::generic_category().message(error);
}

void FlushOutput()
{
    // Help and version come through the stream, which alone remembers a failure before the last write.
    if (!std::cout.flush() || std::fflush(stdout) != 0)
    {
        throw ToolFailure(ExitCode::Failure, UnwrittenText(errno));
    }
}

} // namespace nq::tool
