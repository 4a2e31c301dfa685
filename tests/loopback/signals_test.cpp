// SPDX-License-Identifier: Apache-2.0
// What signals do to threads that wait for events, on any RDMA device.
#include "loopback/rdma_side.h"

#include <atomic>
#include <csignal>
#include <pthread.h>
#include <thread>

namespace nq::test
{

namespace
{

std::atomic<int> g_signals{0};

void Count(int)
{
    ++g_signals;
}

void Handle(int flags)
{
    struct sigaction action
    {
    };
    action.sa_handler = Count;
    action.sa_flags = flags;
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
}

// Signals the thread until `done`: however late it falls asleep, a signal meets it then.
void SignalUntil(std::thread& thread, const std::atomic<bool>& done)
{
    while (!done)
    {
        pthread_kill(thread.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

} // namespace

TEST(Signals, HandlerWithoutRestartInterruptsTheWaitForAnEvent)
{
    Handle(0);
    Side side;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        rdma_cm_event* event = nullptr;
        EXPECT_EQ(rdma_get_cm_event(side.channel, &event), -1);
        EXPECT_EQ(errno, EINTR);
        done = true;
    });
    SignalUntil(reader, done);
    reader.join();
}

TEST(Signals, HandlerWithRestartLetsTheWaitForAnEventGoOn)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer holds signals back from a thread that sleeps in the kernel";
#endif
    Handle(SA_RESTART);
    Meeting pair;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        rdma_cm_event* event = nullptr;
        EXPECT_EQ(rdma_get_cm_event(pair.active.channel, &event), 0);
        rdma_ack_cm_event(event);
        done = true;
    });
    for (const int before = g_signals; g_signals < before + 10;)
    {
        pthread_kill(reader.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_FALSE(done);
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    reader.join();
}

TEST(Signals, HandlerWithoutRestartInterruptsTheWaitForACompletion)
{
    Handle(0);
    Connected pair;
    std::atomic<bool> done{false};
    std::thread reader([&] {
        ibv_cq* queue = nullptr;
        void* context = nullptr;
        EXPECT_EQ(ibv_get_cq_event(pair.active.completions, &queue, &context), -1);
        done = true;
    });
    SignalUntil(reader, done);
    reader.join();
}

} // namespace nq::test
