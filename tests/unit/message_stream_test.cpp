// SPDX-License-Identifier: Apache-2.0
// The message channel's receiver thread and the remote device events it signals.
#include "gentl/nq_gentl_message_stream.h"

#include "gentl/nq_gentl_event.h"
#include "gentl/nq_gentl_thread_message_receiver.h"
#include "support/fake_device.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

using GigERDMA::NQGenTLThreadMessageReceiver;
using nq::test::FakeDevice;

namespace
{

class Stream : public GigERDMA::NQGenTLMessageStream
{
  public:
    explicit Stream(int id = 3, GigERDMA::NQGenTLDevice* device = nullptr) : NQGenTLMessageStream(id, device) {}
    ~Stream() override { Stop(); }

    bool OnInit() override
    {
        ++inits;
        initThread = std::this_thread::get_id();
        return initResult;
    }
    void OnDestroy() override
    {
        ++destroys;
        destroyThread = std::this_thread::get_id();
    }
    void OnGetMessage() override
    {
        ++messages;
        std::this_thread::yield();
    }
    void AwaitMessages(int count) const
    {
        while (messages < count)
        {
            std::this_thread::yield();
        }
    }

    bool initResult = true;
    std::atomic<int> inits = 0;
    std::atomic<int> destroys = 0;
    std::atomic<int> messages = 0;
    std::thread::id initThread;
    std::thread::id destroyThread;
};

class RemoteDeviceEvents : public testing::Test
{
  protected:
    RemoteDeviceEvents() { std::iota(data, data + sizeof data, static_cast<unsigned char>(1)); }

    GigERDMA::NQGenTLEvent* Register()
    {
        void* handle = nullptr;
        EXPECT_EQ(device.RegisterEvent(4, &handle), 0);
        return device.FindEventByHandle(handle);
    }

    FakeDevice device;
    Stream stream{0, &device};
    unsigned char data[600];
};

} // namespace

TEST(MessageStream, KeepsItsChannelId)
{
    EXPECT_EQ(Stream(0).GetChannelID(), 0U);
    EXPECT_EQ(Stream(511).GetChannelID(), 511U);
}

TEST(MessageStream, SetsUpOnTheCallersThreadAndTearsDownOnTheReceivers)
{
    Stream stream;
    stream.Start();
    EXPECT_EQ(stream.inits, 1);
    EXPECT_EQ(stream.initThread, std::this_thread::get_id());
    stream.AwaitMessages(3);
    EXPECT_EQ(stream.destroys, 0);
    stream.Stop();
    EXPECT_EQ(stream.destroys, 1);
    EXPECT_NE(stream.destroyThread, std::this_thread::get_id());
}

TEST(MessageStream, StartsOnce)
{
    Stream stream;
    stream.Start();
    stream.Start();
    EXPECT_EQ(stream.inits, 1);
}

TEST(MessageStream, StopWithoutAThreadDoesNothing)
{
    Stream stream;
    stream.Stop();
    stream.Start();
    stream.Stop();
    stream.Stop();
    EXPECT_EQ(stream.destroys, 1);
}

TEST(MessageStream, CanBeStartedAgain)
{
    Stream stream;
    for (int run = 1; run <= 2; ++run)
    {
        stream.Start();
        stream.Stop();
        EXPECT_EQ(stream.inits, run);
        EXPECT_EQ(stream.destroys, run);
    }
}

TEST(MessageStream, TheReceiverRunsEvenWhenTheSetUpFailed)
{
    Stream stream;
    stream.initResult = false;
    stream.Start();
    stream.AwaitMessages(1);
    stream.Stop();
    EXPECT_EQ(stream.destroys, 1);
}

TEST(MessageStream, StopRightAfterStartStillTearsDown)
{
    for (int i = 0; i < 200; ++i)
    {
        Stream stream;
        stream.Start();
        stream.Stop();
        EXPECT_EQ(stream.destroys, 1);
    }
}

TEST(MessageReceiver, AStartWhileItRunsIsRefusedWithoutASetUp)
{
    Stream stream;
    NQGenTLThreadMessageReceiver receiver(&stream);
    EXPECT_TRUE(receiver.Start());
    EXPECT_FALSE(receiver.Start());
    EXPECT_EQ(stream.inits, 1);
    receiver.RequestExit();
    receiver.WaitForExit();
    EXPECT_FALSE(receiver.IsRunning());
    EXPECT_EQ(stream.destroys, 1);
}

