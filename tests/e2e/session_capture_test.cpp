// SPDX-License-Identifier: Apache-2.0
// One whole control session of the library with the virtual camera, captured on the cable and read by a foreign
// dissector.
#include "support/capture.h"
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace
{

using nq::test::Capture;
using nq::test::Dissect;
using nq::test::Packet;
using nq::test::Producer;
using nq::test::VirtualCamera;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr unsigned int kWritesAndReads = 500; // of each

/// A consumer that uses nothing but the exported functions.
class Session
{
  public:
    explicit Session(const VirtualCamera& camera) : m_camera(camera) {}

    void Run()
    {
        Open();
        ReadDescription();
        AccessRegisters();
        TakeEvents();
        EXPECT_EQ(m_gentl.DevClose(m_device), 0);
        EXPECT_EQ(m_gentl.IFClose(m_interface), 0);
        EXPECT_EQ(m_gentl.TLClose(m_system), 0);
        EXPECT_EQ(m_gentl.GCCloseLib(), 0);
    }

  private:
    void Open()
    {
        ASSERT_EQ(m_gentl.GCInitLib(), 0);
        ASSERT_EQ(m_gentl.TLOpen(&m_system), 0);
        ASSERT_EQ(m_gentl.TLUpdateInterfaceList(m_system, nullptr, 100), 0);
        char id[256] = {};
        std::size_t size = sizeof id;
        ASSERT_EQ(m_gentl.TLGetInterfaceID(m_system, 0, id, &size), 0);
        ASSERT_EQ(m_gentl.TLOpenInterface(m_system, id, &m_interface), 0);
        ASSERT_EQ(m_gentl.IFUpdateDeviceList(m_interface, nullptr, 2000), 0);
        size = sizeof id;
        ASSERT_EQ(m_gentl.IFGetDeviceID(m_interface, 0, id, &size), 0);
        int opened = -1005;
        for (int attempt = 0; attempt < 20 && opened == -1005;
             ++attempt) // its 100 ms may be too short on a busy machine
        {
            opened = m_gentl.IFOpenDevice(m_interface, id, GenTL::DEVICE_ACCESS_CONTROL, &m_device);
        }
        ASSERT_EQ(opened, 0);
        ASSERT_EQ(m_gentl.DevGetPort(m_device, &m_port), 0);
    }

    void ReadDescription()
    {
        char url[600] = {};
        std::size_t size = sizeof url;
        GenTL::INFO_DATATYPE type = 0;
        ASSERT_EQ(m_gentl.GCGetPortURLInfo(m_port, 0, GenTL::URL_INFO_URL, &type, url, &size), 0);
        unsigned long address = 0;
        unsigned long length = 0;
        ASSERT_EQ(std::sscanf(std::strchr(url, ';'), ";%lx;%lx", &address, &length), 2) << url;
        std::string text(length, '\0');
        size = length;
        ASSERT_EQ(m_gentl.GCReadPort(m_port, address, text.data(), &size), 0);
        EXPECT_THAT(text, AllOf(StartsWith("<?xml"), HasSubstr("</RegisterDescription>")));
    }

    /// A thousand accesses to the heartbeat timeout, which a camera takes from 500 ms on and gives back as it is.
    void AccessRegisters()
    {
        for (unsigned int turn = 0; turn < kWritesAndReads; ++turn)
        {
            const std::uint32_t written = htonl(60000 + turn);
            std::uint32_t read = 0;
            std::size_t size = sizeof written;
            ASSERT_EQ(m_gentl.GCWritePort(m_port, 0x0938, &written, &size), 0);
            ASSERT_EQ(m_gentl.GCReadPort(m_port, 0x0938, &read, &size), 0);
            ASSERT_EQ(ntohl(read), 60000 + turn);
        }
    }

    void TakeEvents()
    {
        GenTL::EVENT_HANDLE event = nullptr;
        ASSERT_EQ(m_gentl.GCRegisterEvent(m_device, GenTL::EVENT_REMOTE_DEVICE, &event), 0);
        for (int turn = 0; turn < 3; ++turn)
        {
            EXPECT_THAT(m_camera.Control(R"({"cmd":"event","id":36881})"), HasSubstr(R"("sent":true)"));
            unsigned char record[600] = {};
            std::size_t size = sizeof record;
            EXPECT_EQ(m_gentl.EventGetData(event, record, &size, 20000), 0);
        }
        EXPECT_EQ(m_gentl.GCUnregisterEvent(m_device, GenTL::EVENT_REMOTE_DEVICE), 0);
    }

    const VirtualCamera& m_camera;
    Producer m_gentl;
    void* m_system = nullptr;
    void* m_interface = nullptr;
    void* m_device = nullptr;
    void* m_port = nullptr;
};

class CapturedSession : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (!Capture::Available())
        {
            GTEST_SKIP() << "tcpdump or tshark is not installed";
        }
        const VirtualCamera camera({"--heartbeat", "60000"});
        capture = std::make_unique<Capture>("host0", VirtualCamera::kAddress);
        Session(camera).Run();
        path = capture->Finish();
    }

    std::unique_ptr<Capture> capture;
    std::string path;
};

