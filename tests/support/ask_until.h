// SPDX-License-Identifier: Apache-2.0
// Patience with a camera that answers too late, as any may on a machine under load: the library gives it 100 ms for
// some questions, and a consumer asks again.
#pragma once

#include <chrono>

namespace nq::test
{

/// Calls until the result is `wanted`, for half a minute at most. The last result.
template <typename Result, typename Call>
Result AskUntil(const Result& wanted, const Call& call)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    Result result = call();
    while (result != wanted && std::chrono::steady_clock::now() < deadline)
    {
        result = call();
    }
    return result;
}

} // namespace nq::test
