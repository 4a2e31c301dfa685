// SPDX-License-Identifier: Apache-2.0
// The software RDMA without its thread: the fuzzer turns the engine.
#include "base/engine.h"
#include "fuzz/loopback/turned_engine.h"

#include "fuzz/fuzz_input.h"

namespace nq::loopback
{

void Engine::StartThread() {}

} // namespace nq::loopback

namespace nq::fuzz
{

void TurnUntilRest()
{
    constexpr int kMostTurns = 2000;
    int quiet = 0;
    for (int turn = 0; quiet < 2; ++turn)
    {
        Require(turn < kMostTurns, "the engine comes to rest");
        quiet = nq::loopback::Engine::Instance().Turn(0) == 0 ? quiet + 1 : 0;
    }
}

} // namespace nq::fuzz
