// SPDX-License-Identifier: Apache-2.0
// What a forked child finds of the locks, threads, sockets and connections of its parent.
#include "gentl/CLThread.h"
#include "gentl/nq_event_handler.h"
#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_openings.h"
#include "gige/gige_mutex.h"
#include "gige/gige_network.h"
#include "gige/nq_gev_socket_linux.h"
#include "support/asleep.h"
#include "support/forked.h"
#include "support/gate.h"
#include "support/stream_fixture.h"
#include "support/trace_capture.h"

#include <array>
#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <thread>

using namespace GigERDMA;
using nq::test::CallingThread;
using nq::test::Forked;
using nq::test::Gate;

namespace
{

constexpr unsigned int kLoopbackAddress = 0x7F000001;

sockaddr_in Loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(kLoopbackAddress);
    return address;
}

/// Holds what it is given from construction to Join(), on a thread of its own.
template <typename Lock>
class Held
{
  public:
    template <typename Mutex>
    explicit Held(Mutex& mutex)
        : m_thread([this, &mutex] {
              Lock lock(mutex);
              m_gate.Pass();
          })
    {
        m_gate.AwaitCaller();
    }
    ~Held() { m_gate.Open(); }

  private:
    Gate m_gate;
    CallingThread m_thread;
};

} // namespace

TEST(Fork, LocksThatOtherThreadsHoldAreFreeInTheChild)
{
    NQMutex plain;
    NQRecursiveMutex recursive;
    NQGenTLMutex framework;
    NQGenTLMutex lasting{NQHeld::Long};
    const Held<NQLock<NQMutex>> first(plain);
    const Held<NQLock<NQRecursiveMutex>> second(recursive);
    const Held<NQGenTLLock> third(framework);
    const Held<NQGenTLLock> fourth(lasting);
    const Held<NQLock<GigETL::tMutexLock>> fifth(GigETL::lock);
    Forked([&] {
        NQLock a(plain);
        NQLock b(recursive);
        NQGenTLLock c(framework);
        NQGenTLLock d(lasting);
        NQLock e(GigETL::lock);
        if (!Forked::kMayStartThreads)
        {
            return;
        }
        // They work as ever: another thread waits for them.
        bool done = false;
        CallingThread other([&] {
            NQGenTLLock lock(framework);
            done = true;
        });
        other.AwaitAsleep();
        EXPECT_FALSE(done);
        framework.Unlock();
        other.Join();
        framework.Lock();
        EXPECT_TRUE(done);
    });
}

TEST(Fork, ConditionsWithWaitersGoAndWakeInTheChild)
{
    auto framework = std::make_unique<NQEventHandler>(1);
    CallingThread waits([&] { framework->WaitForEvent(-1); });
    waits.AwaitAsleep();
    NQMutex mutex;
    auto plain = std::make_unique<NQCondition>();
    std::atomic<bool> ended = false;
    CallingThread alsoWaits([&] {
        NQLock lock(mutex);
        while (!ended)
        {
            plain->Wait(mutex);
        }
    });
    alsoWaits.AwaitAsleep();
    Forked([&] {
        if (Forked::kMayStartThreads)
        {
            CallingThread waiter([&] { EXPECT_EQ(framework->WaitForEvent(-1), 1U); });
            waiter.AwaitAsleep();
            framework->SetEvent(1);
        }
        framework.reset();
        plain.reset();
    });
    framework->Kill();
    ended = true;
    plain->NotifyAll();
}

TEST(Fork, WhatABrieflyHeldMutexGuardsIsInOrderInTheChild)
{
    NQGenTLMutex mutex;
    volatile int first = 0;
    volatile int second = 0;
    volatile int elsewhere = 0;
    std::atomic<bool> stop = false;
    std::thread writer([&] {
        while (!stop)
        {
            for (int turn = 0; turn < 500; ++turn)
            {
                elsewhere = turn;
            }
            NQGenTLLock lock(mutex);
            first = first + 1;
            for (int turn = 0; turn < 500; ++turn)
            {
                second = turn;
            }
            second = first;
        }
    });
    for (int round = 0; round < 300; ++round)
    {
        Forked([&] { EXPECT_EQ(first, second); });
        if (HasFailure())
        {
            break;
        }
    }
    stop = true;
    writer.join();
}

TEST(Fork, NobodyWaitsInTheChildForAThreadOfTheParent)
{
    Gate gate;
    NQSync::thread thread([](void* place) { static_cast<Gate*>(place)->Pass(); }, &gate);
    gate.AwaitCaller();
    EXPECT_FALSE(thread.IsFinished());
    Forked([&] {
        EXPECT_TRUE(thread.IsFinished());
        EXPECT_FALSE(thread.IsCurrent());
        thread.WaitUntilGone();
        thread.join();
        thread.timedjoin(1000);
    });
    EXPECT_FALSE(thread.IsFinished());
    gate.Open();
    thread.join();
}

