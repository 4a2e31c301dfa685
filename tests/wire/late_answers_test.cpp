// SPDX-License-Identifier: Apache-2.0
// Cameras whose answers come late: what is owed to one access must not be taken for the answer to the next.
#include "gev/nq_gev_remote_device.h"
#include "gige/gige_camera.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <poll.h>
#include <set>
#include <string>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

using GigETL::Camera;
using nq::test::Bytes;
using nq::test::GvcpCamera;
using nq::test::GvcpRule;
using testing::ElementsAre;
using testing::SizeIs;
using namespace nq::test::gvcp;
using namespace std::chrono_literals;

constexpr unsigned int kLoopback = 0x7F000001;

/// The waiting times in milliseconds of the waits made on the thread of the test, -1 for one without an end.
thread_local std::vector<long>* waits = nullptr;

/// The system calls for datagrams made on the thread of the test.
thread_local int transfers = 0;

} // namespace

// Take the place of the C library's functions, so that the calls can be counted.

extern "C" int ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t*)
{
    if (waits != nullptr)
    {
        waits->push_back(timeout == nullptr ? -1 : timeout->tv_sec * 1000 + timeout->tv_nsec / 1000000);
    }
    return static_cast<int>(syscall(SYS_ppoll, entries, count, timeout, nullptr, 0));
}

extern "C" ssize_t recvfrom(int descriptor, void* data, size_t size, int flags, sockaddr* from, socklen_t* length)
{
    ++transfers;
    return syscall(SYS_recvfrom, descriptor, data, size, flags, from, length);
}

extern "C" ssize_t sendto(int descriptor, const void* data, size_t size, int flags, const sockaddr* to,
                          socklen_t length)
{
    ++transfers;
    return syscall(SYS_sendto, descriptor, data, size, flags, to, length);
}

namespace
{

class LateAnswers : public testing::Test
{
  protected:
    /// Has the peer work on every command for as many milliseconds as `m_next` says, and from the next one on for
    /// `work`.
    void Answer(int work, bool oneAfterTheOther)
    {
        const GvcpRule rule = [this, work](const Bytes& command) {
            return Late(std::chrono::milliseconds(m_next.exchange(work)),
                        [this](const Bytes& asked) { return m_peer.AnswerFromMemory(asked); })(command);
        };
        m_peer.Otherwise(oneAfterTheOther ? OneAfterTheOther(rule) : rule);
    }

    /// A read, a write, a read of memory and a write of memory in turn, each of another value.
    void Access(int round)
    {
        SCOPED_TRACE("access " + std::to_string(round));
        const auto address = static_cast<unsigned int>(0x1000 + 4 * round);
        const unsigned int expected = 0x01010101U * static_cast<unsigned int>(round % 250);
        std::array<unsigned char, 4> data{};
        unsigned int value = 0;
        switch (round % 4)
        {
        case 0:
            m_peer.SetRegister(address, expected);
            EXPECT_EQ(m_camera.getGigECameraRegister(address, &value), 0);
            EXPECT_EQ(value, expected);
            return;
        case 1:
            EXPECT_EQ(m_camera.setGigECameraRegister(address, expected), 0);
            EXPECT_EQ(m_peer.GetRegister(address), expected);
            return;
        case 2:
            m_peer.SetRegister(address, expected);
            EXPECT_EQ(m_camera.readCameraMemory(address, data.data(), 4), 0);
            EXPECT_EQ(data[3], expected & 0xFF);
            return;
        default:
            data.fill(static_cast<unsigned char>(round));
            EXPECT_EQ(m_camera.writeCameraMemory(address, data.data(), 4), 0);
            EXPECT_EQ(m_peer.GetMemory(address, 4), Bytes(4, data[0]));
        }
    }

    /// The commands that the peer got, each once: a command that was only sent again is the same packet.
    std::size_t DifferentCommands()
    {
        const std::vector<Bytes> received = m_peer.ReceivedBytes();
        return std::set<Bytes>(received.begin(), received.end()).size();
    }

