// SPDX-License-Identifier: Apache-2.0
// Faults that the software RDMA makes on demand.
#include "loopback/loopback_control.h"
#include "loopback/rdma_side.h"

#include <functional>
#include <future>
#include <thread>

namespace nq::test
{

namespace
{

using Milliseconds = std::chrono::milliseconds;

// What a failing call returns and the errno it leaves.
struct Failure
{
    bool failed;
    int error;
};

using Call = std::function<Failure(Connected&)>;

Failure OfResult(int result)
{
    return {result == -1, errno};
}

Failure OfCode(int code)
{
    return {code != 0, code};
}

Failure OfPointer(const void* pointer)
{
    return {pointer == nullptr, errno};
}

using CallTable = std::vector<std::pair<const char*, Call>>;

const CallTable& ManagerCalls()
{
    static const CallTable kCalls = {
        {"rdma_create_event_channel", [](Connected&) { return OfPointer(rdma_create_event_channel()); }},
        {"rdma_create_id",
         [](Connected& pair) {
             rdma_cm_id* id = nullptr;
             return OfResult(rdma_create_id(pair.active.channel, &id, nullptr, RDMA_PS_TCP));
         }},
        {"rdma_destroy_id", [](Connected& pair) { return OfResult(rdma_destroy_id(pair.active.id)); }},
        {"rdma_bind_addr", [](Connected& pair) { return OfResult(rdma_bind_addr(pair.active.id, Raw(pair.address))); }},
        {"rdma_listen", [](Connected& pair) { return OfResult(rdma_listen(pair.active.id, 1)); }},
        {"rdma_resolve_addr",
         [](Connected& pair) { return OfResult(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 100)); }},
        {"rdma_resolve_route", [](Connected& pair) { return OfResult(rdma_resolve_route(pair.active.id, 100)); }},
        {"rdma_create_qp",
         [](Connected& pair) {
             ibv_qp_init_attr attributes = pair.active.Attributes();
             return OfResult(rdma_create_qp(pair.active.id, pair.active.domain, &attributes));
         }},
        {"rdma_connect", [](Connected& pair) { return OfResult(rdma_connect(pair.active.id, nullptr)); }},
        {"rdma_accept", [](Connected& pair) { return OfResult(rdma_accept(pair.active.id, nullptr)); }},
        {"rdma_reject", [](Connected& pair) { return OfResult(rdma_reject(pair.active.id, nullptr, 0)); }},
        {"rdma_disconnect", [](Connected& pair) { return OfResult(rdma_disconnect(pair.active.id)); }},
        {"rdma_migrate_id",
         [](Connected& pair) { return OfResult(rdma_migrate_id(pair.active.id, pair.passive.channel)); }},
        {"rdma_get_cm_event",
         [](Connected& pair) {
             rdma_cm_event* event = nullptr;
             return OfResult(rdma_get_cm_event(pair.active.channel, &event));
         }},
    };
    return kCalls;
}

const CallTable& VerbsCalls()
{
    static const CallTable kCalls = {
        {"ibv_alloc_pd", [](Connected& pair) { return OfPointer(ibv_alloc_pd(pair.active.id->verbs)); }},
        {"ibv_dealloc_pd", [](Connected& pair) { return OfCode(ibv_dealloc_pd(pair.active.domain)); }},
        {"ibv_create_comp_channel",
         [](Connected& pair) { return OfPointer(ibv_create_comp_channel(pair.active.id->verbs)); }},
        {"ibv_destroy_comp_channel",
         [](Connected& pair) { return OfCode(ibv_destroy_comp_channel(pair.active.completions)); }},
        {"ibv_create_cq",
         [](Connected& pair) { return OfPointer(ibv_create_cq(pair.active.id->verbs, 1, nullptr, nullptr, 0)); }},
        {"ibv_destroy_cq", [](Connected& pair) { return OfCode(ibv_destroy_cq(pair.active.queue)); }},
        {"ibv_req_notify_cq", [](Connected& pair) { return OfCode(ibv_req_notify_cq(pair.active.queue, 0)); }},
        {"ibv_get_cq_event",
         [](Connected& pair) {
             ibv_cq* queue = nullptr;
             void* context = nullptr;
             return OfResult(ibv_get_cq_event(pair.active.completions, &queue, &context));
         }},
        {"ibv_poll_cq",
         [](Connected& pair) {
             ibv_wc completion{};
             return OfResult(ibv_poll_cq(pair.active.queue, 1, &completion));
         }},
        {"ibv_create_qp",
         [](Connected& pair) {
             ibv_qp_init_attr attributes = pair.active.Attributes();
             return OfPointer(ibv_create_qp(pair.active.domain, &attributes));
         }},
        {"ibv_destroy_qp", [](Connected& pair) { return OfCode(ibv_destroy_qp(pair.active.id->qp)); }},
        {"ibv_modify_qp",
         [](Connected& pair) {
             ibv_qp_attr attributes{};
             return OfCode(ibv_modify_qp(pair.active.id->qp, &attributes, 0));
         }},
        {"ibv_post_send", [](Connected& pair) { return OfCode(pair.active.PostSend(1, {})); }},
        {"ibv_post_recv", [](Connected& pair) { return OfCode(pair.active.PostReceive(1, {})); }},
        {"ibv_reg_mr",
         [](Connected& pair) {
             static std::array<uint8_t, 8> bytes;
             return OfPointer(ibv_reg_mr(pair.active.domain, bytes.data(), 8, kLocalWrite));
         }},
    };
    return kCalls;
}

// Asks each call to fail and checks that it does.
void FailEachOf(const CallTable& calls)
{
    const LoopbackControl control;
    for (const auto& [name, call] : calls)
    {
        SCOPED_TRACE(name);
        Connected pair;
        ASSERT_EQ(control.fail((std::string(name) + ":1:EXFULL").c_str()), 0);
        const Failure failure = call(pair);
        EXPECT_TRUE(failure.failed);
        EXPECT_EQ(failure.error, EXFULL);
        control.clear();
    }
}

} // namespace

