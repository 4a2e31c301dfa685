// SPDX-License-Identifier: Apache-2.0
// Completion queues, their events, and the order in which verbs objects may go, on any RDMA device.
#include "loopback/rdma_side.h"

#include <atomic>
#include <fcntl.h>
#include <future>
#include <sys/mman.h>
#include <thread>

namespace nq::test
{

namespace
{

/// A context to make objects on.
class Device
{
  public:
    Device()
    {
        int count = 0;
        m_list = rdma_get_devices(&count);
        Require(m_list != nullptr && count > 0, "rdma_get_devices");
    }
    ~Device() { rdma_free_devices(m_list); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    ibv_context* Context() const { return m_list[0]; }

  private:
    ibv_context** m_list;
};

// Lets one message arrive at the passive side.
void SendOne(Connected& pair, unsigned flags = IBV_SEND_SIGNALED)
{
    Memory& from = pair.active.Register(8);
    Memory& to = pair.passive.Register(8);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}, flags), 0);
    ASSERT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
}

} // namespace

TEST(Completion, ArmedQueueRaisesOneEventForTheNextCompletion)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    SendOne(pair);
    SendOne(pair);
    pair.passive.TakeEvent();
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 100));
}

TEST(Completion, QueueHasToBeArmedAgainAfterItsEvent)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    SendOne(pair);
    pair.passive.TakeEvent();
    SendOne(pair);
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 100));
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    SendOne(pair);
    pair.passive.TakeEvent();
}

TEST(Completion, ArmingRaisesNoEventForWhatIsThereAlready)
{
    Connected pair;
    SendOne(pair);
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 100));
}

TEST(Completion, QueueArmedForSolicitedOnesSleepsThroughOthers)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 1), 0);
    SendOne(pair);
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 100));
    SendOne(pair, IBV_SEND_SIGNALED | IBV_SEND_SOLICITED);
    pair.passive.TakeEvent();
}

TEST(Completion, FailureWakesAQueueArmedForSolicitedOnes)
{
    Connected pair;
    Memory& memory = pair.active.Register(8);
    ASSERT_EQ(pair.active.PostReceive(1, {memory.Whole()}), 0);
    ASSERT_EQ(ibv_req_notify_cq(pair.active.queue, 1), 0);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    pair.active.TakeEvent();
}

TEST(Completion, RequestForSolicitedOnesDoesNotWeakenOneForAll)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 1), 0);
    SendOne(pair);
    pair.passive.TakeEvent();
}

TEST(Completion, NonBlockingChannelWithoutEventGivesEagain)
{
    Connected pair;
    const int fd = pair.active.completions->fd;
    ASSERT_EQ(fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK), 0);
    ibv_cq* queue = nullptr;
    void* context = nullptr;
    EXPECT_EQ(ibv_get_cq_event(pair.active.completions, &queue, &context), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(Completion, BlockingReadOfTheChannelWakesWithTheCompletion)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    std::thread reader([&] {
        ibv_cq* queue = nullptr;
        void* context = nullptr;
        EXPECT_EQ(ibv_get_cq_event(pair.passive.completions, &queue, &context), 0);
        EXPECT_EQ(queue, pair.passive.queue);
        ibv_ack_cq_events(queue, 1);
    });
    SendOne(pair);
    reader.join();
}

TEST(Completion, PollTakesAtMostTheNumberAskedFor)
{
    Connected pair;
    SendOne(pair);
    SendOne(pair);
    SendOne(pair);
    std::array<ibv_wc, 4> completions{};
    EXPECT_EQ(ibv_poll_cq(pair.passive.queue, 2, completions.data()), 2);
    EXPECT_EQ(ibv_poll_cq(pair.passive.queue, 4, completions.data()), 1);
    EXPECT_EQ(ibv_poll_cq(pair.passive.queue, 4, completions.data()), 0);
}

TEST(Completion, QueueIsAtLeastAsLongAsAskedFor)
{
    const Device device;
    ibv_cq* queue = ibv_create_cq(device.Context(), 500, nullptr, nullptr, 0);
    ASSERT_NE(queue, nullptr);
    EXPECT_GE(queue->cqe, 500);
    EXPECT_EQ(ibv_destroy_cq(queue), 0);
}

