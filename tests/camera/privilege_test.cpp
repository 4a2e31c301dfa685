// SPDX-License-Identifier: Apache-2.0
// Who may do what with the virtual camera, and for how long.
#include "camera/raw_host.h"

#include <gtest/gtest.h>

#include <thread>

using namespace nq::test;

namespace
{

/// Reads the privilege register from a socket that is not the holder's until it has this value.
bool WaitForPrivilege(const RawHost& observer, std::uint32_t value)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end)
    {
        if (observer.Read(0x0A00) == value)
        {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

} // namespace

TEST(CameraPrivilege, WithoutItNothingCanBeWritten)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 04 00 01 00 00 00 00 00 0A"), Hex("80 06 00 83 00 04 00 04 00 00 00 00"));
    EXPECT_EQ(host.Ask("42 01 00 86 00 08 00 05 00 00 00 E8 45 76 61 00"), Hex("80 06 00 87 00 04 00 05 00 00 00 00"));
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 06 00 00 0C 00 00 00 00 0A"), Hex("80 06 00 83 00 04 00 06 00 00 00 00"));
}

TEST(CameraPrivilege, ControlLetsOthersReadButNotWrite)
{
    const VirtualCamera camera({"--heartbeat", "60000"});
    const RawHost holder;
    const RawHost other;
    EXPECT_EQ(holder.Ask("42 01 00 82 00 08 00 01 00 00 0A 00 00 00 00 02"),
              Hex("00 00 00 83 00 04 00 01 00 00 00 01"));
    EXPECT_EQ(other.Read(0x0A00), 2U);
    EXPECT_EQ(other.Read(0x0904), 1U);
    EXPECT_EQ(other.Write(2, 0x10000, 10), 0x8006U);
    EXPECT_EQ(other.Write(3, 0x0A00, 2), 0x8006U);
    EXPECT_EQ(other.Write(4, 0x0A00, 0), 0x8006U);
    EXPECT_EQ(holder.Write(5, 0x10000, 10), 0U);
}

TEST(CameraPrivilege, ExclusiveAccessHidesAllButThePrivilegeRegister)
{
    const VirtualCamera camera({"--heartbeat", "60000"});
    const RawHost holder;
    const RawHost other;
    EXPECT_EQ(holder.Write(1, 0x0A00, 1), 0U);
    EXPECT_EQ(other.Read(0x0A00), 1U);
    EXPECT_EQ(other.Ask("42 01 00 80 00 04 00 02 00 00 09 04"), Hex("80 06 00 81 00 00 00 02"));
    EXPECT_EQ(other.Ask("42 01 00 84 00 08 00 03 00 00 02 00 00 00 00 04"), Hex("80 06 00 85 00 00 00 03"));
    EXPECT_EQ(other.Ask("42 11 00 02 00 00 00 01").size(), 256U);
    EXPECT_EQ(holder.Read(0x0904), 1U);
}

TEST(CameraPrivilege, HolderIsShownInThePrimaryRegisters)
{
    const VirtualCamera camera;
    const RawHost holder;
    EXPECT_EQ(holder.Read(0x0A04), 0U);
    holder.KeepControl();
    EXPECT_EQ(holder.Read(0x0A04), holder.Port());
    EXPECT_EQ(holder.Read(0x0A14), 0x0A4D0001U);
}

TEST(CameraPrivilege, HolderGivesItBackAndAnotherTakesIt)
{
    const VirtualCamera camera({"--heartbeat", "60000"});
    const RawHost first;
    const RawHost second;
    first.TakeControl();
    EXPECT_EQ(first.Write(2, 0x0A00, 0), 0U);
    EXPECT_EQ(first.Write(3, 0x0A00, 0), 0U);
    EXPECT_EQ(first.Read(0x0A00), 0U);
    EXPECT_EQ(second.Write(4, 0x0A00, 2), 0U);
    EXPECT_EQ(first.Write(5, 0x10000, 10), 0x8006U);
}

TEST(CameraPrivilege, GivingItBackClosesTheChannels)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    host.Write(1, 0x0B00, 5000);
    host.Write(2, 0x0D00, 5001);
    host.Write(3, 0xE030, 0x80000000);
    host.Write(4, 0x0A00, 0);
    EXPECT_EQ(host.Read(0x0B00), 0U);
    EXPECT_EQ(host.Read(0x0D00), 0U);
    EXPECT_EQ(host.Read(0xE030), 0U);
}

TEST(CameraPrivilege, QuietHolderLosesItAndTheStreamStops)
{
    const VirtualCamera camera;
    const RawHost holder;
    const RawHost observer;
    holder.KeepControl();
    EXPECT_EQ(holder.Write(1, 0xE030, 0x80000000), 0U);
    EXPECT_EQ(holder.Write(3, 0x0938, 500), 0U);
    EXPECT_TRUE(WaitForPrivilege(observer, 0));
    EXPECT_EQ(observer.Read(0xE030), 0U);
    EXPECT_EQ(holder.Write(2, 0x10000, 10), 0x8006U);
}

TEST(CameraPrivilege, HolderThatReadsKeepsIt)
{
    const VirtualCamera camera({"--heartbeat", "400"});
    const RawHost holder;
    EXPECT_TRUE(SucceedsIfWithin(std::chrono::milliseconds(1300), [&] {
        holder.TakeControl();
        bool kept = true;
        for (int read = 0; read < 10; ++read)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            kept &= holder.Read(0x0A00) == 2;
        }
        return kept && holder.Write(2, 0x10000, 10) == 0;
    }));
}

TEST(CameraPrivilege, HolderThatWaitsForADelayedAnswerKeepsIt)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_TRUE(SucceedsIfWithin(std::chrono::milliseconds(1400), [&] {
        host.KeepControl();
        host.Ask("42 01 00 82 00 10 00 01 00 00 09 38 00 00 01 F4 00 01 00 60 00 00 03 84"); // TestPendingAck of 900 ms
        return host.Write(2, 0x10000, 100) == 0;
    }));
    EXPECT_TRUE(SucceedsIfWithin(std::chrono::milliseconds(1400), [&] {
        host.KeepControl();
        camera.Fault("late-ack:900");
        host.Write(3, 0x0938, 500);
        return host.Write(4, 0x10000, 300) == 0;
    }));
}

TEST(CameraPrivilege, HostsCannotAskForLessThanHalfASecond)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(3, 0x0954, 1), 0U); // no heartbeat, which could run out before the next word
    EXPECT_EQ(host.Write(1, 0x0938, 100), 0U);
    EXPECT_EQ(host.Read(0x0938), 500U);
    EXPECT_EQ(host.Write(2, 0x0938, 60000), 0U);
    EXPECT_EQ(host.Read(0x0938), 60000U);
}

TEST(CameraPrivilege, HeartbeatCanBeSwitchedOff)
{
    const VirtualCamera camera;
    const RawHost holder;
    const RawHost observer;
    holder.KeepControl();
    EXPECT_EQ(holder.Write(1, 0x0954, 1), 0U);
    EXPECT_EQ(holder.Write(2, 0x0938, 500), 0U);
    EXPECT_TRUE(holder.Receive(std::chrono::milliseconds(700)).empty());
    EXPECT_EQ(observer.Read(0x0A00), 2U);
}
