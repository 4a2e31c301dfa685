// SPDX-License-Identifier: Apache-2.0
// The recording of a cable, and its reading.
#include "support/capture.h"

#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <iterator>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace nq::test
{
namespace
{

constexpr const char* kRecorderPath = "/usr/bin/tcpdump";
constexpr const char* kReaderPath = "/usr/bin/tshark";
constexpr const char* kEndMark = "this is the end of the session";

/// A field's value as all versions of the dissector print it, and without what it says of the sender's port alone: the
/// kernel chooses that one, also among those from which traceroute sends.
std::string Plain(const std::string& value)
{
    static const std::regex kOfThePort("Possible traceroute: hop #[0-9]+, attempt #[0-9]+,?");
    return value == "True" ? "1" : value == "False" ? "0" : std::regex_replace(value, kOfThePort, "");
}

std::string MakeFolder()
{
    std::string path = (std::filesystem::temp_directory_path() / "nq-capture-XXXXXX").string();
    EXPECT_NE(mkdtemp(path.data()), nullptr);
    return path;
}

} // namespace

bool Capture::Available()
{
    return access(kRecorderPath, X_OK) == 0 && access(kReaderPath, X_OK) == 0;
}

Capture::Capture(const std::string& adapter, const std::string& neighbour)
    : m_neighbour(neighbour), m_path(MakeFolder() + "/session.pcap"),
      m_recorder({kRecorderPath, "-i", adapter, "-Z", "root", "-B", "16384", "-s", "9216", "--immediate-mode", "-U",
                  "-w", m_path, "udp"})
{
    EXPECT_TRUE(m_recorder.WaitForOutput("listening on", std::chrono::seconds(30))) << m_recorder.Output();
}

Capture::~Capture()
{
    std::error_code ignored;
    std::filesystem::remove_all(std::filesystem::path(m_path).parent_path(), ignored);
}

const std::string& Capture::Finish()
{
    SendEndMark();
    for (int look = 0; look < 3000 && !HasEndMark(); ++look)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_TRUE(HasEndMark());
    m_recorder.Signal(SIGINT);
    EXPECT_EQ(m_recorder.WaitForExit(std::chrono::seconds(30)), 0);
    EXPECT_THAT(m_recorder.Output(), testing::HasSubstr("\n0 packets dropped by kernel"));
    return m_path;
}

void Capture::SendEndMark() const
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(9);
    to.sin_addr.s_addr = inet_addr(m_neighbour.c_str());
    sendto(descriptor, kEndMark, std::strlen(kEndMark), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
    close(descriptor);
}

bool Capture::HasEndMark() const
{
    std::ifstream file(m_path, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    return bytes.find(kEndMark) != std::string::npos;
}

std::vector<Packet> Dissect(const std::string& path, const std::string& filter, const std::vector<std::string>& fields,
                            unsigned int messagePort)
{
    const std::string gvcpToo = "udp.port==" + std::to_string(messagePort) + ",gvcp";
    std::vector<std::string> command = {kReaderPath, "-n",   "-Q", "-r",     path, "-d",         gvcpToo,
                                        "-Y",        filter, "-T", "fields", "-E", "separator=|"};
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
            std::string& value = packet[field];
            std::getline(values, value, '|');
            value = Plain(value);
        }
        packets.push_back(packet);
    }
    return packets;
}

} // namespace nq::test
