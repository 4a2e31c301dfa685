// SPDX-License-Identifier: Apache-2.0
// The camera's control socket among clients and files that mean it no good.
#include "camera/control_client.h"
#include "support/network.h"

#include <csignal>
#include <fstream>
#include <gmock/gmock.h>
#include <memory>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>

using namespace nq::test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

namespace
{

constexpr std::chrono::seconds kLong{20};
constexpr const char* kStatus = R"({"cmd":"status"})";

class CameraControl : public testing::Test
{
  protected:
    std::unique_ptr<ChildProcess> Start(const std::string& address = "127.0.0.1",
                                        const std::vector<std::string>& more = {})
    {
        auto camera = std::make_unique<ChildProcess>(m_folder.Command(address, more));
        EXPECT_TRUE(camera->WaitForOutput("\nready 127", kLong)) << camera->Output();
        return camera;
    }

    std::string Status(const std::string& path) const { return ControlClient(path).Ask(kStatus).value_or(""); }
    std::string Status() const { return Status(m_folder.Socket()); }

    /// A camera that must not start because of what lies at its path.
    void ExpectRefused(const std::string& reason) const
    {
        ChildProcess camera(m_folder.Command("127.0.0.2"));
        EXPECT_EQ(camera.WaitForExit(kLong), 1);
        EXPECT_THAT(camera.Output(),
                    HasSubstr("nq-gev-camera: control socket " + m_folder.Socket() + ": " + reason + "\n"));
    }

    /// Leaves a socket that nobody listens on.
    void LeaveDeadSocket() const
    {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_un place = SocketAddress(m_folder.Socket());
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&place), sizeof place), 0);
        close(fd);
    }

    ControlFolder m_folder;
};

/// Processor time that the process has used, in clock ticks.
long UsedTime(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string field;
    std::getline(file, field, ')'); // the name may hold spaces
    for (int i = 3; i < 14; ++i)
    {
        file >> field;
    }
    long user = 0;
    long system = 0;
    file >> user >> system;
    return user + system;
}

void LimitDescriptors(pid_t pid, rlim_t most)
{
    const rlimit limit{most, 1024};
    ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &limit, nullptr), 0);
}

/// The number that the process would give its next descriptor.
rlim_t NextDescriptor(pid_t pid)
{
    rlim_t number = 0;
    while (std::filesystem::is_symlink("/proc/" + std::to_string(pid) + "/fd/" + std::to_string(number)))
    {
        ++number;
    }
    return number;
}

} // namespace

TEST_F(CameraControl, BytesThatAreNoUtf8AreAnswered)
{
    const auto camera = Start();
    for (const char* line :
         {"\xFF", "{\"cmd\":\"\xC3\"}", "{\"fault\":\"\x80\"}", "{\"cmd\":\"status\",\"camera\":\"\xFE\"}"})
    {
        EXPECT_THAT(ControlClient(m_folder.Socket()).Ask(line).value_or(""), HasSubstr(R"("ok":false)"));
    }
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
}

TEST_F(CameraControl, SerialNumberThatIsNoUtf8IsShownWithReplacements)
{
    const auto camera = Start("127.0.0.1", {"--serial", "A\xFF"
                                                        "B1"});
    EXPECT_THAT(Status(), HasSubstr("\"serial\":\"A\xEF\xBF\xBD"
                                    "B1\""));
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
}

TEST_F(CameraControl, NumbersOutsideTheirRangeAreRefused)
{
    const auto camera = Start();
    const ControlClient client(m_folder.Socket());
    for (const char* line :
         {R"({"cmd":"fault","name":"late-ack","arg":-1})", R"({"cmd":"fault","name":"late-ack","arg":1e300})",
          R"({"cmd":"fault","name":"late-ack","count":0.5})", R"({"cmd":"status","camera":-1})",
          R"({"cmd":"event","id":65536})", R"({"cmd":"event","id":"1"})"})
    {
        EXPECT_THAT(client.Ask(line).value_or(""), HasSubstr(R"("ok":false)")) << line;
    }
}

TEST_F(CameraControl, ClientThatNeverReadsHoldsNobodyUp)
{
    const auto camera = Start();
    const ControlClient mute(m_folder.Socket());
    std::string lines;
    for (int i = 0; i < 200; ++i)
    {
        lines += std::string(kStatus) + "\n";
    }
    int sent = 0;
    for (; sent < 1000 && mute.Send(lines); ++sent)
    {
    }
    ASSERT_LT(sent, 1000) << "the camera takes commands for ever whose answers nobody reads";
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
    for (int i = 0; i < 200; ++i)
    {
        EXPECT_THAT(mute.Line().value_or(""), HasSubstr(R"("ok":true)")) << "answer " << i;
    }
    camera->Signal(SIGTERM);
    EXPECT_EQ(camera->WaitForExit(kLong), 0);
}

