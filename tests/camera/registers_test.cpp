// SPDX-License-Identifier: Apache-2.0
// Register and memory access of the virtual camera, byte by byte.
#include "camera/raw_host.h"

#include <gmock/gmock.h>

using namespace nq::test;

TEST(CameraRegisters, ReadRegisterGivesTheValue)
{
    const VirtualCamera camera;
    EXPECT_EQ(RawHost().Ask("42 01 00 80 00 04 00 07 00 00 09 04"), Hex("00 00 00 81 00 04 00 07 00 00 00 01"));
}

TEST(CameraRegisters, OneCommandReadsSeveralRegisters)
{
    const VirtualCamera camera;
    EXPECT_EQ(RawHost().Ask("42 01 00 80 00 0C 00 07 00 00 09 00 00 00 09 2C 00 00 09 38"),
              Hex("00 00 00 81 00 0C 00 07 00 00 00 01 94 00 00 00 00 00 0B B8"));
}

TEST(CameraRegisters, ReadEndsAtTheFirstBadAddressAndDeliversWhatCameBefore)
{
    const VirtualCamera camera;
    EXPECT_EQ(RawHost().Ask("42 01 00 80 00 0C 00 07 00 00 09 00 00 00 A0 00 00 00 09 38"),
              Hex("80 03 00 81 00 04 00 07 00 00 00 01"));
}

TEST(CameraRegisters, BootstrapRegistersHoldWhatTheStandardSays)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Read(0x0000), 0x00020000U);
    EXPECT_EQ(host.Read(0x0004), 0x80000001U);
    EXPECT_EQ(host.Read(0x0008), 0x00000200U);
    EXPECT_EQ(host.Read(0x000C), 0x0A4D0002U);
    EXPECT_EQ(host.Read(0x0010), 0x00000007U);
    EXPECT_EQ(host.Read(0x0024), 0x0A4D0002U);
    EXPECT_EQ(host.Read(0x0034), 0xFFFFFF00U);
    EXPECT_EQ(host.Read(0x0044), 0U);
    EXPECT_EQ(host.Read(0x0600), 1U);
    EXPECT_EQ(host.Read(0x064C), 0x0A4D0002U);
    EXPECT_EQ(host.Read(0x065C), 0xFFFFFF00U);
    EXPECT_EQ(host.Read(0x066C), 0U);
    EXPECT_EQ(host.Read(0x0900), 1U);
    EXPECT_EQ(host.Read(0x0904), 1U);
    EXPECT_EQ(host.Read(0x092C), 0x94000000U);
    EXPECT_EQ(host.Read(0x0934), 0xE800002BU);
    EXPECT_EQ(host.Read(0x0938), 3000U);
    EXPECT_EQ(host.Read(0x093C), 0U);
    EXPECT_EQ(host.Read(0x0940), 1000000000U);
    EXPECT_EQ(host.Read(0x0954), 0U);
    EXPECT_EQ(host.Read(0x0A00), 0U);
    EXPECT_EQ(host.Read(0x0B00), 0U);
    EXPECT_NE(host.Read(0x0B1C), 0U);
    EXPECT_EQ(host.Read(0x0D00), 0U);
    EXPECT_EQ(host.Read(0x0D04), 1500U);
    EXPECT_EQ(host.Read(0x0D3C), 0x0000E000U);
    EXPECT_EQ(host.Read(0xE030), 0U);
    EXPECT_EQ(host.Read(0xE038), 0U);
}

TEST(CameraRegisters, LayoutRegisterNamesReadableMemory)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.ReadMemory(host.Read(0xE034), 16).size(), 16U);
}

TEST(CameraRegisters, SettingsBlockHoldsThePayloadSizeLowByteFirst)
{
    const VirtualCamera camera({"--width", "300", "--height", "200"});
    const Octets answer = RawHost().Ask("42 01 00 84 00 08 00 07 00 00 E6 00 00 00 00 B0");
    ASSERT_EQ(answer.size(), 12U + 176U);
    EXPECT_EQ(Octets(answer.begin(), answer.begin() + 12), Hex("00 00 00 85 00 B4 00 07 00 00 E6 00"));
    EXPECT_EQ(Octets(answer.begin() + 12 + 32, answer.begin() + 12 + 40), Hex("60 EA 00 00 00 00 00 00"));
}

TEST(CameraRegisters, PayloadSizeFollowsTheGeometry)
{
    const VirtualCamera camera({"--width", "300", "--height", "200"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10000, 100), 0U);
    EXPECT_EQ(host.Write(2, 0x10010, 0x02180014), 0U);
    EXPECT_EQ(host.Read(0x10014), 60000U);
    const Octets block = host.ReadMemory(0xE600, 176);
    ASSERT_EQ(block.size(), 176U);
    EXPECT_EQ(Octets(block.begin() + 32, block.begin() + 40), Hex("60 EA 00 00 00 00 00 00"));
}

