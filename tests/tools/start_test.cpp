// SPDX-License-Identifier: Apache-2.0
// nq-gev grab on cameras that have to be told to begin, and on those that begin by themselves.
#include "support/described_camera.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <algorithm>
#include <filesystem>
#include <gmock/gmock.h>
#include <vector>

namespace
{

using namespace nq::test;
using testing::HasSubstr;
using testing::Not;

TEST(GrabStart, TellsACameraThatWaitsForItToBeginAndToEnd)
{
    const VirtualCamera camera({"--no-free-run", "--width", "64", "--height", "48"});
    const Outcome grab = RunTool({"grab", "--count", "3", "--verify"}, camera.Environment());
    EXPECT_EQ(grab.exitCode, 0) << grab.output;
    EXPECT_THAT(grab.output, HasSubstr("frames     3\n"));
    EXPECT_THAT(camera.Control(R"({"cmd":"status"})"), HasSubstr(R"("acquiring":false)"))
        << "it would send to the next host unasked";
}

TEST(GrabStart, BringsTheFrameOfEachSingleAcquisition)
{
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const Outcome one = RunTool({"grab", "AcquisitionMode=SingleFrame"}, camera.Environment());
    EXPECT_EQ(one.exitCode, 0) << one.output;
    EXPECT_THAT(one.output, HasSubstr("frames     1\n"));
    const Outcome again = RunTool({"grab"}, camera.Environment());
    EXPECT_EQ(again.exitCode, 0) << again.output;
    const Outcome two = RunTool({"grab", "--count", "2", "--frame-timeout", "3000"}, camera.Environment());
    EXPECT_EQ(two.exitCode, 6) << two.output;
    EXPECT_THAT(two.output, HasSubstr("no frame for 3000 ms after 1 of 2: the camera 10.77.0.2 answers on its control "
                                      "channel but sends no frames: it waits for a trigger, or the RDMA connection is "
                                      "broken; its AcquisitionMode is SingleFrame, which ends by itself: set "
                                      "AcquisitionMode=Continuous\n"));
}

TEST(GrabStart, GoesWithoutAnEngineForFeatures)
{
    const TemporaryFolder folder;
    std::filesystem::copy_file(NQ_TOOL_PATH, folder / "nq-gev");
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    const auto grab = [&](const std::vector<std::string>& more) {
        return RunProgram(
            Joined({folder / "nq-gev", "--producer", NQ_CTI_PATH, "grab", "--frame-timeout", "3000"}, more),
            camera.Environment());
    };
    const Outcome free = grab({});
    EXPECT_EQ(free.exitCode, 0) << free.output;
    EXPECT_THAT(free.output, Not(HasSubstr("AcquisitionStart")));
    ASSERT_EQ(RunTool({"set", "AcquisitionMode=SingleFrame"}, camera.Environment()).exitCode, 0);
    const Outcome waits = grab({});
    EXPECT_EQ(waits.exitCode, 6) << waits.output;
    EXPECT_THAT(waits.output, HasSubstr("; AcquisitionStart was not executed: features by name need " +
                                        (folder / "nq-gev-features.so")));
}

/// The feature TLParamsLocked as the register 0x20000.
constexpr const char* kLockInTheCamera =
    R"(  <Category Name="Root"><pFeature>TLParamsLocked</pFeature></Category>
  <IntReg Name="TLParamsLocked">
    <Address>0x20000</Address><Length>4</Length><AccessMode>RW</AccessMode><pPort>Device</pPort>
    <Sign>Unsigned</Sign><Endianess>BigEndian</Endianess>
  </IntReg>
)";

TEST(GrabStart, TellsTheCameraThatBuffersWaitAndThatTheyDoNoMore)
{
    DescribedCamera described(kLockInTheCamera);
    GvcpCamera& camera = described.camera;
    Bytes settings(176, 0);
    settings[32] = 64; // bytes of a frame
    camera.SetMemory(0xE600, settings);
    const Outcome grab = RunTool({"grab"}); // there is no RDMA here
    EXPECT_EQ(grab.exitCode, 5) << grab.output;
    std::vector<std::string> locks;
    for (const std::string& access : camera.Accesses())
    {
        if (access.starts_with("write 0x20000"))
        {
            locks.push_back(access);
        }
    }
    locks.erase(std::unique(locks.begin(), locks.end()), locks.end()); // a write whose answer is late is sent again
    EXPECT_THAT(locks, testing::ElementsAre("write 0x20000 = 0x00000001", "write 0x20000 = 0x00000000"));
}

} // namespace