TEST_F(CapturedSession, HoldsNoMalformedFieldAndEveryCommandHasItsAcknowledge)
{
    const auto packets =
        Dissect(path, "gvcp",
                {"frame.number", "udp.srcport", "udp.dstport", "gvcp.message_key_code", "gvcp.cmd.command", "gvcp.ack",
                 "gvcp.cmd.req_id", "gvcp.cmd.status", "_ws.malformed", "_ws.expert.message"});
    // By code: port of the library and request id. A command that was sent again stands there once.
    std::map<std::string, std::set<std::string>> commands;
    std::map<std::string, std::set<std::string>> acknowledges;
    for (Packet packet : packets)
    {
        SCOPED_TRACE("frame " + packet["frame.number"]);
        EXPECT_EQ(packet["_ws.malformed"], "");
        EXPECT_EQ(packet["_ws.expert.message"], "");
        if (packet["gvcp.message_key_code"] == "0x42")
        {
            commands[packet["gvcp.cmd.command"]].insert(packet["udp.srcport"] + " " + packet["gvcp.cmd.req_id"]);
        }
        else if (!packet["gvcp.ack"].empty())
        {
            EXPECT_EQ(packet["gvcp.cmd.status"], "0x0000");
            acknowledges[packet["gvcp.ack"]].insert(packet["udp.dstport"] + " " + packet["gvcp.cmd.req_id"]);
        }
    }
    EXPECT_THAT(commands["0x0002"], SizeIs(1));
    EXPECT_EQ(acknowledges["0x0003"], commands["0x0002"]);
    EXPECT_THAT(commands["0x0080"], SizeIs(Ge(kWritesAndReads)));
    EXPECT_EQ(acknowledges["0x0081"], commands["0x0080"]);
    EXPECT_THAT(commands["0x0082"], SizeIs(Ge(kWritesAndReads)));
    EXPECT_EQ(acknowledges["0x0083"], commands["0x0082"]);
    EXPECT_THAT(commands["0x0084"], SizeIs(Ge(10))) << "the description";
    EXPECT_EQ(acknowledges["0x0085"], commands["0x0084"]);
    EXPECT_THAT(commands["0x00c0"], SizeIs(3)) << "events";
}

TEST_F(CapturedSession, ReadsAsItWasMeant)
{
    const auto packets = Dissect(path, "gvcp.message_key_code == 0x42",
                                 {"gvcp.cmd.command", "gvcp.cmd.req_id", "gvcp.cmd.readreg.bootstrapregister",
                                  "gvcp.cmd.writereg.bootstrapregister", "gvcp.cmd.event.devicespecificid",
                                  "udp.srcport", "udp.payload"});
    std::vector<std::string> timeouts; // what was written and read at 0x0938, without repetitions
    std::vector<std::string> others;   // the last digits of the other writes
    std::vector<std::string> events;
    std::string before;
    for (Packet packet : packets)
    {
        const std::string sender = packet["udp.srcport"] + " " + packet["gvcp.cmd.req_id"];
        if (sender == before)
        {
            continue;
        }
        before = sender;
        const std::string written = packet["gvcp.cmd.writereg.bootstrapregister"];
        if (written == "0x00000938" || packet["gvcp.cmd.readreg.bootstrapregister"] == "0x00000938")
        {
            timeouts.push_back(packet["gvcp.cmd.command"] + packet["udp.payload"].substr(24));
        }
        else if (!written.empty())
        {
            others.push_back(packet["udp.payload"].substr(16));
        }
        if (!packet["gvcp.cmd.event.devicespecificid"].empty())
        {
            events.push_back(packet["gvcp.cmd.event.devicespecificid"]);
        }
    }
    std::vector<std::string> expected = {"0x0080"}; // the read of the opening
    for (unsigned int turn = 0; turn < kWritesAndReads; ++turn)
    {
        char value[16];
        std::snprintf(value, sizeof value, "0x0082%08x", 60000 + turn);
        expected.insert(expected.end(), {value, "0x0080"});
    }
    EXPECT_EQ(timeouts, expected);
    EXPECT_THAT(events, ElementsAre("0x9011", "0x9011", "0x9011"));
    ASSERT_GE(others.size(), 6U);
    EXPECT_EQ(others.front(), "00000a0000000002") << "control is taken first";
    EXPECT_THAT(std::vector<std::string>(others.end() - 3, others.end()),
                ElementsAre("00000b0000000000", "00000a0000000000", "00000a0000000000"));
}

} // namespace
