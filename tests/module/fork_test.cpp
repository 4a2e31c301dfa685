// SPDX-License-Identifier: Apache-2.0
// A process that forks with cameras open: its child closes what it inherited without a trace, and may start anew.
#include "support/ask_until.h"
#include "support/asleep.h"
#include "support/fake_logger.h"
#include "support/forked.h"
#include "support/gate.h"
#include "support/open_tree.h"
#include "support/process_counts.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstdarg>
#include <thread>

using namespace nq::test;
using testing::IsEmpty;

namespace
{

/// A camera with a message channel and a stream, all open.
class ForkWithAnOpenTree : public testing::Test
{
  protected:
    ForkWithAnOpenTree()
    {
        tree.camera.SetRegister(0x0900, 1); // a message channel
        EXPECT_EQ(p.DevClose(tree.device), 0);
        Open();
        tree.camera.SetRegister(0x0A00, 0); // it grants control to everybody, a child too
        EXPECT_EQ(p.GCRegisterEvent(tree.device, 4, &remoteEvent), 0);
        EXPECT_EQ(p.GCRegisterEvent(tree.stream, 1, &newBuffer), 0);
        EXPECT_EQ(p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &buffer), 0);
        EXPECT_EQ(p.DSQueueBuffer(tree.stream, buffer), 0);
    }
    ~ForkWithAnOpenTree() override { p.GCCloseLib(); }

    /// Device and stream, on an open interface.
    void Open()
    {
        ASSERT_EQ(p.IFUpdateDeviceList(tree.interface, nullptr, 100), 0);
        const auto open = [this] { return p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), 3, &tree.device); };
        ASSERT_EQ(AskUntil(0, open), 0);
        const auto openStream = [this] { return p.DevOpenDataStream(tree.device, "Stream:0", &tree.stream); };
        ASSERT_EQ(AskUntil(0, openStream), 0);
        ASSERT_EQ(p.DevGetPort(tree.device, &port), 0);
    }

    int ReadRegister()
    {
        unsigned int value = 0;
        size_t size = sizeof value;
        return p.GCReadPort(port, 0x1000, &value, &size);
    }

    /// Closes the library and uses it from the start.
    void StartAnew()
    {
        EXPECT_EQ(p.GCCloseLib(), 0);
        EXPECT_EQ(p.GCCloseLib(), -1002);
        ASSERT_EQ(p.GCInitLib(), 0);
        ASSERT_EQ(p.TLOpen(&tree.system), 0);
        if (!Forked::kMayStartThreads)
        {
            return;
        }
        ASSERT_EQ(p.TLUpdateInterfaceList(tree.system, nullptr, 100), 0);
        ASSERT_EQ(p.TLOpenInterface(tree.system, tree.interfaceId.c_str(), &tree.interface), 0);
        Open();
        EXPECT_EQ(ReadRegister(), 0);
        EXPECT_EQ(p.GCCloseLib(), 0);
    }

    Producer p;
    OpenTree tree{p};
    void* port = nullptr;
    void* remoteEvent = nullptr;
    void* newBuffer = nullptr;
    void* buffer = nullptr;
};

TEST_F(ForkWithAnOpenTree, EveryClosingFunctionAnswersInTheChildAndTheCameraHearsNothing)
{
    tree.camera.Forget();
    const auto closed = [&](auto close) { Forked([&] { EXPECT_EQ(close(), 0); }); };
    closed([&] { return p.GCCloseLib(); });
    closed([&] { return p.TLClose(tree.system); });
    closed([&] { return p.IFClose(tree.interface); });
    closed([&] { return p.DevClose(tree.device); });
    closed([&] { return p.DSClose(tree.stream); });
    closed([&] { return p.GCUnregisterEvent(tree.device, 4); });
    Forked([&] {
        EXPECT_EQ(p.EventKill(newBuffer), 0);
        EXPECT_EQ(p.GCUnregisterEvent(tree.stream, 1), 0);
        EXPECT_EQ(p.DSStopAcquisition(tree.stream, 1), -1004);
        EXPECT_EQ(p.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr), -1022);
        EXPECT_EQ(p.DSFlushQueue(tree.stream, 4), 0);
        EXPECT_EQ(p.DSRevokeBuffer(tree.stream, buffer, nullptr, nullptr), 0);
        EXPECT_EQ(p.DSClose(tree.stream), 0);
        EXPECT_EQ(p.DSClose(tree.stream), -1001);
        EXPECT_EQ(p.DevClose(tree.device), 0);
        EXPECT_EQ(p.DevClose(tree.device), -1006);
        EXPECT_EQ(p.IFClose(tree.interface), 0);
        EXPECT_EQ(p.TLClose(tree.system), 0);
        EXPECT_EQ(p.GCCloseLib(), 0);
        EXPECT_EQ(p.TLClose(tree.system), -1002);
    });
    EXPECT_THAT(tree.camera.Accesses(), IsEmpty());

    // All of it goes on in the parent: control, and the message channel, whose thread sleeps at its socket.
    EXPECT_EQ(ReadRegister(), 0);
    nq::test::Bytes packet(24);
    packet[0] = 0x42;
    packet[3] = 0xC0;
    tree.camera.Send(packet, "10.9.0.1", static_cast<std::uint16_t>(tree.camera.GetRegister(0x0B00)));
    nq::test::Bytes record(1024);
    size_t size = record.size();
    EXPECT_EQ(p.EventGetData(remoteEvent, record.data(), &size, 5000), 0);
}

