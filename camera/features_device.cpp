// SPDX-License-Identifier: Apache-2.0
// Features of the camera as a device: what it is, its user sets, and what serves tests.
#include "bootstrap.h"
#include "feature_groups.h"
#include "feature_registers.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace bootstrap;
using namespace feature;
using enum FeatureKind;

constexpr Feature FixedText(const char* name, std::uint32_t address, std::uint32_t length, const char* tip)
{
    return {.name = name, .kind = Text, .address = address, .tip = tip, .access = Access::ReadOnly, .length = length};
}

constexpr std::array kDevice{
    FixedText("DeviceVendorName", kManufacturerName, 32, "Who made the camera"),
    FixedText("DeviceModelName", kModelName, 32, "The camera's model"),
    FixedText("DeviceManufacturerInfo", kManufacturerInfo, 48, "What its maker says about the camera"),
    FixedText("DeviceVersion", kDeviceVersion, 32, "Version of the camera"),
    FixedText("DeviceSerialNumber", kSerialNumber, 16, "What tells this camera from others of its model"),
    Feature{
        .name = "DeviceUserID", .kind = Text, .address = kUserName, .tip = "A name that the user gives", .length = 16},
    Feature{.name = "DeviceTemperature",
            .kind = Float,
            .address = kDeviceTemperature,
            .tip = "Temperature of the camera",
            .about = "Rises from 40 by 1.9 degrees within 20 s, again and again",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .min = -40,
            .max = 125,
            .unit = "C",
            .polling = 1000},
    Feature{.name = "DeviceReset",
            .kind = Command,
            .address = kDeviceReset,
            .tip = "Switches the camera off and on",
            .about = "Control and stream end with it",
            .visibility = "Guru"},
    Feature{.name = "TimestampLatch",
            .kind = Command,
            .address = kTimestampControl,
            .tip = "Copies the camera's clock to TimestampLatchValue",
            .commandValue = kTimestampLatch},
    Feature{.name = "TimestampReset",
            .kind = Command,
            .address = kTimestampControl,
            .tip = "Sets the camera's clock to 0",
            .commandValue = kTimestampReset},
    Feature{.name = "TimestampLatchValue",
            .address = kTimestampHigh,
            .tip = "The camera's clock when TimestampLatch was executed",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .max = 9223372036854774784.0,
            .unit = "ns",
            .changedBy = "TimestampLatch",
            .length = 8},
};

constexpr std::array kSets{
    FeatureEntry{"Default", 0, "The settings of power on; cannot be overwritten"},
    FeatureEntry{"UserSet1", 1, "The user's own"},
};

constexpr std::array kUserSet{
    Feature{.name = "UserSetSelector",
            .kind = Enumeration,
            .address = kUserSetSelector,
            .tip = "The set that is meant",
            .entries = kSets},
    Feature{.name = "UserSetLoad",
            .kind = Command,
            .address = kUserSetLoad,
            .tip = "Sets the camera as the set says",
            .about = "Not available for a set that nothing was saved to",
            .lock = Lock::Streaming,
            .conditional = true},
    Feature{.name = "UserSetSave",
            .kind = Command,
            .address = kUserSetSave,
            .tip = "Keeps the present settings in the set",
            .about = "Not available for Default",
            .conditional = true},
    Feature{.name = "UserSetDefault",
            .kind = Enumeration,
            .address = kUserSetDefault,
            .tip = "The set that the camera loads when it is switched on",
            .entries = kSets},
};

constexpr std::array kTest{
    Feature{.name = "TestPendingAck",
            .address = kTestPendingAck,
            .tip = "The acknowledge of this write comes so much later",
            .about = "Hosts that understand pending acknowledges are asked to wait",
            .visibility = "Guru",
            .max = 60000,
            .unit = "ms"},
    Feature{.name = "TestLineFrequency",
            .kind = Float,
            .address = kTestLineFrequency,
            .tip = "Frequency of the wave at Line0",
            .visibility = "Guru",
            .value = 10,
            .min = 0.1,
            .max = 10000,
            .unit = "Hz",
            .inUserSet = true},
    Feature{.name = "TestEventGenerate",
            .kind = Command,
            .address = kTestEventGenerate,
            .tip = "Sends a Test event, when it is switched on",
            .visibility = "Guru"},
};

} // namespace

std::span<const Feature> DeviceFeatures()
{
    return kDevice;
}

std::span<const Feature> UserSetFeatures()
{
    return kUserSet;
}

std::span<const Feature> TestFeatures()
{
    return kTest;
}

} // namespace nq::camera
