// SPDX-License-Identifier: Apache-2.0
// A system of the release that a test program names: the questions for it come here first, also while the program
// starts.
#pragma once

#include <cstring>
#include <sys/syscall.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace nq::test
{

/// For the program to define, constant, so that it is there before anything else is.
extern const char* const kKernelRelease;

} // namespace nq::test

extern "C" int uname(utsname* system) noexcept
{
    const auto result = static_cast<int>(syscall(SYS_uname, system));
    std::strncpy(system->release, nq::test::kKernelRelease, sizeof system->release - 1);
    return result;
}
