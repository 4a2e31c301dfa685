// SPDX-License-Identifier: Apache-2.0
// Features of time: when a picture is taken, and what the camera tells of it.
#include "feature_groups.h"
#include "feature_registers.h"
#include "message_channel.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace feature;
using enum FeatureKind;

constexpr std::array kOffOn{FeatureEntry{"Off", 0, "Switched off"}, FeatureEntry{"On", 1, "Switched on"}};
constexpr std::array kModes{
    FeatureEntry{"Continuous", 0, "Pictures until AcquisitionStop"},
    FeatureEntry{"SingleFrame", 1, "One picture per AcquisitionStart"},
    FeatureEntry{"MultiFrame", 2, "AcquisitionFrameCount pictures per AcquisitionStart"},
};
constexpr std::array kTriggerSources{FeatureEntry{"Software", 0, "TriggerSoftware"}};

constexpr std::array kAcquisition{
    Feature{.name = "AcquisitionMode",
            .kind = Enumeration,
            .address = kAcquisitionMode,
            .tip = "How many pictures one start is for",
            .entries = kModes,
            .lock = Lock::Acquiring,
            .inUserSet = true},
    Feature{
        .name = "AcquisitionStart", .kind = Command, .address = kAcquisitionStart, .tip = "Begins to take pictures"},
    Feature{.name = "AcquisitionStop", .kind = Command, .address = kAcquisitionStop, .tip = "Ends taking pictures"},
    Feature{.name = "AcquisitionFrameCount",
            .address = kAcquisitionFrameCount,
            .tip = "Pictures of a MultiFrame acquisition",
            .value = 1,
            .min = 1,
            .max = 65535,
            .inUserSet = true},
    Feature{.name = "AcquisitionFrameRate",
            .kind = Float,
            .address = kAcquisitionFrameRate,
            .tip = "Pictures per second",
            .about = "1 / ExposureTime at most; writing it switches it on",
            .value = 100,
            .min = 0.001,
            .max = 100000,
            .unit = "Hz",
            .changedBy = "ExposureTime",
            .movingMax = true,
            .inUserSet = true},
    Feature{.name = "AcquisitionFrameRateEnable",
            .kind = Boolean,
            .address = kAcquisitionFrameRateEnable,
            .tip = "Whether AcquisitionFrameRate holds",
            .about = "Without it pictures follow each other as fast as exposure and host allow",
            .changedBy = "AcquisitionFrameRate",
            .inUserSet = true},
    Feature{.name = "ExposureTime",
            .kind = Float,
            .address = kExposureTime,
            .tip = "How long a picture is exposed",
            .about = "Twice as long is twice as bright; from 20 us on the picture comes so much later",
            .min = 1,
            .max = 10000000,
            .unit = "us",
            .inUserSet = true},
    Feature{.name = "TriggerMode",
            .kind = Enumeration,
            .address = kTriggerMode,
            .tip = "Whether a picture waits for a trigger",
            .entries = kOffOn,
            .inUserSet = true},
    Feature{.name = "TriggerSource",
            .kind = Enumeration,
            .address = kTriggerSource,
            .tip = "What triggers",
            .entries = kTriggerSources},
    Feature{.name = "TriggerSoftware", .kind = Command, .address = kTriggerSoftware, .tip = "Triggers"},
};

constexpr auto kEventEntries = [] {
    std::array<FeatureEntry, kEvents.size()> entries{};
    for (std::uint32_t i = 0; i < entries.size(); ++i)
    {
        entries[i] = {kEvents[i].name, i, kEvents[i].tip};
    }
    return entries;
}();

constexpr std::array kEvent{
    Feature{.name = "EventSelector",
            .kind = Enumeration,
            .address = kEventSelector,
            .tip = "The event that is meant",
            .entries = kEventEntries},
    Feature{.name = "EventNotification",
            .kind = Enumeration,
            .address = kEventNotification,
            .tip = "Whether the camera tells of the event",
            .entries = kOffOn,
            .selector = "EventSelector"},
};

} // namespace

std::span<const Feature> AcquisitionFeatures()
{
    return kAcquisition;
}

std::span<const Feature> EventFeatures()
{
    return kEvent;
}

} // namespace nq::camera