TEST_F(CameraControl, SixtyIdleClientsLeaveRoomForAnother)
{
    const auto camera = Start();
    LimitDescriptors(camera->Pid(), 40);
    std::vector<std::unique_ptr<ControlClient>> idle;
    for (int i = 0; i < 60; ++i)
    {
        // A few may wait to be taken at a time; more would block here.
        idle.push_back(std::make_unique<ControlClient>(m_folder.Socket()));
        EXPECT_THAT(idle.back()->Ask(kStatus).value_or(""), HasSubstr(R"("ok":true)")) << "client " << i;
    }
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
    EXPECT_EQ(idle.front()->Line(), std::nullopt) << "who was quiet for longest is hung up on";
}

TEST_F(CameraControl, WithoutADescriptorItWaitsAtRest)
{
    const auto camera = Start();
    LimitDescriptors(camera->Pid(), NextDescriptor(camera->Pid()));
    const ControlClient client(m_folder.Socket());
    ASSERT_TRUE(client.Send(std::string(kStatus) + "\n"));
    const long before = UsedTime(camera->Pid());
    EXPECT_EQ(client.Line(std::chrono::milliseconds(1500)), std::nullopt);
    EXPECT_LT(UsedTime(camera->Pid()) - before, 10);
    LimitDescriptors(camera->Pid(), 100);
    EXPECT_THAT(client.Line().value_or(""), HasSubstr(R"("ok":true)"));
}

TEST_F(CameraControl, SocketIsItsUsersAloneAndGoesWithTheCamera)
{
    const mode_t before = umask(0);
    const auto camera = Start();
    umask(before);
    struct stat found = {};
    ASSERT_EQ(lstat(m_folder.Socket().c_str(), &found), 0);
    EXPECT_TRUE(S_ISSOCK(found.st_mode));
    EXPECT_EQ(found.st_mode & 0777U, 0600U);
    EXPECT_THAT(m_folder.Names(), ElementsAre("control"));
    camera->Signal(SIGTERM);
    EXPECT_EQ(camera->WaitForExit(kLong), 0);
    EXPECT_THAT(m_folder.Names(), ElementsAre());
}

TEST_F(CameraControl, DeadSocketIsReplaced)
{
    Start()->Signal(SIGKILL);
    ASSERT_THAT(m_folder.Names(), ElementsAre("control"));
    const auto next = Start();
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
    EXPECT_THAT(m_folder.Names(), ElementsAre("control"));
}

TEST_F(CameraControl, SocketOfALivingCameraIsNotTaken)
{
    Shell("ip address add 127.0.0.2/8 dev lo");
    const auto camera = Start();
    ExpectRefused("Address already in use");
    EXPECT_THAT(Status(), HasSubstr(R"("address":"127.0.0.1")"));
    EXPECT_THAT(m_folder.Names(), ElementsAre("control"));
}

TEST_F(CameraControl, FilesAndLinksAndForeignSocketsStay)
{
    Shell("ip address add 127.0.0.2/8 dev lo");
    const std::string path = m_folder.Socket();
    std::ofstream(path) << "precious";
    ExpectRefused("File exists");
    std::stringstream content;
    content << std::ifstream(path).rdbuf();
    EXPECT_EQ(content.str(), "precious");
    std::filesystem::remove(path);

    std::filesystem::create_symlink("nowhere", path);
    ExpectRefused("File exists");
    EXPECT_TRUE(std::filesystem::is_symlink(path));
    std::filesystem::remove(path);

    LeaveDeadSocket();
    ASSERT_EQ(chown(path.c_str(), 4711, 4711), 0);
    ExpectRefused("File exists");
    EXPECT_THAT(m_folder.Names(), ElementsAre("control"));
}

TEST_F(CameraControl, EndOfOneCameraLeavesTheNextOnesSocket)
{
    Shell("ip address add 127.0.0.2/8 dev lo");
    const auto first = Start();
    std::filesystem::remove(m_folder.Socket());
    const auto second = Start("127.0.0.2");
    first->Signal(SIGTERM);
    EXPECT_EQ(first->WaitForExit(kLong), 0);
    ASSERT_THAT(m_folder.Names(), ElementsAre("control"));
    EXPECT_THAT(Status(), HasSubstr(R"("address":"127.0.0.2")"));
}

TEST_F(CameraControl, ManyCamerasAtOnePathLeaveOneOfThemThere)
{
    LeaveDeadSocket();
    std::vector<std::unique_ptr<ChildProcess>> cameras;
    for (int i = 2; i < 10; ++i)
    {
        const std::string address = "127.0.0." + std::to_string(i);
        Shell("ip address add " + address + "/8 dev lo");
        cameras.push_back(std::make_unique<ChildProcess>(m_folder.Command(address)));
    }
    int ready = 0;
    for (const auto& camera : cameras)
    {
        ready += camera->WaitForOutput("\nready 127", kLong) ? 1 : 0;
    }
    EXPECT_EQ(ready, 1);
    EXPECT_THAT(Status(), HasSubstr(R"("ok":true)"));
    EXPECT_THAT(m_folder.Names(), ElementsAre("control"));
}
