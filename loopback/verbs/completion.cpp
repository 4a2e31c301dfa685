// SPDX-License-Identifier: Apache-2.0
// Completion channels and completion queues.
#include "verbs/completion.h"

#include "base/error.h"
#include "base/log.h"

#include <cstring>

namespace nq::loopback
{

namespace
{

constexpr int kMaximumCompletions = 1 << 20;

} // namespace

ibv_wc FailedCompletion(uint64_t work, ibv_wc_status status, uint32_t queuePair, ibv_wc_opcode opcode)
{
    constexpr int kPoison = 0xA5;
    ibv_wc completion;
    std::memset(&completion, kPoison, sizeof completion);
    completion.wr_id = work;
    completion.status = status;
    completion.qp_num = queuePair;
    completion.vendor_err = 0;
    completion.opcode = opcode == IBV_WC_SEND ? IBV_WC_RECV : IBV_WC_SEND;
    return completion;
}

CompletionChannel::CompletionChannel(ibv_context* owner) : ibv_comp_channel{}
{
    context = owner;
    fd = m_events.Fd();
}

CompletionQueue::CompletionQueue(ibv_context* owner, int entries, void* userContext, CompletionChannel* tells)
    : ibv_cq{}, m_capacity(static_cast<size_t>(entries))
{
    if (entries < 1 || entries > kMaximumCompletions)
    {
        Throw(EINVAL);
    }
    context = owner;
    channel = tells;
    cq_context = userContext;
    handle = NextHandle();
    cqe = entries;
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&cond, nullptr);
    if (tells != nullptr)
    {
        tells->refcnt = ++tells->Users();
    }
}

CompletionQueue::~CompletionQueue()
{
    if (channel != nullptr)
    {
        auto* tells = static_cast<CompletionChannel*>(channel);
        tells->refcnt = --tells->Users();
    }
    pthread_cond_destroy(&cond);
    pthread_mutex_destroy(&mutex);
}

bool CompletionQueue::Push(const ibv_wc& completion, bool solicited)
{
    const std::lock_guard lock(m_mutex);
    if (m_completions.size() >= m_capacity)
    {
        if (!m_overflowed)
        {
            Log("completion queue %u overflowed", handle);
            ibv_async_event event{};
            event.element.cq = this;
            event.event_type = IBV_EVENT_CQ_ERR;
            Context::From(context).PostAsync(event);
        }
        m_overflowed = true;
        return false;
    }
    m_completions.push_back(completion);
    const bool counts =
        m_armed == Armed::All || (m_armed == Armed::Solicited && (solicited || completion.status != IBV_WC_SUCCESS));
    if (counts)
    {
        m_armed = Armed::No;
        if (channel != nullptr)
        {
            static_cast<CompletionChannel*>(channel)->Events().Push(this);
        }
    }
    return true;
}

void CompletionQueue::Resize(int entries)
{
    const std::lock_guard lock(m_mutex);
    if (entries < 1 || entries > kMaximumCompletions || static_cast<size_t>(entries) < m_completions.size())
    {
        Throw(EINVAL);
    }
    m_capacity = static_cast<size_t>(entries);
    cqe = entries;
}

void CompletionQueue::WaitForAcknowledgements()
{
    if (channel != nullptr)
    {
        static_cast<CompletionChannel*>(channel)->Events().Extract(
            [this](const CompletionQueue* queue) { return queue == this; });
    }
    pthread_mutex_lock(&mutex);
    while (comp_events_completed != m_eventsRead)
    {
        pthread_cond_wait(&cond, &mutex);
    }
    pthread_mutex_unlock(&mutex);
}

int CompletionQueue::Poll(ibv_cq* queue, int count, ibv_wc* completions)
{
    if (const int error = Faults::Instance().Hit("ibv_poll_cq"); error != 0)
    {
        errno = error;
        return -1;
    }
    CompletionQueue& self = From(queue);
    const std::lock_guard lock(self.m_mutex);
    int taken = 0;
    for (; taken < count && !self.m_completions.empty(); ++taken)
    {
        completions[taken] = self.m_completions.front();
        self.m_completions.pop_front();
    }
    return taken;
}

int CompletionQueue::RequestNotify(ibv_cq* queue, int solicitedOnly)
{
    if (const int error = Faults::Instance().Hit("ibv_req_notify_cq"); error != 0)
    {
        errno = error;
        return error;
    }
    CompletionQueue& self = From(queue);
    const std::lock_guard lock(self.m_mutex);
    // A later request for solicited completions does not weaken one for all.
    if (solicitedOnly == 0)
    {
        self.m_armed = Armed::All;
    }
    else if (self.m_armed == Armed::No)
    {
        self.m_armed = Armed::Solicited;
    }
    return 0;
}

} // namespace nq::loopback
