// SPDX-License-Identifier: Apache-2.0
// The virtual camera's features as a whole: what the texts say of them, and that each takes what its range allows.
#include "camera/feature_host.h"
#include "camera/feature_table.h"
#include "camera/genicam_description.h"
#include "support/command_output.h"

#include <gmock/gmock.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>

using namespace nq::test;
using testing::HasSubstr;

namespace
{

std::string ReadFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string CameraSays(const std::string& option)
{
    ChildProcess camera({NQ_CAMERA_PATH, option});
    EXPECT_EQ(camera.WaitForExit(std::chrono::seconds(20)), 0);
    return camera.Output();
}

} // namespace

TEST(CameraFeatures, ReadmeHoldsTheirTable)
{
    const std::string table = CameraSays("--features");
    EXPECT_THAT(ReadFile(std::string(NQ_SOURCE_DIR) + "/camera/README.md"), HasSubstr(table));
}

TEST(CameraFeatures, HelpAndTableNameEachOfTheDescription)
{
    const VirtualCamera camera;
    const FeatureHost host;
    const std::string help = CameraSays("--help");
    const std::string table = CameraSays("--features");
    EXPECT_GT(host.Features().size(), 30U);
    for (const std::string& name : host.Features())
    {
        if (name != "TLParamsLocked") // the host's, without a register
        {
            EXPECT_THAT(help, HasSubstr(" " + name)) << name;
            EXPECT_THAT(table, HasSubstr("| `" + name + "` |"));
        }
    }
}

namespace
{

const char* const kHeartbeatMode = "DeviceLinkHeartbeatMode";

bool IsNumber(const FeatureHost& host, const std::string& name)
{
    return host.Node(name).name == "Integer" || host.Node(name).name == "Float";
}

/// Writes what the range of the feature allows; nothing of it may be refused, and all of it is read back.
void TakesItsRange(FeatureHost& host, const std::string& name, const std::string& after)
{
    for (const char* which : {"Min", "Max", "Inc"})
    {
        if (which == std::string("Inc") && host.Node(name).name == "Float")
        {
            continue;
        }
        if (which == std::string("Max") && name == "TestPendingAck")
        {
            continue; // its acknowledge would come a minute later
        }
        const double least = host.Limit(name, "Min");
        const double most = host.Limit(name, "Max");
        ASSERT_LE(least, most) << name << after;
        const double value =
            which == std::string("Inc") ? std::min(least + host.Limit(name, "Inc"), most) : host.Limit(name, which);
        EXPECT_EQ(host.Set(name, value), 0U) << name << " = " << value << after;
        EXPECT_FLOAT_EQ(static_cast<float>(host.Get(name)), static_cast<float>(value)) << name << after;
    }
}

/// Writes every entry of an enumeration; those that are there are read back, the others refused.
void TakesItsEntries(FeatureHost& host, const std::string& name)
{
    for (const auto& [entry, value] : host.Entries(name))
    {
        if (!host.IsEntryAvailable(name, entry))
        {
            EXPECT_EQ(host.Set(name, value), 0x8002U) << name << " = " << entry;
            continue;
        }
        EXPECT_EQ(host.Set(name, value), 0U) << name << " = " << entry;
        EXPECT_EQ(host.Entry(name), entry) << name;
    }
}

/// Features whose limits other features move.
std::vector<std::string> MovingFeatures(const FeatureHost& host)
{
    std::vector<std::string> names;
    for (const std::string& name : host.Features())
    {
        if (!ChildText(host.Node(name), "pMax").empty())
        {
            names.push_back(name);
        }
    }
    return names;
}

void EveryFeatureTakesItsRange(const std::vector<std::string>& arguments)
{
    const VirtualCamera camera(arguments);
    FeatureHost host;
    TakesItsEntries(host, kHeartbeatMode);
    // Some of the time-outs that come are too short for a busy machine.
    ASSERT_EQ(host.Set(kHeartbeatMode, "Off"), 0U);
    const auto moving = MovingFeatures(host);
    EXPECT_GE(moving.size(), 4U);
    for (const std::string& name : host.Features())
    {
        const XmlNode& node = host.Node(name);
        // Without control nothing else could be written.
        if (ChildText(node, "pValue").empty() || !host.IsWritable(name) || name == "GevCCP" || name == kHeartbeatMode)
        {
            continue;
        }
        if (IsNumber(host, name))
        {
            TakesItsRange(host, name, "");
        }
        TakesItsEntries(host, name);
        for (const std::string& other : moving)
        {
            if (host.IsWritable(other))
            {
                TakesItsRange(host, other, " after " + name);
            }
        }
    }
}

} // namespace

