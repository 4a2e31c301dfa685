// SPDX-License-Identifier: Apache-2.0
// The camera's control channel when packets come twice, late, too long or too many.
#include "camera/raw_host.h"
#include "support/asleep.h"

#include <csignal>
#include <gmock/gmock.h>
#include <thread>

using namespace nq::test;
using testing::HasSubstr;

namespace
{

constexpr const char* kTakeControl = "42 01 00 82 00 08 70 01 00 00 0A 00 00 00 00 02";
constexpr const char* kTaken = "00 00 00 83 00 04 70 01 00 00 00 01";
constexpr const char* kDenied = "80 06 00 83 00 04 70 01 00 00 00 00";
constexpr const char* kTestEvent = "42 01 00 82 00 08 00 33 00 01 00 64 00 00 00 01";
constexpr const char* kTestEventDone = "00 00 00 83 00 04 00 33 00 00 00 01";

/// Waits until the camera's status says so; no packet of the control channel is sent for it.
bool WaitForStatus(const VirtualCamera& camera, const std::string& text)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (std::chrono::steady_clock::now() < end)
    {
        if (camera.Control(R"({"cmd":"status"})").find(text) != std::string::npos)
        {
            return true;
        }
        std::this_thread::yield();
    }
    return false;
}

/// Takes control, opens the message channel and switches the Test event on.
void Control(const RawHost& host, const RawHost& events)
{
    host.KeepControl();
    EXPECT_EQ(host.Write(0x7101, 0x0B10, 0x0A4D0001), 0U);
    EXPECT_EQ(host.Write(0x7102, 0x0B00, events.Port()), 0U);
    host.Write(0x7202, 0x10080, 1);
}

/// A command with a body of so many bytes.
Octets Command(const std::string& code, std::size_t bodySize)
{
    Octets command = Hex("42 01 " + code + " 00 00 00 44");
    command[4] = static_cast<std::uint8_t>(bodySize >> 8);
    command[5] = static_cast<std::uint8_t>(bodySize);
    command.resize(8 + bodySize);
    return command;
}

} // namespace

TEST(CameraRepeatedWrite, RunsOnceWhateverOthersSendInBetween)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost other;
    const RawHost events;
    Control(host, events);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_EQ(other.Read(0x0904), 1U);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_EQ(other.Write(1, 0x10000, 100), 0x8006U);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_THAT(camera.Control(R"({"cmd":"status"})"), HasSubstr(R"("events_sent":1,)"));
}

TEST(CameraRepeatedWrite, IsNobodyElses)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost other;
    const RawHost events;
    Control(host, events);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_EQ(other.Ask(kTestEvent), Hex("80 06 00 83 00 04 00 33 00 00 00 00"));
}

TEST(CameraRepeatedWrite, IsNewOnceItsSenderHasSentSomethingElse)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    Control(host, events);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_EQ(host.Read(0x0904), 1U);
    EXPECT_EQ(host.Ask(kTestEvent), Hex(kTestEventDone));
    EXPECT_THAT(camera.Control(R"({"cmd":"status"})"), HasSubstr(R"("events_sent":2,)"));
}

TEST(CameraRepeatedWrite, LateDuplicateOfAFarewellTakesNothingFromTheNextHolder)
{
    const VirtualCamera camera;
    const RawHost first;
    const RawHost second;
    first.KeepControl();
    EXPECT_EQ(first.Write(5, 0x0A00, 0), 0U);
    second.KeepControl();
    EXPECT_EQ(first.Write(5, 0x0A00, 0), 0U);
    EXPECT_EQ(second.Read(0x0A00), 2U);
    EXPECT_EQ(second.Write(6, 0x10000, 100), 0U);
}

TEST(CameraRepeatedWrite, PrivilegeRequestAfterTheHeartbeatRanOutIsANewOne)
{
    const VirtualCamera camera({"--heartbeat", "200"});
    const RawHost host;
    const RawHost other;
    EXPECT_EQ(host.Ask(kTakeControl), Hex(kTaken));
    ASSERT_TRUE(WaitForStatus(camera, R"("privilege":0,)"));
    other.KeepControl(); // leaves its heartbeat of a minute behind
    EXPECT_EQ(other.Write(1, 0x0A00, 0), 0U);
    EXPECT_EQ(host.Ask(kTakeControl), Hex(kTaken));
    EXPECT_EQ(host.Read(0x0A00), 2U);
}

TEST(CameraRepeatedWrite, PrivilegeRequestOfOneWhoLostItIsDenied)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask(kTakeControl), Hex(kTaken));
    camera.Fault("privilege-taken");
    EXPECT_EQ(host.Ask(kTakeControl), Hex(kDenied));
}

TEST(CameraBounds, FrameRatesBelowAThousandthAreRefused)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10030, 0x3A83126F), 0U);      // 0.001
    EXPECT_EQ(host.Write(2, 0x10030, 0x3A831200), 0x8002U); // a little less
    EXPECT_EQ(host.Write(3, 0x10030, 0x00000001), 0x8002U); // the smallest number there is
    EXPECT_EQ(host.Read(0x10030), 0x3A83126FU);
    EXPECT_EQ(host.Write(4, 0x10030, 0), 0U); // as fast as the credits come
}

