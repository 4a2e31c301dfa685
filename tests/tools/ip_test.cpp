// SPDX-License-Identifier: Apache-2.0
// nq-gev ip: a camera of a foreign subnet is shown, moved and grabbed from; what would go wrong is refused.
#include "support/gvcp_camera.h"
#include "support/json_schema.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <set>

using namespace nq::test;
using nlohmann::json;
using testing::AllOf;
using testing::HasSubstr;

namespace
{

constexpr const char* kMac = "02:00:C0:A8:01:05";

/// How long cameras are listened for, in milliseconds: they may stand still for a second.
constexpr const char* kHearing = "2500";

/// A camera at 192.168.1.5/24 on the cable of an adapter with 10.0.0.1/24.
class ToolIp : public testing::Test
{
  protected:
    ToolIp()
    {
        m_host.Connect("host0", "10.0.0.1/24", "cam0", "192.168.1.5/24");
        AcceptEverySource(m_host);
        const std::string link = m_link / "rdma.so"; // LD_PRELOAD would split a path with a space or a colon
        std::filesystem::create_symlink(NQ_LOOPBACK_PATH, link);
        m_environment = {"LD_PRELOAD=" + link, "NQ_RDMA_LOOPBACK_DIR=" + RdmaFolder()};
        m_camera = std::make_unique<ChildProcess>(
            std::vector<std::string>{NQ_CAMERA_PATH, "--address", "192.168.1.5", "--width", "64", "--height", "48"},
            m_environment, &m_host);
        if (!m_camera->WaitForOutput("ready", kLongTime))
        {
            throw std::runtime_error("no camera: " + m_camera->Output());
        }
    }

    Outcome Ip(const std::vector<std::string>& more) const
    {
        return RunProgram(Joined({NQ_TOOL_PATH, "--timeout", kHearing, "ip"}, more));
    }
    Outcome Force(const std::string& network, const std::vector<std::string>& more = {"--yes"}) const
    {
        return Ip(Joined({"--camera", kMac, "--force", network}, more));
    }

    Host m_host;
    const TemporaryFolder m_link;
    std::vector<std::string> m_environment;
    std::unique_ptr<ChildProcess> m_camera;
};

} // namespace

TEST_F(ToolIp, CameraOfAForeignSubnetIsFoundForcedAndGrabbedFrom)
{
    const Outcome shown = Ip({});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_THAT(shown.output, HasSubstr("02:00:C0:A8:01:05  NQ-GEV-Camera  serial NQ000001\n"
                                        "  address 192.168.1.5/24  gateway -  at power on persistent, link-local\n"
                                        "  heard on host0 (10.0.0.1/24), out of reach"));
    const Outcome forced = Force("10.0.0.9/24");
    EXPECT_EQ(forced.exitCode, 0);
    EXPECT_EQ(forced.output, "02:00:C0:A8:01:05: stands at 10.0.0.9/24 now, until it is switched off. The camera "
                             "acknowledged.\n");
    const Outcome grabbed = RunTool({"grab", "--count", "3"}, m_environment);
    EXPECT_EQ(grabbed.exitCode, 0) << grabbed.output;
    EXPECT_THAT(grabbed.output, testing::ContainsRegex("frames +3\n"));
}

TEST_F(ToolIp, JsonTellsTheSame)
{
    const std::string text = Ip({"--json"}).output;
    ExpectFitsSchema("ip", text);
    const json shown = json::parse(text);
    ASSERT_EQ(shown["cameras"].size(), 1U);
    const json expected = json::parse(R"({"mac": "02:00:C0:A8:01:05", "model": "NQ-GEV-Camera", "serial": "NQ000001",
        "user_name": "", "address": "192.168.1.5/24", "gateway": null,
        "configured": {"persistent": true, "dhcp": false, "link_local": true},
        "supported": {"persistent": true, "dhcp": true, "link_local": true},
        "adapter": "host0", "adapter_address": "10.0.0.1/24", "reachable": false, "controlled_by": null})");
    EXPECT_EQ(shown["cameras"][0], expected);
    const std::string change = Force("10.0.0.9/24", {"--yes", "--json"}).output;
    ExpectFitsSchema("ip", change);
    const json forced = json::parse(change);
    EXPECT_EQ(forced["before"], "192.168.1.5/24");
    EXPECT_THAT(forced["result"].get<std::string>(), HasSubstr("stands at 10.0.0.9/24 now"));
}