    NQGigE_RETURN Get() { return m_camera.getGigECameraRegister(0xE030, &m_value); }

    /// A read that is answered by its second sending, and leaves the answer to its first one owed.
    void LeaveOneAnswerOwed()
    {
        m_peer.Next(Silent());
        m_peer.Next(Value(1));
        ASSERT_EQ(Get(), 0);
        m_peer.Forget();
    }

    GvcpCamera m_peer;
    Camera m_camera{kLoopback, 3956, kLoopback, MULTICAST_OFF};
    std::atomic<int> m_next = 0;
    unsigned int m_value = 0;
};

/// The camera's time for one command in milliseconds, and whether it works on one command after the other.
class OneLateAnswer : public LateAnswers, public testing::WithParamInterface<std::tuple<int, bool>>
{
};

TEST_P(OneLateAnswer, LeavesTwoHundredAccessesInStep)
{
    m_next = 250;
    Answer(std::get<0>(GetParam()), std::get<1>(GetParam()));
    for (int round = 0; round <= 200; ++round)
    {
        Access(round);
    }
    EXPECT_EQ(DifferentCommands(), 201U) << "no command was made anew";
}

INSTANTIATE_TEST_SUITE_P(EveryCamera, OneLateAnswer,
                         testing::Combine(testing::Values(1, 3, 20, 60, 190), testing::Bool()),
                         [](const testing::TestParamInfo<std::tuple<int, bool>>& row) {
                             return (std::get<1>(row.param) ? "OneAfterTheOther" : "InParallel") +
                                    std::to_string(std::get<0>(row.param)) + "Ms";
                         });

class EveryAnswerLate : public LateAnswers, public testing::WithParamInterface<bool>
{
};

TEST_P(EveryAnswerLate, LeavesEachAccessInStep)
{
    // No answer comes before the command is sent again; that to the second sending comes a while after the other.
    const auto last = std::make_shared<Bytes>();
    m_peer.Otherwise([this, last](const Bytes& command) -> std::vector<nq::test::GvcpReply> {
        if (std::exchange(*last, command) != command)
        {
            return {};
        }
        const nq::test::GvcpReply first = m_peer.AnswerFromMemory(command).front();
        nq::test::GvcpReply second = first;
        second.delay = std::chrono::milliseconds(GetParam() ? 250 : 200);
        return {first, second};
    });
    for (int round = 0; round < 12; ++round)
    {
        Access(round);
    }
    EXPECT_EQ(DifferentCommands(), 12U);
    EXPECT_TRUE(m_peer.WaitForCount(24));
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(24)) << "each was sent again, and answered twice";
}

INSTANTIATE_TEST_SUITE_P(EveryCamera, EveryAnswerLate, testing::Bool());

TEST_F(LateAnswers, AHeartbeatGoesOnBesideTheAccesses)
{
    m_peer.SetRegister(0x0938, 20);
    m_next = 3;
    Answer(3, true);
    NQGevTL tl;
    NQGevRemoteDevice device(&tl, nq::test::LoopbackCamera(), 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    m_next = 250;
    for (unsigned int round = 0; round < 200; ++round)
    {
        m_peer.SetRegister(0x2000 + 4 * round, round);
        Bytes data(4);
        unsigned long size = 4;
        ASSERT_EQ(device.ReadPort(0x2000 + 4 * round, data.data(), &size), 0) << round;
        ASSERT_EQ(data[3], round) << round;
    }
    m_peer.Forget();
    EXPECT_TRUE(m_peer.WaitForCount(5)) << "the heartbeat has ended";
    EXPECT_EQ(device.Close(), 0);
}

TEST_F(LateAnswers, OnlyOwedAnswersAreDropped)
{
    LeaveOneAnswerOwed();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0xFF, 0, 0, 0, 9}, "127.0.0.1", port);
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0x01, 0, 0, 0, 9}, "127.0.0.1", port);
    m_peer.Next(Silent());
    m_peer.Next(Value(3));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 3U);
    // The foreign one failed the first attempt.
    EXPECT_THAT(m_peer.ReceivedBytes(), ElementsAre(Bytes{0x42, 1, 0, 0x80, 0, 4, 0, 2, 0, 0, 0xE0, 0x30},
                                                    Bytes{0x42, 1, 0, 0x80, 0, 4, 0, 3, 0, 0, 0xE0, 0x30}));
}

