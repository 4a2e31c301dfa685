// SPDX-License-Identifier: Apache-2.0
// The exported calls of the loopback itself.
#include "api/nq_rdma_loopback.h"
#include "base/faults.h"
#include "base/tally.h"
#include "verbs/waiting_sends.h"

#include <cerrno>

using namespace nq::loopback;

namespace
{

long Live(Kind kind)
{
    return Tally::Instance().Of(kind).load();
}

} // namespace

int nq_loopback_fail(const char* faults)
{
    if (faults == nullptr || !Faults::Instance().Add(faults))
    {
        errno = EINVAL;
        return -1;
    }
    return 0;
}

void nq_loopback_clear_faults(void)
{
    Faults::Instance().Clear();
}

void nq_loopback_link(int up)
{
    SetLink(up != 0);
}

void nq_loopback_break(void)
{
    BreakLink();
}

void nq_loopback_delay(unsigned milliseconds)
{
    Faults::Instance().SetMessageDelay(std::chrono::milliseconds(milliseconds));
}

void nq_loopback_count(nq_loopback_objects* objects)
{
    objects->contexts = Live(Kind::Context);
    objects->protection_domains = Live(Kind::ProtectionDomain);
    objects->memory_regions = Live(Kind::MemoryRegion);
    objects->completion_channels = Live(Kind::CompletionChannel);
    objects->completion_queues = Live(Kind::CompletionQueue);
    objects->queue_pairs = Live(Kind::QueuePair);
    objects->event_channels = Live(Kind::EventChannel);
    objects->cm_ids = Live(Kind::CmId);
    objects->cm_events = Live(Kind::CmEvent);
}

void nq_loopback_count_waiting_sends(nq_loopback_waiting_sends* sends)
{
    sends->own = WaitingSends::Instance().own.load();
    sends->of_peers = WaitingSends::Instance().ofPeers.load();
}