TEST_F(ToolIp, WhatWouldGoWrongIsRefused)
{
    struct Case
    {
        std::vector<std::string> arguments;
        int exitCode;
        const char* text;
    };
    m_host.Shell("ip addr add 10.0.0.7/24 dev cam0");
    Shell("ip link add aux0 type veth peer name aux1 && ip link set aux0 up && ip addr add 10.0.0.8/32 dev aux0");
    const std::vector<Case> cases{
        {{"--force", "10.0.0.9/24", "--yes"}, 2, "--force needs --camera with the MAC address"},
        {{"--camera", kMac, "--force", "10.0.0.9/24"}, 2, "give --yes"},
        {{"--camera", kMac, "--force", "10.0.1.9/24", "--yes"}, 2, "10.0.1.9/24 is outside the subnet of host0"},
        {{"--camera", kMac, "--force", "10.0.0.7/24", "--yes"}, 1, "10.0.0.7/24 is taken: "},
        {{"--camera", kMac, "--force", "10.0.0.1/24", "--yes"}, 1, "10.0.0.1/24 is this machine's own address"},
        {{"--camera", kMac, "--force", "10.0.0.8/24", "--yes"}, 1, "10.0.0.8/24 is this machine's own address"},
        {{"--camera", kMac, "--force", "10.0.0.255/24", "--yes"}, 2, "no address that a camera can have"},
        {{"--camera", kMac, "--force", "10.0.0.9", "--yes"}, 2, "no address with the bits of its subnet"},
        {{"--camera", kMac, "--force", "10.0.0.9/24", "--gateway", "10.0.1.1", "--yes"}, 2, "no other host of"},
        {{"--camera", kMac, "--set", "10.0.0.9/24", "--yes"}, 1, "is out of reach of host0"},
        {{"--set", "10.0.0.9/24", "--dhcp", "--yes"}, 2, "only one of"},
        {{"--camera", "nobody", "--dhcp", "--yes"}, 4, "no camera 'nobody' answered"},
    };
    for (const Case& one : cases)
    {
        const Outcome outcome = InTime(HasSubstr(one.text), [&] {
            return RunProgram(Joined({NQ_TOOL_PATH, "--timeout", "500", "ip"}, one.arguments));
        });
        EXPECT_EQ(outcome.exitCode, one.exitCode) << outcome.output;
        EXPECT_THAT(outcome.output, HasSubstr(one.text));
    }
    EXPECT_THAT(Ip({}).output, HasSubstr("address 192.168.1.5/24")) << "it stands where it stood";
}

