// SPDX-License-Identifier: Apache-2.0
// Faults of the virtual camera on the control channel, from the command line and over the control socket.
#include "camera/raw_host.h"

#include <gmock/gmock.h>

#include <thread>

using namespace nq::test;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace
{

constexpr const char* kRead = "42 01 00 80 00 04 00 21 00 00 09 04";
const Octets kReadAnswer = Hex("00 00 00 81 00 04 00 21 00 00 00 01");

} // namespace

TEST(CameraFaults, LostAckExecutesAndSaysNothing)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    camera.Fault("lost-ack");
    host.Send(Hex("42 01 00 82 00 08 00 05 00 01 00 00 00 00 00 64"));
    EXPECT_EQ(host.Read(0x10000), 100U); // the first answer to arrive is that of the read
}

TEST(CameraFaults, LostAckStrikesAsOftenAsAsked)
{
    const VirtualCamera camera({"--fault", "lost-ack:0:2"});
    const RawHost host;
    host.Send(Hex(kRead));
    host.Send(Hex(kRead));
    EXPECT_EQ(host.Ask(kRead), kReadAnswer);
    EXPECT_TRUE(host.Receive(std::chrono::milliseconds(0)).empty());
}

TEST(CameraFaults, LateAckComesAfterTheTimeGiven)
{
    const VirtualCamera camera({"--fault", "late-ack:150"});
    const RawHost host;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(host.Ask(kRead), kReadAnswer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST(CameraFaults, WrongAckIdDiffersFromTheCommands)
{
    const VirtualCamera camera({"--fault", "wrong-ack-id"});
    const RawHost host;
    EXPECT_EQ(host.Ask(kRead), Hex("00 00 00 81 00 04 00 22 00 00 00 01"));
    EXPECT_EQ(host.Ask(kRead), kReadAnswer);
}

TEST(CameraFaults, PendingAckTellsTheTimeAndThenAnswers)
{
    const VirtualCamera camera({"--fault", "pending-ack:258"});
    const RawHost host;
    EXPECT_EQ(host.Ask(kRead), Hex("00 00 00 89 00 04 00 21 00 00 01 02"));
    EXPECT_EQ(host.Receive(), kReadAnswer);
}

TEST(CameraFaults, PendingAckFeatureAsksForPatienceOnceTheHostUnderstandsIt)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x0954, 2), 0U);
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 31 00 01 00 60 00 00 00 64"), Hex("00 00 00 89 00 04 00 31 00 00 00 64"));
    EXPECT_EQ(host.Receive(), Hex("00 00 00 83 00 04 00 31 00 00 00 01"));
}

TEST(CameraFaults, PendingAckFeatureIsJustSlowForOtherHosts)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 31 00 01 00 60 00 00 00 64"), Hex("00 00 00 83 00 04 00 31 00 00 00 01"));
}

TEST(CameraFaults, SilentCameraIgnoresEverythingUntilCleared)
{
    const VirtualCamera camera;
    const RawHost host;
    camera.Fault("silent");
    host.Send(Hex(kRead));
    host.Send(Hex("42 11 00 02 00 00 00 01"));
    while (camera.Control(R"({"cmd":"status"})").find(R"("silent":{"armed":true,"strikes":2})") == std::string::npos)
    {
        std::this_thread::yield();
    }
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"silent"})"), R"({"ok":true})");
    EXPECT_EQ(host.Ask(kRead), kReadAnswer);
    EXPECT_TRUE(host.Receive(std::chrono::milliseconds(0)).empty());
}

TEST(CameraFaults, SilenceEndsByItselfAfterTheTimeGiven)
{
    const VirtualCamera camera({"--fault", "silent:100"});
    const RawHost host;
    int ignored = -1;
    Octets answer;
    for (; answer.empty(); ++ignored)
    {
        host.Send(Hex(kRead));
        answer = host.Receive(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(answer, kReadAnswer);
    EXPECT_GE(ignored, 1);
}

TEST(CameraFaults, RebootForgetsPrivilegeAndFeatures)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    host.Write(1, 0x10000, 100);
    camera.Fault("reboot:0");
    EXPECT_EQ(host.Read(0x0A00), 0U);
    EXPECT_EQ(host.Read(0x10000), 640U);
    EXPECT_EQ(host.Write(2, 0x10000, 100), 0x8006U);
}

TEST(CameraFaults, RebootingCameraIsAwayForTheTimeGiven)
{
    const VirtualCamera camera;
    const RawHost host;
    const auto start = std::chrono::steady_clock::now();
    camera.Fault("reboot:200");
    Octets answer;
    while (answer.empty())
    {
        host.Send(Hex(kRead));
        answer = host.Receive(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(answer, kReadAnswer);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
}

TEST(CameraFaults, DeviceResetRestartsBehindItsAcknowledge)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x1005C, 1), 0U);
    EXPECT_EQ(host.Read(0x0A00), 0U);
}