TEST(CameraFeatures, EachTakesWhatItsRangeAllows)
{
    EveryFeatureTakesItsRange({"--width", "640", "--height", "480"});
}

TEST(CameraFeatures, EachTakesWhatItsRangeAllowsInSteps)
{
    EveryFeatureTakesItsRange({"--width", "48", "--height", "5", "--width-step", "8"});
}

TEST(CameraFeatures, EachTakesWhatItsRangeAllowsOnAHugeSensor)
{
    EveryFeatureTakesItsRange({"--width", "30000", "--height", "30000"});
}

TEST(CameraFeatures, PixelFormatsThatMakeTheFrameTooLargeAreNotAvailable)
{
    const VirtualCamera camera({"--width", "30000", "--height", "30000"});
    FeatureHost host;
    EXPECT_TRUE(host.IsEntryAvailable("PixelFormat", "Mono8"));
    EXPECT_FALSE(host.IsEntryAvailable("PixelFormat", "Mono16"));
    EXPECT_EQ(host.Set("PixelFormat", "Mono16"), 0x8002U);
    EXPECT_EQ(host.Set("Height", 10000), 0U);
    EXPECT_TRUE(host.IsEntryAvailable("PixelFormat", "Mono16"));
    EXPECT_EQ(host.Set("PixelFormat", "Mono16"), 0U);
    EXPECT_EQ(host.Limit("Height", "Max"), 17895) << "1 GiB in all";
}

TEST(CameraFeatures, BinningCutsAFrameThatWouldBeTooLarge)
{
    const VirtualCamera camera({"--width", "30000", "--height", "30000"});
    FeatureHost host;
    EXPECT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    EXPECT_EQ(host.Execute("UserSetSave"), 0U);
    EXPECT_EQ(host.Set("BinningVertical", 2), 0U);
    EXPECT_EQ(host.Set("DecimationHorizontal", 2), 0U);
    EXPECT_EQ(host.Set("PixelFormat", "Mono16"), 0U);
    EXPECT_EQ(host.Set("BinningVertical", 1), 0U);
    EXPECT_EQ(host.Get("Height"), 30000);
    EXPECT_EQ(host.Set("DecimationHorizontal", 1), 0U);
    EXPECT_EQ(host.Get("Width"), 30000);
    EXPECT_EQ(host.Get("Height"), 17895) << "1 GiB in all";
    EXPECT_EQ(host.Get("PayloadSize"), 1073700000);
    EXPECT_EQ(host.Limit("Height", "Max"), 17895);
    EXPECT_EQ(host.Execute("UserSetLoad"), 0U);
    EXPECT_EQ(host.Get("Height"), 30000) << "the set finds its room, whatever was before";
    EXPECT_EQ(host.Entry("PixelFormat"), "Mono8");
}

TEST(CameraFeatures, WidthGoesInTheStepsOfTheCommandLine)
{
    const VirtualCamera camera({"--width", "640", "--width-step", "16"});
    FeatureHost host;
    EXPECT_EQ(host.Limit("Width", "Min"), 16);
    EXPECT_EQ(host.Limit("Width", "Inc"), 16);
    EXPECT_EQ(host.Limit("OffsetX", "Inc"), 16);
    EXPECT_EQ(host.Set("Width", 608), 0U);
    EXPECT_EQ(host.Set("Width", 600), 0x8002U);
    EXPECT_EQ(host.Set("OffsetX", 8), 0x8002U);
    EXPECT_EQ(host.Set("OffsetX", 32), 0U);
    EXPECT_EQ(host.Limit("Width", "Max"), 608);
    ChildProcess odd({NQ_CAMERA_PATH, "--address", "127.0.0.1", "--width", "630", "--width-step", "16"});
    EXPECT_EQ(odd.WaitForExit(std::chrono::seconds(20)), 2);
}

TEST(CameraFeatures, CommandLineTakesEveryTestPattern)
{
    const VirtualCamera camera({"--pattern", "FrameCounter"});
    EXPECT_EQ(FeatureHost().Entry("TestPattern"), "FrameCounter");
}

