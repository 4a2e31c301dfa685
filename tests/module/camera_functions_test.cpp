// SPDX-License-Identifier: Apache-2.0
// The camera functions as an application finds them in the loaded library, under their plain names.
#include "support/gvcp_camera.h"
#include "support/producer.h"

#include <gmock/gmock.h>

#include <array>

namespace
{

using nq::test::GvcpCamera;
using nq::test::Producer;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr unsigned int kLoopback = 0x7F000001;
constexpr unsigned int kKey = 0x4E514745;

using Callback = int (*)(void*, void*);

/// The exported functions by name.
struct CameraFunctions
{
    template <typename Function>
    void Find(Function& function, const char* name)
    {
        function = reinterpret_cast<Function>(producer.Find(name));
        EXPECT_NE(function, nullptr) << name;
    }

    CameraFunctions()
    {
        Find(findNetworkAdapters, "findNetworkAdapters");
        Find(discoverCamerasExt, "discoverCamerasExt");
        Find(discoverCameras, "discoverCameras");
        Find(shutdownCameras, "shutdownCameras");
        Find(openCameraExt, "openCameraExt");
        Find(openCamera, "openCamera");
        Find(closeCamera, "closeCamera");
        Find(set, "Camera_setGigECameraRegister");
        Find(get, "Camera_getGigECameraRegister");
        Find(write, "Camera_writeGigECameraMemory");
        Find(read, "Camera_readGigECameraMemory");
        mode = static_cast<int*>(producer.Find("g_mcMode"));
        EXPECT_NE(mode, nullptr);
    }

    Producer producer;
    int (*findNetworkAdapters)(unsigned int*, unsigned char) = nullptr;
    int (*discoverCamerasExt)(unsigned int, unsigned int, unsigned long, Callback, void*) = nullptr;
    int (*discoverCameras)(unsigned int, unsigned long, Callback, void*) = nullptr;
    int (*shutdownCameras)() = nullptr;
    int (*openCameraExt)(unsigned long*, unsigned int, unsigned int, unsigned int, unsigned int, int) = nullptr;
    int (*openCamera)(unsigned long*, unsigned int, unsigned int, unsigned int, int) = nullptr;
    int (*closeCamera)(unsigned long) = nullptr;
    int (*set)(unsigned long, unsigned int, unsigned int, unsigned int) = nullptr;
    int (*get)(unsigned long, unsigned int, unsigned int*, unsigned int) = nullptr;
    int (*write)(unsigned long, unsigned int, unsigned char*, unsigned int, unsigned int) = nullptr;
    int (*read)(unsigned long, unsigned int, unsigned char*, unsigned int, unsigned int) = nullptr;
    int* mode = nullptr;
};

TEST(CameraFunctions, AreExportedUnderTheirPlainNamesAndWorkWithoutGCInitLib)
{
    GvcpCamera peer;
    const CameraFunctions library;
    unsigned long handle = 0;
    ASSERT_EQ(library.openCamera(&handle, kLoopback, kLoopback, 3000, 0), 0);
    EXPECT_EQ(handle, 0x7F000001UL + 3956UL);
    EXPECT_EQ(library.set(handle, 0x0B00, 0x01020304, kKey), 0);
    unsigned int value = 0;
    EXPECT_EQ(library.get(handle, 0x0B00, &value, kKey), 0);
    EXPECT_EQ(value, 0x01020304U);
    std::array<unsigned char, 4> data{1, 2, 3, 4};
    EXPECT_EQ(library.write(handle, 0x1000, data.data(), 4, kKey), 0);
    EXPECT_EQ(library.read(handle, 0x1000, data.data(), 4, kKey), 0);
    EXPECT_EQ(library.closeCamera(handle), 0);
    EXPECT_THAT(peer.ReceivedBytes(), SizeIs(5));
}

TEST(CameraFunctions, AccessWithAnotherKeyIsRefused)
{
    GvcpCamera peer;
    const CameraFunctions library;
    unsigned long handle = 0;
    ASSERT_EQ(library.openCameraExt(&handle, kLoopback, 3956, kLoopback, 0, 0), 0);
    unsigned int value = 0;
    EXPECT_EQ(library.get(handle, 0x0B00, &value, 1), -11);
    EXPECT_EQ(library.get(handle + 1, 0x0B00, &value, 1), -208);
    EXPECT_THAT(peer.ReceivedBytes(), IsEmpty());
    EXPECT_EQ(library.closeCamera(handle), 0);
}

TEST(CameraFunctions, ModeIsAnExportedIntegerThatStartsAtZero)
{
    GvcpCamera peer;
    const CameraFunctions library;
    EXPECT_EQ(*library.mode, 0);
    unsigned long handle = 0;
    ASSERT_EQ(library.openCamera(&handle, kLoopback, kLoopback, 3000, 0), 0);
    *library.mode = 3;
    EXPECT_EQ(library.set(handle, 0x0B00, 1, kKey), 0);
    EXPECT_THAT(peer.ReceivedBytes(), IsEmpty());
    *library.mode = 2;
    EXPECT_EQ(library.set(handle, 0x0B00, 1, kKey), 0);
    EXPECT_THAT(peer.ReceivedBytes(), SizeIs(1));
    EXPECT_EQ(library.closeCamera(handle), 0);
}

TEST(CameraFunctions, ArgumentsAreChecked)
{
    const CameraFunctions library;
    EXPECT_EQ(library.findNetworkAdapters(nullptr, 1), -229);
    EXPECT_EQ(library.discoverCameras(kLoopback, 1, nullptr, nullptr), -218);
    EXPECT_EQ(library.discoverCamerasExt(3956, kLoopback, 1, nullptr, nullptr), -218);
    EXPECT_EQ(library.shutdownCameras(), 0);
    EXPECT_EQ(library.closeCamera(12345), 0);
    std::array<unsigned int, 2> addresses{};
    EXPECT_EQ(library.findNetworkAdapters(addresses.data(), 2), 0);
    EXPECT_THAT(addresses, ElementsAre(kLoopback, 0));
}

} // namespace