TEST_F(ForkWithAnOpenTree, TheChildsDescriptorsAreClosed)
{
    long inChild = 0;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    Forked([&] {
        close(ends[0]); // either side is left with one end
        EXPECT_EQ(p.GCCloseLib(), 0);
        inChild = Descriptors();
        EXPECT_EQ(write(ends[1], &inChild, sizeof inChild), static_cast<ssize_t>(sizeof inChild));
    });
    close(ends[1]);
    ASSERT_EQ(read(ends[0], &inChild, sizeof inChild), static_cast<ssize_t>(sizeof inChild));
    const long open = Descriptors();
    EXPECT_EQ(p.GCCloseLib(), 0);
    EXPECT_LT(Descriptors(), open);
    EXPECT_EQ(inChild, Descriptors());
}

TEST_F(ForkWithAnOpenTree, AGrandchildClosesWhatItInheritedAndMayStartAnew)
{
    tree.camera.Forget();
    Forked([&] {
        Forked([&] { EXPECT_EQ(p.GCCloseLib(), 0); });
        EXPECT_EQ(p.GCCloseLib(), 0);
    });
    EXPECT_THAT(tree.camera.Accesses(), IsEmpty());
    Forked([&] { Forked([&] { StartAnew(); }); });
    EXPECT_EQ(ReadRegister(), 0);
}

TEST_F(ForkWithAnOpenTree, TheChildMayStartAnew)
{
    Forked([&] { StartAnew(); });
    EXPECT_EQ(ReadRegister(), 0);
}

TEST_F(ForkWithAnOpenTree, WhileOtherThreadsWaitForEvents)
{
    CallingThread buffers([&] {
        size_t size = 64;
        EXPECT_EQ(p.EventGetData(newBuffer, nullptr, &size, 0xFFFFFFFFFFFFFFFF), -1012);
    });
    CallingThread messages([&] {
        size_t size = 1024;
        EXPECT_EQ(p.EventGetData(remoteEvent, nullptr, &size, 0xFFFFFFFFFFFFFFFF), -1012);
    });
    buffers.AwaitAsleep();
    messages.AwaitAsleep();
    Forked([&] { StartAnew(); });
    EXPECT_EQ(p.EventKill(newBuffer), 0);
    EXPECT_EQ(p.EventKill(remoteEvent), 0);
}

TEST_F(ForkWithAnOpenTree, WhileAnotherThreadIsInAnExchangeWithASilentCamera)
{
    tree.camera.SetSilent(true);
    int result = 0;
    CallingThread reader([&] { result = ReadRegister(); });
    ASSERT_TRUE(tree.camera.WaitFor("read 0x1000"));
    int speaks[2];
    ASSERT_EQ(pipe(speaks), 0);
    Forked child([&] {
        char go = 0;
        EXPECT_EQ(p.GCCloseLib(), 0);
        EXPECT_EQ(p.GCInitLib(), 0);
        EXPECT_EQ(read(speaks[0], &go, 1), 1);
        StartAnew();
    });
    reader.Join();
    tree.camera.SetSilent(false);
    EXPECT_EQ(write(speaks[1], "!", 1), 1);
    child.Join();
    EXPECT_EQ(result, -1010);
    EXPECT_EQ(ReadRegister(), 0);
}

/// Which of the closing functions another thread is in.
class ForkDuringAClose : public ForkWithAnOpenTree, public testing::WithParamInterface<int>
{
};

