// SPDX-License-Identifier: Apache-2.0
// What a host may keep of the camera's registers: nothing that another write or time changes without being told so.
#include "camera/feature_host.h"

#include <gmock/gmock.h>

#include <map>
#include <thread>

using namespace nq::test;

namespace
{

/// Registers whose value a host may keep for ever, with their values; selected ones at each entry of their selector.
std::map<std::string, double> KeptValues(const FeatureHost& host)
{
    std::map<std::string, double> values;
    for (const auto& [name, node] : host.Nodes())
    {
        const bool kept = ChildText(*node, "Cachable") == "WriteThrough" && ChildText(*node, "PollingTime").empty();
        if (kept && node->name != "StringReg" && ChildText(*node, "pPort") == "Device")
        {
            values[name] = host.Get(name);
        }
    }
    return values;
}

bool IsTold(const FeatureHost& host, const std::string& reg, const std::string& written)
{
    if (reg == written + "Reg")
    {
        return true;
    }
    for (const XmlNode* child : host.Node(reg).Elements())
    {
        if (child->name == "pInvalidator" && (child->Content() == written || child->Content() == written + "Reg"))
        {
            return true;
        }
    }
    return false;
}

/// Values that a feature takes now: its limits, or its entries that are there.
std::vector<double> ValuesOf(const FeatureHost& host, const std::string& name)
{
    const XmlNode& node = host.Node(name);
    if (node.name == "Integer" || node.name == "Float")
    {
        return {host.Limit(name, "Max"), host.Limit(name, "Min")};
    }
    if (node.name == "Command")
    {
        return {std::stod(ChildText(node, "CommandValue"))};
    }
    std::vector<double> values;
    for (const auto& [entry, value] : host.Entries(name))
    {
        if (host.IsEntryAvailable(name, entry))
        {
            values.push_back(value);
        }
    }
    return node.name == "Boolean" ? std::vector<double>{1, 0} : values;
}

/// Writes the feature's values; registers that may be kept and change by it have to name it.
void TellsWhatItChanges(FeatureHost& host, const std::string& name)
{
    for (const double value : ValuesOf(host, name))
    {
        // At its limit, so that it shows what moves that.
        ASSERT_EQ(host.Set("AcquisitionFrameRate", host.Limit("AcquisitionFrameRate", "Max")), 0U);
        auto before = KeptValues(host);
        if (host.Set(name, value) != 0)
        {
            ADD_FAILURE() << name << " = " << value;
            continue;
        }
        for (const auto& [reg, now] : KeptValues(host))
        {
            EXPECT_TRUE(before.at(reg) == now || IsTold(host, reg, name))
                << reg << " is kept but " << name << " = " << value << " changes it";
        }
    }
}

} // namespace

TEST(CameraCachability, AWriteIsAnInvalidatorOfAllThatItChanges)
{
    const VirtualCamera camera({"--width", "64", "--height", "48"});
    FeatureHost host;
    ASSERT_EQ(host.Set("DeviceLinkHeartbeatMode", "Off"), 0U); // the shortest timeout is too short for a busy machine
    ASSERT_EQ(host.Set("DeviceLinkThroughputLimitMode", "On"), 0U);
    ASSERT_EQ(host.Set("PixelFormat", "BayerRG12"), 0U);
    ASSERT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    ASSERT_EQ(host.Execute("UserSetSave"), 0U);
    EXPECT_GT(KeptValues(host).size(), 60U);
    for (const std::string& name : host.Features())
    {
        // The host would be without control, or without an acknowledge for a minute.
        const bool passedOver =
            name == "GevCCP" || name == "DeviceReset" || name == "TestPendingAck" || name == "DeviceLinkHeartbeatMode";
        if (!passedOver && !ChildText(host.Node(name), "pValue").empty() && host.IsWritable(name))
        {
            TellsWhatItChanges(host, name);
        }
    }
}

TEST(CameraCachability, WhatMayBeKeptStandsStillByItself)
{
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("TestPattern", "White"), 0U);
    ASSERT_EQ(host.Set("ExposureAuto", "Continuous"), 0U);
    ASSERT_EQ(host.Set("CounterEventSource", "Line0"), 0U);
    ASSERT_EQ(host.Set("TestLineFrequency", 100), 0U);
    const auto before = KeptValues(host);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(KeptValues(host), before);
}
