// SPDX-License-Identifier: Apache-2.0
// nq-gev doctor on adapters and cameras: each finding right and wrong, and mended by the line that it prints.
#include "support/doctor.h"
#include "support/gvcp_camera.h"

#include <memory>

namespace
{

using namespace nq::test;
using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;
using testing::StartsWith;

/// A camera made of a socket, at 10.77.0.2 behind the adapter host0 at 10.77.0.1.
class DoctorNetwork : public testing::Test
{
  protected:
    DoctorNetwork()
    {
        m_far.Connect("host0", "10.77.0.1/24", "cam0", "10.77.0.2/24");
        m_camera = std::make_unique<GvcpCamera>(&m_far);
        Identify(0x0A4D0002);
        m_camera->SetRegister(0x0904, 1);
        m_camera->SetRegister(0x092C, 0x04000000);
        m_camera->AwaitPath("10.77.0.1");
    }

    /// What the camera tells of itself.
    void Identify(std::uint32_t address, const std::string& version = "3.0.0")
    {
        GvcpDiscovery identity;
        identity.ipAddress = address;
        identity.subnetMask = 0xFFFFFF00;
        identity.deviceVersion = version;
        m_camera->SetDiscovery(identity);
    }

    /// Has it answer discoveries by broadcast, as a camera does that may, and gives it no other way out of its subnet.
    void AnswerByBroadcast()
    {
        AcceptEverySource(m_far);
        m_far.Shell("ip route replace 255.255.255.255/32 dev cam0");
        m_camera->Otherwise([this](const Bytes& command) {
            const std::vector<GvcpReply> answer = m_camera->AnswerFromMemory(command);
            if (gvcp::Describe(command) == "discovery" && !answer.empty())
            {
                m_camera->Send(answer.front().bytes, "255.255.255.255", m_camera->Received().back().senderPort);
                return std::vector<GvcpReply>();
            }
            return answer;
        });
    }

    /// The doctor, who has to say that. A busy machine may be late for any of the answers of the camera.
    static Outcome Saying(const testing::Matcher<const std::string&>& says,
                          const std::vector<std::string>& arguments = {})
    {
        const Outcome doctor = InTime(says, [&] { return RunDoctor(arguments); });
        EXPECT_THAT(doctor.output, says);
        return doctor;
    }

    /// Types the line that mends it; the doctor has to say that then.
    static void Mend(const Outcome& doctor, const std::string& id, const testing::Matcher<const std::string&>& says)
    {
        Shell(MendOf(doctor, id));
        Saying(says);
    }