TEST_P(ForkDuringAClose, TheChildClosesTheLibraryAndMayInitialiseIt)
{
    // The exchange in which the camera is given back lasts until the child has ended, however long that takes.
    const std::string release = "write 0x0A00 = 0x00000000";
    tree.camera.Otherwise([this, release](const nq::test::Bytes& command) {
        return gvcp::Describe(command) == release ? gvcp::Pending(60000)(command)
                                                  : tree.camera.AnswerFromMemory(command);
    });
    CallingThread closer([&] {
        EXPECT_EQ(GetParam() == 0   ? p.DevClose(tree.device)
                  : GetParam() == 1 ? p.IFClose(tree.interface)
                  : GetParam() == 2 ? p.TLClose(tree.system)
                                    : p.GCCloseLib(),
                  0);
    });
    ASSERT_TRUE(tree.camera.WaitFor(release, 1, std::chrono::seconds(60)));
    Forked([&] {
        EXPECT_EQ(p.GCCloseLib(), 0);
        EXPECT_EQ(p.GCInitLib(), 0);
        EXPECT_EQ(p.TLOpen(&tree.system), 0);
        EXPECT_EQ(p.GCCloseLib(), 0);
    });
    tree.camera.Otherwise([this](const nq::test::Bytes& command) { return tree.camera.AnswerFromMemory(command); });
    const std::vector<GvcpCamera::Datagram> all = tree.camera.Received();
    const auto last = std::find_if(all.rbegin(), all.rend(), [&](const GvcpCamera::Datagram& datagram) {
        return gvcp::Describe(datagram.bytes) == release;
    });
    ASSERT_NE(last, all.rend());
    tree.camera.Send(gvcp::Acknowledge({0, 0, 0, 1})(last->bytes)[0].bytes, last->senderAddress, last->senderPort);
}

INSTANTIATE_TEST_SUITE_P(OfEachModule, ForkDuringAClose, testing::Range(0, 4));

TEST_F(ForkWithAnOpenTree, WhileAnotherThreadOpensACamera)
{
    ASSERT_EQ(p.DevClose(tree.device), 0);
    tree.camera.SetSilent(true);
    CallingThread opener([&] {
        void* device = nullptr;
        EXPECT_EQ(p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), 3, &device), -1005);
    });
    ASSERT_TRUE(tree.camera.WaitFor("read 0x0A00"));
    Forked([&] {
        void* device = nullptr;
        EXPECT_NE(p.IFOpenDevice(tree.interface, tree.deviceId.c_str(), 3, &device), 0) << "not through the parent";
        EXPECT_EQ(p.GCCloseLib(), 0);
    });
    opener.Join();
    tree.camera.SetSilent(false);
}

Gate* g_traceGate = nullptr;
pid_t g_parent = 0;

void BlockingTrace(const char*, unsigned long, const char*, va_list)
{
    if (getpid() == g_parent)
    {
        g_traceGate->Pass();
    }
}

TEST_F(ForkWithAnOpenTree, WhileAnotherThreadIsInsideTheLogger)
{
    ProducerTrace trace(p);
    Gate gate;
    g_traceGate = &gate;
    g_parent = getpid();
    auto* const slot =
        static_cast<std::atomic<void (*)(const char*, unsigned long, const char*, va_list)>*>(p.Find("g_pFnTraceA"));
    auto* const before = slot->exchange(&BlockingTrace);
    {
        CallingThread caller([&] { ReadRegister(); });
        gate.AwaitCaller();
        Forked([&] { StartAnew(); });
        gate.Open();
    }
    *slot = before;
}

/// Threads that change every list there is, so that many forks fall into the middle of a change.
TEST_F(ForkWithAnOpenTree, AtAnyMomentTheChildFindsAllListsInOrder)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator may be in use by another thread at the fork";
#endif
    std::atomic<bool> stop = false;
    const auto again = [&stop](auto change) {
        return std::thread([&stop, change] {
            while (!stop)
            {
                change();
            }
        });
    };
    std::thread threads[] = {again([&] {
                                 void* handle = nullptr;
                                 p.DSAllocAndAnnounceBuffer(tree.stream, 64, nullptr, &handle);
                                 p.DSQueueBuffer(tree.stream, handle);
                                 p.DSFlushQueue(tree.stream, 4);
                                 p.DSRevokeBuffer(tree.stream, handle, nullptr, nullptr);
                             }),
                             again([&] {
                                 void* event = nullptr;
                                 p.GCRegisterEvent(tree.device, 5, &event);
                                 p.GCUnregisterEvent(tree.device, 5);
                             }),
                             again([&] { ReadRegister(); }),
                             again([&] { p.TLUpdateInterfaceList(tree.system, nullptr, 0); })};
    for (int round = 0; round < 200 && !HasFailure(); ++round)
    {
        Forked([&] { EXPECT_EQ(p.GCCloseLib(), 0); });
    }
    stop = true;
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(ReadRegister(), 0);
}

} // namespace