TEST(Fork, AnIdThatTheParentIsOpeningIsFreeInTheChild)
{
    NQGenTLOpenings openings;
    Gate gate;
    CallingThread opener([&] {
        const NQGenTLOpenings::Turn turn(openings, "id");
        gate.Pass();
    });
    gate.AwaitCaller();
    Forked([&] { const NQGenTLOpenings::Turn turn(openings, "id"); });
    gate.Open();
}

TEST(Fork, ASocketOfTheParentIsClosedInTheChildAndGoesOnInTheParent)
{
    NQGevSocket socket;
    ASSERT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0));
    ASSERT_TRUE(socket.Bind(kLoopbackAddress, 40001));
    NQGevSocket peer;
    ASSERT_TRUE(peer.Create(AF_INET, SOCK_DGRAM, 0));
    std::array<char, 8> data{};
    unsigned int received = 0;
    sockaddr_in to = Loopback(40001);
    CallingThread receiver([&] { EXPECT_TRUE(socket.Receive(data.data(), data.size(), received, 20000)); });
    receiver.AwaitAsleep();
    Forked([&] {
        // Used as if it were there, it sends nothing and takes nothing.
        std::array<char, 8> other{};
        unsigned int taken = 0;
        EXPECT_FALSE(peer.SendTo(reinterpret_cast<sockaddr*>(&to), other.data(), other.size()));
        EXPECT_FALSE(socket.Receive(other.data(), other.size(), taken, 0));
        const int next = dup(0);
        close(next);
        socket.Destroy();
        peer.Destroy();
        const int after = dup(0);
        EXPECT_LT(after, next) << "the descriptors are closed";
        EXPECT_TRUE(socket.Create(AF_INET, SOCK_DGRAM, 0)) << "it can be made again";
        EXPECT_TRUE(socket.Bind(kLoopbackAddress, 40002));
    });
    std::array<char, 5> sent{};
    EXPECT_TRUE(peer.SendTo(reinterpret_cast<sockaddr*>(&to), sent.data(), sent.size()));
    receiver.Join();
    EXPECT_EQ(received, 5U);
}

TEST(Fork, ANetworkOfTheParentSendsAndTakesNothingInTheChild)
{
    GigETL::Network network(kLoopbackAddress, 40003, kLoopbackAddress, 40003); // it hears itself
    GigETL::Command command(0x0080, 4, 1);
    std::array<unsigned char, 8> datagram{};
    timeval wait{1, 0};
    EXPECT_EQ(network.sendCommand(command), 0);
    Forked([&] {
        EXPECT_EQ(network.sendCommand(command), -208);
        EXPECT_EQ(network.broadcastCommand(command), -208);
        EXPECT_EQ(network.receiveCommand(command, &wait, nullptr, nullptr), -208);
        EXPECT_EQ(GigETL::Network::gvcp_send(datagram.data(), 8, &network), 0);
    });
    EXPECT_EQ(network.receiveCommand(command, &wait, nullptr, nullptr), 0);
    wait = {0, 50000};
    EXPECT_NE(network.receiveCommand(command, &wait, nullptr, nullptr), 0) << "only its own command came";
}

TEST(Fork, AnAnswerThatTheParentIsOwedIsLeftToTheParent)
{
    GigETL::Network network(kLoopbackAddress, 40004, kLoopbackAddress, 40004); // it hears itself
    const GigETL::Command command(0x0080, 4, 1);
    GigETL::Command answer;
    timeval wait{1, 0};
    EXPECT_EQ(network.sendCommand(command), 0);
    Forked([&] { network.dropOwedAnswers(); });
    EXPECT_EQ(network.receiveCommand(answer, &wait, nullptr, nullptr), 0);
    EXPECT_EQ(answer.getSize(), 12) << "the child took it";
}

using ForkOfAStream = nq::test::StreamFixture;

TEST_F(ForkOfAStream, AStopInTheChildWaitsForNoFrame)
{
    ASSERT_EQ(stream.StartAcquisition(0, kInfinite), 0);
    const nq::test::TraceCapture trace;
    Forked([&] {
        EXPECT_EQ(stream.StopAcquisition(0), 0);
        EXPECT_FALSE(trace.Has(2, "StopAcquisition failed! WAIT_EVENT_TRANSFER_COMPLETED")) << "after 3 s";
    });
    EXPECT_EQ(stream.StopAcquisition(1), 0);
}
