// SPDX-License-Identifier: Apache-2.0
// The interface module's closing of devices.
#include "gev/nq_gev_interface.h"

#include "gentl/nq_gentl_module_base.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <memory>
#include <string>

using nq::test::GvcpCamera;
using nq::test::TraceCapture;
using testing::ElementsAre;

namespace
{

_NQ_GEV_INTERFACE_INFO Adapter()
{
    _NQ_GEV_INTERFACE_INFO info;
    info.id = "Linux Socket:02-00-00-00-00-01";
    info.displayName = "here:10.9.0.1";
    info.tlType = "GEV";
    info.adapterName = "here";
    info.macAddress = "02-00-00-00-00-01";
    info.ipAddress = "10.9.0.1";
    info.subnetMask = "255.255.255.0";
    return info;
}

TEST(CloseDevice, AnUnknownHandleIsInvalid)
{
    NQGevInterface interface(Adapter(), nullptr);
    const TraceCapture trace;
    EXPECT_EQ(interface.CloseDevice(nullptr), -1006);
    int other = 0;
    EXPECT_EQ(interface.CloseDevice(&other), -1006);
    EXPECT_THAT(TraceCapture::At(2),
                ElementsAre("CloseDevice GC_ERR_INVALID_HANDLE", "CloseDevice GC_ERR_INVALID_HANDLE"));
}

// Deliberate(RefusedCloseIsNotDeleted)
TEST(CloseDevice, DeliberatelyADeviceThatRefusesToCloseIsGivenUp)
{
    const nq::test::Host far;
    far.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
    nq::test::Shell("ip route add 255.255.255.255/32 dev here");
    GvcpCamera camera(&far);
    camera.SetDiscovery({.specMajor = 0,
                         .specMinor = 0,
                         .deviceMode = 0,
                         .macHigh = 0,
                         .macLow = 0,
                         .ipConfigOptions = 0,
                         .ipConfigCurrent = 0,
                         .ipAddress = 0x0A090002,
                         .subnetMask = 0xFFFFFF00,
                         .manufacturer = "",
                         .deviceVersion = "3.0.0",
                         .manufacturerInfo = "",
                         .serialNumber = "",
                         .userDefinedName = ""});
    camera.SetRegister(0x0938, 60000);

    NQGevInterface interface(Adapter(), nullptr);
    ASSERT_EQ(interface.Open(), 0);
    void* handle = nullptr;
    const TraceCapture trace;
    ASSERT_EQ(interface.OpenDevice("Model:00-00-00-00-00-00", 3, &handle), 0);
    void* second = nullptr;
    EXPECT_EQ(interface.OpenDevice("Model:00-00-00-00-00-00", 3, &second), -1004);
    EXPECT_EQ(interface.OpenDevice("other", 5, &second), -1009);
    const std::unique_ptr<GigERDMA::NQGenTLModuleBase> device(static_cast<GigERDMA::NQGenTLModuleBase*>(handle));
    ASSERT_EQ(device->Close(), 0);
    EXPECT_EQ(interface.CloseDevice(handle), -1001) << "a closed module does not close";
    EXPECT_EQ(device->GetName(), "TLDevice") << "it is not deleted";
    EXPECT_EQ(interface.CloseDevice(handle), -1006);
    EXPECT_TRUE(TraceCapture::Has(2, "OpenDevice GC_ERR_RESOURCE_IN_USE"));
    EXPECT_TRUE(TraceCapture::Has(2, "OpenDevice GC_ERR_INVALID_PARAMETER"));
    ASSERT_EQ(interface.Close(), 0);
}

} // namespace
