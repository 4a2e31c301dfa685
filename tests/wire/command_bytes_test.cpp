// SPDX-License-Identifier: Apache-2.0
// Every command that the library sends, taken off the cable between two hosts, as literal bytes and as a foreign
// dissector reads it.
#include "gev/nq_gev_device.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/gige_camera.h"
#include "gige/nq_gev_tl_linux.h"
#include "gige/nqgige.h"
#include "rdma/rdma_records.h"
#include "support/capture.h"
#include "support/interface_module.h"

#include <arpa/inet.h>
#include <array>
#include <gmock/gmock.h>
#include <memory>
#include <netinet/in.h>
#include <ostream>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace nq::test;
using testing::ElementsAre;

namespace
{

/// A command's datagram in hexadecimal digits, and what the dissector makes of it.
struct Sent
{
    std::string bytes;
    std::string reading;
};

bool operator==(const Sent& left, const Sent& right)
{
    return left.bytes == right.bytes && left.reading == right.reading;
}

void PrintTo(const Sent& sent, std::ostream* stream)
{
    *stream << "{\"" << sent.bytes << "\", \"" << sent.reading << "\"}";
}

const std::vector<std::string> kAddressFields = {"gvcp.cmd.readreg.bootstrapregister",
                                                 "gvcp.cmd.readreg.extendedbootstrapregister",
                                                 "gvcp.cmd.writereg.bootstrapregister",
                                                 "gvcp.cmd.writereg.extendedbootstrapregister",
                                                 "gvcp.cmd.readmem.address",
                                                 "gvcp.cmd.readmem.bootstrapregister"};

/// Command, id, address and count, as the dissector tells them. The address of a register that it has no name for is
/// the first number of its summary.
std::string Reading(const Packet& packet)
{
    std::string address;
    for (const std::string& field : kAddressFields)
    {
        address += packet.at(field);
    }
    const std::string& summary = packet.at("_ws.col.Info");
    const std::size_t number = summary.find("0x");
    if (address.empty() && number != std::string::npos)
    {
        address = summary.substr(number, 10);
    }
    const std::string& count = packet.at("gvcp.cmd.readmem.count");
    return packet.at("gvcp.cmd.command") + " " + packet.at("gvcp.cmd.req_id") + (address.empty() ? "" : " at ") +
           address + (count.empty() ? "" : " for ") + count;
}

/// A scripted camera at 10.9.0.5, on a host of its own; the library is at 10.9.0.1.
class CommandBytes : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (!Capture::Available())
        {
            GTEST_SKIP() << "tcpdump or tshark is not installed";
        }
        camera.AwaitPath("10.9.0.1");
        camera.SetDiscovery(Camera());
        camera.SetRegister(0x0938, 600000); // no heartbeat comes in between
        capture = std::make_unique<Capture>("cam0", "10.9.0.5");
    }

    /// The commands so far, all of which are well formed. Called once, at the end.
    std::vector<Sent> Commands()
    {
        std::vector<std::string> fields = kAddressFields;
        fields.insert(fields.end(), {"udp.payload", "gvcp.message_key_code", "gvcp.cmd.flags", "gvcp.cmd.command",
                                     "gvcp.cmd.req_id", "gvcp.cmd.payloadlength", "gvcp.cmd.readmem.count",
                                     "_ws.col.Info", "_ws.malformed", "_ws.expert.message"});
        std::vector<Sent> sent;
        for (const Packet& packet : Dissect(capture->Finish(), "ip.src == 10.9.0.1 && udp.dstport == 3956", fields))
        {
            const std::string& bytes = packet.at("udp.payload");
            EXPECT_EQ(packet.at("_ws.malformed"), "") << bytes;
            EXPECT_EQ(packet.at("_ws.expert.message"), "") << bytes;
            EXPECT_EQ(packet.at("gvcp.message_key_code"), "0x42") << bytes;
            EXPECT_EQ(packet.at("gvcp.cmd.flags"), packet.at("gvcp.cmd.command") == "0x0002" ? "0x11" : "0x01");
            EXPECT_EQ(std::stoul(packet.at("gvcp.cmd.payloadlength"), nullptr, 16), bytes.size() / 2 - 8) << bytes;
            sent.push_back({bytes, Reading(packet)});
        }
        return sent;
    }

    _NQ_GEV_DEVICE_INFO Record() const
    {
        _NQ_GEV_DEVICE_INFO info = Device("Eye:02-0a-0b-01-02-03");
        info.interfaceIp = 0x0A090001;
        return info;
    }

    CameraNetwork network;
    GvcpCamera camera{&network.host};
    std::unique_ptr<Capture> capture;
    NQGevTL tl;
};