    const Host m_far;
    std::unique_ptr<GvcpCamera> m_camera;
};

constexpr const char* kCamera = "Model S0001 at 10.77.0.2";

TEST_F(DoctorNetwork, OfAGoodCameraEverythingIsRightAndNothingIsWritten)
{
    Outcome doctor = RunDoctor();
    // A busy machine may be late for any of the answers.
    for (int tries = 0; tries < 4 && doctor.output.find("wrong      camera.") != std::string::npos; ++tries)
    {
        doctor = RunDoctor();
    }
    EXPECT_THAT(doctor.output, Right("adapter.found", "1 of them\n"));
    EXPECT_THAT(doctor.output, Right("adapter.up", "host0: it is up\n"));
    EXPECT_THAT(doctor.output, Right("adapter.link", "host0: it has a link\n"));
    EXPECT_THAT(doctor.output, Right("adapter.address", "host0: 10.77.0.1/24\n"));
    EXPECT_THAT(doctor.output, Right("adapter.mask", "host0: 10.77.0.1/24\n"));
    EXPECT_THAT(doctor.output, Right("adapter.mtu", "host0: 1500 bytes\n"));
    EXPECT_THAT(doctor.output, Right("adapter.subnet", "host0: no other adapter is on its subnet\n"));
    EXPECT_THAT(doctor.output, Right("adapter.loss", "host0: 0 of "));
    EXPECT_THAT(doctor.output, Right("adapter.filter", "host0: rp_filter is "));
    EXPECT_THAT(doctor.output, Right("camera.discovery", "host0: " + std::string(kCamera) + "\n"));
    EXPECT_THAT(doctor.output, Right("camera.subnet", kCamera + std::string(": on that of host0\n")));
    EXPECT_THAT(doctor.output, Right("camera.listed", kCamera + std::string(": as Model:02-11-22-33-44-55\n")));
    EXPECT_THAT(doctor.output, Right("camera.unique", kCamera + std::string(": no other camera on host0 tells it\n")));
    EXPECT_THAT(doctor.output, Right("camera.route", kCamera + std::string(": by host0\n")));
    EXPECT_THAT(doctor.output, Right("camera.arp", kCamera + std::string(": no entry is fixed\n")));
    EXPECT_THAT(doctor.output, Right("camera.owner", kCamera + std::string(": nobody controls it\n")));
    EXPECT_THAT(doctor.output,
                testing::ContainsRegex(Beginning("right", "camera.answers") + kCamera +
                                       ": shortest [0-9.]+ ms, median [0-9.]+ ms, longest [0-9.]+ ms\n"));
    EXPECT_THAT(doctor.output, Right("camera.packets", kCamera + std::string(": they come back\n")));
    EXPECT_THAT(doctor.output, Right("camera.path", kCamera + std::string(": 1500 bytes come back\n")));
    EXPECT_THAT(doctor.output,
                Right("camera.stream", kCamera + std::string(": 1 stream channel(s), capability 0x04000000\n")));
    EXPECT_THAT(m_camera->Accesses(), Each(AnyOf("discovery", StartsWith("read "), "other")));
}

TEST_F(DoctorNetwork, AdapterThatIsDown)
{
    Shell("ip link set host0 down");
    const Outcome doctor = RunDoctor();
    EXPECT_EQ(doctor.exitCode, 1);
    EXPECT_THAT(doctor.output, Wrong("adapter.up", "host0: it is down", "ip link set dev host0 up"));
    EXPECT_THAT(doctor.output, NotKnown("adapter.link", "host0: the adapter is down\n"));
    Mend(doctor, "adapter.up", Right("adapter.up", "host0: it is up\n"));
}

TEST_F(DoctorNetwork, AdapterWithoutALink)
{
    m_far.Shell("ip link set cam0 down");
    Saying(Wrong("adapter.link", "host0: it has no link", "Switch the camera on, and plug the cable in at host0"));
}

TEST_F(DoctorNetwork, AdapterWithoutAnAddressGetsOneBesideTheCamera)
{
    Shell("ip addr flush dev host0");
    AcceptEverySource(m_far);
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("adapter.address", "host0: it has no IPv4 address",
                                     "ip addr add 169.254.1.2/16 brd + dev host0"));
    Mend(doctor, "adapter.address", Right("adapter.address", "host0: 169.254.1.2/16\n"));
}

TEST_F(DoctorNetwork, AdaptersWithoutAddressesGetDifferentOnes)
{
    const Host other;
    other.Connect("aux0", "10.78.0.1/24", "aux1", "10.78.0.2/24");
    Shell("ip addr flush dev host0 && ip addr flush dev aux0");
    AcceptEverySource(m_far);
    m_camera->SetSilent(true);
    const Outcome doctor = RunDoctor();
    const std::string second = "ip addr add 192.168.100.2/24 brd + dev host0";
    EXPECT_THAT(doctor.output,
                Wrong("adapter.address", "aux0: it has no IPv4 address", "ip addr add 169.254.1.2/16 brd + dev aux0"));
    EXPECT_THAT(doctor.output, Wrong("adapter.address", "host0: it has no IPv4 address", second));
    Mend(doctor, "adapter.address", Wrong("adapter.address", "host0: it has no IPv4 address", second)); // as the first
    Shell(second);
    Saying(Right("adapter.subnet", "host0: no other adapter is on its subnet\n"));
}

