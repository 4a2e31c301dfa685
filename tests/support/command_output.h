// SPDX-License-Identifier: Apache-2.0
// What a command prints, for tests that ask a tool about a file.
#pragma once

#include "support/child_process.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace nq::test
{

/// Runs the command in the C locale and gives its output; a failed command fails the test.
inline std::string OutputOf(const std::vector<std::string>& command)
{
    ChildProcess process(command, {"LC_ALL=C"});
    EXPECT_EQ(process.WaitForExit(std::chrono::seconds(60)), 0) << process.Output();
    return process.Output();
}

} // namespace nq::test
