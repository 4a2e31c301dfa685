// SPDX-License-Identifier: Apache-2.0
// Opens of a device that fail half way: nothing may be left behind, whichever step fails.
#include "gev/nq_gev_device.h"

#include "gev/nq_gev_controller.h"
#include "support/device_record.h"
#include "support/gvcp_camera.h"
#include "support/interface_module.h"
#include "support/no_sockets.h"
#include "support/process_counts.h"
#include "support/system_module.h"
#include "support/trace_capture.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <memory>
#include <new>
#include <string>

using nq::test::Descriptors;
using nq::test::GvcpCamera;
using nq::test::InterfaceModule;
using nq::test::LivingThreads;
using nq::test::LoopbackCamera;
using nq::test::SystemModule;
using nq::test::TraceCapture;

namespace
{

/// Allocations of this thread until one fails; negative: none does.
thread_local long allocationsLeft = -1;

void* Allocate(std::size_t size)
{
    if (allocationsLeft == 0)
    {
        allocationsLeft = -1;
        throw std::bad_alloc();
    }
    if (allocationsLeft > 0)
    {
        --allocationsLeft;
    }
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr)
    {
        throw std::bad_alloc();
    }
    return memory;
}

} // namespace

void* operator new(std::size_t size)
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace
{

class DeviceOpenFailure : public testing::Test
{
  protected:
    DeviceOpenFailure()
    {
        camera.SetRegister(0x0938, 60000);
        camera.SetRegister(0x0904, 2);
        camera.SetRegister(0x0900, 2);
        threads = LivingThreads();
        descriptors = Descriptors();
    }

    std::unique_ptr<NQGevDevice> Device()
    {
        return std::make_unique<NQGevDevice>(g_Controller.GetTL(), LoopbackCamera(), 3, nullptr);
    }

    GvcpCamera camera;
    long threads = 0;
    long descriptors = 0;
};

TEST_F(DeviceOpenFailure, AnExhaustedMemoryAtAnyStepLeavesNothingBehind)
{
    long failing = 0;
    for (bool opened = false; !opened; ++failing)
    {
        ASSERT_LT(failing, 2000);
        const auto device = Device();
        allocationsLeft = failing;
        try
        {
            opened = device->Open() == 0 && allocationsLeft >= 0;
        }
        catch (const std::bad_alloc&)
        {
            EXPECT_FALSE(device->IsOpen());
            EXPECT_EQ(LivingThreads(), threads) << failing;
            EXPECT_EQ(Descriptors(), descriptors) << failing;
            EXPECT_EQ(camera.GetRegister(0x0A00), 0U) << failing;
            unsigned int count = 0;
            EXPECT_EQ(g_Controller.GetNumPortURLs(device.get(), &count), -1006) << failing;
        }
        allocationsLeft = -1;
    }
    EXPECT_GT(failing, 10) << "the loop must have met failures";
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
}

TEST_F(DeviceOpenFailure, WithoutADescriptorTheOpenFailsAndCanBeRepeated)
{
    const auto device = Device();
    {
        const TraceCapture trace;
        nq::test::WithoutSockets([&device] { EXPECT_EQ(device->Open(), -1001); });
        EXPECT_TRUE(TraceCapture::Has(2, "DoOpen failed! NQGevRemoteDevice::Open -1001"));
    }
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
    unsigned int count = 0;
    EXPECT_EQ(g_Controller.GetNumPortURLs(device.get(), &count), -1006) << "not registered";
    EXPECT_TRUE(camera.Accesses().empty());
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(device->Close(), 0);
}

TEST_F(DeviceOpenFailure, ADeviceDeletedWhileOpenIsClosed)
{
    auto device = Device();
    ASSERT_EQ(device->Open(), 0);
    void* const handle = device.get();
    device.reset();
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_EQ(camera.GetRegister(0x0A00), 0U);
    unsigned int count = 0;
    EXPECT_EQ(g_Controller.GetNumPortURLs(handle, &count), -1006);
}

/// An interface on the loopback address that knows the camera.
class DeviceOpenFailureOnInterface : public DeviceOpenFailure
{
  protected:
    void SetUp() override
    {
        camera.SetRegister(0x0900, 0);
        camera.SetRegister(0x0904, 1);
        ASSERT_EQ(interface.Open(), 0);
        interface.Merge({LoopbackCamera()});
        threads = LivingThreads();
        descriptors = Descriptors();
    }

    int Open() { return interface.OpenDevice("Model:02-00-00-00-00-01", 3, &handle); }

    InterfaceModule interface {
        nq::test::Adapter("127.0.0.1", "255.0.0.0")
    };
    void* handle = nullptr;
};

TEST_F(DeviceOpenFailureOnInterface, TheCodeOfTheDeviceIsReturnedAndTheDeviceGone)
{
    nq::test::WithoutSockets([this] { EXPECT_EQ(Open(), -1001); });
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(LivingThreads(), threads);
    EXPECT_EQ(Descriptors(), descriptors);
    EXPECT_EQ(Open(), 0) << "it is not in use";
    EXPECT_EQ(interface.Close(), 0);
}

TEST_F(DeviceOpenFailureOnInterface, AnExhaustedMemoryAtAnyStepLeavesNoDeviceBehind)
{
    long failing = 0;
    for (bool opened = false; !opened; ++failing)
    {
        ASSERT_LT(failing, 2000);
        allocationsLeft = failing;
        try
        {
            opened = Open() == 0 && allocationsLeft >= 0;
        }
        catch (const std::bad_alloc&)
        {
            EXPECT_EQ(LivingThreads(), threads) << failing;
            EXPECT_EQ(Descriptors(), descriptors) << failing;
            EXPECT_EQ(camera.GetRegister(0x0A00), 0U) << failing;
        }
        allocationsLeft = -1;
    }
    EXPECT_GT(failing, 10) << "the loop must have met failures";
    EXPECT_EQ(interface.CloseDevice(handle), 0);
    EXPECT_EQ(interface.Close(), 0);
}

TEST(InterfaceOpenFailure, AnExhaustedMemoryAtAnyStepLeavesNoInterfaceBehind)
{
    SystemModule system;
    system.Merge({nq::test::Entry("one", "127.0.0.1")});
    const long descriptors = Descriptors();
    long failing = 0;
    void* handle = nullptr;
    for (bool opened = false; !opened; ++failing)
    {
        ASSERT_LT(failing, 2000);
        allocationsLeft = failing;
        try
        {
            opened = system.OpenInterface("one", &handle) == 0 && allocationsLeft >= 0;
        }
        catch (const std::bad_alloc&)
        {
            EXPECT_EQ(Descriptors(), descriptors) << failing;
            EXPECT_EQ(handle, nullptr) << failing;
        }
        allocationsLeft = -1;
    }
    EXPECT_GT(failing, 3) << "the loop must have met failures";
    EXPECT_EQ(system.CloseInterface(handle), 0);
}

} // namespace