TEST(LoopbackFaults, EveryCallOfTheConnectionManagerFailsWithTheErrnoAskedFor)
{
    FailEachOf(ManagerCalls());
}

TEST(LoopbackFaults, EveryCallOfVerbsFailsWithTheErrnoAskedFor)
{
    FailEachOf(VerbsCalls());
}

TEST(LoopbackFaults, OnlyTheCallThatWasCountedFails)
{
    const LoopbackControl control;
    Connected pair;
    ASSERT_EQ(control.fail("ibv_alloc_pd:2:ENOMEM"), 0);
    ibv_pd* first = ibv_alloc_pd(pair.active.id->verbs);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(ibv_alloc_pd(pair.active.id->verbs), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    ibv_pd* third = ibv_alloc_pd(pair.active.id->verbs);
    EXPECT_NE(third, nullptr);
    ibv_dealloc_pd(first);
    ibv_dealloc_pd(third);
}

TEST(LoopbackFaults, AllCallsFromThatOneOnFail)
{
    const LoopbackControl control;
    Connected pair;
    ASSERT_EQ(control.fail("ibv_post_recv:2+:ENOMEM,ibv_post_send:*:71"), 0);
    EXPECT_EQ(pair.active.PostReceive(1, {}), 0);
    EXPECT_EQ(pair.active.PostReceive(1, {}), ENOMEM);
    EXPECT_EQ(pair.active.PostReceive(1, {}), ENOMEM);
    EXPECT_EQ(pair.active.PostSend(1, {}), 71);
    EXPECT_EQ(pair.active.PostSend(1, {}), 71);
}

TEST(LoopbackFaults, EnvironmentAsksForFaultsFromTheStart)
{
    setenv("NQ_RDMA_LOOPBACK_FAIL", "rdma_create_event_channel:1:ENODEV", 1);
    EXPECT_EQ(rdma_create_event_channel(), nullptr);
    EXPECT_EQ(errno, ENODEV);
    const Side side;
    EXPECT_NE(side.id, nullptr);
}

TEST(LoopbackFaults, MalformedRequestIsRefusedWhole)
{
    const LoopbackControl control;
    for (const char* text :
         {"ibv_alloc_pd", "ibv_alloc_pd:1", ":1:ENOMEM", "ibv_alloc_pd:0:ENOMEM", "ibv_alloc_pd:x:ENOMEM",
          "ibv_alloc_pd:1:ENOTHING", "ibv_alloc_pd:1:delay=", "ibv_alloc_pd:1:delay=-1", "ibv_alloc_pd:1:link=sideways",
          "ibv_alloc_pd:1:event=RDMA_CM_EVENT_REJECTED", "rdma_get_cm_event:1:event=NOTHING",
          "ibv_alloc_pd:1:ENOMEM,bad"})
    {
        EXPECT_EQ(control.fail(text), -1) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
    EXPECT_EQ(control.fail(nullptr), -1);
    Connected pair;
    EXPECT_NE(pair.active.domain, nullptr);
}

TEST(LoopbackFaults, CallTakesAsMuchLongerAsAskedFor)
{
    const LoopbackControl control;
    ASSERT_EQ(control.fail("rdma_create_id:1:delay=50"), 0);
    const auto start = std::chrono::steady_clock::now();
    const Side side;
    EXPECT_GE(std::chrono::steady_clock::now() - start, Milliseconds(50));
}

TEST(LoopbackFaults, EventIsShownAsAnother)
{
    const LoopbackControl control;
    Meeting pair;
    ASSERT_EQ(control.fail("rdma_get_cm_event:2:event=RDMA_CM_EVENT_REJECTED"), 0);
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    ASSERT_EQ(rdma_resolve_route(pair.active.id, 500), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED);
}

TEST(LoopbackFaults, MessagesStallWhileTheLinkIsDownAndPassWhenItComesBack)
{
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "20000", 1);
    const LoopbackControl control;
    Connected pair;
    Memory& from = pair.active.Register(100);
    Memory& to = pair.passive.Register(100);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    control.link(0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    ibv_req_notify_cq(pair.passive.queue, 0);
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 100));
    control.link(1);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
}

