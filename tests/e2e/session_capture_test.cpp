// SPDX-License-Identifier: Apache-2.0
// One whole control session of the library with the virtual camera, captured on the cable and read by a foreign
// dissector.
#include "support/child_process.h"
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using nq::test::ChildProcess;
using nq::test::Producer;
using nq::test::VirtualCamera;
using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

constexpr const char* recorderPath = "/usr/bin/tcpdump";
constexpr const char* readerPath = "/usr/bin/tshark";
constexpr const char* endMark = "this is the end of the session";
constexpr unsigned int writesAndReads = 500; // of each

/// Writes what passes on the test's end of the cable to a file.
class Capture
{
  public:
    Capture()
        : m_path(nq::test::RdmaFolder() + "/session.pcap"),
          m_recorder(
              {recorderPath, "-i", "host0", "-Z", "root", "-B", "16384", "--immediate-mode", "-U", "-w", m_path, "udp"})
    {
        EXPECT_TRUE(m_recorder.WaitForOutput("listening on", std::chrono::seconds(30))) << m_recorder.Output();
    }

    /// Ends the file once everything sent so far is in it; its path.
    const std::string& Finish()
    {
        SendEndMark();
        for (int look = 0; look < 3000 && !HasEndMark(); ++look)
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        EXPECT_TRUE(HasEndMark());
        m_recorder.Signal(SIGINT);
        EXPECT_EQ(m_recorder.WaitForExit(std::chrono::seconds(30)), 0);
        EXPECT_THAT(m_recorder.Output(), HasSubstr("\n0 packets dropped by kernel"));
        return m_path;
    }

  private:
    static void SendEndMark()
    {
        const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in camera{};
        camera.sin_family = AF_INET;
        camera.sin_port = htons(9);
        camera.sin_addr.s_addr = inet_addr(VirtualCamera::address);
        sendto(descriptor, endMark, std::strlen(endMark), 0, reinterpret_cast<const sockaddr*>(&camera), sizeof camera);
        close(descriptor);
    }

    bool HasEndMark() const
    {
        std::ifstream file(m_path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        return bytes.find(endMark) != std::string::npos;
    }

    std::string m_path;
    ChildProcess m_recorder;
};

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
        ASSERT_EQ(m_gentl.IFUpdateDeviceList(m_interface, nullptr, 500), 0);
        size = sizeof id;
        ASSERT_EQ(m_gentl.IFGetDeviceID(m_interface, 0, id, &size), 0);
        ASSERT_EQ(m_gentl.IFOpenDevice(m_interface, id, GenTL::DEVICE_ACCESS_CONTROL, &m_device), 0);
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
        for (unsigned int turn = 0; turn < writesAndReads; ++turn)
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

using Packet = std::map<std::string, std::string>;

/// The packets of the file that match, each with these fields as the dissector shows them. What passes at the message
/// port is GVCP as well.
std::vector<Packet> Dissect(const std::string& path, const std::string& match, const std::vector<std::string>& fields)
{
    std::vector<std::string> command = {readerPath, "-n",  "-Q", "-r",     path, "-d",         "udp.port==3456,gvcp",
                                        "-Y",       match, "-T", "fields", "-E", "separator=|"};
    for (const std::string& field : fields)
    {
        command.insert(command.end(), {"-e", field});
    }
    ChildProcess reader(command);
    EXPECT_EQ(reader.WaitForExit(std::chrono::seconds(100)), 0) << reader.Output();
    std::vector<Packet> packets;
    std::istringstream output(reader.Output());
    for (std::string line; std::getline(output, line);)
    {
        if (std::count(line.begin(), line.end(), '|') + 1 != static_cast<std::ptrdiff_t>(fields.size()))
        {
            continue; // a remark of the program itself
        }
        Packet packet;
        std::istringstream values(line);
        for (const std::string& field : fields)
        {
            std::getline(values, packet[field], '|');
        }
        packets.push_back(packet);
    }
    return packets;
}

class CapturedSession : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (access(recorderPath, X_OK) != 0 || access(readerPath, X_OK) != 0)
        {
            GTEST_SKIP() << "tcpdump or tshark is not installed";
        }
        const VirtualCamera camera({"--heartbeat", "60000"});
        Capture capture;
        Session(camera).Run();
        path = capture.Finish();
    }

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
    EXPECT_THAT(commands["0x0080"], SizeIs(Ge(writesAndReads)));
    EXPECT_EQ(acknowledges["0x0081"], commands["0x0080"]);
    EXPECT_THAT(commands["0x0082"], SizeIs(Ge(writesAndReads)));
    EXPECT_EQ(acknowledges["0x0083"], commands["0x0082"]);
    EXPECT_THAT(commands["0x0084"], SizeIs(Ge(10))) << "the description";
    EXPECT_EQ(acknowledges["0x0085"], commands["0x0084"]);
    EXPECT_THAT(commands["0x00c0"], SizeIs(3)) << "events";
}

} // namespace
