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
constexpr std::array kTriggers{
    FeatureEntry{"FrameStart", 0, "Each trigger is for one picture"},
    FeatureEntry{"FrameBurstStart", 1, "Each trigger is for AcquisitionBurstFrameCount pictures"},
};
constexpr std::array kTriggerSources{
    FeatureEntry{"Software", 0, "TriggerSoftware"},
    FeatureEntry{"Line0", 1, "The wave at the input, by TriggerActivation"},
    FeatureEntry{"Counter0End", 2, "Counter0 is full"},
};
constexpr std::array kActivations{
    FeatureEntry{"RisingEdge", 0, "The line goes up"},
    FeatureEntry{"FallingEdge", 1, "The line goes down"},
    FeatureEntry{"AnyEdge", 2, "The line goes up or down"},
};
constexpr std::array kExposureModes{
    FeatureEntry{"Timed", 0, "As long as ExposureTime says"},
    FeatureEntry{"TriggerWidth", 1, "Half a period of Line0, from the edge that triggers to the next"},
};
constexpr std::array kAutos{
    FeatureEntry{"Off", 0, "Set by the host"},
    FeatureEntry{"Once", 1, "Set by the camera until the pictures are of medium brightness, then Off"},
    FeatureEntry{"Continuous", 2, "Set by the camera, picture by picture"},
};
constexpr std::array kStates{
    FeatureEntry{"FrameBurstTriggerWait", 0, "Waits for the trigger of a burst"},
    FeatureEntry{"FrameTriggerWait", 1, "Waits for the trigger of a picture"},
    FeatureEntry{"AcquisitionActive", 2, "An acquisition runs"},
    FeatureEntry{"ExposureActive", 3, "A picture is being exposed"},
};

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
    Feature{.name = "AcquisitionAbort",
            .kind = Command,
            .address = kAcquisitionAbort,
            .tip = "Ends taking pictures at once",
            .about = "The one that is being exposed is lost",
            .visibility = "Expert"},
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
            .polling = 500,
            .changedBy = "ExposureTime DeviceLinkThroughputLimit DeviceLinkThroughputLimitMode",
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
            .about = "Twice as long is twice as bright; from 20 us on the picture comes so much later. Not available "
                     "while ExposureMode takes it from Line0",
            .min = 1,
            .max = 10000000,
            .unit = "us",
            .polling = 500,
            .conditional = true,
            .inUserSet = true},
    Feature{.name = "ExposureMode",
            .kind = Enumeration,
            .address = kExposureMode,
            .tip = "What ends an exposure",
            .about = "Available while Line0 triggers each picture by one kind of edge",
            .entries = kExposureModes,
            .lock = Lock::Acquiring,
            .conditional = true,
            .inUserSet = true},
    Feature{.name = "ExposureAuto",
            .kind = Enumeration,
            .address = kExposureAuto,
            .tip = "Whether the camera sets ExposureTime",
            .about = "For pictures of medium brightness; the checkable ramp leaves it as it is. Available as "
                     "ExposureTime",
            .entries = kAutos,
            .polling = 500,
            .conditional = true,
            .inUserSet = true},
    Feature{.name = "TriggerSelector",
            .kind = Enumeration,
            .address = kTriggerSelector,
            .tip = "The trigger that is meant",
            .entries = kTriggers},
    Feature{.name = "TriggerMode",
            .kind = Enumeration,
            .address = kTriggerMode,
            .tip = "Whether the camera waits for the trigger",
            .entries = kOffOn,
            .selector = "TriggerSelector",
            .stride = 0x100,
            .inUserSet = true},
    Feature{.name = "TriggerSource",
            .kind = Enumeration,
            .address = kTriggerSource,
            .tip = "What triggers",
            .entries = kTriggerSources,
            .selector = "TriggerSelector",
            .stride = 0x100,
            .inUserSet = true},
    Feature{.name = "TriggerActivation",
            .kind = Enumeration,
            .address = kTriggerActivation,
            .tip = "The edge of Line0 that triggers",
            .entries = kActivations,
            .selector = "TriggerSelector",
            .stride = 0x100,
            .inUserSet = true},
    Feature{.name = "TriggerDelay",
            .kind = Float,
            .address = kTriggerDelay,
            .tip = "Time from the trigger to its effect",
            .max = 10000000,
            .unit = "us",
            .selector = "TriggerSelector",
            .stride = 0x100,
            .inUserSet = true},
    Feature{.name = "TriggerSoftware",
            .kind = Command,
            .address = kTriggerSoftware,
            .tip = "Triggers, when TriggerSource is Software"},
    Feature{.name = "AcquisitionBurstFrameCount",
            .address = kAcquisitionBurstFrameCount,
            .tip = "Pictures of a burst",
            .value = 1,
            .min = 1,
            .max = 65535,
            .inUserSet = true},
    Feature{.name = "AcquisitionStatusSelector",
            .kind = Enumeration,
            .address = kAcquisitionStatusSelector,
            .tip = "The state that is meant",
            .entries = kStates},
    Feature{.name = "AcquisitionStatus",
            .kind = Boolean,
            .address = kAcquisitionStatus,
            .tip = "Whether the camera is in the state",
            .access = Access::ReadOnly,
            .polling = 100,
            .selector = "AcquisitionStatusSelector"},
};

constexpr auto kEventEntries = [] {
    std::array<FeatureEntry, kEvents.size()> entries{};
    for (std::uint32_t i = 0; i < entries.size(); ++i)
    {
        entries[i] = {kEvents[i].name, i, kEvents[i].tip};
    }
    return entries;
}();

constexpr Feature EventData(const char* name, std::uint32_t id, std::uint32_t place, std::uint32_t length, double max,
                            const char* tip, const char* unit = "")
{
    return {.name = name,
            .address = place,
            .tip = tip,
            .about = "Read from the packet of the event",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .max = max,
            .unit = unit,
            .length = length,
            .eventId = id};
}

// Behind the header of the packet: a reserved word, the event's id, the stream channel, the frame id, the time.
constexpr Feature EventId(const char* name, std::uint32_t id)
{
    return EventData(name, id, 2, 2, 65535, "Id of the event");
}
constexpr Feature EventFrame(const char* name, std::uint32_t id)
{
    return EventData(name, id, 6, 2, 65535, "Lower 16 bits of the frame id that the event is about");
}
constexpr Feature EventTime(const char* name, std::uint32_t id)
{
    return EventData(name, id, 8, 8, 9223372036854774784.0, "The camera's clock at the event", "ns");
}

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
    EventId("EventTest", kEvents[0].id),
    EventTime("EventTestTimestamp", kEvents[0].id),
    EventFrame("EventTestFrameID", kEvents[0].id),
    EventId("EventExposureEnd", kEvents[1].id),
    EventTime("EventExposureEndTimestamp", kEvents[1].id),
    EventFrame("EventExposureEndFrameID", kEvents[1].id),
    EventId("EventFrameEnd", kEvents[2].id),
    EventTime("EventFrameEndTimestamp", kEvents[2].id),
    EventFrame("EventFrameEndFrameID", kEvents[2].id),
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
