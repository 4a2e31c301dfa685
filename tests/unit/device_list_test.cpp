// SPDX-License-Identifier: Apache-2.0
// The device list of an interface: its merge, its look-ups and its updates.
#include "support/interface_module.h"
#include "support/random_run.h"

#include <gmock/gmock.h>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;

TEST(DeviceList, MergeKeepsSurvivorsInPlaceAndAppendsNewOnes)
{
    InterfaceModule module;
    EXPECT_TRUE(module.Merge({Device("a"), Device("b"), Device("c"), Device("d")}));
    EXPECT_TRUE(module.Merge({Device("e"), Device("d"), Device("b")}));
    EXPECT_THAT(module.Ids(), ElementsAre("b", "d", "e"));
}

TEST(DeviceList, MergeErasesNeighboursThatAreBothGone)
{
    InterfaceModule module;
    module.Merge({Device("a"), Device("b"), Device("c")});
    EXPECT_TRUE(module.Merge({Device("c")}));
    EXPECT_THAT(module.Ids(), ElementsAre("c"));
}

TEST(DeviceList, ARefreshReplacesAllFieldsAndIsNoChange)
{
    InterfaceModule module;
    module.Merge({Device("a", "old")});
    _NQ_GEV_DEVICE_INFO info = Device("a", "new");
    info.ipAddress = 7;
    info.serialNumber = "other";
    EXPECT_FALSE(module.Merge({info}));
    EXPECT_EQ(module.Devices()[0].vendorName, "new");
    EXPECT_EQ(module.Devices()[0].ipAddress, 7u);
    EXPECT_EQ(module.Devices()[0].serialNumber, "other");
}

TEST(DeviceList, OfSeveralMatchesTheFirstIsAddedAndTheLastRefreshes)
{
    InterfaceModule module;
    EXPECT_TRUE(module.Merge({Device("a", "first"), Device("b"), Device("a", "last")}));
    EXPECT_THAT(module.Ids(), ElementsAre("a", "b"));
    EXPECT_EQ(module.Devices()[0].vendorName, "first");
    EXPECT_FALSE(module.Merge({Device("a", "first"), Device("b"), Device("a", "last")}));
    EXPECT_EQ(module.Devices()[0].vendorName, "last");
}

TEST(DeviceList, AnEmptyScanErasesEverythingAndChangesNothingTwice)
{
    InterfaceModule module;
    module.Merge({Device("a")});
    EXPECT_TRUE(module.Merge({}));
    EXPECT_FALSE(module.Merge({}));
    EXPECT_THAT(module.Ids(), IsEmpty());
}

TEST(DeviceList, MergeTakesANullChangedPointer)
{
    InterfaceModule module;
    module._updateDeviceList({Device("a")}, nullptr);
    EXPECT_THAT(module.Ids(), ElementsAre("a"));
}

TEST(DeviceList, ManyDevicesMergeInTheirOrder)
{
    InterfaceModule module;
    std::vector<_NQ_GEV_DEVICE_INFO> found;
    for (int i = 0; i < 1000; ++i)
    {
        found.push_back(Device("camera " + std::to_string(i)));
    }
    EXPECT_TRUE(module.Merge(found));
    EXPECT_FALSE(module.Merge(found));
    found.erase(found.begin() + 500);
    EXPECT_TRUE(module.Merge(found));
    EXPECT_EQ(module.Ids().size(), 999u);
    EXPECT_EQ(module.Ids()[500], "camera 501");
}

// The rule of the merge, entry by entry; whether it changed anything.
bool MergeByTheLetter(std::vector<_NQ_GEV_DEVICE_INFO>& list, const std::vector<_NQ_GEV_DEVICE_INFO>& found)
{
    bool changed = false;
    for (std::size_t at = 0; at < list.size();)
    {
        bool matched = false;
        const std::string id = list[at].id;
        for (const _NQ_GEV_DEVICE_INFO& info : found)
        {
            if (info.id == id)
            {
                list[at] = info;
                matched = true;
            }
        }
        if (matched)
        {
            ++at;
            continue;
        }
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
        changed = true;
    }
    for (const _NQ_GEV_DEVICE_INFO& info : found)
    {
        bool listed = false;
        for (const _NQ_GEV_DEVICE_INFO& other : list)
        {
            listed = listed || other.id == info.id;
        }
        if (!listed)
        {
            list.push_back(info);
            changed = true;
        }
    }
    return changed;
}

std::vector<std::string> IdsAndVendors(const std::vector<_NQ_GEV_DEVICE_INFO>& devices)
{
    std::vector<std::string> texts;
    for (const _NQ_GEV_DEVICE_INFO& info : devices)
    {
        texts.push_back(info.id + " " + info.vendorName);
    }
    return texts;
}

TEST(DeviceList, MergesOfRandomScansFollowTheRuleByTheLetter)
{
    const RandomRun run(1);
    std::mt19937 random(run.seed);
    const auto below = [&random](int count) { return std::uniform_int_distribution<int>(0, count - 1)(random); };
    InterfaceModule module;
    std::vector<_NQ_GEV_DEVICE_INFO> expected;
    for (int answer = 0; !run.IsOver() && !testing::Test::HasFailure();)
    {
        std::vector<_NQ_GEV_DEVICE_INFO> found;
        for (int left = below(12); left > 0; --left)
        {
            found.push_back(Device(std::to_string(below(8)), std::to_string(++answer)));
        }
        EXPECT_EQ(module.Merge(found), MergeByTheLetter(expected, found));
        EXPECT_EQ(IdsAndVendors(module.Devices()), IdsAndVendors(expected));
    }
}

TEST(DeviceList, LookUpsHandOutCopiesOfTheExactId)
{
    InterfaceModule module;
    module.Merge({Device("a"), Device("b")});
    _NQ_GEV_DEVICE_INFO info;
    EXPECT_TRUE(module._findDeviceInfoById("b", info));
    EXPECT_EQ(info.id, "b");
    EXPECT_FALSE(module._findDeviceInfoById("B", info));
    EXPECT_FALSE(module._findDeviceInfoById("", info));
    EXPECT_TRUE(module._findDeviceInfoByIndex(0, info));
    EXPECT_EQ(info.id, "a");
    EXPECT_FALSE(module._findDeviceInfoByIndex(2, info));
    EXPECT_EQ(info.id, "a") << "left alone";
    info.vendorName = "changed";
    EXPECT_EQ(module.Devices()[0].vendorName, "vendor");
}

TEST(DeviceList, AnUpdateOverwritesAllFieldsTheIdIncluded)
{
    InterfaceModule module;
    module.Merge({Device("a"), Device("b")});
    module._updateDeviceInfoById("a", Device("c", "new"));
    module._updateDeviceInfoByIndex(1, Device("d"));
    module._updateDeviceInfoById("a", Device("x"));
    module._updateDeviceInfoByIndex(2, Device("x"));
    EXPECT_THAT(module.Ids(), ElementsAre("c", "d"));
    EXPECT_EQ(module.Devices()[0].vendorName, "new");
}

// Deliberate(NoStatusIsStored)
TEST(DeviceList, DeliberateNoStatusIsStored)
{
    InterfaceModule module;
    module.Merge({Device("a")});
    module._updateDeviceAccessStatus("a", 3);
    EXPECT_EQ(module.Devices()[0].accessStatus, 0u);
}
