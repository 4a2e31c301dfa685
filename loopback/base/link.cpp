// SPDX-License-Identifier: Apache-2.0
// The state of this process's RDMA link.
#include "base/engine.h"
#include "base/faults.h"
#include "base/log.h"

#include <atomic>

namespace nq::loopback
{

namespace
{

std::atomic<bool> g_linkUp{true};

} // namespace

bool LinkIsUp()
{
    return g_linkUp.load(std::memory_order_relaxed);
}

void SetLink(bool up)
{
    Log("link %s", up ? "up" : "down");
    g_linkUp = up;
    Engine::Instance().CallAll();
}

void BreakLink()
{
    Log("link broken");
    Engine::Instance().BreakAll();
}

} // namespace nq::loopback
