// SPDX-License-Identifier: Apache-2.0
// The library against a camera of foreign make: the fake GigE Vision camera of the aravis project.
#include "support/ask_until.h"
#include "support/child_process.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/producer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <gmock/gmock.h>
#include <memory>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace
{

using nq::test::AskUntil;
using nq::test::Bytes;
using nq::test::ChildProcess;
using nq::test::GvcpCamera;
using nq::test::Host;
using nq::test::Producer;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* kProgram = "/usr/bin/arv-fake-gv-camera-0.8";
const Bytes kDiscovery = {0x42, 0x11, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01};

/// One command to the camera at 10.9.0.2 and its answer; empty when none came.
Bytes Ask(const Bytes& command)
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in camera{};
    camera.sin_family = AF_INET;
    camera.sin_port = htons(3956);
    camera.sin_addr.s_addr = htonl(0x0A090002);
    Bytes answer(2048);
    ssize_t size = 0;
    for (int attempt = 0; attempt < 100 && size <= 0; ++attempt) // a program that has just started, a new cable
    {
        sendto(descriptor, command.data(), command.size(), 0, reinterpret_cast<const sockaddr*>(&camera),
               sizeof camera);
        pollfd waiting{descriptor, POLLIN, 0};
        poll(&waiting, 1, 200);
        size = recv(descriptor, answer.data(), answer.size(), MSG_DONTWAIT);
    }
    close(descriptor);
    answer.resize(static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    return answer;
}

/// The foreign camera one cable away, at 10.9.0.2, with a relay in the test's own namespace.
///
/// The camera calls its version "0.8.26", older than what the library lists, and knows no subnet mask. The relay hears
/// the broadcast too and answers it with the camera's acknowledge, in which it replaces these two fields. Everything
/// but discovery goes straight to the camera.
class ForeignCamera
{
  public:
    ForeignCamera()
    {
        m_host.Connect("cam0", "10.9.0.1/24", "eth0", "10.9.0.2/24");
        nq::test::Shell("ip route add 255.255.255.255/32 dev cam0");
        m_process = std::make_unique<ChildProcess>(std::vector<std::string>{kProgram, "-i", "10.9.0.2", "-s", "GV77"},
                                                   std::vector<std::string>{}, &m_host);
        EXPECT_EQ(Ask(kDiscovery).size(), 256U) << m_process->Output();
    }

    void Relay()
    {
        m_relay = std::make_unique<GvcpCamera>();
        m_relay->Otherwise([](const Bytes& command) -> std::vector<nq::test::GvcpReply> {
            Bytes acknowledge = command == kDiscovery ? Ask(command) : Bytes{};
            if (acknowledge.size() != 256)
            {
                return {};
            }
            const Bytes mask = {255, 255, 255, 0};
            const Bytes version = {'3', '.', '0', '.', '0', 0, 0, 0};
            std::copy(mask.begin(), mask.end(), acknowledge.begin() + 60);
            std::copy(version.begin(), version.end(), acknowledge.begin() + 144);
            return {{acknowledge}};
        });
    }

  private:
    Host m_host;
    std::unique_ptr<ChildProcess> m_process;
    std::unique_ptr<GvcpCamera> m_relay;
};

class WithForeignCamera : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (access(kProgram, X_OK) != 0)
        {
            GTEST_SKIP() << kProgram << " (package aravis-tools) is not installed";
        }
        camera = std::make_unique<ForeignCamera>();
        ASSERT_EQ(producer.GCInitLib(), 0);
        ASSERT_EQ(producer.TLOpen(&system), 0);
        ASSERT_EQ(producer.TLUpdateInterfaceList(system, nullptr, 0), 0);
        char name[256] = {};
        std::size_t size = sizeof name;
        ASSERT_EQ(producer.TLGetInterfaceID(system, 0, name, &size), 0);
        ASSERT_EQ(producer.TLOpenInterface(system, name, &interface), 0);
    }

    void TearDown() override { producer.GCCloseLib(); }

    std::uint32_t Scan()
    {
        std::uint32_t count = 99;
        EXPECT_EQ(producer.IFUpdateDeviceList(interface, nullptr, 500), 0);
        EXPECT_EQ(producer.IFGetNumDevices(interface, &count), 0);
        return count;
    }

    void Open()
    {
        camera->Relay();
        ASSERT_EQ(AskUntil(1U, [this] { return Scan(); }), 1U);
        std::size_t size = sizeof id;
        ASSERT_EQ(producer.IFGetDeviceID(interface, 0, id, &size), 0);
        const auto open = [this] {
            return producer.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, open), 0);
        ASSERT_EQ(producer.DevGetPort(device, &port), 0);
    }

    std::string Text(GenTL::DEVICE_INFO_CMD command)
    {
        char text[600] = {};
        std::size_t size = sizeof text;
        GenTL::INFO_DATATYPE type = 0;
        const int result = device != nullptr ? producer.DevGetInfo(device, command, &type, text, &size)
                                             : producer.IFGetDeviceInfo(interface, id, command, &type, text, &size);
        EXPECT_EQ(result, 0);
        return text;
    }

    Bytes Read(std::uint64_t address, std::size_t size)
    {
        Bytes bytes(size);
        EXPECT_EQ(producer.GCReadPort(port, address, bytes.data(), &size), 0);
        return bytes;
    }

    void Write(std::uint64_t address, const Bytes& bytes)
    {
        std::size_t size = bytes.size();
        EXPECT_EQ(producer.GCWritePort(port, address, bytes.data(), &size), 0);
    }

    std::unique_ptr<ForeignCamera> camera;
    Producer producer;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    void* port = nullptr;
    char id[256] = {};
};