TEST(CameraFaults, PrivilegeTakenLeavesTheHolderWithout)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    camera.Fault("privilege-taken");
    EXPECT_EQ(host.Read(0x0A00), 1U);
    EXPECT_EQ(host.Write(1, 0x10000, 100), 0x8006U);
    EXPECT_EQ(host.Write(2, 0x0A00, 2), 0x8006U);
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"privilege-taken"})"), R"({"ok":true})");
    EXPECT_EQ(host.Write(3, 0x0A00, 2), 0U);
}

TEST(CameraFaults, PrivilegeTakenShowsTheValueGiven)
{
    const VirtualCamera camera;
    camera.Fault("privilege-taken:2");
    EXPECT_EQ(RawHost().Read(0x0A00), 2U);
}

TEST(CameraFaults, ClearingThemLeavesControlWithItsHolder)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(camera.Control(R"({"cmd":"clear"})"), R"({"ok":true})");
    EXPECT_EQ(host.Read(0x0A00), 2U);
    EXPECT_EQ(host.Write(1, 0x10000, 100), 0U);
}

TEST(CameraFaults, HugePayloadSizeStandsInTheSettings)
{
    const VirtualCamera camera({"--fault", "huge-payload-size:0x1122334455667788:1"});
    const RawHost host;
    const Octets block = host.ReadMemory(0xE600, 176);
    ASSERT_EQ(block.size(), 176U);
    EXPECT_EQ(Octets(block.begin() + 32, block.begin() + 40), Hex("88 77 66 55 44 33 22 11"));
    const Octets next = host.ReadMemory(0xE600, 176);
    ASSERT_EQ(next.size(), 176U);
    EXPECT_EQ(Octets(next.begin() + 32, next.begin() + 40), Hex("00 B0 04 00 00 00 00 00"));
}

TEST(CameraFaults, WrongEventSizeCutsOrLengthensThePacket)
{
    const VirtualCamera camera({"--fault", "wrong-event-size"});
    const RawHost host;
    const RawHost events;
    host.KeepControl();
    host.Write(1, 0x0B10, 0x0A4D0001);
    host.Write(2, 0x0B00, events.Port());
    camera.Control(R"({"cmd":"event"})");
    EXPECT_EQ(events.Receive().size(), 23U);
    camera.Fault("wrong-event-size:40");
    camera.Control(R"({"cmd":"event"})");
    EXPECT_EQ(events.Receive().size(), 40U);
    camera.Control(R"({"cmd":"event"})");
    EXPECT_EQ(events.Receive().size(), 24U);
}

TEST(CameraControlSocket, MistakesAreToldInTheAnswer)
{
    const VirtualCamera camera;
    EXPECT_EQ(camera.Control(R"({"cmd":"fault","name":"nonsense"})"),
              R"({"error":"there is no fault 'nonsense'","ok":false})");
    EXPECT_EQ(camera.Control(R"({"fault":"silent:x"})"), R"({"error":"'x' in a fault is no number","ok":false})");
    EXPECT_EQ(camera.Control(R"({"cmd":"dance"})"), R"({"error":"there is no command 'dance'","ok":false})");
    EXPECT_THAT(camera.Control("nonsense"), HasSubstr(R"("ok":false)"));
    EXPECT_EQ(camera.Control(R"({"cmd":"status","camera":7})"),
              R"({"error":"'camera' is no whole number from 0 to 0","ok":false})");
    EXPECT_THAT(camera.Control("[]"), HasSubstr(R"("ok":false)"));
}

