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

constexpr Feature Fact(const char* name, std::uint32_t address, const char* tip, double value, double max = 4294967295)
{
    return {.name = name,
            .address = address,
            .tip = tip,
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .value = value,
            .max = max};
}

constexpr Feature FixedEntry(const char* name, std::uint32_t address, const char* tip,
                             std::span<const FeatureEntry> entries, std::uint32_t firstBit = 0,
                             std::uint32_t lastBit = 31)
{
    return {.name = name,
            .kind = Enumeration,
            .address = address,
            .tip = tip,
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .entries = entries,
            .firstBit = firstBit,
            .lastBit = lastBit};
}

constexpr Feature VersionPart(const char* name, std::uint32_t firstBit, std::uint32_t lastBit, const char* tip)
{
    return {.name = name,
            .address = kVersion,
            .tip = tip,
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .max = 65535,
            .firstBit = firstBit,
            .lastBit = lastBit};
}

constexpr std::array kTypes{FeatureEntry{"Transmitter", 0, "It sends pictures"}};
constexpr std::array kScans{FeatureEntry{"Areascan", 0, "All lines of a picture at once"}};
constexpr std::array kLayers{FeatureEntry{"GigEVision", 0, "GigE Vision"}};
constexpr std::array kCharacterSets{FeatureEntry{"UTF8", 1, "UTF-8"}};
constexpr std::array kEndiannesses{FeatureEntry{"Little", 0, "The least significant byte first"},
                                   FeatureEntry{"Big", 1, "The most significant byte first"}};
constexpr std::array kSwitch{FeatureEntry{"Off", 0, "Switched off"}, FeatureEntry{"On", 1, "Switched on"}};
constexpr std::array kHeartbeats{FeatureEntry{"On", 0, "A host that falls quiet loses control"},
                                 FeatureEntry{"Off", 1, "A host keeps control however quiet it is"}};

constexpr std::array kDevice{
    FixedEntry("DeviceType", kDeviceType, "What kind of device it is", kTypes),
    FixedEntry("DeviceScanType", kDeviceScanType, "How its sensor is read", kScans),
    FixedEntry("DeviceTLType", kDeviceTLType, "How it speaks to hosts", kLayers),
    VersionPart("DeviceTLVersionMajor", 0, 15, "Version of GigE Vision, the first number"),
    VersionPart("DeviceTLVersionMinor", 16, 31, "Version of GigE Vision, the second number"),
    Fact("DeviceSFNCVersionMajor", kDeviceSFNCVersionMajor, "Version of the features' names, the first number", 2),
    Fact("DeviceSFNCVersionMinor", kDeviceSFNCVersionMinor, "Version of the features' names, the second number", 7),
    Fact("DeviceSFNCVersionSubMinor", kDeviceSFNCVersionSubMinor, "Version of the features' names, the third number",
         0),
    FixedEntry("DeviceCharacterSet", kDeviceMode, "Characters of its texts", kCharacterSets, 24),
    FixedEntry("DeviceRegistersEndianness", kDeviceMode, "Order of the bytes of its registers", kEndiannesses, 0, 0),
    Feature{.name = "DeviceLinkSpeed",
            .address = kDeviceLinkSpeed,
            .tip = "Speed of the link",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .value = 1250000000,
            .unit = "Bps"},
    Fact("DeviceStreamChannelCount", kStreamChannelCount, "Number of image streams", 1),
    Fact("DeviceEventChannelCount", kMessageChannelCount, "Number of channels for events", 1),
    Feature{.name = "DeviceLinkThroughputLimitMode",
            .kind = Enumeration,
            .address = kDeviceLinkThroughputLimitMode,
            .tip = "Whether DeviceLinkThroughputLimit holds",
            .visibility = "Expert",
            .entries = kSwitch,
            .inUserSet = true},
    Feature{.name = "DeviceLinkThroughputLimit",
            .address = kDeviceLinkThroughputLimit,
            .tip = "Bytes of pictures per second that are sent at most",
            .about = "Lowers the rate; pictures that wait for triggers are sent as they come",
            .visibility = "Expert",
            .value = 1250000000,
            .min = 2000000,
            .max = 1250000000,
            .unit = "Bps",
            .inUserSet = true},
    Feature{.name = "DeviceLinkHeartbeatMode",
            .kind = Enumeration,
            .address = kGvcpConfiguration,
            .tip = "Whether a quiet host loses control",
            .visibility = "Expert",
            .entries = kHeartbeats,
            .firstBit = 31},
    Feature{.name = "DeviceLinkHeartbeatTimeout",
            .kind = Float,
            .address = kDeviceLinkHeartbeatTimeout,
            .tip = "Silence of the host after which it loses control",
            .about = "The same as GevHeartbeatTimeout",
            .visibility = "Expert",
            .min = 500000,
            .max = 3600000000,
            .unit = "us",
            .changedBy = "GevHeartbeatTimeout"},
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