TEST(Completion, QueueWithoutEntriesIsRefused)
{
    const Device device;
    EXPECT_EQ(ibv_create_cq(device.Context(), 0, nullptr, nullptr, 0), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Completion, DestroyingAQueueWaitsForTheAcknowledgementOfItsEvents)
{
    auto pair = std::make_unique<Connected>();
    ASSERT_EQ(ibv_req_notify_cq(pair->passive.queue, 0), 0);
    SendOne(*pair);
    ibv_cq* queue = nullptr;
    void* context = nullptr;
    ASSERT_EQ(ibv_get_cq_event(pair->passive.completions, &queue, &context), 0);
    pair->passive.DropQueuePair();
    pair->passive.queue = nullptr;
    auto destroyed = std::async(std::launch::async, [queue] { return ibv_destroy_cq(queue); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    ibv_ack_cq_events(queue, 1);
    EXPECT_EQ(destroyed.get(), 0);
}

TEST(Completion, UnreadEventGoesWithItsQueue)
{
    Connected pair;
    ASSERT_EQ(ibv_req_notify_cq(pair.passive.queue, 0), 0);
    SendOne(pair);
    ASSERT_TRUE(Readable(pair.passive.completions->fd, kPatience));
    pair.passive.DropQueuePair();
    ASSERT_EQ(ibv_destroy_cq(pair.passive.queue), 0);
    pair.passive.queue = nullptr;
    EXPECT_FALSE(Readable(pair.passive.completions->fd, 0));
}

TEST(Objects, CompletionQueueOfAQueuePairIsBusy)
{
    Connected pair;
    EXPECT_EQ(ibv_destroy_cq(pair.active.queue), EBUSY);
}

TEST(Objects, CompletionChannelOfAQueueIsBusy)
{
    Connected pair;
    EXPECT_EQ(ibv_destroy_comp_channel(pair.active.completions), EBUSY);
}

TEST(Objects, ProtectionDomainOfAQueuePairIsBusy)
{
    Connected pair;
    EXPECT_EQ(ibv_dealloc_pd(pair.active.domain), EBUSY);
}

TEST(Objects, ProtectionDomainOfARegionIsBusy)
{
    const Device device;
    ibv_pd* domain = ibv_alloc_pd(device.Context());
    ASSERT_NE(domain, nullptr);
    {
        const Memory memory(domain, 100);
        EXPECT_EQ(ibv_dealloc_pd(domain), EBUSY);
    }
    EXPECT_EQ(ibv_dealloc_pd(domain), 0);
}

TEST(Objects, RegionTellsWhatWasRegistered)
{
    const Device device;
    ibv_pd* domain = ibv_alloc_pd(device.Context());
    std::vector<uint8_t> bytes(1000);
    ibv_mr* region = ibv_reg_mr(domain, bytes.data(), 1000, kLocalWrite);
    ASSERT_NE(region, nullptr);
    EXPECT_EQ(region->addr, bytes.data());
    EXPECT_EQ(region->length, 1000U);
    EXPECT_EQ(region->pd, domain);
    EXPECT_EQ(region->context, device.Context());
    EXPECT_EQ(ibv_dereg_mr(region), 0);
    EXPECT_EQ(ibv_dealloc_pd(domain), 0);
}

TEST(Objects, RegionForRemoteWritesMustAllowLocalOnes)
{
    const Device device;
    ibv_pd* domain = ibv_alloc_pd(device.Context());
    std::vector<uint8_t> bytes(1000);
    EXPECT_EQ(ibv_reg_mr(domain, bytes.data(), 1000, kRemoteWrite), nullptr);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(ibv_dealloc_pd(domain), 0);
}

TEST(Objects, RegionMustBeMapped)
{
    const Device device;
    ibv_pd* domain = ibv_alloc_pd(device.Context());
    void* memory = mmap(nullptr, 8192, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    ASSERT_EQ(munmap(static_cast<uint8_t*>(memory) + 4096, 4096), 0);
    EXPECT_EQ(ibv_reg_mr(domain, memory, 8192, kLocalWrite), nullptr);
    EXPECT_EQ(errno, EFAULT);
    munmap(memory, 4096);
    EXPECT_EQ(ibv_dealloc_pd(domain), 0);
}

TEST(Objects, QueuePairNeedsCompletionQueues)
{
    if (OnRealDevice())
    {
        GTEST_SKIP() << "libibverbs reads through the null pointer";
    }
    const Device device;
    ibv_pd* domain = ibv_alloc_pd(device.Context());
    ibv_qp_init_attr attributes{};
    attributes.qp_type = IBV_QPT_RC;
    attributes.cap = {1, 1, 1, 1, 0};
    EXPECT_EQ(ibv_create_qp(domain, &attributes), nullptr);
    EXPECT_EQ(ibv_dealloc_pd(domain), 0);
}

TEST(Objects, DescriptorsAreClosedOnExec)
{
    Connected pair;
    EXPECT_NE(fcntl(pair.active.channel->fd, F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(fcntl(pair.active.completions->fd, F_GETFD) & FD_CLOEXEC, 0);
}

TEST(Objects, DeviceListNamesAnActivePort)
{
    int count = 0;
    ibv_device** list = ibv_get_device_list(&count);
    ASSERT_NE(list, nullptr);
    ASSERT_GE(count, 1);
    EXPECT_EQ(list[count], nullptr);
    EXPECT_STRNE(ibv_get_device_name(list[0]), "");
    ibv_context* context = ibv_open_device(list[0]);
    ASSERT_NE(context, nullptr);
    ibv_port_attr port{};
    EXPECT_EQ(ibv_query_port(context, 1, &port), 0);
    EXPECT_EQ(port.state, IBV_PORT_ACTIVE);
    EXPECT_EQ(port.link_layer, IBV_LINK_LAYER_ETHERNET);
    ibv_device_attr device{};
    EXPECT_EQ(ibv_query_device(context, &device), 0);
    EXPECT_GE(device.max_qp_wr, 100);
    EXPECT_EQ(ibv_close_device(context), 0);
    ibv_free_device_list(list);
}

TEST(Objects, TextsAreThoseOfTheRealLibraries)
{
    EXPECT_STREQ(ibv_wc_status_str(IBV_WC_SUCCESS), "success");
    EXPECT_STREQ(ibv_wc_status_str(IBV_WC_LOC_LEN_ERR), "local length error");
    EXPECT_STREQ(ibv_wc_status_str(IBV_WC_WR_FLUSH_ERR), "Work Request Flushed Error");
    EXPECT_STREQ(ibv_wc_status_str(IBV_WC_RETRY_EXC_ERR), "transport retry counter exceeded");
    EXPECT_STREQ(rdma_event_str(RDMA_CM_EVENT_ADDR_RESOLVED), "RDMA_CM_EVENT_ADDR_RESOLVED");
    EXPECT_STREQ(rdma_event_str(RDMA_CM_EVENT_TIMEWAIT_EXIT), "RDMA_CM_EVENT_TIMEWAIT_EXIT");
}

} // namespace nq::test
