// SPDX-License-Identifier: Apache-2.0
// Features of the camera's input and output, its counter and its timer.
#include "feature_groups.h"
#include "feature_registers.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace feature;
using enum FeatureKind;

constexpr std::array kLines{
    FeatureEntry{"Line0", 0, "The input: a square wave of TestLineFrequency"},
    FeatureEntry{"Line1", 1, "The output, driven by LineSource"},
};
constexpr std::array kLineModes{
    FeatureEntry{"Input", 0, "The camera reads it"},
    FeatureEntry{"Output", 1, "The camera drives it"},
};
constexpr std::array kLineSources{
    FeatureEntry{"Off", 0, "Low"},
    FeatureEntry{"ExposureActive", 1, "High during an exposure"},
    FeatureEntry{"Timer0Active", 2, "High while Timer0 runs"},
    FeatureEntry{"UserOutput0", 3, "As UserOutputValue says"},
};

constexpr std::array kLine{
    Feature{.name = "LineSelector",
            .kind = Enumeration,
            .address = kLineSelector,
            .tip = "The line that is meant",
            .entries = kLines},
    Feature{.name = "LineMode",
            .kind = Enumeration,
            .address = kLineMode,
            .tip = "Direction of the line",
            .access = Access::ReadOnly,
            .entries = kLineModes,
            .selector = "LineSelector"},
    Feature{.name = "LineInverter",
            .kind = Boolean,
            .address = kLineInverter,
            .tip = "Whether high and low change places",
            .selector = "LineSelector",
            .inUserSet = true},
    Feature{.name = "LineStatus",
            .kind = Boolean,
            .address = kLineStatus,
            .tip = "Whether the line is high now",
            .access = Access::ReadOnly,
            .polling = 50,
            .selector = "LineSelector"},
    Feature{.name = "LineStatusAll",
            .address = kLineStatusAll,
            .tip = "All lines that are high now",
            .about = "Bit 0 for Line0, bit 1 for Line1",
            .access = Access::ReadOnly,
            .max = 3,
            .representation = "HexNumber",
            .polling = 50},
    Feature{.name = "LineSource",
            .kind = Enumeration,
            .address = kLineSource,
            .tip = "What drives Line1",
            .about = "Available while LineSelector is Line1",
            .entries = kLineSources,
            .conditional = true,
            .inUserSet = true},
    Feature{.name = "UserOutputValue",
            .kind = Boolean,
            .address = kUserOutputValue,
            .tip = "Level of the output UserOutput0",
            .inUserSet = true},
};

constexpr std::array kOneCounter{FeatureEntry{"Counter0", 0, "The one counter"}};
constexpr std::array kCounted{
    FeatureEntry{"Off", 0, "Nothing"},
    FeatureEntry{"Line0", 1, "Rising edges of Line0"},
};
constexpr std::array kOneTimer{FeatureEntry{"Timer0", 0, "The one timer"}};
constexpr std::array kTimed{
    FeatureEntry{"Off", 0, "Nothing"},
    FeatureEntry{"ExposureStart", 1, "An exposure begins"},
};
constexpr std::array kTimerStates{
    FeatureEntry{"TimerIdle", 0, "It does nothing"},
    FeatureEntry{"TimerDelay", 1, "It waits for its delay"},
    FeatureEntry{"TimerActive", 2, "It runs"},
};

constexpr std::array kCounter{
    Feature{.name = "CounterSelector",
            .kind = Enumeration,
            .address = kCounterSelector,
            .tip = "The counter that is meant",
            .access = Access::ReadOnly,
            .entries = kOneCounter},
    Feature{.name = "CounterEventSource",
            .kind = Enumeration,
            .address = kCounterEventSource,
            .tip = "What is counted",
            .entries = kCounted,
            .inUserSet = true},
    Feature{.name = "CounterDuration",
            .address = kCounterDuration,
            .tip = "Where the counter is full and begins again at 0",
            .value = 1,
            .min = 1,
            .max = 65535,
            .inUserSet = true},
    Feature{.name = "CounterValue",
            .address = kCounterValue,
            .tip = "What is counted so far",
            .access = Access::ReadOnly,
            .max = 65535,
            .polling = 50},
    Feature{.name = "CounterReset", .kind = Command, .address = kCounterReset, .tip = "Sets the counter to 0"},
    Feature{.name = "TimerSelector",
            .kind = Enumeration,
            .address = kTimerSelector,
            .tip = "The timer that is meant",
            .access = Access::ReadOnly,
            .entries = kOneTimer},
    Feature{.name = "TimerTriggerSource",
            .kind = Enumeration,
            .address = kTimerTriggerSource,
            .tip = "What starts the timer",
            .entries = kTimed,
            .inUserSet = true},
    Feature{.name = "TimerDelay",
            .kind = Float,
            .address = kTimerDelay,
            .tip = "Time from the start until the timer runs",
            .max = 10000000,
            .unit = "us",
            .inUserSet = true},
    Feature{.name = "TimerDuration",
            .kind = Float,
            .address = kTimerDuration,
            .tip = "How long the timer runs",
            .value = 1000,
            .min = 1,
            .max = 10000000,
            .unit = "us",
            .inUserSet = true},
    Feature{.name = "TimerValue",
            .kind = Float,
            .address = kTimerValue,
            .tip = "How long the timer has been running",
            .access = Access::ReadOnly,
            .max = 10000000,
            .unit = "us",
            .polling = 50},
    Feature{.name = "TimerStatus",
            .kind = Enumeration,
            .address = kTimerStatus,
            .tip = "What the timer does now",
            .access = Access::ReadOnly,
            .entries = kTimerStates,
            .polling = 50},
};

} // namespace

std::span<const Feature> LineFeatures()
{
    return kLine;
}

std::span<const Feature> CounterFeatures()
{
    return kCounter;
}

} // namespace nq::camera