TEST_F(DoctorNetwork, AdapterThatIsAloneOnItsSubnetGetsTheMaskOfTheCamera)
{
    Shell("ip addr flush dev host0 && ip addr add 10.77.0.1/32 dev host0");
    AnswerByBroadcast();
    const Outcome doctor =
        Saying(Wrong("adapter.mask", "host0: 10.77.0.1/32 has no room for " + std::string(kCamera),
                     "ip addr del 10.77.0.1/32 dev host0 && ip addr add 10.77.0.1/24 brd + dev host0"));
    EXPECT_THAT(doctor.output,
                NotKnown("camera.subnet", kCamera + std::string(": host0 has no room for it (adapter.mask)\n")));
    Mend(doctor, "adapter.mask", Right("adapter.mask", "host0: 10.77.0.1/24\n"));
    Shell("ip addr flush dev host0 && ip addr add 10.9.0.1/31 dev host0");
    EXPECT_EQ(MendOf(Saying(HasSubstr(Beginning("wrong", "adapter.mask"))), "adapter.mask"),
              "ip addr del 10.9.0.1/31 dev host0 && ip addr add 10.77.0.3/24 brd + dev host0");
}

TEST_F(DoctorNetwork, AdapterWithShortPackets)
{
    Shell("ip link set host0 mtu 1400");
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("adapter.mtu", "host0: only 1400 bytes", "ip link set dev host0 mtu 1500"));
    Mend(doctor, "adapter.mtu", Right("adapter.mtu", "host0: 1500 bytes\n"));
}

TEST_F(DoctorNetwork, TwoAdaptersOnOneSubnet)
{
    const Host other;
    other.Connect("aux0", "10.77.0.9/24", "aux1", "10.77.0.10/24");
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("adapter.subnet", "host0: aux0 is on its subnet with 10.77.0.9/24",
                                     "ip addr del 10.77.0.9/24 dev aux0"));
    Mend(doctor, "adapter.subnet", Right("adapter.subnet", "host0: no other adapter is on its subnet\n"));
}

TEST_F(DoctorNetwork, ACameraThatIsMissingAndAnswersThatAreDropped)
{
    m_camera->SetSilent(true);
    Shell("echo 1 >/proc/sys/net/ipv4/conf/host0/rp_filter");
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("camera.discovery", "host0: no camera answers",
                                     "Switch the camera on, look at its cable, and let it through the firewall: "
                                     "nft insert rule inet filter input iifname host0 udp sport 3956 accept; "
                                     "iptables -I INPUT -i host0 -p udp --sport 3956 -j ACCEPT"));
    EXPECT_THAT(doctor.output, Wrong("adapter.filter", "host0: rp_filter is 1 and there is no default route",
                                     "sysctl -w net/ipv4/conf/all/rp_filter=0 net/ipv4/conf/host0/rp_filter=0"));
    for (const char* id : {"camera.subnet", "camera.unique", "camera.listed", "camera.route", "camera.arp",
                           "camera.owner", "camera.answers", "camera.packets", "camera.path", "camera.stream"})
    {
        EXPECT_THAT(doctor.output, NotKnown(id, "no camera is there to ask (camera.discovery)\n"));
    }
    Mend(doctor, "adapter.filter", Right("adapter.filter", "host0: rp_filter is 0\n"));
}

TEST_F(DoctorNetwork, ACameraThatIsNotTheOneMeant)
{
    Saying(Right("camera.discovery", "host0: Model S0001"), {"--camera", "S0001"});
    Saying(HasSubstr(Beginning("wrong", "camera.discovery") + "host0: \"S0002\" does not answer, 1 other(s) do\n"),
           {"--camera", "S0002"});
}

TEST_F(DoctorNetwork, ACameraThatProducersLeaveOutAndThatDoesNotStream)
{
    Identify(0x0A4D0002, "2.9.9");
    m_camera->SetRegister(0x092C, 0xFBFFFFFF);
    Saying(testing::AllOf(
        Wrong("camera.listed", kCamera + std::string(": no producer lists it; its device version is \"2.9.9\""),
              "Give it a firmware that streams by RDMA; a camera without is for another producer (--producer)"),
        Wrong("camera.stream", kCamera + std::string(": 1 stream channel(s), capability 0xFBFFFFFF"),
              "Give it a firmware that streams by RDMA, or take another camera")));
}

TEST_F(DoctorNetwork, ACameraThatSomebodyControls)
{
    m_camera->SetRegister(0x0A00, 2);
    m_camera->SetRegister(0x0A04, 40000);
    m_camera->SetRegister(0x0A14, 0x0A4D0001);
    Saying(Wrong("camera.owner", kCamera + std::string(": controlled by 10.77.0.1, UDP port 40000"),
                 "fuser -k -TERM 40000/udp # on the host 10.77.0.1"));
    EXPECT_EQ(m_camera->Count("write 0x0A00 = 0x00000000"), 0U);
}

