// SPDX-License-Identifier: Apache-2.0
// The interface module's refusals to open a device: their order, their codes and their trace lines.
#include "support/interface_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <utility>
#include <vector>

using nq::test::InterfaceModule;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::Pair;

namespace
{

/// An interface that writes down what it is scanned for and finds nothing.
class ScannedInterface : public InterfaceModule
{
  public:
    int UpdateDeviceList(bool* changed, unsigned long timeout) override
    {
        scans.emplace_back(changed, timeout);
        return -1001; // nobody looks at it
    }

    std::vector<std::pair<bool*, unsigned long>> scans;
};

class OpenDeviceRefusal : public testing::Test
{
  protected:
    OpenDeviceRefusal() { interface.Merge({nq::test::Device("known")}); }

    int Open(const char* id, int flags) { return interface.OpenDevice(id, flags, &handle); }

    ScannedInterface interface;
    void* handle = &interface;
    const TraceCapture trace;
};

TEST_F(OpenDeviceRefusal, ArgumentsComeBeforeTheList)
{
    EXPECT_EQ(Open(nullptr, 3), -1009);
    EXPECT_EQ(interface.OpenDevice("known", 3, nullptr), -1009);
    EXPECT_EQ(Open("unknown", 5), -1009);
    EXPECT_EQ(Open("unknown", 999), -1009);
    EXPECT_TRUE(interface.scans.empty());
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("OpenDevice GC_ERR_INVALID_PARAMETER", "OpenDevice GC_ERR_INVALID_PARAMETER",
                            "OpenDevice GC_ERR_INVALID_PARAMETER", "OpenDevice GC_ERR_INVALID_PARAMETER"));
}

TEST_F(OpenDeviceRefusal, AnUnknownIdIsLookedForByOneScanOfTwoSecondsBeforeTheFlagsCount)
{
    EXPECT_EQ(Open("unknown", 1), -1007);
    EXPECT_THAT(interface.scans, ElementsAre(Pair(nullptr, 2000UL)));
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("OpenDevice GC_ERR_INVALID_ID"));
    EXPECT_EQ(handle, &interface);
}

TEST_F(OpenDeviceRefusal, OtherFlagsOfAKnownDeviceAreNotImplemented)
{
    for (const int flags : {-1, 0, 1, 1000})
    {
        EXPECT_EQ(Open("known", flags), -1003) << flags;
    }
    EXPECT_TRUE(interface.scans.empty());
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("OpenDevice GC_ERR_NOT_IMPLEMENTED", "OpenDevice GC_ERR_NOT_IMPLEMENTED",
                            "OpenDevice GC_ERR_NOT_IMPLEMENTED", "OpenDevice GC_ERR_NOT_IMPLEMENTED"));
}

TEST_F(OpenDeviceRefusal, ADeviceOnAnotherSubnetIsNotAccessibleInAnyMode)
{
    for (const int flags : {2, 3, 4})
    {
        EXPECT_EQ(Open("known", flags), -1005) << flags;
    }
    EXPECT_EQ(handle, &interface);
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("OpenDevice failed! Device not accessible", "OpenDevice failed! Device not accessible",
                            "OpenDevice failed! Device not accessible"));
}

} // namespace
