// SPDX-License-Identifier: Apache-2.0
// The loopback's own calls, looked up in the preloaded library.
#pragma once

#include "../loopback/api/nq_rdma_loopback.h"

#include <dlfcn.h>
#include <stdexcept>
#include <string>

namespace nq::test
{

/// The calls of nq_rdma_loopback.h. Throws std::runtime_error when the loopback is not preloaded.
struct LoopbackControl
{
    decltype(&nq_loopback_fail) fail = Find<decltype(&nq_loopback_fail)>("nq_loopback_fail");
    decltype(&nq_loopback_clear_faults) clear = Find<decltype(&nq_loopback_clear_faults)>("nq_loopback_clear_faults");
    decltype(&nq_loopback_link) link = Find<decltype(&nq_loopback_link)>("nq_loopback_link");
    decltype(&nq_loopback_break) breakAll = Find<decltype(&nq_loopback_break)>("nq_loopback_break");
    decltype(&nq_loopback_delay) delay = Find<decltype(&nq_loopback_delay)>("nq_loopback_delay");
    decltype(&nq_loopback_count) count = Find<decltype(&nq_loopback_count)>("nq_loopback_count");
    decltype(&nq_loopback_count_waiting_sends) countWaitingSends =
        Find<decltype(&nq_loopback_count_waiting_sends)>("nq_loopback_count_waiting_sends");

    nq_loopback_waiting_sends WaitingSends() const
    {
        nq_loopback_waiting_sends sends{};
        countWaitingSends(&sends);
        return sends;
    }

    nq_loopback_objects Objects() const
    {
        nq_loopback_objects objects{};
        count(&objects);
        return objects;
    }

  private:
    template <typename Function>
    static Function Find(const char* name)
    {
        void* symbol = dlsym(RTLD_DEFAULT, name);
        if (symbol == nullptr)
        {
            throw std::runtime_error(std::string(name) + " is missing: preload the software RDMA");
        }
        return reinterpret_cast<Function>(symbol);
    }
};

} // namespace nq::test