TEST_F(DoctorNetwork, ACameraWhoseAnswersAreLate)
{
    m_camera->Otherwise([this](const Bytes& command) {
        const auto memory = [this](const Bytes& asked) { return m_camera->AnswerFromMemory(asked); };
        return gvcp::Describe(command) == "read 0x0A00" ? gvcp::Late(std::chrono::milliseconds(170), memory)(command)
                                                        : memory(command);
    });
    Saying(testing::ContainsRegex(Beginning("wrong", "camera.answers") + kCamera +
                                  ": shortest 1[0-9.]+ ms, median [0-9.]+ ms, longest [0-9.]+ ms\n"
                                  "           Plug the camera into host0 without a switch"));
}

TEST_F(DoctorNetwork, ACameraThatAnswersNothingButTheDiscovery)
{
    m_camera->Otherwise([this](const Bytes& command) {
        return gvcp::Describe(command) == "discovery" ? m_camera->AnswerFromMemory(command) : std::vector<GvcpReply>();
    });
    Saying(HasSubstr(Beginning("wrong", "camera.answers") + kCamera +
                     ": it answers the discovery, and no read of a register\n"));
}

TEST_F(DoctorNetwork, AWayThatIsNarrowerThanTheAdapter)
{
    Shell("ip link set host0 mtu 9000");
    const Outcome doctor = Saying(Wrong("camera.path", kCamera + std::string(": 1500 bytes come back, and not 9000"),
                                        "ip link set dev host0 mtu 1500"));
    Mend(doctor, "camera.path", Right("camera.path", kCamera + std::string(": 1500 bytes come back\n")));
}

TEST_F(DoctorNetwork, ACameraThatTakesNoPacketsOf1500BytesIsNotMendedByAShorterAdapter)
{
    m_far.Shell("ip link set cam0 mtu 576");
    const std::string mends = "Set the MTU of the camera, or of what is between, to 1500 bytes or more";
    Saying(AllOf(Wrong("camera.packets", kCamera + std::string(": of 576 bytes they do"), mends),
                 NotKnown("camera.path", kCamera + std::string(": shorter ones do not (camera.packets)\n"))));
    Shell("ip link set host0 mtu 576");
    Saying(AllOf(Wrong("adapter.mtu", "host0: only 576 bytes", "ip link set dev host0 mtu 1500"),
                 NotKnown("camera.packets", kCamera + std::string(": host0 sends none (adapter.mtu)\n")),
                 Right("camera.path", kCamera + std::string(": 576 bytes come back\n"))));
}

TEST_F(DoctorNetwork, ACameraOfAnotherSubnetIsHeardAndGetsAnAddressOfThisOne)
{
    Shell("ip addr flush dev host0 && ip addr add 10.9.0.1/24 brd + dev host0");
    m_far.Shell("ip route add default dev cam0"); // what it sends to there gets lost on this side
    AnswerByBroadcast();
    m_far.Shell("ip addr add 10.9.0.2/24 dev cam0"); // a host that is no camera, so that this address cannot be forced
    Shell("ip neigh replace 10.9.0.3 lladdr 02:00:00:00:00:99 dev host0 nud stale"); // a host that is gone
    const Outcome doctor =
        Saying(Wrong("camera.subnet", kCamera + std::string(": it has 10.77.0.2/24, and host0 10.9.0.1/24"),
                     ToolWord() + " ip --camera 02:11:22:33:44:55 --force 10.9.0.3/24")); // as it was started
    EXPECT_THAT(doctor.output, NotKnown("camera.answers", "no camera can be asked (camera.subnet, camera.answers)\n"));
    // An address more does not help: the producer goes by the first one.
    Shell("ip addr add 10.77.0.1/24 brd + dev host0");
    Saying(HasSubstr(Beginning("wrong", "camera.subnet")));
    // This camera takes no address by force: it is moved by hand.
    m_far.Shell("ip addr flush dev cam0 && ip addr add 10.9.0.2/24 brd + dev cam0 && ip route add default dev cam0");
    Identify(0x0A090002);
    Saying(Right("camera.subnet", "Model S0001 at 10.9.0.2: on that of host0\n"));
}