/// One device of the camera, open in the mode; what its opening sent has another id each time.
class OpenDeviceBytes : public CommandBytes
{
  protected:
    void OpenAndClose(int accessMode)
    {
        camera.SetRegister(0x0934, 0x20);
        camera.SetRegister(0x0904, 1);
        camera.SetRegister(0x0900, 1);
        camera.SetRegister(0x0B1C, 40000);
        NQGevDevice device(&tl, Record(), accessMode, nullptr);
        ASSERT_EQ(device.Open(), 0);
        ASSERT_EQ(device.Close(), 0);
    }
};

/// An open camera of the lowest module layer, whose opening sends nothing.
class PortBytes : public CommandBytes
{
  protected:
    void SetUp() override
    {
        CommandBytes::SetUp();
        ASSERT_TRUE(tl.CameraOpen(&handle, 0x0A090005, 3956));
    }

    unsigned long handle = 0;
    std::array<unsigned char, 520> data{0x11, 0x22, 0x33, 0x44, 0x55};
    unsigned int value = 0;
};

} // namespace

TEST_F(CommandBytes, FromAPortOfTraceroute)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in from{};
    from.sin_family = AF_INET;
    from.sin_port = htons(33460);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&from), sizeof from), 0);
    sockaddr_in to = from;
    to.sin_port = htons(3956);
    to.sin_addr.s_addr = inet_addr("10.9.0.5");
    const std::array<unsigned char, 12> readRegister{0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A};
    EXPECT_EQ(sendto(descriptor, readRegister.data(), readRegister.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to),
              12);
    close(descriptor);
    EXPECT_THAT(Commands(), ElementsAre(Sent{"420100800004000100000a00", "0x0080 0x0001 at 0x00000a00"}));
}

TEST_F(CommandBytes, OfAScanAndAProbe)
{
    InterfaceModule module;
    ASSERT_EQ(module.Open(), 0);
    module.Scan();
    module.DeviceInfo("Eye:02-0a-0b-01-02-03", 5);
    EXPECT_EQ(module.Close(), 0);
    EXPECT_THAT(Commands(), ElementsAre(Sent{"4211000200000001", "0x0002 0x0001"},
                                        Sent{"420100800004000100000a00", "0x0080 0x0001 at 0x00000a00"}));
}

TEST_F(CommandBytes, OfTheCameraFunctions)
{
    const auto ignore = [](NQGigE_SIGNAL*, void*) { return NQGigE_SUCCESS; };
    EXPECT_EQ(discoverCameras(0x0A090001, 500, ignore, nullptr), 0);
    unsigned long handle = 0;
    EXPECT_EQ(openCamera(&handle, 0x0A090005, 0x0A090001, 3000, MULTICAST_OFF), 0);
    EXPECT_EQ(closeCamera(handle), 0);
    GigETL::Camera other(0x0A090005, 3956, 0x0A090001, MULTICAST_OFF);
    EXPECT_EQ(other.processUnlink(), 0);
    EXPECT_THAT(Commands(), ElementsAre(Sent{"42110002000800010000000000000000", "0x0002 0x0001"},
                                        Sent{"420100820008000200000a0000000000", "0x0082 0x0002 at 0x00000a00"},
                                        Sent{"420100820008000300000d0000000000", "0x0082 0x0003 at 0x00000d00"},
                                        Sent{"420100820008000400000d1800000000", "0x0082 0x0004 at 0x00000d18"}));
}

TEST_F(OpenDeviceBytes, ForControl)
{
    OpenAndClose(3);
    EXPECT_THAT(Commands(), ElementsAre(Sent{"420100820008000100000a0000000002", "0x0082 0x0001 at 0x00000a00"},
                                        Sent{"420100800004000200000938", "0x0080 0x0002 at 0x00000938"},
                                        Sent{"420100800004000300000934", "0x0080 0x0003 at 0x00000934"},
                                        Sent{"42010082000800040000095400000002", "0x0082 0x0004 at 0x00000954"},
                                        Sent{"420100800004000500000d3c", "0x0080 0x0005 at 0x00000d3c"},
                                        Sent{"420100800004000600000904", "0x0080 0x0006 at 0x00000904"},
                                        Sent{"420100800004000700000900", "0x0080 0x0007 at 0x00000900"},
                                        Sent{"420100820008000800000b100a090001", "0x0082 0x0008 at 0x00000b10"},
                                        Sent{"420100820008000900000b0000000d80", "0x0082 0x0009 at 0x00000b00"},
                                        Sent{"420100800004000a00000b1c", "0x0080 0x000a at 0x00000b1c"},
                                        Sent{"420100820008000b00000b0000000000", "0x0082 0x000b at 0x00000b00"},
                                        Sent{"420100820008000c00000a0000000000", "0x0082 0x000c at 0x00000a00"},
                                        Sent{"420100820008000d00000a0000000000", "0x0082 0x000d at 0x00000a00"}));
}

