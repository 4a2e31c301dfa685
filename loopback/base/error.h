// SPDX-License-Identifier: Apache-2.0
// How failures travel inside the loopback: as std::system_error up to the exported call, as errno from there.
#pragma once

#include "base/faults.h"

#include <cerrno>
#include <new>
#include <system_error>

namespace nq::loopback
{

[[noreturn]] inline void Throw(int error)
{
    throw std::system_error(error, std::generic_category());
}

/// Runs the body of the exported call `name`. A fault asked for by that name, and what the body throws, come out as
/// errno together with the result `failed`.
template <typename Result, typename Body>
Result Invoke(const char* name, Result failed, Body&& body) noexcept
{
    int failure = 0;
    try
    {
        failure = Faults::Instance().Hit(name);
        if (failure == 0)
        {
            return body();
        }
    }
    catch (const std::system_error& error)
    {
        failure = error.code().value();
    }
    catch (const std::bad_alloc&)
    {
        failure = ENOMEM;
    }
    // Not sooner: the end of a handler frees the exception, which may touch errno.
    errno = failure;
    return failed;
}

/// The same for the calls that return 0 or an errno value. The body returns nothing.
template <typename Body>
int InvokeCode(const char* name, Body&& body) noexcept
{
    const int result = Invoke(name, -1, [&] {
        body();
        return 0;
    });
    return result == 0 ? 0 : errno;
}

} // namespace nq::loopback
