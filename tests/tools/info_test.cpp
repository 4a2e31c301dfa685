// SPDX-License-Identifier: Apache-2.0
// What the library and every module say about themselves, as nq-gev info prints it.
#include "support/json_schema.h"
#include "support/network.h"
#include "support/temporary_folder.h"
#include "support/tool.h"
#include "support/virtual_camera.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

namespace
{

using namespace nq::test;
using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

/// The infos that a function gives about a module in a state, by their names.
json InfosOf(const json& output, const std::string& module, const std::string& state, const std::string& function)
{
    json infos = json::object();
    for (const json& one : output["modules"])
    {
        if (one["module"] == module && one["state"] == state)
        {
            for (const json& info : one["infos"])
            {
                if (info["function"] == function)
                {
                    infos[info["name"].get<std::string>()] = info;
                }
            }
        }
    }
    return infos;
}

/// That the camera, which is not open yet, has this access status.
auto HasStatus(int status)
{
    return testing::Truly([status](const std::string& output) {
        const json info = json::parse(output, nullptr, false);
        return info.is_object() &&
               InfosOf(info, "device", "closed", "IFGetDeviceInfo")["DEVICE_INFO_ACCESS_STATUS"]["value"] == status;
    });
}

TEST(ToolInfoOfModules, AreEveryCommandInEveryStateThatDisturbsNobody)
{
    const VirtualCamera camera({"--serial", "SN-4711"});
    const Outcome info = InTime(HasStatus(1), [&] { return RunTool({"--json", "info"}, camera.Environment()); });
    ASSERT_EQ(info.exitCode, 0) << info.output;
    ExpectFitsSchema("info", info.output);
    const json output = json::parse(info.output);
    struct Row
    {
        const char* module;
        const char* state;
        const char* function;
        size_t commands; ///< of GenTL 1.5, and of this producer beyond it
        const char* name;
        json value;
    };
    for (const Row& row : {Row{"library", "loaded", "GCGetInfo", 11, "TL_INFO_ID", "NQGenTLGevRDMA"},
                           Row{"system", "open", "TLGetInfo", 11, "TL_INFO_GENTL_VER_MINOR", 5},
                           Row{"system", "open", "GCGetPortInfo", 13, "PORT_INFO_MODULE", "TLSystem"},
                           Row{"system", "open", "GCGetPortURLInfo", 11, "URL_INFO_FILENAME", nullptr},
                           Row{"interface", "closed", "TLGetInterfaceInfo", 7, "NQ_INTERFACE_INFO_IP", "10.77.0.1"},
                           Row{"interface", "open", "IFGetInfo", 7, "INTERFACE_INFO_TLTYPE", "GEV"},
                           Row{"interface", "open", "EventGetInfo", 5, "EVENT_SIZE_MAX", 1028},
                           Row{"device", "closed", "IFGetDeviceInfo", 16, "DEVICE_INFO_ACCESS_STATUS", 1},
                           Row{"device", "open", "DevGetInfo", 19, "DEVICE_INFO_ACCESS_STATUS", 6},
                           Row{"device", "open", "DevGetInfo", 19, "DEVICE_INFO_SERIAL_NUMBER", "SN-4711"},
                           Row{"remote-device", "open", "GCGetPortInfo", 13, "PORT_INFO_ACCESS_READ", true},
                           Row{"stream", "open", "DSGetInfo", 14, "STREAM_INFO_NUM_ANNOUNCED", 0},
                           Row{"buffer", "announced", "DSGetBufferInfo", 31, "BUFFER_INFO_IS_QUEUED", false},
                           Row{"buffer", "queued", "DSGetBufferInfo", 31, "BUFFER_INFO_IS_QUEUED", true},
                           Row{"buffer", "queued", "GCGetPortInfo", 13, "PORT_INFO_ID", nullptr}})
    {
        const json infos = InfosOf(output, row.module, row.state, row.function);
        EXPECT_EQ(infos.size(), row.commands) << row.module << " " << row.state << " " << row.function;
        ASSERT_TRUE(infos.contains(row.name)) << row.name;
        EXPECT_EQ(infos[row.name]["value"], row.value) << row.module << " " << row.state << ": " << infos[row.name];
    }
    EXPECT_EQ(InfosOf(output, "buffer", "queued", "GCGetPortInfo")["PORT_INFO_ID"]["error"], "GC_ERR_NOT_IMPLEMENTED");
}

TEST(ToolInfoOfModules, AreLinesForPeople)
{
    const VirtualCamera camera;
    const Outcome info = RunTool({"info"}, camera.Environment());
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(info.output,
                AllOf(HasSubstr("\n  answers    standard\n\nlibrary " NQ_CTI_PATH ", loaded\n  GCGetInfo\n"
                                "    TL_INFO_ID                              STRING     NQGenTLGevRDMA\n"),
                      HasSubstr("\n\nsystem NQGenTLGevRDMA, open\n  TLGetInfo\n"),
                      HasSubstr("\n\ndevice NQ-GEV-Camera:02-00-0a-4d-00-02, closed\n  IFGetDeviceInfo\n"),
                      HasSubstr("\n    DEVICE_INFO_ACCESS_STATUS               INT32      6\n"),
                      HasSubstr("\n\nbuffer, queued\n  DSGetBufferInfo\n"),
                      HasSubstr("\n    BUFFER_INFO_SIZE                        SIZET      4096\n"),
                      HasSubstr("\n    PORT_INFO_ID                            -          (GC_ERR_NOT_IMPLEMENTED)\n"),
                      ContainsRegex("\n    BUFFER_INFO_BASE +PTR +0x[0-9a-f]+\n"),
                      ContainsRegex("\n  GCGetPortURLInfo 0\n    URL_INFO_URL +STRING +[Ll]ocal:")));
}

TEST(ToolInfoOfModules, LeaveACameraToTheProgramThatControlsIt)
{
    const VirtualCamera camera;
    ChildProcess owner({NQ_TOOL_PATH, "--producer", NQ_CTI_PATH, "events"}, camera.Environment());
    ASSERT_TRUE(owner.WaitForOutput("listening", kLongTime)) << owner.Output();
    const Outcome info = InTime(HasStatus(4), [&] { return RunTool({"--json", "info"}, camera.Environment()); });
    const json output = json::parse(info.output);
    EXPECT_EQ(InfosOf(output, "device", "closed", "IFGetDeviceInfo")["DEVICE_INFO_ACCESS_STATUS"]["value"], 4);
    EXPECT_EQ(InfosOf(output, "device", "open", "DevGetInfo")["DEVICE_INFO_ACCESS_STATUS"]["value"], 6);
    EXPECT_EQ(InfosOf(output, "buffer", "queued", "DSGetBufferInfo").size(), 31U);
    const auto busy = HasSubstr("access busy");
    EXPECT_THAT(InTime(busy, [&] { return RunTool({"list"}, camera.Environment()); }).output, busy);
    EXPECT_EQ(owner.WaitForExit(std::chrono::milliseconds(0)), -1) << owner.Output();
    EXPECT_THAT(owner.Output(), Not(HasSubstr("lost")));
}

TEST(ToolInfoOfModules, SayWhyOneCannotBeAsked)
{
    const Outcome info = RunOnFake("IFOpenDevice.code=-1005", {"info"});
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(info.output,
                HasSubstr("\ndevice Camera, open\n  IFOpenDevice for reading failed: GC_ERR_ACCESS_DENIED (-1005)\n"));
    const Outcome list = RunOnFake("IFGetNumDevices.code=-1010", {"info"});
    EXPECT_EQ(list.exitCode, 0) << list.output;
    EXPECT_THAT(list.output, HasSubstr("\ninterface Interface, open\n  IFGetNumDevices failed: GC_ERR_IO (-1010)\n"));
}

TEST(ToolInfoOfModules, ComeFromProducersThatAreFoundAsWell)
{
    const VirtualCamera camera;
    const TemporaryFolder folder;
    std::filesystem::create_symlink(NQ_CTI_PATH, folder / "ours.cti");
    std::vector<std::string> environment = camera.Environment();
    environment.emplace_back("GENICAM_GENTL64_PATH=" + folder.Path());
    const Outcome info = RunProgram({NQ_TOOL_PATH, "info"}, environment);
    EXPECT_EQ(info.exitCode, 0) << info.output;
    EXPECT_THAT(info.output, AllOf(HasSubstr("\n\nlibrary " + (folder / "ours.cti") + ", loaded\n"),
                                   HasSubstr("\n    DEVICE_INFO_ACCESS_STATUS               INT32      6\n")));
}

} // namespace