TEST(CameraBounds, FrameRateOfTheCommandLineIsBoundLikewise)
{
    for (const char* rate : {"0.0009", "1e-30", "nan", "-1", "100001"})
    {
        ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1", "--fps", rate});
        EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 2) << rate;
        EXPECT_EQ(camera.Output(), "nq-gev-camera: --fps is neither 0 nor between 0.001 and 100000\n");
    }
}

TEST(CameraBounds, FaultsLastADayAtMost)
{
    const VirtualCamera camera;
    for (const std::string fault : {"late-ack", "pending-ack", "silent", "reboot", "slow-accept"})
    {
        for (const std::string time : {"86400001", "9223372036854775807", "18446744073709551615"})
        {
            EXPECT_EQ(camera.Control(R"({"fault":")" + fault + ":" + time + R"("})"),
                      R"({"error":"the fault ')" + fault + R"(' lasts at most 86400000 milliseconds","ok":false})");
            EXPECT_EQ(camera.Control(R"({"cmd":"fault","name":")" + fault + R"(","arg":)" + time + "}"),
                      R"({"error":"the fault ')" + fault + R"(' lasts at most 86400000 milliseconds","ok":false})");
        }
    }
    EXPECT_EQ(camera.Control(R"({"fault":"late-ack:86400000"})"), R"({"ok":true})");
    EXPECT_EQ(camera.Control(R"({"fault":"id-jump:18446744073709551615"})"), R"({"ok":true})");
}

TEST(CameraBounds, SixtyFourAnswersWaitAtMost)
{
    const VirtualCamera camera({"--fault", "late-ack:5000:100"});
    const RawHost host;
    for (int i = 0; i < 100; ++i)
    {
        host.Send(Hex("42 01 00 80 00 04 00 21 00 00 09 04"));
    }
    ASSERT_TRUE(WaitForStatus(camera, R"("late-ack":{"armed":false,"strikes":100})"));
    const auto lastIsDue = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    for (int i = 0; i < 64; ++i)
    {
        EXPECT_EQ(host.Receive(), Hex("00 00 00 81 00 04 00 21 00 00 00 01")) << "answer " << i;
    }
    std::this_thread::sleep_until(lastIsDue);
    EXPECT_EQ(host.Ask("42 01 00 80 00 04 00 22 00 00 09 04"), Hex("00 00 00 81 00 04 00 22 00 00 00 01"));
}

TEST(CameraBounds, CommandsOfMoreThan540BytesAreRefusedWhateverTheyAre)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask(Command("00 80", 544)), Hex("80 02 00 81 00 00 00 44"));
    EXPECT_EQ(host.Ask(Command("00 82", 544)), Hex("80 02 00 83 00 00 00 44"));
    EXPECT_EQ(host.Ask(Command("00 84", 544)), Hex("80 02 00 85 00 00 00 44"));
    EXPECT_EQ(host.Ask(Command("00 86", 541)), Hex("80 02 00 87 00 00 00 44"));
    EXPECT_EQ(host.Ask(Command("00 40", 544)), Hex("80 02 00 41 00 00 00 44"));
    EXPECT_EQ(host.Ask(Command("00 02", 1400)), Hex("80 02 00 03 00 00 00 44"));
}

TEST(CameraBounds, TooLongWriteChangesNothing)
{
    const VirtualCamera camera({"--width", "640"});
    const RawHost host;
    host.KeepControl();
    const auto writes = [](std::size_t count) {
        Octets command = Command("00 82", 8 * count);
        for (std::size_t i = 0; i < count; ++i)
        {
            const Octets width = Hex("00 01 00 00 00 00 00 64");
            std::copy(width.begin(), width.end(), command.begin() + 8 + static_cast<std::ptrdiff_t>(8 * i));
        }
        return command;
    };
    EXPECT_EQ(host.Ask(writes(68)), Hex("80 02 00 83 00 00 00 44"));
    EXPECT_EQ(host.Read(0x10000), 640U);
    EXPECT_EQ(host.Ask(writes(67)), Hex("00 00 00 83 00 04 00 44 00 00 00 43"));
    EXPECT_EQ(host.Read(0x10000), 100U);
}

TEST(CameraBounds, HeartbeatIsLookedAtAfterSixtyFourDatagrams)
{
    VirtualCamera camera({"--heartbeat", "300"});
    const RawHost holder;
    const RawHost other;
    const pid_t process = camera.Process().Pid();
    std::uint16_t id = 1;
    for (bool inTime = false; !inTime;) // until it is stopped before the heartbeat can run out
    {
        camera.Process().Signal(SIGCONT);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(holder.Write(id++, 0x0A00, 2), 0U);
        AwaitState(process, 'S'); // and not between its answer and its look at the heartbeat
        camera.Process().Signal(SIGSTOP);
        AwaitState(process, 'T');
        inTime = std::chrono::steady_clock::now() - start < std::chrono::milliseconds(300);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    for (int i = 0; i < 150; ++i)
    {
        other.Send(Hex("42 01 00 80 00 04 00 21 00 00 0A 00"));
    }
    camera.Process().Signal(SIGCONT);
    for (int i = 0; i < 150; ++i)
    {
        EXPECT_EQ(other.Receive(), Hex("00 00 00 81 00 04 00 21 00 00 00 0" + std::string(i < 64 ? "2" : "0")))
            << "datagram " << i;
    }
}