TEST_F(DoctorNetwork, AnAdapterWithAWiderSubnetIsRightWhereTheCameraHasAWayBack)
{
    Shell("ip addr flush dev host0 && ip addr add 10.77.0.1/16 brd + dev host0");
    Saying(Right("camera.subnet", kCamera + std::string(": on that of host0\n")));
    // Its packets to 10.77.9.1 would go to a gateway that it does not have.
    Shell("ip addr flush dev host0 && ip addr add 10.77.9.1/16 brd + dev host0");
    AnswerByBroadcast();
    const Outcome without =
        Saying(Wrong("camera.subnet", kCamera + std::string(": it has 10.77.0.2/24, and host0 10.77.9.1/16"),
                     ToolWord() + " ip --camera 02:11:22:33:44:55 --force 10.77.9.2/16"));
    EXPECT_THAT(without.output, NotKnown("camera.answers", "no camera can be asked (camera.subnet, camera.answers)\n"));
}

TEST_F(DoctorNetwork, ACameraThatHasAnAddressOfThisMachine)
{
    Shell("ip addr add 10.77.0.2/24 brd + dev host0");
    const Outcome doctor = Saying(testing::ContainsRegex(
        Beginning("wrong", "adapter.unique") + "host0: the host ..(:..){5} there has 10.77.0.2/24 as well\n"));
    EXPECT_EQ(MendOf(doctor, "adapter.unique"), "ip addr del 10.77.0.2/24 dev host0");
    Mend(doctor, "adapter.unique", Right("adapter.unique", "host0: cameras answer\n"));
}

TEST_F(DoctorNetwork, ACameraToWhichNoRouteLeads)
{
    Shell("ip route add unreachable 10.77.0.2/32");
    const Outcome doctor =
        Saying(testing::AllOf(NotKnown("camera.path", kCamera + std::string(": no echo request can be sent there: "
                                                                            "No route to host\n")),
                              Wrong("camera.route", kCamera + std::string(": no way leads there: No route to host"),
                                    "ip route replace 10.77.0.2 dev host0")));
    Mend(doctor, "camera.route", Right("camera.route", kCamera + std::string(": by host0\n")));
}

TEST_F(DoctorNetwork, ACameraToWhichATunnelTakesTheRoute)
{
    const Host other;
    other.Connect("tunnel0", "10.78.0.1/24", "tunnel1", "10.78.0.2/24");
    Shell("ip route add 10.77.0.0/30 dev tunnel0 src 10.78.0.1");
    const Outcome doctor = Saying(
        Wrong("camera.route", kCamera + std::string(": they leave with the address 10.78.0.1, which is not host0's"),
              "ip route replace 10.77.0.2 dev host0"));
    Mend(doctor, "camera.route", Right("camera.route", kCamera + std::string(": by host0\n")));
}

TEST_F(DoctorNetwork, ACameraToWhichATunnelWithoutAnAddressTakesTheRoute)
{
    // The kernel lends it the address of host0.
    Shell("ip link add tunnel0 type veth peer name tunnel1 && ip link set tunnel0 up && ip link set tunnel1 up && "
          "ip route add 10.77.0.0/30 dev tunnel0");
    const Outcome doctor =
        Saying(Wrong("camera.route", kCamera + std::string(": they leave by tunnel0, with an address of host0"),
                     "ip route replace 10.77.0.2 dev host0"));
    Mend(doctor, "camera.route", Right("camera.route", kCamera + std::string(": by host0\n")));
}

TEST_F(DoctorNetwork, ACameraWhoseAddressIsFixedAtAnotherMac)
{
    Shell("ip neigh replace 10.77.0.2 lladdr 02:00:00:00:00:99 dev host0 nud permanent");
    // It is another one that its host says by ARP than the camera tells of itself.
    const Outcome doctor = Saying(testing::ContainsRegex(
        Beginning("wrong", "camera.arp") + kCamera +
        ": fixed at 02:00:00:00:00:99, and the camera has ..(:..){5}\n           ip neigh del 10.77.0.2 dev host0\n"));
    EXPECT_THAT(doctor.output, testing::Not(HasSubstr("has 02:11:22:33:44:55\n")));
    Mend(doctor, "camera.arp", Right("camera.arp", kCamera + std::string(": no entry is fixed\n")));
}