TEST_F(WithForeignCamera, ItsOwnVersionIsTooOldToBeListed)
{
    EXPECT_EQ(Scan(), 0U);
}

TEST_F(WithForeignCamera, IsDiscoveredAndDescribed)
{
    camera->Relay();
    ASSERT_EQ(AskUntil(1U, [this] { return Scan(); }), 1U);
    std::size_t size = sizeof id;
    ASSERT_EQ(producer.IFGetDeviceID(interface, 0, id, &size), 0);
    EXPECT_THAT(id, StartsWith("Fake:"));
    EXPECT_EQ(Text(GenTL::DEVICE_INFO_VENDOR), "Aravis");
    EXPECT_EQ(Text(GenTL::DEVICE_INFO_MODEL), "Fake");
    EXPECT_EQ(Text(GenTL::DEVICE_INFO_SERIAL_NUMBER), "GV77");
    EXPECT_EQ(Text(GenTL::DEVICE_INFO_VERSION), "3.0.0");
    const auto access = [this] {
        std::int32_t status = 0;
        std::size_t bytes = sizeof status;
        GenTL::INFO_DATATYPE type = 0;
        EXPECT_EQ(producer.IFGetDeviceInfo(interface, id, GenTL::DEVICE_INFO_ACCESS_STATUS, &type, &status, &bytes), 0);
        return status;
    };
    EXPECT_EQ(AskUntil(1, access), 1) << "free, and on the host's subnet";
}

TEST_F(WithForeignCamera, IsOpenedReadAndWritten)
{
    Open();
    EXPECT_THAT(Read(0x0938, 4), ElementsAre(0x00, 0x00, 0x0B, 0xB8)) << "heartbeat timeout, 3000 ms";
    EXPECT_THAT(Read(0x0A00, 4), ElementsAre(0, 0, 0, 2)) << "control privilege";
    EXPECT_THAT(Read(0x0940, 4), ElementsAre(0x3B, 0x9A, 0xCA, 0x00)) << "timestamp frequency, 1 GHz";
    Write(0x0100, {0x00, 0x00, 0x01, 0x40});
    EXPECT_THAT(Read(0x0100, 4), ElementsAre(0x00, 0x00, 0x01, 0x40)) << "width";
    Write(0x00E8, {'f', 'r', 'o', 'n', 't', 0, 0, 0});
    EXPECT_THAT(Read(0x00E8, 8), ElementsAre('f', 'r', 'o', 'n', 't', 0, 0, 0));
    EXPECT_EQ(Text(GenTL::DEVICE_INFO_USER_DEFINED_NAME), "front");
    EXPECT_STREQ(reinterpret_cast<const char*>(Read(0x0068, 32).data()), "Fake");
}

TEST_F(WithForeignCamera, ItsDescriptionIsReadFromWhereItsUrlSays)
{
    Open();
    std::uint32_t count = 0;
    ASSERT_EQ(producer.GCGetNumPortURLs(port, &count), 0);
    EXPECT_EQ(count, 2U);
    char url[600] = {};
    std::size_t size = sizeof url;
    GenTL::INFO_DATATYPE type = 0;
    ASSERT_EQ(producer.GCGetPortURLInfo(port, 0, GenTL::URL_INFO_URL, &type, url, &size), 0);
    unsigned long address = 0;
    unsigned long length = 0;
    ASSERT_THAT(url, StartsWith("Local:"));
    const char* const name = url + 6 + std::strspn(url + 6, "/"); // newer cameras write three slashes here
    ASSERT_EQ(std::sscanf(name, "arv-fake-camera.xml;%lx;%lx", &address, &length), 2) << url;
    EXPECT_EQ(address, 0x10000U);
    ASSERT_GT(length, 1024U);
    const Bytes bytes = Read(address, length);
    std::string text(bytes.begin(), bytes.end());
    text.erase(text.find_last_not_of(std::string("\0\n", 2)) + 1);
    EXPECT_THAT(text, StartsWith("<?xml"));
    EXPECT_THAT(text, HasSubstr("<RegisterDescription"));
    EXPECT_THAT(text, EndsWith("</RegisterDescription>"));
}

TEST_F(WithForeignCamera, GetsItsPrivilegeBackWithTheClose)
{
    Open();
    const Bytes privilege = {0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00};
    EXPECT_THAT(Ask(privilege), ElementsAre(0, 0, 0x00, 0x81, 0, 4, 0, 1, 0, 0, 0, 2));
    EXPECT_EQ(producer.DevClose(device), 0);
    EXPECT_THAT(Ask(privilege), ElementsAre(0, 0, 0x00, 0x81, 0, 4, 0, 1, 0, 0, 0, 0));
}

} // namespace
