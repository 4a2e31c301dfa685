// SPDX-License-Identifier: Apache-2.0
// An independent reader of GVCP, tshark, finds every command that the library sends well formed.
#include "gev/nq_gev_util.h"
#include "gige/gige_camera.h"
#include "gige/gige_command.h"
#include "gige/gige_network.h"
#include "support/child_process.h"
#include "support/gvcp_peer.h"

#include <gmock/gmock.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using GigETL::Camera;
using nq::test::Bytes;
using nq::test::GvcpPeer;
using testing::ElementsAre;

constexpr unsigned int kLoopback = 0x7F000001;

void Append16(Bytes& bytes, std::size_t value)
{
    bytes.push_back(static_cast<unsigned char>(value >> 8));
    bytes.push_back(static_cast<unsigned char>(value & 0xFF));
}

void AppendLittle32(Bytes& bytes, std::size_t value)
{
    for (int shift = 0; shift < 32; shift += 8)
    {
        bytes.push_back(static_cast<unsigned char>(value >> shift & 0xFF));
    }
}

/// The datagram inside an IPv4 packet from 127.0.0.1:40000 to 127.0.0.1:3956, without checksums.
Bytes Packet(const Bytes& datagram)
{
    Bytes packet{0x45, 0x00};
    Append16(packet, 28 + datagram.size());
    const Bytes rest{0, 0, 0x40, 0, 64, 17, 0, 0, 127, 0, 0, 1, 127, 0, 0, 1, 0x9C, 0x40, 0x0F, 0x74};
    packet.insert(packet.end(), rest.begin(), rest.end());
    Append16(packet, 8 + datagram.size());
    Append16(packet, 0);
    packet.insert(packet.end(), datagram.begin(), datagram.end());
    return packet;
}

/// A capture file of raw IPv4 packets (pcap 2.4, link type 101), removed with the object.
class CaptureFile
{
  public:
    explicit CaptureFile(const std::vector<Bytes>& datagrams)
    {
        Bytes file{0xD4, 0xC3, 0xB2, 0xA1, 2, 0, 4, 0};
        for (const std::size_t word : {0U, 0U, 65535U, 101U})
        {
            AppendLittle32(file, word);
        }
        for (const Bytes& datagram : datagrams)
        {
            const Bytes packet = Packet(datagram);
            for (const std::size_t word : {std::size_t{0}, std::size_t{0}, packet.size(), packet.size()})
            {
                AppendLittle32(file, word);
            }
            file.insert(file.end(), packet.begin(), packet.end());
        }
        std::string name = (std::filesystem::temp_directory_path() / "gvcp-XXXXXX").string();
        const int descriptor = mkstemp(name.data());
        close(descriptor);
        m_path = name;
        std::ofstream(m_path, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<std::streamsize>(file.size()));
    }
    ~CaptureFile() { std::filesystem::remove(m_path); }
    CaptureFile(const CaptureFile&) = delete;
    CaptureFile& operator=(const CaptureFile&) = delete;

    const std::string& Path() const { return m_path; }

  private:
    std::string m_path;
};

/// One line per datagram: the requested fields, separated by '|'.
std::vector<std::string> Dissect(const std::vector<Bytes>& datagrams, const std::vector<std::string>& fields)
{
    const CaptureFile capture(datagrams);
    std::vector<std::string> arguments{"/usr/bin/tshark", "-n", "-Q",         "-r", capture.Path(), "-T",
                                       "fields",          "-E", "separator=|"};
    for (const std::string& field : fields)
    {
        arguments.insert(arguments.end(), {"-e", field});
    }
    nq::test::ChildProcess tshark(arguments);
    EXPECT_EQ(tshark.WaitForExit(std::chrono::seconds(60)), 0) << tshark.Output();
    std::vector<std::string> lines;
    std::istringstream output(tshark.Output());
    for (std::string line; std::getline(output, line);)
    {
        if (line.find('|') != std::string::npos)
        {
            lines.push_back(line);
        }
    }
    return lines;
}

/// Every command that the library sends, as a peer received it.
std::vector<Bytes> AllCommands()
{
    GvcpPeer peer;
    Camera camera(kLoopback, 3956, kLoopback, MULTICAST_OFF);
    std::array<unsigned char, 5> data{1, 2, 3, 4, 5};
    unsigned int value = 0;
    camera.getGigECameraRegister(0x00000A00, &value);
    camera.setGigECameraRegister(0x00000A00, 2);
    camera.readCameraMemory(0x00000200, data.data(), 4);
    camera.writeCameraMemory(0x00001000, data.data(), 5);
    GigETL::Network network(kLoopback, 3956, kLoopback, 0);
    network.sendCommand(GigETL::Command(0x0002, 8, 0x11));
    EXPECT_TRUE(peer.WaitForCount(5));
    std::vector<Bytes> commands = peer.ReceivedBytes();
    commands.push_back(NQGevUtil::CreateGVCPCommand(0x0002, nullptr, 0, 0x11, 1));
    std::array<unsigned char, 4> privilege{0x00, 0x00, 0x0A, 0x00};
    commands.push_back(NQGevUtil::CreateGVCPCommand(0x0080, privilege.data(), 4, 0x01, 1));
    return commands;
}

class Dissector : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (!std::filesystem::exists("/usr/bin/tshark"))
        {
            GTEST_SKIP() << "tshark is not installed";
        }
    }
};

TEST_F(Dissector, FindsNoMalformedFieldInAnyCommand)
{
    const std::vector<Bytes> commands = AllCommands();
    const auto lines = Dissect(commands, {"gvcp.message_key_code", "_ws.malformed", "_ws.expert.message"});
    EXPECT_THAT(lines, ElementsAre("0x42||", "0x42||", "0x42||", "0x42||", "0x42||", "0x42||", "0x42||"));
}

TEST_F(Dissector, ReadsCodesFlagsLengthsAndIdsAsTheyWereMeant)
{
    const auto lines =
        Dissect(AllCommands(), {"gvcp.cmd.command", "gvcp.cmd.flags", "gvcp.cmd.payloadlength", "gvcp.cmd.req_id"});
    EXPECT_THAT(lines,
                ElementsAre("0x0080|0x01|0x0004|0x0001", "0x0082|0x01|0x0008|0x0002", "0x0084|0x01|0x0008|0x0003",
                            "0x0086|0x01|0x000c|0x0004", "0x0002|0x11|0x0008|0x0005", "0x0002|0x11|0x0000|0x0001",
                            "0x0080|0x01|0x0004|0x0001"));
}

} // namespace