TEST(CameraRegisters, ReadMemoryGivesAddressAndBytes)
{
    const VirtualCamera camera({"--user-name", "Otto"});
    EXPECT_EQ(RawHost().Ask("42 01 00 84 00 08 00 07 00 00 00 E8 00 00 00 08"),
              Hex("00 00 00 85 00 0C 00 07 00 00 00 E8 4F 74 74 6F 00 00 00 00"));
}

TEST(CameraRegisters, NameOfTheUserMayFillItsSixteenBytes)
{
    const VirtualCamera camera({"--user-name", "0123456789abcdef"});
    EXPECT_EQ(RawHost().ReadMemory(0x00E8, 16), TextBytes("0123456789abcdef", 16));
    ChildProcess help({NQ_CAMERA_PATH, "--help"});
    EXPECT_EQ(help.WaitForExit(std::chrono::seconds(20)), 0);
    EXPECT_THAT(help.Output(), testing::HasSubstr("user-defined name, up to 16 bytes"));
}

TEST(CameraRegisters, ReadMemoryOfNoBytesSucceeds)
{
    const VirtualCamera camera;
    EXPECT_EQ(RawHost().Ask("42 01 00 84 00 08 00 07 00 00 00 E8 00 00 00 00"),
              Hex("00 00 00 85 00 04 00 07 00 00 00 E8"));
}

TEST(CameraRegisters, ReadMemoryRunsOverReservedBootstrapBytes)
{
    const VirtualCamera camera({"--user-name", "Otto"});
    const Octets bytes = RawHost().ReadMemory(0x00E8, 512);
    ASSERT_EQ(bytes.size(), 512U);
    EXPECT_EQ(Octets(bytes.begin(), bytes.begin() + 24), TextBytes("Otto", 24));
    EXPECT_EQ(Octets(bytes.begin() + 0x118, bytes.begin() + 0x11E), Hex("4C 6F 63 61 6C 3A")); // "Local:"
}

TEST(CameraRegisters, LargestMemoryReadIs536Bytes)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 07 00 00 00 00 00 00 02 18").size(), 548U);
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 08 00 00 00 00 00 00 02 1C"), Hex("80 02 00 85 00 00 00 08"));
}

TEST(CameraRegisters, BadAddressesAreRefused)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask("42 01 00 80 00 04 00 01 00 00 0C 00"), Hex("80 03 00 81 00 00 00 01"));
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 02 7F 00 00 00 00 00 00 04"), Hex("80 03 00 85 00 00 00 02"));
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 03 FF FF FF FC 00 00 00 08"), Hex("80 03 00 85 00 00 00 03"));
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 04 00 00 0C 00 00 00 00 01"), Hex("80 03 00 83 00 04 00 04 00 00 00 00"));
}

TEST(CameraRegisters, CrookedAddressesAndCountsAreRefused)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask("42 01 00 80 00 04 00 01 00 00 09 02"), Hex("80 05 00 81 00 00 00 01"));
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 02 00 00 09 02 00 00 00 04"), Hex("80 05 00 85 00 00 00 02"));
    EXPECT_EQ(host.Ask("42 01 00 84 00 08 00 03 00 00 09 00 00 00 00 05"), Hex("80 02 00 85 00 00 00 03"));
    EXPECT_EQ(host.Ask("42 01 00 80 00 03 00 04 00 00 09"), Hex("80 02 00 81 00 00 00 04"));
}

TEST(CameraRegisters, ReadOnlyRegistersAreWriteProtected)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 82 00 08 00 04 00 00 09 04 00 00 00 01"), Hex("80 04 00 83 00 04 00 04 00 00 00 00"));
}

TEST(CameraRegisters, OneCommandWritesSeveralRegistersAndTellsHowMany)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 82 00 10 00 05 00 01 00 00 00 00 00 64 00 01 00 04 00 00 00 32"),
              Hex("00 00 00 83 00 04 00 05 00 00 00 02"));
    EXPECT_EQ(host.Read(0x10000), 100U);
    EXPECT_EQ(host.Read(0x10004), 50U);
    EXPECT_EQ(host.Ask("42 01 00 82 00 10 00 06 00 01 00 00 00 00 00 0A 00 00 09 04 00 00 00 32"),
              Hex("80 04 00 83 00 04 00 06 00 00 00 01"));
    EXPECT_EQ(host.Read(0x10000), 10U);
}

