// SPDX-License-Identifier: Apache-2.0
// The standard's answers of waits that an unregistration or a close ends, and of a stream that is closed.
#include "support/asleep.h"
#include "support/open_tree.h"
#include "support/standard_answers.h"

#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

using namespace nq::test;

namespace
{

constexpr int kAbort = -1012;
constexpr int kInvalidHandle = -1006;

class StandardEvents : public testing::Test
{
  protected:
    ~StandardEvents() override { p.GCCloseLib(); }

    /// Three threads that wait for the stream's new-buffer event without a limit, asleep when this returns.
    void LetThreeWait()
    {
        ASSERT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        for (int count = 0; count < 3; ++count)
        {
            waiters.push_back(std::make_unique<CallingThread>([this] {
                GenTL::S_EVENT_NEW_BUFFER data{};
                std::size_t size = sizeof data;
                aborted += p.EventGetData(event, &data, &size, GENTL_INFINITE) == kAbort ? 1 : 0;
            }));
        }
        for (const auto& waiter : waiters)
        {
            waiter->AwaitAsleep();
        }
    }

    /// Joins the waiters; how many of them were aborted.
    int Aborted()
    {
        waiters.clear();
        return aborted;
    }

    std::size_t Announced()
    {
        std::size_t count = 99;
        int type = 0;
        std::size_t size = sizeof count;
        EXPECT_EQ(p.DSGetInfo(tree.stream, GenTL::STREAM_INFO_NUM_ANNOUNCED, &type, &count, &size), 0);
        return count;
    }

    const StandardAnswers asked;
    Producer p;
    OpenTree tree{p};
    void* event = nullptr;
    std::atomic<int> aborted = 0;
    std::vector<std::unique_ptr<CallingThread>> waiters;
};

TEST_F(StandardEvents, AnUnregistrationEndsAllWaits)
{
    LetThreeWait();
    EXPECT_EQ(p.GCUnregisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER), 0);
    EXPECT_EQ(Aborted(), 3);
    EXPECT_EQ(p.EventKill(event), kInvalidHandle);
    EXPECT_EQ(p.GCUnregisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER), -1002);
}

TEST_F(StandardEvents, ARegistrationAnewKnowsNothingOfAKill)
{
    ASSERT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    EXPECT_EQ(p.EventKill(event), 0);
    EXPECT_EQ(p.GCUnregisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER), 0);
    ASSERT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    GenTL::S_EVENT_NEW_BUFFER data{};
    std::size_t size = sizeof data;
    EXPECT_EQ(p.EventGetData(event, &data, &size, 0), -1011);
}

TEST_F(StandardEvents, ACloseOfTheStreamEndsAllWaits)
{
    LetThreeWait();
    EXPECT_EQ(p.DSClose(tree.stream), 0);
    EXPECT_EQ(Aborted(), 3);
}

TEST_F(StandardEvents, ACloseOfTheDeviceEndsAllWaits)
{
    LetThreeWait();
    EXPECT_EQ(p.DevClose(tree.device), 0);
    EXPECT_EQ(Aborted(), 3);
}

TEST_F(StandardEvents, ACloseOfTheLibraryEndsAllWaits)
{
    LetThreeWait();
    EXPECT_EQ(p.GCCloseLib(), 0);
    EXPECT_EQ(Aborted(), 3);
}

TEST_F(StandardEvents, ACloseEndsTheStreamItsEventsAndItsBuffers)
{
    unsigned char memory[64];
    void* buffer = nullptr;
    ASSERT_EQ(p.DSAnnounceBuffer(tree.stream, memory, sizeof memory, nullptr, &buffer), 0);
    ASSERT_EQ(p.DSQueueBuffer(tree.stream, buffer), 0);
    ASSERT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    ASSERT_EQ(p.DSClose(tree.stream), 0);
    EXPECT_EQ(p.DSClose(tree.stream), kInvalidHandle);
    EXPECT_EQ(p.EventKill(event), kInvalidHandle);
    std::uint32_t urls = 0;
    EXPECT_EQ(p.GCGetNumPortURLs(tree.stream, &urls), kInvalidHandle);
    EXPECT_EQ(p.GCGetNumPortURLs(buffer, &urls), kInvalidHandle);

    ASSERT_EQ(p.DevOpenDataStream(tree.device, "Stream:0", &tree.stream), 0);
    EXPECT_EQ(Announced(), 0U);
    EXPECT_EQ(p.DSQueueBuffer(tree.stream, buffer), kInvalidHandle);
    ASSERT_EQ(p.DSAnnounceBuffer(tree.stream, memory, sizeof memory, nullptr, &buffer), 0);
    EXPECT_EQ(Announced(), 1U);
    EXPECT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
}

TEST_F(StandardEvents, AThreadThatUnregistersMeetsThreadsThatComeAndGo)
{
    std::atomic<bool> over = false;
    std::atomic<void*> current = nullptr;
    std::vector<std::thread> threads;
    for (int count = 0; count < 3; ++count)
    {
        threads.emplace_back([&] {
            while (!over)
            {
                GenTL::S_EVENT_NEW_BUFFER data{};
                std::size_t size = sizeof data;
                const int code = p.EventGetData(current, &data, &size, 1);
                EXPECT_TRUE(code == kAbort || code == kInvalidHandle || code == -1011) << code;
            }
        });
    }
    for (int round = 0; round < 200; ++round)
    {
        ASSERT_EQ(p.GCRegisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        current = event;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
        EXPECT_EQ(p.GCUnregisterEvent(tree.stream, GenTL::EVENT_NEW_BUFFER), 0);
    }
    over = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

} // namespace
