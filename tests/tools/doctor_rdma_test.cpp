// SPDX-License-Identifier: Apache-2.0
// nq-gev doctor on the RDMA half of the chain: each finding right and wrong, on machines made up of files.
#include "support/doctor.h"
#include "support/virtual_camera.h"

#include <unistd.h>

namespace
{

using namespace nq::test;
using testing::HasSubstr;

/// A machine with one adapter, host0 at 10.77.0.1/24, and nobody on its cable.
class DoctorRdma : public testing::Test
{
  protected:
    DoctorRdma() { m_far.Connect("host0", "10.77.0.1/24", "far0", "10.77.0.2/24"); }

    const Host m_far;
    MadeUpMachine m_machine;
};

TEST_F(DoctorRdma, AllIsRightWithADeviceOfRoce)
{
    const Outcome doctor = m_machine.Examine({"--frame-bytes", "1000000"});
    EXPECT_THAT(doctor.output, Right("rdma.modules", "ib_uverbs and rdma_ucm are there\n"));
    EXPECT_THAT(doctor.output, Right("rdma.device", "host0: made0\n"));
    EXPECT_THAT(doctor.output, Right("rdma.port", "made0 of host0: Ethernet\n"));
    EXPECT_THAT(doctor.output, Right("rdma.state", "made0 of host0: ACTIVE\n"));
    EXPECT_THAT(doctor.output, Right("rdma.gid", "made0 of host0: 0000:0000:0000:0000:0000:ffff:0a4d:0001\n"));
    EXPECT_THAT(doctor.output, Right("rdma.files", "/dev/infiniband can be opened\n"));
    EXPECT_THAT(doctor.output, Right("rdma.container", "this is no container\n"));
    EXPECT_THAT(doctor.output, Right("rdma.mtu", "made0 of host0: 1024 bytes\n"));
    EXPECT_THAT(doctor.output, Right("rdma.message", "made0 of host0: 1073741824 bytes, and a frame has 1000000\n"));
    EXPECT_THAT(doctor.output, Right("memory.lock", "any amount (CAP_IPC_LOCK)\n"));
    EXPECT_THAT(doctor.output, Right("adapter.loss", "host0: 100 of 1000000 packets were broken or dropped\n"));
    EXPECT_THAT(doctor.output, Right("adapter.pause", "host0: it has sent 0 pause frames\n"));
}

/// As the kernel has it for each GID that a port does not have: its type can be opened, and not be read.
TEST_F(DoctorRdma, AGidWithoutATypeIsPassedOver)
{
    std::filesystem::create_symlink("/proc/self/mem",
                                    m_machine / "sys/class/infiniband/made0/ports/1/gid_attrs/types/1");
    m_machine.Write("sys/class/infiniband/made0/ports/1/gids/1", "0000:0000:0000:0000:0000:0000:0000:0000");
    EXPECT_THAT(m_machine.Examine().output,
                Right("rdma.gid", "made0 of host0: 0000:0000:0000:0000:0000:ffff:0a4d:0001\n"));
}

TEST_F(DoctorRdma, AllIsWrongWithAnother)
{
    const std::string port = "sys/class/infiniband/made0/ports/1/";
    m_machine.Write(port + "state", "1: DOWN");
    m_machine.Write(port + "link_layer", "InfiniBand");
    m_machine.Write(port + "gid_attrs/types/0", "IB/RoCE v1");
    m_machine.Write("verbs/made0", "active_mtu: 512\nmax_msg_sz: 8388608");
    m_machine.Write("proc/net/dev", "  host0: 100 1000000 30 20 10 41 0 0 0 0 0 0 0 0 0 0");
    m_machine.Write("ethtool/host0", "     rx_pause: 5\n     tx_pause: 3\n     tx_prio3_pause: 4");
    const Outcome doctor = m_machine.Examine({"--frame-bytes", "8388609"});
    EXPECT_EQ(doctor.exitCode, 1) << doctor.output;
    EXPECT_THAT(doctor.output, Wrong("rdma.state", "made0 of host0: it is DOWN", "ip link set dev host0 up"));
    EXPECT_THAT(doctor.output, Wrong("rdma.port", "made0 of host0: it is \"InfiniBand\"",
                                     "mlxconfig -y -d made0 set LINK_TYPE_P1=2 LINK_TYPE_P2=2 && reboot"));
    EXPECT_THAT(doctor.output, Wrong("rdma.gid", "made0 of host0: 0 RoCE v2 GID(s), none of 10.77.0.1/24",
                                     "ip link set dev host0 down && ip link set dev host0 up"));
    EXPECT_THAT(doctor.output, Wrong("rdma.mtu", "made0 of host0: 512 bytes, and its MTU of 1500 allows 1024",
                                     "ip link set dev host0 down && ip link set dev host0 up"));
    EXPECT_THAT(doctor.output,
                Wrong("rdma.message", "made0 of host0: 8388608 bytes, and a frame has 8388609",
                      "Make the picture smaller than 8388608 bytes: Width, Height, PixelFormat of the camera"));
    EXPECT_THAT(doctor.output, Wrong("adapter.loss", "host0: 101 of 1000000 packets were broken or dropped",
                                     "ethtool -A host0 rx on tx on"));
    EXPECT_THAT(doctor.output, Wrong("adapter.pause", "host0: it has sent 7 pause frames", "ethtool -G host0 rx 4096"));
}

TEST_F(DoctorRdma, ADeviceAndModulesCanBeMissing)
{
    m_machine.Remove("sys");
    m_machine.Remove("dev");
    const Outcome doctor = m_machine.Examine();
    EXPECT_THAT(doctor.output,
                Wrong("rdma.modules", "ib_uverbs, rdma_ucm not loaded", "modprobe -a ib_uverbs rdma_ucm"));
    EXPECT_THAT(doctor.output, HasSubstr(Beginning("wrong", "rdma.device") + "host0: it has none."));
    EXPECT_EQ(MendOf(doctor, "rdma.device"), "rdma link add rxe_host0 type rxe netdev host0");
    for (const char* id : {"rdma.port", "rdma.state", "rdma.gid", "rdma.mtu", "rdma.message"})
    {
        EXPECT_THAT(doctor.output, NotKnown(id, "there is no RDMA device (rdma.device)\n"));
    }
    EXPECT_THAT(doctor.output,
                NotKnown("rdma.files", "there is no /dev/infiniband/rdma_cm (rdma.modules, rdma.device)\n"));
}

TEST_F(DoctorRdma, AModuleOfTheKernelItselfShowsByItsFile)
{
    m_machine.Remove("sys/module");
    EXPECT_THAT(m_machine.Examine().output, Right("rdma.modules", "ib_uverbs and rdma_ucm are there\n"));
}

TEST_F(DoctorRdma, AFileWithoutRightsIsMendedByTheLine)
{
    std::filesystem::permissions(m_machine / "dev/infiniband/uverbs0", std::filesystem::perms::none);
    // Root without its power over files.
    const std::vector<std::string> command = {"/usr/bin/setpriv",
                                              "--bounding-set=-dac_override,-dac_read_search",
                                              "--inh-caps=-dac_override,-dac_read_search",
                                              NQ_TOOL_PATH,
                                              "--producer",
                                              NQ_CTI_PATH,
                                              "--timeout",
                                              "100",
                                              "doctor",
                                              "--root",
                                              m_machine.Path()};
    EXPECT_THAT(RunProgram(command).output, Wrong("rdma.files", "/dev/infiniband/uverbs0: Permission denied",
                                                  "chmod a+rw /dev/infiniband/rdma_cm /dev/infiniband/uverbs*"));
    std::filesystem::permissions(m_machine / "dev/infiniband/uverbs0", std::filesystem::perms::owner_all);
    EXPECT_THAT(RunProgram(command).output, Right("rdma.files", "/dev/infiniband can be opened\n"));
}

TEST_F(DoctorRdma, AContainerNeedsTheFilesAndTheRightToLock)
{
    const std::string mend =
        "docker run --network host --device /dev/infiniband --cap-add IPC_LOCK --ulimit memlock=-1 ...";
    m_machine.Write(".dockerenv", "");
    EXPECT_THAT(m_machine.Examine().output,
                Right("rdma.container", "/dev/infiniband is there, and memory may be locked\n"));
    m_machine.Remove("dev");
    EXPECT_THAT(m_machine.Examine().output, Wrong("rdma.container", "/dev/infiniband is not in the container", mend));
}

TEST_F(DoctorRdma, MemoryToLockIsComparedWithTheFrames)
{
    m_machine.Write("proc/self/status", "CapEff:\t0000000000000000");
    const auto examine = [this](const std::string& buffers) {
        return RunProgram({"/usr/bin/prlimit", "--memlock=4096000:4096000", NQ_TOOL_PATH, "--producer", NQ_CTI_PATH,
                           "--timeout", "100", "doctor", "--root", m_machine.Path(), "--frame-bytes", "1024000",
                           "--buffers", buffers});
    };
    EXPECT_THAT(examine("4").output, Right("memory.lock", "4000 KiB, and 4 frames of 1024000 bytes need 4000 KiB\n"));
    EXPECT_THAT(examine("5").output, Wrong("memory.lock", "4000 KiB, and 5 frames of 1024000 bytes need 5000 KiB",
                                           "prlimit --pid $$ --memlock=unlimited:unlimited"));
}

/// For what is started as a root that may lock 64 KiB of memory alone.
const std::vector<std::string> kLittleToLock = {"/usr/bin/prlimit", "--memlock=65536:65536", "/usr/bin/setpriv",
                                                "--bounding-set=-ipc_lock", "--inh-caps=-ipc_lock"};

TEST(DoctorOnSoftwareRdma, NeedsNoMemoryToLock)
{
    const VirtualCamera camera;
    const auto run = [&camera](const std::vector<std::string>& verb) {
        return RunProgram(Joined(kLittleToLock, Joined({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH}, verb)),
                          camera.Environment());
    };
    EXPECT_THAT(run({"doctor"}).output, Right("memory.lock", "not needed on software RDMA\n"));
    const Outcome grab = run({"grab", "--count", "2"});
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
}

TEST(DoctorOnSoftwareRdma, KnowsTheWholeChainButThreeLines)
{
    const VirtualCamera camera({"--width", "640", "--height", "480", "--serial", "SN-1"});
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("NQ_GEV_TL_STANDARD=1");
    const auto sound = testing::ContainsRegex(" right, 0 wrong, [0-3] not known\n$");
    const Outcome doctor = InTime(sound, [&] { return RunDoctor({}, environment); });
    EXPECT_EQ(doctor.exitCode, 0) << doctor.output;
    EXPECT_THAT(doctor.output, sound);
    EXPECT_THAT(doctor.output, Right("rdma.device", "software RDMA: "));
    EXPECT_THAT(doctor.output, testing::ContainsRegex(Beginning("right", "rdma.message") +
                                                      "software RDMA: [0-9]+ bytes, and a frame has 307[0-9]+\n"));
    EXPECT_THAT(doctor.output, Right("camera.discovery", "host0: NQ-GEV-Camera SN-1 at 10.77.0.2\n"));
    EXPECT_THAT(doctor.output, Right("camera.owner", "NQ-GEV-Camera SN-1 at 10.77.0.2: nobody controls it\n"));
}

TEST(DoctorOnSoftwareRdma, MendsTheFolderThroughWhichProgramsMeet)
{
    const VirtualCamera camera;
    const TemporaryFolder parent;
    const std::string folder = parent / "meeting place";
    std::filesystem::create_directory(folder);
    const std::vector<std::string> environment = {camera.Environment().front(), "NQ_RDMA_LOOPBACK_DIR=" + folder};
    const auto mended = [&environment](const Outcome& wrong) {
        return RunProgram({"/bin/sh", "-c", MendOf(wrong, "rdma.folder") + " && " + kOurLine + "--timeout 100 doctor"},
                          environment);
    };
    std::filesystem::permissions(folder, std::filesystem::perms(0755));
    const Outcome open = RunTool({"--timeout", "100", "doctor"}, environment);
    EXPECT_THAT(open.output, Wrong("rdma.folder", folder + " is refused: its mode 0755 lets others in",
                                   "mkdir -p -m 0700 '" + folder + "' && chmod 0700 '" + folder +
                                       "' && export NQ_RDMA_LOOPBACK_DIR='" + folder + "'"));
    const Outcome grab =
        RunProgram(Joined(kLittleToLock, {NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "grab"}), environment);
    EXPECT_EQ(grab.exitCode, 5);
    EXPECT_THAT(grab.output, HasSubstr("The software RDMA refuses its folder " + folder +
                                       ": its mode 0755 lets others in; `nq-gev --software-rdma doctor` has the line "
                                       "that mends it.\n"));
    EXPECT_THAT(mended(open).output, Right("rdma.folder", "it is this user's alone\n"));

    ASSERT_EQ(chown(folder.c_str(), 65534, 65534), 0);
    const Outcome foreign = RunTool({"--timeout", "100", "doctor"}, environment);
    EXPECT_THAT(foreign.output,
                HasSubstr(Beginning("wrong", "rdma.folder") + folder + " is refused: it belongs to the user 65534\n"));
    EXPECT_THAT(mended(foreign).output, Right("rdma.folder", "it is this user's alone\n"));
    EXPECT_TRUE(std::filesystem::is_directory(folder + "-1"));
}

} // namespace