TEST(MessageReceiver, OnceKilledItEndsAtOnceWhenStartedAgain)
{
    Stream stream;
    NQGenTLThreadMessageReceiver receiver(&stream);
    receiver.RequestExit();
    EXPECT_TRUE(receiver.Start());
    receiver.WaitForExit();
    EXPECT_EQ(stream.messages, 0);
    EXPECT_EQ(stream.destroys, 1);
}

TEST(MessageReceiver, ItsDestructionEndsTheThread)
{
    Stream stream;
    {
        NQGenTLThreadMessageReceiver receiver(&stream);
        receiver.Start();
        stream.AwaitMessages(1);
    }
    EXPECT_EQ(stream.destroys, 1);
}

TEST_F(RemoteDeviceEvents, DeliverIdLengthAndData)
{
    auto* event = Register();
    stream.TriggerRemoteDeviceEvent(0x9001, 16, data);
    unsigned char record[546] = {};
    unsigned long size = sizeof record;
    ASSERT_EQ(event->GetData(record, &size, 0), 0);
    const unsigned char head[6] = {0x01, 0x90, 0, 0, 16, 0};
    EXPECT_EQ(std::memcmp(record, head, 6), 0);
    EXPECT_EQ(std::memcmp(record + 6, data, 16), 0);
    EXPECT_EQ(event->GetNumInQueue(), 0U);
}

TEST_F(RemoteDeviceEvents, CarryUpTo540Bytes)
{
    auto* event = Register();
    stream.TriggerRemoteDeviceEvent(1, 540, data);
    unsigned char record[546] = {};
    unsigned long size = sizeof record;
    ASSERT_EQ(event->GetData(record, &size, 0), 0);
    EXPECT_EQ(std::memcmp(record + 6, data, 540), 0);
}

TEST_F(RemoteDeviceEvents, MayBeEmpty)
{
    auto* event = Register();
    stream.TriggerRemoteDeviceEvent(1, 0, data);
    EXPECT_EQ(event->GetNumInQueue(), 1U);
    unsigned long size = 0;
    EXPECT_EQ(event->GetData(nullptr, &size, 0), 0);
}

TEST_F(RemoteDeviceEvents, AStormThatNobodyFetchesIsKeptWhole)
{
    auto* event = Register();
    for (unsigned int id = 0; id < 200000; ++id)
    {
        stream.TriggerRemoteDeviceEvent(id, 16, data);
    }
    EXPECT_EQ(event->GetNumInQueue(), 200000U);
    unsigned char record[546] = {};
    unsigned long size = sizeof record;
    for (unsigned int id = 0; id < 200000; ++id)
    {
        ASSERT_EQ(event->GetData(record, &size, 0), 0);
        ASSERT_EQ(std::memcmp(record, &id, sizeof id), 0) << "the oldest come first, none is missing";
    }
}

TEST_F(RemoteDeviceEvents, NullDataIsIgnored)
{
    auto* event = Register();
    stream.TriggerRemoteDeviceEvent(1, 16, nullptr);
    EXPECT_EQ(event->GetNumInQueue(), 0U);
}

TEST_F(RemoteDeviceEvents, WithoutARegisteredEventNothingHappens)
{
    stream.TriggerRemoteDeviceEvent(1, 16, data);
    stream.TriggerRemoteDeviceEvent(1, 541, data);
    EXPECT_EQ(Register()->GetNumInQueue(), 0U);
}

TEST_F(RemoteDeviceEvents, MoreThan540BytesEndTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Register();
    EXPECT_DEATH(stream.TriggerRemoteDeviceEvent(1, 541, data), "");
}

TEST_F(RemoteDeviceEvents, TheEventMayBeUnregisteredWhileTheyAreSignalled)
{
    std::atomic<bool> stop = false;
    std::thread producer([&] {
        while (!stop)
        {
            stream.TriggerRemoteDeviceEvent(1, 16, data);
        }
    });
    for (int i = 0; i < 300; ++i)
    {
        auto* event = Register();
        unsigned char record[546];
        unsigned long size = sizeof record;
        event->GetData(record, &size, 1);
        // Records that are pending at the end are never freed, so none is left behind here.
        device.FindEventById(4, true);
        while (event->GetNumInQueue() > 0)
        {
            EXPECT_EQ(event->GetData(record, &size, 0), 0);
        }
        delete event;
    }
    stop = true;
    producer.join();
}