TEST(CameraRegisters, WriteMemoryChangesTheUserName)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 86 00 0C 00 05 00 00 00 E8 45 76 61 00 00 00 00 00"),
              Hex("00 00 00 87 00 04 00 05 00 00 00 08"));
    EXPECT_EQ(host.ReadMemory(0x00E8, 16), TextBytes("Eva", 16));
    const Octets record = host.Ask("42 11 00 02 00 00 00 01");
    ASSERT_EQ(record.size(), 256U);
    EXPECT_EQ(Octets(record.begin() + 240, record.end()), TextBytes("Eva", 16));
}

TEST(CameraRegisters, WriteMemoryStopsAtTheFirstProtectedWord)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Ask("42 01 00 86 00 0C 00 05 00 00 00 E4 45 76 61 00 00 00 00 00"),
              Hex("80 04 00 87 00 04 00 05 00 00 00 00"));
}

TEST(CameraRegisters, ImpossibleValuesAreRefused)
{
    const VirtualCamera camera({"--width", "640"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10000, 0), 0x8002U);
    EXPECT_EQ(host.Write(2, 0x10000, 641), 0x8002U);
    EXPECT_EQ(host.Write(3, 0x10008, 1), 0x8002U);
    EXPECT_EQ(host.Write(4, 0x10010, 0x01080099), 0x8002U);
    EXPECT_EQ(host.Write(5, 0x10030, 0xBF800000), 0x8002U); // -1.0 frames per second
    EXPECT_EQ(host.Write(6, 0x10030, 0x7FC00000), 0x8002U); // not a number
    EXPECT_EQ(host.Write(7, 0x1003C, 4), 0x8002U);
    EXPECT_EQ(host.Write(8, 0x0A00, 4), 0x8002U);
    EXPECT_EQ(host.Read(0x10000), 640U);
}

TEST(CameraRegisters, GeometryIsFixedWhileTheStreamIsEnabled)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    EXPECT_EQ(host.Read(0xE030), 0x80000000U);
    EXPECT_EQ(host.Write(2, 0x10000, 100), 0x8004U);
    EXPECT_EQ(host.Write(3, 0xE030, 0), 0U);
    EXPECT_EQ(host.Write(4, 0x10000, 100), 0U);
}

TEST(CameraRegisters, AcquisitionModeMayBeWrittenUntilAnAcquisitionRuns)
{
    const VirtualCamera camera({"--no-free-run"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    EXPECT_EQ(host.Write(2, 0x10020, 2), 0U);
    EXPECT_EQ(host.Read(0x10020), 2U);
    EXPECT_EQ(host.Write(3, 0x10020, 3), 0x8002U);
    EXPECT_EQ(host.Write(4, 0x10024, 1), 0U); // AcquisitionStart
    EXPECT_EQ(host.Write(5, 0x10020, 1), 0x8004U);
    EXPECT_EQ(host.Read(0x10020), 2U);
    EXPECT_EQ(host.Write(6, 0x10028, 1), 0U); // AcquisitionStop
    EXPECT_EQ(host.Write(7, 0x10020, 1), 0U);
}

TEST(CameraRegisters, AcquisitionModeIsFixedWhileTheStreamRunsFreely)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    EXPECT_EQ(host.Write(2, 0x10020, 1), 0x8004U);
    EXPECT_EQ(host.Write(3, 0x10028, 1), 0U); // AcquisitionStop
    EXPECT_EQ(host.Write(4, 0x10020, 1), 0U);
}

TEST(CameraRegisters, AcquisitionStartedAheadOfTheStreamLeavesTheModeOpen)
{
    const VirtualCamera camera({"--no-free-run"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10024, 1), 0U);
    EXPECT_EQ(host.Write(2, 0x10020, 1), 0U);
}

TEST(CameraRegisters, OffsetsGoAsFarAsTheSizeLeavesRoom)
{
    const VirtualCamera camera({"--width", "640", "--height", "480"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10000, 600), 0U);
    EXPECT_EQ(host.Write(2, 0x10004, 470), 0U);
    EXPECT_EQ(host.Write(3, 0x10008, 40), 0U);
    EXPECT_EQ(host.Write(4, 0x1000C, 10), 0U);
    EXPECT_EQ(host.Write(5, 0x10008, 41), 0x8002U);
    EXPECT_EQ(host.Write(6, 0x1000C, 11), 0x8002U);
}

TEST(CameraRegisters, UnknownCommandIsNotImplemented)
{
    const VirtualCamera camera;
    EXPECT_EQ(RawHost().Ask("42 01 00 40 00 00 00 09"), Hex("80 01 00 41 00 00 00 09"));
}

TEST(CameraRegisters, CommandWhoseLengthIsWrongHasABadHeader)
{
    const VirtualCamera camera;
    const RawHost host;
    EXPECT_EQ(host.Ask("42 01 00 80 00 08 00 09 00 00 09 04"), Hex("80 0E 00 81 00 00 00 09"));
    EXPECT_EQ(host.Ask("42 01 00 80 00 04 00 00 00 00 09 04"), Hex("80 0E 00 81 00 00 00 00"));
}

TEST(CameraRegisters, ForeignDatagramsAndUnacknowledgedCommandsGetNoAnswer)
{
    const VirtualCamera camera;
    const RawHost host;
    host.Send(Hex("43 01 00 80 00 04 00 01 00 00 09 04"));
    host.Send(Hex("42 01 00"));
    host.Send(Hex("42 00 00 80 00 04 00 02 00 00 09 04"));
    EXPECT_EQ(host.Ask("42 01 00 80 00 04 00 03 00 00 09 04"), Hex("00 00 00 81 00 04 00 03 00 00 00 01"));
}

TEST(CameraRegisters, TimestampIsLatchedAndReset)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x0944, 2), 0U);
    const std::uint32_t first = host.Read(0x094C);
    EXPECT_NE(first, 0U);
    EXPECT_EQ(host.Read(0x094C), first);
    EXPECT_EQ(host.Write(2, 0x0944, 2), 0U);
    EXPECT_NE(host.Read(0x094C), first);
    EXPECT_EQ(host.Read(0x0944), 0U);
}