TEST_F(LateAnswers, KeptDatagramsAreSeenInTheirOrder)
{
    LeaveOneAnswerOwed();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    m_peer.Send({}, "127.0.0.1", port);                                         // fails the first attempt
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0xFF, 0, 0, 0, 9}, "127.0.0.1", port); // drained behind it
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0x03, 0, 0, 0, 8}, "127.0.0.1", port); // answers the second attempt
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0x01, 0, 0, 0, 9}, "127.0.0.1", port); // the owed one
    m_peer.Otherwise(Silent());
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 8U);
    EXPECT_TRUE(m_peer.WaitForCount(2)) << "nobody waited for the peer";
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(2));
}

TEST_F(LateAnswers, AnOwedAnswerThatWasPendingIsAwaitedAsLongAsTheCameraAsks)
{
    LeaveOneAnswerOwed();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    m_peer.Send({0, 0, 0, 0x89, 0, 4, 0, 0x01, 0, 0, 0x75, 0x30}, "127.0.0.1", port); // 30 s more
    std::thread answer([this, port] {
        std::this_thread::sleep_for(700ms);
        m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0x01, 0, 0, 0, 9}, "127.0.0.1", port);
    });
    m_peer.Next(Value(3));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 3U);
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
    answer.join();
}

TEST_F(LateAnswers, TheAnswerToAnAttemptThatTookAWrongOneIsOwed)
{
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    std::array<unsigned char, 4> data{};
    m_peer.Send({0, 0, 0, 0x85, 0, 8, 0, 0xFF, 0, 0, 0, 0, 1, 1, 1, 1}, "127.0.0.1", port);
    m_peer.Next(Late(50ms, Memory({2, 2, 2, 2})));
    EXPECT_EQ(m_camera.readCameraMemory(0, data.data(), 4), -110);
    m_peer.Next(Late(50ms, Memory({3, 3, 3, 3})));
    EXPECT_EQ(m_camera.readCameraMemory(0, data.data(), 4), 0);
    EXPECT_EQ(data[0], 3);
}

TEST_F(LateAnswers, AnAnswerWithTheWrongCodePaysNothing)
{
    std::array<unsigned char, 4> data{};
    m_peer.Next(Sequence({WithCode(0x0081, Memory({1, 1, 1, 1})), Late(50ms, Memory({2, 2, 2, 2}))}));
    EXPECT_EQ(m_camera.readCameraMemory(0, data.data(), 4), -110);
    m_peer.Next(Memory({3, 3, 3, 3}));
    EXPECT_EQ(m_camera.readCameraMemory(0, data.data(), 4), 0);
    EXPECT_EQ(data[0], 3);
}

TEST_F(LateAnswers, ASilentCameraCostsNoFurtherWait)
{
    m_peer.Otherwise(Silent());
    ASSERT_EQ(Get(), -212);
    ASSERT_TRUE(m_peer.WaitForCount(2)); // none of them is to be answered
    m_peer.Otherwise(Value(2));
    std::vector<long> seen;
    waits = &seen;
    EXPECT_EQ(Get(), 0);
    waits = nullptr;
    EXPECT_THAT(seen, ElementsAre(0, 200)) << "the time of the owed answers was over";
    seen.clear();
    waits = &seen;
    EXPECT_EQ(Get(), 0);
    waits = nullptr;
    EXPECT_THAT(seen, ElementsAre(200)) << "and they were given up";
}

