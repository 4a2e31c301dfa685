// SPDX-License-Identifier: Apache-2.0
// What the virtual camera keeps: user sets and its name, over a reset and over a restart.
#include "camera/feature_host.h"
#include "support/temporary_folder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>

using namespace nq::test;

namespace
{

std::string UserId(const RawHost& host)
{
    const Octets bytes = host.ReadMemory(0x00E8, 16);
    return reinterpret_cast<const char*>(bytes.data());
}

void Name(const RawHost& host, const char* command)
{
    EXPECT_EQ(host.Ask(command), Hex("00 00 00 87 00 04 00 05 00 00 00 08"));
}

constexpr const char* kNameEva = "42 01 00 86 00 0C 00 05 00 00 00 E8 45 76 61 00 00 00 00 00";

} // namespace

TEST(CameraUserSet, DefaultCannotBeSavedNorAnEmptySetLoaded)
{
    const VirtualCamera camera;
    FeatureHost host;
    EXPECT_FALSE(host.IsAvailable("UserSetSave"));
    EXPECT_EQ(host.Execute("UserSetSave"), 0x8004U);
    EXPECT_TRUE(host.IsAvailable("UserSetLoad"));
    EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    EXPECT_FALSE(host.IsAvailable("UserSetLoad"));
    EXPECT_EQ(host.Execute("UserSetLoad"), 0x8004U);
    EXPECT_TRUE(host.IsAvailable("UserSetSave"));
    EXPECT_EQ(host.Execute("UserSetSave"), 0U);
    EXPECT_TRUE(host.IsAvailable("UserSetLoad"));
    EXPECT_EQ(host.Execute("UserSetLoad"), 0U);
}

TEST(CameraUserSet, LoadAndResetInvalidateWhatTheyChange)
{
    const VirtualCamera camera;
    const FeatureHost host;
    for (const char* name : {"WidthReg", "OffsetYReg", "PixelFormatReg", "TestPatternReg", "GainReg", "ExposureTimeReg",
                             "TriggerModeReg", "AcquisitionFrameRateReg"})
    {
        std::vector<std::string> invalidators;
        for (const XmlNode* child : host.Node(name).Elements())
        {
            if (child->name == "pInvalidator")
            {
                invalidators.push_back(child->Content());
            }
        }
        EXPECT_THAT(invalidators, testing::Contains("UserSetLoad")) << name;
        EXPECT_THAT(invalidators, testing::Contains("DeviceReset")) << name;
    }
}

TEST(CameraUserSet, SetsAndNameOutliveAReset)
{
    const VirtualCamera camera;
    FeatureHost host;
    Name(host, kNameEva);
    EXPECT_EQ(host.Set("Width", 320), 0U);
    EXPECT_EQ(host.Set("OffsetX", 100), 0U);
    EXPECT_EQ(host.Set("Gain", 4.5), 0U);
    EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    EXPECT_EQ(host.Execute("UserSetSave"), 0U);
    EXPECT_EQ(host.Execute("DeviceReset"), 0U);
    host.KeepControl();
    EXPECT_EQ(UserId(host), "Eva");
    EXPECT_EQ(host.Get("Width"), 640);
    EXPECT_EQ(host.Get("OffsetX"), 0);
    EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    EXPECT_EQ(host.Execute("UserSetLoad"), 0U);
    EXPECT_EQ(host.Get("Width"), 320);
    EXPECT_EQ(host.Get("OffsetX"), 100);
    EXPECT_EQ(host.Get("Gain"), 4.5);
    EXPECT_EQ(host.Get("PayloadSize"), 320 * 480);
}

TEST(CameraUserSet, UserSetDefaultIsLoadedAtPowerOn)
{
    const VirtualCamera camera;
    FeatureHost host;
    EXPECT_EQ(host.Set("UserSetDefault", "UserSet1"), 0U);
    EXPECT_EQ(host.Execute("DeviceReset"), 0U);
    host.KeepControl();
    EXPECT_EQ(host.Get("Height"), 480) << "an empty set changes nothing";
    EXPECT_EQ(host.Entry("UserSetDefault"), "UserSet1");
    EXPECT_EQ(host.Set("Height", 100), 0U);
    EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    EXPECT_EQ(host.Execute("UserSetSave"), 0U);
    EXPECT_EQ(host.Set("Height", 200), 0U);
    EXPECT_EQ(host.Execute("DeviceReset"), 0U);
    host.KeepControl();
    EXPECT_EQ(host.Get("Height"), 100);
    EXPECT_EQ(host.Execute("UserSetLoad"), 0U) << "the set Default";
    EXPECT_EQ(host.Get("Height"), 480);
}

TEST(CameraUserSet, StateFileKeepsThemOverARestart)
{
    const TemporaryFolder folder;
    VirtualCamera camera({"--state", folder / "state.json"});
    {
        FeatureHost host;
        Name(host, kNameEva);
        EXPECT_EQ(host.Set("Width", 320), 0U);
        EXPECT_EQ(host.Set("ExposureTime", 20.5), 0U);
        EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
        EXPECT_EQ(host.Execute("UserSetSave"), 0U);
        EXPECT_EQ(host.Set("UserSetDefault", "UserSet1"), 0U);
    }
    camera.Kill();
    camera.Start();
    FeatureHost host;
    EXPECT_EQ(UserId(host), "Eva");
    EXPECT_EQ(host.Entry("UserSetDefault"), "UserSet1");
    EXPECT_EQ(host.Get("Width"), 320);
    EXPECT_EQ(host.Get("ExposureTime"), 20.5);
}

TEST(CameraUserSet, StateThatDoesNotFitTheCameraIsLeftOut)
{
    const TemporaryFolder folder;
    std::ofstream(folder / "state.json") << R"({"UserSetDefault": "UserSet1", "UserSets": {"UserSet1":
        {"Width": [9999], "Height": [20], "Gain": ["x"], "Nonsense": [1]}}})";
    const VirtualCamera camera({"--state", folder / "state.json"});
    const FeatureHost host;
    EXPECT_EQ(host.Get("Width"), 640);
    EXPECT_EQ(host.Get("Height"), 20);
    EXPECT_EQ(host.Get("Gain"), 0);
}

TEST(CameraUserSet, StateFileThatCannotBeReadEndsTheProgram)
{
    const TemporaryFolder folder;
    const std::string path = folder / "state.json";
    for (const char* text : {"no JSON", "", "[]", R"({"UserSetDefault": 5})", R"({"IPConfiguration": {"Flags": "x"}})"})
    {
        std::ofstream(path) << text;
        ChildProcess camera({NQ_CAMERA_PATH, "--address", "127.0.0.1", "--state", path});
        EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 2) << text;
        EXPECT_THAT(camera.Output(), testing::StartsWith("nq-gev-camera: cannot read the state '" + path + "': "));
        EXPECT_EQ(std::count(camera.Output().begin(), camera.Output().end(), '\n'), 1) << camera.Output();
    }
}

TEST(CameraUserSet, StateFileThatIsNotThereYetIsLeftSoUntilSomethingIsKept)
{
    const TemporaryFolder folder;
    const VirtualCamera camera({"--state", folder / "state.json"});
    EXPECT_TRUE(folder.Files().empty());
    FeatureHost host;
    Name(host, kNameEva);
    EXPECT_EQ(folder.Files().size(), 1U);
}