TEST(CameraControlSocket, FaultTakesArgumentAndCountAsNumbers)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(camera.Control(R"({"cmd":"fault","name":"wrong-ack-id","arg":16,"count":2})"), R"({"ok":true})");
    EXPECT_EQ(host.Ask(kRead)[7], 0x31);
    EXPECT_EQ(host.Ask(kRead)[7], 0x31);
    EXPECT_EQ(host.Ask(kRead)[7], 0x21);
}

TEST(CameraControlSocket, StatusTellsTheState)
{
    const VirtualCamera camera({"--serial", "Z9"});
    const RawHost host;
    host.KeepControl();
    host.Write(1, 0xE030, 0x80000000);
    const std::string status = camera.Control(R"({"cmd":"status"})");
    EXPECT_THAT(status, HasSubstr(R"("address":"10.77.0.2")"));
    EXPECT_THAT(status, HasSubstr(R"("serial":"Z9")"));
    EXPECT_THAT(status, HasSubstr(R"("privilege":2)"));
    EXPECT_THAT(status, HasSubstr(R"("stream_enabled":true)"));
    EXPECT_THAT(status, HasSubstr(R"("acquiring":true)"));
    EXPECT_THAT(status, HasSubstr(R"("connected":false)"));
}

TEST(CameraProgram, EndsWithZeroOnTerminateAndInterrupt)
{
    for (const int number : {SIGTERM, SIGINT})
    {
        ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1"});
        ASSERT_TRUE(camera.WaitForOutput("ready 127.0.0.1\n", std::chrono::seconds(20))) << camera.Output();
        camera.Signal(number);
        EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 0);
    }
}

TEST(CameraProgram, QuietPrintsOnlyThatItIsReady)
{
    ChildProcess camera({"/bin/sh", "-c", "exec '" NQ_CAMERA_PATH "' --address 127.0.0.1 --quiet 2>/dev/null"});
    ASSERT_TRUE(camera.WaitForOutput("ready 127.0.0.1\n", std::chrono::seconds(20))) << camera.Output();
    EXPECT_EQ(camera.Output(), "ready 127.0.0.1\n");
}

TEST(CameraProgram, InterfaceStandsForItsFirstAddress)
{
    ChildProcess camera({NQ_CAMERA_PATH, "--interface", "lo"});
    EXPECT_TRUE(camera.WaitForOutput("ready 127.0.0.1\n", std::chrono::seconds(20))) << camera.Output();
}

TEST(CameraProgram, MistakesAreToldInOneLine)
{
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{}, "nq-gev-camera: one of --address and --interface is needed\n"},
        {{"--address", "10.9.9"}, "nq-gev-camera: '10.9.9' is no IPv4 address\n"},
        {{"--address", "10.9.9.9"},
         "nq-gev-camera: no network interface has the address 10.9.9.9 "
         "(add it with: ip addr add 10.9.9.9/24 dev NAME)\n"},
        {{"--interface", "none7"}, "nq-gev-camera: no network interface 'none7' with an IPv4 address\n"},
        {{"--address", "127.0.0.1", "--fault", "none"}, "nq-gev-camera: there is no fault 'none'\n"},
        {{"--address", "127.0.0.1", "--fault", "silent:abc"}, "nq-gev-camera: 'abc' in a fault is no number\n"},
        {{"--address", "127.0.0.1", "--pixel-format", "Mono7"}, "nq-gev-camera: there is no pixel format 'Mono7'\n"},
        {{"--address", "127.0.0.1", "--mac", "zz"}, "nq-gev-camera: 'zz' is no MAC address\n"},
        {{"--address", "127.0.0.1", "--control", ""}, "nq-gev-camera: --control: the path is empty\n"},
        {{"--address", "127.0.0.1", "--frames", "-1"}, "nq-gev-camera: --frames: below 0\n"},
        {{"--address", "127.0.0.1", "--pattern", "3"},
         "nq-gev-camera: --pattern: takes MovingRamp, ColorBar, Noise, Scene, Off, Black, White, "
         "GreyHorizontalRamp, GreyHorizontalRampMoving or FrameCounter, not \"3\"\n"},
        {{"--address", "127.0.0.1", "--serial", std::string(17, '1')},
         "nq-gev-camera: --serial is longer than 16 bytes\n"},
        {{"--interface", "lo", "--count", "2", "--serial", "A99999999" + std::string(7, '9')},
         "nq-gev-camera: --serial is longer than 16 bytes\n"},
        {{"--address", "127.0.0.1", "--exposure", "nan"}, "nq-gev-camera: --exposure: 'nan' is no number\n"},
        {{"--address", "127.0.0.1", "--exposure", "-nan"}, "nq-gev-camera: --exposure: '-nan' is no number\n"},
        {{"--address", "127.0.0.1", "--exposure", "inf"}, "nq-gev-camera: --exposure: 'inf' is no number\n"},
        {{"--address", "127.0.0.1", "--fps", "nan"},
         "nq-gev-camera: --fps is neither 0 nor between 0.001 and 100000\n"},
        {{"--address", "127.0.0.1", "--state", "/"},
         "nq-gev-camera: cannot keep the state in '/': it is no plain file\n"},
        {{"--address", "127.0.0.1", "--state", "/dev/null"},
         "nq-gev-camera: cannot keep the state in '/dev/null': it is no plain file\n"},
        {{"--address", "127.0.0.1", "--state", "/nowhere/state"},
         "nq-gev-camera: cannot keep the state in '/nowhere/state': No such file or directory\n"},
        {{"--address", "127.0.0.1", "--width", "65535", "--height", "65535"},
         "nq-gev-camera: a frame may not be larger than 1 GiB\n"},
    };
    for (const auto& [arguments, expected] : cases)
    {
        std::vector<std::string> command{NQ_CAMERA_PATH};
        command.insert(command.end(), arguments.begin(), arguments.end());
        ChildProcess camera(command);
        EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 2);
        EXPECT_EQ(camera.Output(), expected);
    }
}