TEST(LoopbackFaults, SendFailsWhenTheLinkStaysDown)
{
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "30", 1);
    const LoopbackControl control;
    Connected pair;
    Memory& from = pair.active.Register(100);
    control.link(0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_RETRY_EXC_ERR);
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(LoopbackFaults, SendThatWasWaitingWhenTheLinkWentDownFailsToo)
{
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "30", 1);
    const LoopbackControl control;
    Connected pair;
    Memory& from = pair.active.Register(100);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    control.link(0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_RETRY_EXC_ERR);
}

/// How long nobody is waited for. That goes for the lock of the folder that all cases share too.
void GiveUpIn3s()
{
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "3000", 1);
}

TEST(LoopbackFaults, ConnectOverALinkThatIsDownFindsNobody)
{
    GiveUpIn3s();
    const LoopbackControl control;
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    control.link(0);
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_UNREACHABLE).status, -ETIMEDOUT);
}

TEST(LoopbackFaults, DisconnectOverALinkThatIsDownEndsByItself)
{
    GiveUpIn3s();
    const LoopbackControl control;
    Connected pair;
    control.link(0);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_DISCONNECTED);
    Expect(pair.active.channel, RDMA_CM_EVENT_TIMEWAIT_EXIT);
    control.link(1);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(LoopbackFaults, BrokenLinkDisconnectsBothSides)
{
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "30", 1);
    const LoopbackControl control;
    Connected pair;
    Memory& from = pair.active.Register(100);
    control.breakAll();
    Expect(pair.active.channel, RDMA_CM_EVENT_DISCONNECTED);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_RETRY_EXC_ERR);
}

TEST(LoopbackFaults, CallCanBreakTheLink)
{
    const LoopbackControl control;
    Connected pair;
    ASSERT_EQ(control.fail("ibv_post_recv:2:link=break"), 0);
    EXPECT_EQ(pair.passive.PostReceive(1, {}), 0);
    EXPECT_EQ(pair.passive.PostReceive(2, {}), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(LoopbackFaults, MessageIsHeldBackAsLongAsAskedFor)
{
    const LoopbackControl control;
    Connected pair;
    Memory& from = pair.active.Register(100);
    Memory& to = pair.passive.Register(100);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    control.delay(80);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    EXPECT_GE(std::chrono::steady_clock::now() - start, Milliseconds(80));
}

TEST(LoopbackFaults, WithoutADeviceNothingBegins)
{
    setenv("NQ_RDMA_LOOPBACK_NO_DEVICE", "1", 1);
    EXPECT_EQ(rdma_create_event_channel(), nullptr);
    EXPECT_EQ(errno, ENODEV);
    rdma_cm_id* id = nullptr;
    EXPECT_EQ(rdma_create_id(nullptr, &id, nullptr, RDMA_PS_TCP), -1);
    EXPECT_EQ(errno, ENODEV);
    int count = -1;
    EXPECT_EQ(rdma_get_devices(&count), nullptr);
    EXPECT_EQ(errno, ENODEV);
    ibv_device** list = ibv_get_device_list(&count);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(list[0], nullptr);
    ibv_free_device_list(list);
}

TEST(LoopbackFaults, RegionsBeyondTheMemoryLimitAreRefused)
{
    setenv("NQ_RDMA_LOOPBACK_MEMLOCK", "16384", 1);
    Connected pair;
    auto* memory = static_cast<uint8_t*>(std::aligned_alloc(4096, 32768));
    ibv_mr* first = ibv_reg_mr(pair.active.domain, memory, 8192, kLocalWrite);
    ASSERT_NE(first, nullptr);
    ibv_mr* second = ibv_reg_mr(pair.active.domain, memory + 8192, 4097, kLocalWrite);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(ibv_reg_mr(pair.active.domain, memory + 16384, 1, kLocalWrite), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(ibv_dereg_mr(first), 0);
    ibv_mr* third = ibv_reg_mr(pair.active.domain, memory + 16384, 8192, kLocalWrite);
    EXPECT_NE(third, nullptr);
    EXPECT_EQ(ibv_dereg_mr(second), 0);
    EXPECT_EQ(ibv_dereg_mr(third), 0);
    std::free(memory);
}

} // namespace nq::test