TEST_F(ToolIp, ForcedPlaceOutsideTheSubnetIsTakenWhenTold)
{
    const Outcome outcome = Force("172.16.0.9/16", {"--outside", "--yes"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_THAT(outcome.output, HasSubstr("stands at 172.16.0.9/16 now"));
}

TEST_F(ToolIp, CameraIsNamedInAnySpelling)
{
    for (const char* name : {"02:00:c0:a8:01:05", "02-00-C0-A8-01-05", "0200.c0a8.0105", "02 00 c0 a8 01 05",
                             "0200C0A80105", "NQ-GEV-Camera:02-00-c0-a8-01-05", "NQ000001", "192.168.1.5"})
    {
        const auto says = HasSubstr("10.0.1.9/24 is outside the subnet of host0"); // it was chosen
        const Outcome outcome = InTime(says, [&] {
            return RunProgram(
                {NQ_TOOL_PATH, "--timeout", "500", "ip", "--yes", "--camera", name, "--force", "10.0.1.9/24"});
        });
        EXPECT_EQ(outcome.exitCode, 2) << name;
        EXPECT_THAT(outcome.output, says) << name;
    }
}

TEST_F(ToolIp, IsAskedAboutOnATerminalAndOnlyYesChangesTheAddress)
{
    const std::string question = "The camera 02:00:C0:A8:01:05 (NQ-GEV-Camera NQ000001) at 192.168.1.5/24 shall take "
                                 "10.0.0.9/24 until it is switched off. Yes? [y/N] ";
    const auto answer = [&](const std::string& word) {
        return RunProgram({"/bin/sh", "-c",
                           "echo '" + word + "' | script -qec \"" + kToolLine + "--timeout " + kHearing +
                               " ip --camera " + kMac + " --force 10.0.0.9/24\" /dev/null"});
    };
    const Outcome no = answer("");
    EXPECT_EQ(no.exitCode, 1);
    EXPECT_THAT(no.output, AllOf(HasSubstr(question), HasSubstr("nq-gev: nothing was changed")));
    EXPECT_THAT(Ip({}).output, HasSubstr("address 192.168.1.5/24"));
    const Outcome yes = answer("y");
    EXPECT_EQ(yes.exitCode, 0);
    EXPECT_THAT(yes.output, AllOf(HasSubstr(question), HasSubstr("stands at 10.0.0.9/24 now")));
}

TEST_F(ToolIp, AddressThatOnlyTheKernelRemembersIsFree)
{
    for (const auto& [address, state] : {std::pair("10.0.0.9", "stale"), {"10.0.0.8", "permanent"}})
    {
        Shell(std::string("ip neigh replace ") + address + " lladdr 02:00:00:00:00:99 dev host0 nud " + state);
        const Outcome outcome = Force(std::string(address) + "/24");
        EXPECT_EQ(outcome.exitCode, 0) << state;
        EXPECT_THAT(outcome.output, HasSubstr("stands at " + std::string(address) + "/24 now"));
    }
}

TEST_F(ToolIp, UserWhoMayNotAskByArpIsToldWhatTheKernelKnows)
{
    m_host.Shell("ip addr add 10.0.0.7/24 dev cam0");
    Shell("ip neigh replace 10.0.0.8 lladdr 02:00:00:00:00:99 dev host0 nud stale");
    const auto force = [](const std::string& network) {
        return RunProgram({"setpriv", "--bounding-set", "-net_raw", NQ_TOOL_PATH, "--timeout", kHearing, "ip",
                           "--camera", kMac, "--force", network, "--yes"});
    };
    EXPECT_THAT(force("10.0.0.7/24").output, HasSubstr("10.0.0.7/24 is taken: "));
    const Outcome known = force("10.0.0.8/24");
    EXPECT_EQ(known.exitCode, 1);
    EXPECT_THAT(known.output, HasSubstr("10.0.0.8/24 is taken, as far as the kernel knows from earlier: "
                                        "02:00:00:00:00:99 was there. With `sudo` it is asked again.\n"));
    const Outcome unheld = force("10.0.0.9/24");
    EXPECT_EQ(unheld.exitCode, 0) << unheld.output;
}

namespace
{

/// A camera made of a socket, at 10.77.0.2 behind the adapter host0 at 10.77.0.1.
class ToolIpHearing : public testing::Test
{
  protected:
    ToolIpHearing()
    {
        m_far.Connect("host0", "10.77.0.1/24", "cam0", "10.77.0.2/24");
        m_camera = std::make_unique<GvcpCamera>(&m_far);
        m_camera->SetDiscovery(Standing(0x0A4D0002));
        m_camera->AwaitPath("10.77.0.1");
    }

    static GvcpDiscovery Standing(std::uint32_t address)
    {
        GvcpDiscovery identity;
        identity.ipAddress = address;
        identity.subnetMask = 0xFFFFFF00;
        return identity;
    }
    static Outcome Ip() { return RunProgram({NQ_TOOL_PATH, "--timeout", kHearing, "ip"}); }

    const Host m_far;
    std::unique_ptr<GvcpCamera> m_camera;
};

} // namespace

TEST_F(ToolIpHearing, TwoLostDatagramsHideNoCamera)
{
    m_camera->Next(gvcp::Silent());
    m_camera->Next(gvcp::Silent());
    const Outcome shown = Ip();
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_THAT(shown.output, HasSubstr("02:11:22:33:44:55  Model  serial S0001  name Name\n  address 10.77.0.2/24  "));
}

TEST_F(ToolIpHearing, CameraStandsOnceAndWhereItsLastAnswerSays)
{
    m_camera->Next(gvcp::Acknowledge(Standing(0x0A4D0009).Body()));
    const std::string shown = Ip().output;
    EXPECT_THAT(shown, HasSubstr("address 10.77.0.2/24"));
    EXPECT_THAT(shown, testing::Not(HasSubstr("address 10.77.0.9/24")));
}

TEST_F(ToolIpHearing, CameraThatAsksForPatienceWhileItWritesGetsIt)
{
    m_camera->Otherwise([this](const Bytes& command) {
        const auto memory = [this](const Bytes& asked) { return m_camera->AnswerFromMemory(asked); };
        return gvcp::Describe(command).starts_with("write 0x064C")
                   ? gvcp::Sequence({gvcp::Pending(8000), gvcp::Late(std::chrono::milliseconds(1500), memory)})(command)
                   : memory(command);
    });
    const Outcome kept = RunProgram({NQ_TOOL_PATH, "--timeout", kHearing, "ip", "--yes", "--set", "10.77.0.9/24"});
    EXPECT_EQ(kept.exitCode, 0);
    EXPECT_THAT(kept.output, HasSubstr("will keep 10.77.0.9/24 for each start."));
}

TEST_F(ToolIpHearing, CameraOfSeveralInterfacesIsToldOnWhichTheAddressIs)
{
    m_camera->SetRegister(0x0600, 2);
    const Outcome kept = RunProgram({NQ_TOOL_PATH, "--timeout", kHearing, "ip", "--yes", "--set", "10.77.0.9/24"});
    EXPECT_EQ(kept.exitCode, 0);
    EXPECT_THAT(kept.output, HasSubstr("It stays at 10.77.0.2/24 until it is switched off and on. Of its 2 network "
                                       "interfaces this is for the first; the others stay as they are.\n"));
    EXPECT_EQ(m_camera->GetRegister(0x064C), 0x0A4D0009U);
}

TEST_F(ToolIpHearing, CameraTakesAnAddressThatAHostAnswersForWhenTold)
{
    m_far.Shell("ip addr add 10.77.0.9/24 dev cam0");
    m_camera->Otherwise([this](const Bytes& command) {
        const bool forced = gvcp::CodeOf(command) == 0x0004;
        forced ? m_camera->SetDiscovery(Standing(0x0A4D0009)) : void();
        return forced ? gvcp::Acknowledge()(command) : m_camera->AnswerFromMemory(command);
    });
    const std::vector<std::string> force = {NQ_TOOL_PATH, "--timeout",         kHearing,  "ip",          "--yes",
                                            "--camera",   "02:11:22:33:44:55", "--force", "10.77.0.9/24"};
    const Outcome refused = RunProgram(force);
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, testing::ContainsRegex("10\\.77\\.0\\.9/24 is taken: ..(:..){5} answers there; "
                                                       "--taken takes it nevertheless\n"));
    EXPECT_EQ(m_camera->Count("other"), 0U) << "nothing is sent but discoveries";
    const Outcome forced = RunProgram(Joined(force, {"--taken"}));
    EXPECT_EQ(forced.exitCode, 0);
    EXPECT_THAT(forced.output, HasSubstr("stands at 10.77.0.9/24 now"));
}

TEST_F(ToolIpHearing, EveryAddressOfTheAdapterAsks)
{
    AcceptEverySource(m_far);
    Shell("ip addr add 10.78.0.1/24 brd + dev host0");
    EXPECT_EQ(Ip().exitCode, 0);
    std::set<std::string> askers;
    for (const GvcpCamera::Datagram& one : m_camera->Received())
    {
        if (gvcp::Describe(one.bytes) == "discovery")
        {
            askers.insert(one.senderAddress);
        }
    }
    EXPECT_EQ(askers, (std::set<std::string>{"10.77.0.1", "10.78.0.1"}));
}

TEST(ToolIpKept, AddressesHoldFromTheNextStartOn)
{
    const VirtualCamera camera;
    const auto ip = [](const std::vector<std::string>& more) {
        return Heard([&] { return RunProgram(Joined({NQ_TOOL_PATH, "--timeout", kHearing, "ip", "--yes"}, more)); });
    };
    const Outcome kept = ip({"--set", "10.77.0.9/24", "--gateway", "10.77.0.1"});
    EXPECT_EQ(kept.exitCode, 0);
    EXPECT_EQ(kept.output, "02:00:0A:4D:00:02: will keep 10.77.0.9/24 with the gateway 10.77.0.1 for each start. It "
                           "stays at 10.77.0.2/24 until it is switched off and on.\n");
    camera.Control(R"({"fault":"reboot:0"})");
    EXPECT_THAT(ip({}).output,
                HasSubstr("address 10.77.0.9/24  gateway 10.77.0.1  at power on persistent, link-local"));
    EXPECT_EQ(ip({"--dhcp"}).exitCode, 0);
    EXPECT_THAT(ip({}).output, HasSubstr("address 10.77.0.9/24  gateway 10.77.0.1  at power on DHCP, link-local"));
    EXPECT_EQ(ip({"--link-local"}).exitCode, 0);
    EXPECT_THAT(ip({}).output, HasSubstr("at power on link-local\n"));
}

TEST(ToolIpKept, AnotherProgramsCameraStaysAsItIs)
{
    const VirtualCamera camera;
    camera.Control(R"({"fault":"privilege-taken:2"})");
    const Outcome set = RunProgram({NQ_TOOL_PATH, "--timeout", kHearing, "ip", "--yes", "--set", "10.77.0.9/24"});
    EXPECT_EQ(set.exitCode, 8);
    EXPECT_THAT(set.output, HasSubstr("the camera 02:00:0A:4D:00:02 is controlled by"));
    const Outcome forced = RunProgram(
        {NQ_TOOL_PATH, "--timeout", kHearing, "ip", "--yes", "--camera", "02000A4D0002", "--force", "10.77.0.9/24"});
    EXPECT_EQ(forced.exitCode, 1);
    EXPECT_THAT(forced.output,
                HasSubstr("The camera did not answer the command, and stands at 10.77.0.2/24 as before"));
}