TEST(CameraProgram, TakenPortIsToldInOneLine)
{
    const RawHost other("127.0.0.1", 3956);
    ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1"});
    EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 1);
    EXPECT_THAT(camera.Output(), HasSubstr("nq-gev-camera: UDP 127.0.0.1:3956: Address already in use\n"));
}

TEST(CameraProgram, WithoutRdmaItSaysSoAndServesControl)
{
    ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1"}, {"RDMAV_FORK_SAFE=0"});
    ASSERT_TRUE(camera.WaitForOutput("ready 127.0.0.1\n", std::chrono::seconds(20))) << camera.Output();
    if (access("/sys/class/infiniband_cm", F_OK) == 0)
    {
        GTEST_SKIP() << "this machine has an RDMA device";
    }
    EXPECT_THAT(camera.Output(), HasSubstr("nq-gev-camera: no RDMA here ("));
    const RawHost host("127.0.0.1");
    host.Send(Hex(kRead), "127.0.0.1");
    EXPECT_EQ(host.Receive(), kReadAnswer);
}

TEST(CameraProgram, VersionTellsProgramLibraryGenTLAndCommit)
{
    ChildProcess camera({NQ_CAMERA_PATH, "--version"});
    EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 0);
    EXPECT_THAT(camera.Output(), MatchesRegex("nq-gev-camera 2\\.5\\.5\nlibrary nq_gev_rdma_tl 2\\.5\\.5\nGenTL 1\\.5\n"
                                              "commit (unknown|[0-9a-f]+(-dirty)?)\n"));
}

TEST(CameraProgram, HelpTellsTheFormulaAndEveryFault)
{
    ChildProcess camera({NQ_CAMERA_PATH, "--help"});
    EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 0);
    EXPECT_THAT(camera.Output(), HasSubstr("(x + y + 7 * frameId + 85 * c) modulo levels"));
    for (const char* name : {"lost-ack",
                             "late-ack",
                             "wrong-ack-id",
                             "pending-ack",
                             "silent",
                             "reboot",
                             "privilege-taken",
                             "short-frame",
                             "empty-frame",
                             "wrong-component-offset",
                             "wild-part-offset",
                             "wild-data-offset",
                             "huge-data-size",
                             "id-jump",
                             "id-backwards",
                             "reject-connect",
                             "disconnect-mid-frame",
                             "slow-accept",
                             "huge-payload-size",
                             "wrong-event-size"})
    {
        EXPECT_THAT(camera.Output(), HasSubstr(name));
    }
}