TEST(CameraFeatures, LocksOfTheDescriptionAreThoseOfTheCamera)
{
    const VirtualCamera camera({"--no-free-run"});
    FeatureHost host;
    const std::vector<std::string> size{"Width", "Height", "OffsetX", "OffsetY", "PixelFormat"};
    const std::vector<std::string> running{"AcquisitionMode", "TestPattern"};
    EXPECT_EQ(ChildText(host.Node("StreamingLock"), "Formula"), "(HOST + CAMERA) > 0");
    for (const char* name : {"Width", "Height", "OffsetX", "OffsetY", "PixelFormat", "UserSetLoad"})
    {
        EXPECT_EQ(ChildText(host.Node(name), "pIsLocked"), "StreamingLock") << name;
        EXPECT_FALSE(host.IsLocked(name)) << name;
    }
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    for (const std::string& name : size)
    {
        EXPECT_TRUE(host.IsLocked(name)) << name;
        EXPECT_EQ(host.Set(name, host.Get(name)), 0x8004U) << name;
    }
    EXPECT_TRUE(host.IsLocked("UserSetLoad"));
    EXPECT_EQ(host.Execute("UserSetLoad"), 0x8004U);
    for (const std::string& name : running)
    {
        EXPECT_FALSE(host.IsLocked(name)) << name;
        EXPECT_EQ(host.Set(name, host.Get(name)), 0U) << name;
    }
    EXPECT_EQ(host.Execute("AcquisitionStart"), 0U);
    for (const std::string& name : running)
    {
        EXPECT_TRUE(host.IsLocked(name)) << name;
        EXPECT_EQ(host.Set(name, host.Get(name)), 0x8004U) << name;
    }
    EXPECT_EQ(host.Execute("AcquisitionStop"), 0U);
    EXPECT_EQ(host.Set("TestPattern", "Noise"), 0U);
}

TEST(CameraFeatures, EachHasItsTexts)
{
    const VirtualCamera camera;
    const FeatureHost host;
    for (const std::string& name : host.Features())
    {
        const XmlNode& node = host.Node(name);
        for (const char* text : {"ToolTip", "Description", "DisplayName", "Visibility"})
        {
            EXPECT_NE(ChildText(node, text), "") << name << " " << text;
        }
        if (IsNumber(host, name) && name != "TLParamsLocked")
        {
            EXPECT_NE(ChildText(node, "Representation"), "") << name;
        }
        const bool isTime = node.name == "Float" && name.find("Time") != std::string::npos;
        EXPECT_TRUE(!isTime || ChildText(node, "Unit") == "us") << name;
    }
    EXPECT_EQ(ChildText(host.Node("GevSCPSPacketSize"), "DisplayName"), "Gev SCPS Packet Size");
    EXPECT_EQ(ChildText(host.Node("DeviceTemperatureReg"), "PollingTime"), "1000");
}

TEST(CameraFeatures, FileNameAndGuidFollowTheText)
{
    std::set<std::string> files;
    std::set<std::string> guids;
    for (const char* model : {"One", "Two", "3D-cam", "One"})
    {
        nq::camera::CameraOptions options;
        options.model = model;
        const std::string text = nq::camera::MakeGenicamXml(options);
        const XmlNode root = ParseXml(text);
        files.insert(nq::camera::DescriptionName(text));
        guids.insert(root.Attribute("VersionGuid"));
        EXPECT_THAT(root.Attribute("VersionGuid"),
                    testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}"));
        EXPECT_THAT(root.Attribute("ModelName"), testing::MatchesRegex("[A-Za-z][0-9A-Za-z_]*")) << model;
    }
    EXPECT_EQ(files.size(), 3U);
    EXPECT_EQ(guids.size(), 3U);
}

TEST(CameraFeatures, AllEventsStartOff)
{
    const VirtualCamera camera;
    FeatureHost host;
    for (const auto& [name, value] : host.Entries("EventSelector"))
    {
        EXPECT_EQ(host.Set("EventSelector", value), 0U);
        EXPECT_EQ(host.Entry("EventNotification"), "Off") << name;
    }
}

TEST(CameraFeatures, RegistersOfTheirOwnDoNotOverlap)
{
    std::map<std::uint32_t, std::string> owners;
    for (const nq::camera::FeatureCategory& category : nq::camera::FeatureTable())
    {
        for (const nq::camera::Feature& feature : category.features)
        {
            for (std::uint32_t i = 0; feature.address >= 0x10000 && i < nq::camera::RegisterCount(feature); ++i)
            {
                const auto [place, free] = owners.emplace(feature.address + feature.stride * i, feature.name);
                EXPECT_TRUE(free) << feature.name << " and " << place->second;
            }
        }
    }
    EXPECT_GT(owners.size(), 90U);
}