TEST(CameraRegisters, UserSetKeepsFeaturesAndSetZeroHoldsTheDefaults)
{
    const VirtualCamera camera({"--width", "640"});
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x10000, 320), 0U);
    EXPECT_EQ(host.Write(2, 0x10050, 1), 0U);
    EXPECT_EQ(host.Write(3, 0x10058, 1), 0U); // save to set 1
    EXPECT_EQ(host.Write(4, 0x10050, 0), 0U);
    EXPECT_EQ(host.Write(5, 0x10054, 1), 0U); // load the defaults
    EXPECT_EQ(host.Read(0x10000), 640U);
    EXPECT_EQ(host.Write(6, 0x10050, 1), 0U);
    EXPECT_EQ(host.Write(7, 0x10054, 1), 0U); // load set 1
    EXPECT_EQ(host.Read(0x10000), 320U);
}

TEST(CameraRegisters, PacketSizeTestSendsOnePacketOfThatSize)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost stream;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x0D18, 0x0A4D0001), 0U);
    EXPECT_EQ(host.Write(2, 0x0D00, stream.Port()), 0U);
    EXPECT_EQ(host.Write(3, 0x0D04, 0xC0000000 + 1400), 0U);
    EXPECT_EQ(stream.Receive().size(), 1400U - 28U);
    EXPECT_EQ(stream.SenderPort(), host.Read(0x0D1C));
    EXPECT_EQ(host.Read(0x0D04), 0x40000000U + 1400U);
}

TEST(CameraRegisters, PacketSizeTestThatDoesNotFitTheLinkIsLost)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost stream;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x0D18, 0x0A4D0001), 0U);
    EXPECT_EQ(host.Write(2, 0x0D00, stream.Port()), 0U);
    EXPECT_EQ(host.Write(3, 0x0D04, 0xC0000000 + 9000), 0U);
    EXPECT_EQ(host.Write(4, 0x0D04, 0xC0000000 + 1500), 0U);
    EXPECT_EQ(stream.Receive().size(), 1500U - 28U);
}

TEST(CameraRegisters, PacketSizeIsHeldWithinTheCamerasRange)
{
    const VirtualCamera camera;
    const RawHost host;
    host.KeepControl();
    EXPECT_EQ(host.Write(1, 0x0D04, 60000), 0U);
    EXPECT_EQ(host.Read(0x0D04), 9000U);
    EXPECT_EQ(host.Write(2, 0x0D04, 1001), 0U);
    EXPECT_EQ(host.Read(0x0D04), 1000U);
}

TEST(CameraRegisters, WriteThatIsRepeatedWithTheSameIdIsExecutedOnce)
{
    const VirtualCamera camera;
    const RawHost host;
    const RawHost events;
    host.KeepControl();
    host.Write(1, 0x0B10, 0x0A4D0001);
    host.Write(2, 0x0B00, events.Port());
    host.Write(9, 0x10080, 1);                // EventNotification of Test
    EXPECT_EQ(host.Write(3, 0x10064, 1), 0U); // test event
    EXPECT_EQ(host.Write(3, 0x10064, 1), 0U);
    EXPECT_EQ(host.Write(4, 0x10064, 1), 0U);
    EXPECT_EQ(events.Receive().size(), 24U);
    EXPECT_EQ(events.Receive().size(), 24U);
    EXPECT_NE(camera.Control(R"({"cmd":"status"})").find(R"("events_sent":2,)"), std::string::npos);
}