TEST_F(DoctorNetwork, ACameraWhoseAddressIsFixedAsAPlainUserSeesIt)
{
    Shell("ip neigh replace 10.77.0.2 lladdr 02:00:00:00:00:99 dev host0 nud permanent");
    const auto says =
        Wrong("camera.arp", kCamera + std::string(": fixed at 02:00:00:00:00:99, and the camera has 02:11:22:33:44:55"),
              "ip neigh del 10.77.0.2 dev host0");
    EXPECT_THAT(InTime(says,
                       [] {
                           return RunProgram({"setpriv", "--bounding-set", "-net_raw", NQ_TOOL_PATH, "--producer",
                                              NQ_CTI_PATH, "--timeout", "1000", "doctor"});
                       })
                    .output,
                says);
}

TEST_F(DoctorNetwork, ACameraWhoseAddressIsFixedWhereItAnswers)
{
    Shell("ip neigh replace 10.77.0.2 nud permanent dev host0 lladdr "
          "$(ip neigh show 10.77.0.2 dev host0 | sed 's/.*lladdr \\([^ ]*\\).*/\\1/')");
    Saying(testing::ContainsRegex(Beginning("right", "camera.arp") + kCamera +
                                  ": fixed at ..(:..){5}, and it answers there\n"));
    m_camera->Otherwise([this](const Bytes& command) {
        return gvcp::Describe(command) == "discovery" ? m_camera->AnswerFromMemory(command) : std::vector<GvcpReply>();
    });
    Saying(testing::ContainsRegex(Beginning("right", "camera.arp") + kCamera + ": fixed at ..(:..){5}, its own\n"));
}

TEST_F(DoctorNetwork, TwoCamerasWithOneAddress)
{
    m_camera->Otherwise([this](const Bytes& command) {
        std::vector<GvcpReply> answers = m_camera->AnswerFromMemory(command);
        if (gvcp::Describe(command) == "discovery" && !answers.empty())
        {
            answers.push_back(answers.front());
            answers.back().bytes.at(8 + 0x0F) = 0x66; // the last of the MAC address
        }
        return answers;
    });
    for (const std::vector<std::string>& meant : {std::vector<std::string>(), {"--camera", "02:11:22:33:44:55"}})
    {
        Saying(Wrong("camera.unique", kCamera + std::string(": the camera 02:11:22:33:44:66 tells it as well"),
                     ToolWord() + " ip --camera 02:11:22:33:44:55 --force 10.77.0.3/24"),
               meant);
    }
}

TEST(DoctorOddAdapter, WithADotAsOfAVlanIsMendedByTheLine)
{
    const Host far;
    far.Connect("host0.5", "10.77.0.1/24", "cam0", "10.77.0.2/24");
    Shell("echo 1 >/proc/sys/net/ipv4/conf/host0.5/rp_filter");
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("adapter.filter", "host0.5: rp_filter is 1 and there is no default route",
                                     "sysctl -w net/ipv4/conf/all/rp_filter=0 net/ipv4/conf/host0.5/rp_filter=0"));
    Shell(MendOf(doctor, "adapter.filter"));
    EXPECT_THAT(RunDoctor().output, Right("adapter.filter", "host0.5: rp_filter is 0\n"));
}

TEST(DoctorOddAdapter, IsOneWordOfTheLine)
{
    Shell("ip link add name 'eth;0' type veth peer name peer0");
    const Outcome doctor = RunDoctor();
    EXPECT_THAT(doctor.output, Wrong("adapter.up", "eth;0: it is down", "ip link set dev 'eth;0' up"));
    Shell(MendOf(doctor, "adapter.up"));
    EXPECT_THAT(RunDoctor().output, Right("adapter.up", "eth;0: it is up\n"));
}

TEST(DoctorWithoutAdapter, SaysSo)
{
    const Outcome doctor = RunDoctor();
    EXPECT_EQ(doctor.exitCode, 1);
    EXPECT_THAT(doctor.output, Wrong("adapter.found", "there is none but lo",
                                     "docker run --network host ... # anywhere else put in a network card"));
    EXPECT_THAT(doctor.output, NotKnown("adapter.up", "there is no adapter (adapter.found)\n"));
}

} // namespace