TEST_F(OpenDeviceBytes, ForExclusiveAccess)
{
    OpenAndClose(4);
    const std::vector<Sent> sent = Commands();
    ASSERT_EQ(sent.size(), 13U);
    EXPECT_EQ(sent[0], (Sent{"420100820008000100000a0000000001", "0x0082 0x0001 at 0x00000a00"}));
}

TEST_F(OpenDeviceBytes, TheMessageChannelOpensItsWayWithTwelveZeroBytes)
{
    OpenAndClose(3);
    const std::vector<Packet> opener =
        Dissect(capture->Finish(), "ip.src == 10.9.0.1 && udp.dstport == 40000", {"udp.srcport", "udp.payload"});
    ASSERT_EQ(opener.size(), 1U);
    EXPECT_EQ(opener[0].at("udp.srcport"), "3456");
    EXPECT_EQ(opener[0].at("udp.payload"), "000000000000000000000000");
}

TEST_F(CommandBytes, OfTheDevicesInfo)
{
    NQGevDevice device(&tl, Record(), 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    for (const int command : {5, 6, 9, 0xB006, 0xB007, 0xB008})
    {
        int type = 0;
        std::array<char, 600> buffer{};
        unsigned long size = buffer.size();
        EXPECT_EQ(device.GetInfo(command, &type, buffer.data(), &size), 0) << command;
    }
    void* port = nullptr;
    EXPECT_EQ(device.GetPort(&port), 0);
    EXPECT_EQ(static_cast<NQGevRemoteDevice*>(port)->GetURLList().size(), 2U);
    ASSERT_EQ(device.Close(), 0);
    std::vector<Sent> sent = Commands();
    ASSERT_EQ(sent.size(), 17U) << "six of the opening, two of the close";
    EXPECT_THAT(std::vector<Sent>(sent.begin() + 6, sent.end() - 2),
                ElementsAre(Sent{"420100800004000700000a00", "0x0080 0x0007 at 0x00000a00"},
                            Sent{"4201008400080008000000e800000200", "0x0084 0x0008 at 0x000000e8 for 0x0200"},
                            Sent{"420100800004000900000940", "0x0080 0x0009 at 0x00000940"},
                            Sent{"420100800004000a0000093c", "0x0080 0x000a at 0x0000093c"},
                            Sent{"420100800004000b0000064c", "0x0080 0x000b at 0x0000064c"},
                            Sent{"420100800004000c0000065c", "0x0080 0x000c at 0x0000065c"},
                            Sent{"420100800004000d0000066c", "0x0080 0x000d at 0x0000066c"},
                            Sent{"420100840008000e0000020000000200", "0x0084 0x000e at 0x00000200 for 0x0200"},
                            Sent{"420100840008000f0000040000000200", "0x0084 0x000f at 0x00000400 for 0x0200"}));
}

TEST_F(CommandBytes, OfTheStream)
{
    camera.SetRegister(0xE034, 0x00012340);
    NQGevRemoteDevice device(&tl, Record(), 3, nullptr);
    ASSERT_EQ(device.Open(), 0);
    _NQ_STREAM_CAPABILITY capability{};
    EXPECT_TRUE(device.GetStreachannelCapability(&capability));
    gevrdmaBufferSettings settings{};
    EXPECT_TRUE(device.GetBufferSettings(&settings));
    buffer_Layout layout{};
    device.GetbufferLayout(&layout);
    EXPECT_TRUE(device.EnableStream(true));
    EXPECT_TRUE(device.EnableStream(false));
    ASSERT_EQ(device.Close(), 0);
    std::vector<Sent> sent = Commands();
    ASSERT_EQ(sent.size(), 13U) << "four of the opening, two of the close";
    EXPECT_THAT(std::vector<Sent>(sent.begin() + 4, sent.end() - 2),
                ElementsAre(Sent{"42010080000400050000092c", "0x0080 0x0005 at 0x0000092c"},
                            Sent{"42010084000800060000e600000000b0", "0x0084 0x0006 at 0x0000E600 for 0x00b0"},
                            Sent{"42010080000400070000e034", "0x0080 0x0007 at 0x0000E034"},
                            Sent{"42010080000400080000e038", "0x0080 0x0008 at 0x0000E038"},
                            Sent{"42010084000800090001234000000010", "0x0084 0x0009 at 0x00012340 for 0x0010"},
                            Sent{"420100820008000a0000e03080000000", "0x0082 0x000a at 0x0000E030"},
                            Sent{"420100820008000b0000e03000000000", "0x0082 0x000b at 0x0000E030"}));
}

TEST_F(PortBytes, OfRegistersAndMemory)
{
    EXPECT_TRUE(tl.CameraReadRegister(handle, 0xFEDCBA98, &value, false));
    EXPECT_TRUE(tl.CameraWriteRegister(handle, 0x0D04, 0x12345678, true));
    EXPECT_TRUE(tl.CameraWriteMemory(handle, 0x00010000, data.data(), 5));
    EXPECT_TRUE(tl.CameraWriteMemory(handle, 0x00010000, data.data(), 0));
    EXPECT_TRUE(tl.CameraWriteMemory(handle, 0x00010000, data.data(), 520));
    EXPECT_TRUE(tl.CameraReadMemory(handle, 0x00010000, data.data(), 512));
    EXPECT_THAT(
        Commands(),
        ElementsAre(Sent{"4201008000040001fedcba98", "0x0080 0x0001 at 0xFEDCBA98"},
                    Sent{"420100820008000200000d0478563412", "0x0082 0x0002 at 0x00000d04"},
                    Sent{"42010086000c0003000100001122334455000000", "0x0086 0x0003 at 0x00010000"},
                    Sent{"420100860004000400010000", "0x0086 0x0004 at 0x00010000"},
                    Sent{"42010086020c0005000100001122334455" + std::string(1030, '0'), "0x0086 0x0005 at 0x00010000"},
                    Sent{"42010084000800060001000000000200", "0x0084 0x0006 at 0x00010000 for 0x0200"}));
}

TEST_F(PortBytes, ASilentCameraGetsEachDatagramTwice)
{
    camera.Otherwise(gvcp::Silent());
    EXPECT_FALSE(tl.CameraReadRegister(handle, 0x0A00, &value, false));
    EXPECT_FALSE(tl.CameraWriteRegister(handle, 0x0A00, 2, false));
    EXPECT_FALSE(tl.CameraReadMemory(handle, 0x0200, data.data(), 8));
    EXPECT_FALSE(tl.CameraWriteMemory(handle, 0x0200, data.data(), 4));
    const Sent readRegister{"420100800004000100000a00", "0x0080 0x0001 at 0x00000a00"};
    const Sent writeRegister{"420100820008000200000a0000000002", "0x0082 0x0002 at 0x00000a00"};
    const Sent readMemory{"42010084000800030000020000000008", "0x0084 0x0003 at 0x00000200 for 0x0008"};
    const Sent writeMemory{"42010086000800040000020011223344", "0x0086 0x0004"};
    EXPECT_THAT(Commands(), ElementsAre(readRegister, readRegister, writeRegister, writeRegister, readMemory,
                                        readMemory, writeMemory, writeMemory));
}

TEST_F(PortBytes, WrongIdsGetFourRegisterCommandsWithNewIdsAndOneMemoryCommand)
{
    camera.Otherwise(gvcp::WrongId(gvcp::Value(0)));
    EXPECT_FALSE(tl.CameraReadRegister(handle, 0x0A00, &value, false));
    EXPECT_FALSE(tl.CameraReadMemory(handle, 0x0200, data.data(), 4));
    EXPECT_FALSE(tl.CameraWriteMemory(handle, 0x0200, data.data(), 4));
    EXPECT_THAT(Commands(),
                ElementsAre(Sent{"420100800004000100000a00", "0x0080 0x0001 at 0x00000a00"},
                            Sent{"420100800004000200000a00", "0x0080 0x0002 at 0x00000a00"},
                            Sent{"420100800004000300000a00", "0x0080 0x0003 at 0x00000a00"},
                            Sent{"420100800004000400000a00", "0x0080 0x0004 at 0x00000a00"},
                            Sent{"42010084000800050000020000000004", "0x0084 0x0005 at 0x00000200 for 0x0004"},
                            Sent{"42010086000800060000020011223344", "0x0086 0x0006"}));
}