TEST_F(LateAnswers, ANewSocketOwesNothingAndKeepsNothing)
{
    LeaveOneAnswerOwed();
    GigETL::Network& network = *m_camera.getNetwork();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    m_peer.Send({0, 0, 0, 0x81, 0, 4, 0xFF, 0xFF, 0, 0, 0, 9}, "127.0.0.1", port);
    network.dropOwedAnswers(); // sets it aside
    ASSERT_EQ(network.sendCommand(GigETL::Command(0x0080, 4, 1)), 0);
    ASSERT_TRUE(m_peer.WaitForCount(1));
    network.init(kLoopback, 3956, kLoopback, 0);
    m_peer.Next(Value(2));
    std::vector<long> seen;
    waits = &seen;
    EXPECT_EQ(Get(), 0);
    waits = nullptr;
    EXPECT_EQ(m_value, 2U);
    EXPECT_THAT(seen, ElementsAre(200));
}

TEST_F(LateAnswers, WhatCameBeforeTheTimeWasOverIsDroppedAfterIt)
{
    // Whatever this thread does, the command is sent twice, and one answer more comes after the one that was taken.
    m_peer.Next(Silent());
    m_peer.Next(Sequence({Value(1), Late(100ms, Value(1))}));
    ASSERT_EQ(Get(), 0);
    std::this_thread::sleep_for(600ms);
    m_peer.Next(Late(50ms, Value(2)));
    EXPECT_EQ(Get(), 0);
    EXPECT_EQ(m_value, 2U);
    EXPECT_EQ(DifferentCommands(), 2U);
}

TEST_F(LateAnswers, WhereNothingIsOwedAnAccessMakesThreeSystemCalls)
{
    ASSERT_EQ(Get(), 0);
    std::vector<long> seen;
    waits = &seen;
    transfers = 0;
    EXPECT_EQ(Get(), 0);
    waits = nullptr;
    EXPECT_THAT(seen, ElementsAre(200));
    EXPECT_EQ(transfers, 2);
}

TEST_F(LateAnswers, AFloodDoesNotHoldAnAccessUp)
{
    LeaveOneAnswerOwed();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    std::atomic<bool> stop = false;
    std::thread flood([&] {
        while (!stop)
        {
            m_peer.Send({0, 0, 0, 0x81, 0, 4, 0, 0xFF, 0, 0, 0, 9}, "127.0.0.1", port);
        }
    });
    m_peer.Otherwise(Silent());
    std::thread end([&] {
        EXPECT_TRUE(m_peer.WaitForCount(1)) << "the access never got to its command";
        stop = true;
    });
    Get();
    end.join();
    flood.join();
}

TEST_F(LateAnswers, WhatIsKeptOfAFloodDoesNotGrowWithEachAccess)
{
    GigETL::Network& network = *m_camera.getNetwork();
    const auto port = static_cast<std::uint16_t>(m_camera.getLocalPort());
    m_peer.Otherwise(Silent());
    for (int round = 0; round < 10; ++round)
    {
        ASSERT_EQ(network.sendCommand(GigETL::Command(0x0080, 4, 1)), 0);
        for (int sent = 0; sent < 256; ++sent)
        {
            m_peer.Send({0, 0, 0, 0x81, 0, 4, 0xFF, 0xFF, 0, 0, 0, 9}, "127.0.0.1", port);
        }
        network.dropOwedAnswers();
    }
    GigETL::Command taken;
    timeval none{};
    int kept = 0;
    while (network.receiveCommand(taken, &none, nullptr, nullptr) == 0)
    {
        ++kept;
    }
    EXPECT_GT(kept, 0);
    EXPECT_LT(kept, 1000) << "2560 were sent, and the system keeps some 300 of them";
}

} // namespace
