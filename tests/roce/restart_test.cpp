// SPDX-License-Identifier: Apache-2.0
// One consumer that starts and stops the stream of one camera many times, on whatever RDMA device there is.
#include "support/producer.h"

#include <array>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

namespace
{

constexpr int acquisitions = 20;
constexpr int framesEach = 5;
constexpr int bufferCount = 4;

long OpenDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

/// The first stream of the first camera that is found within a second on each interface.
class Consumer
{
  public:
    Consumer()
    {
        EXPECT_EQ(gentl.GCInitLib(), 0);
        EXPECT_EQ(gentl.TLOpen(&m_system), 0);
        EXPECT_EQ(gentl.TLUpdateInterfaceList(m_system, nullptr, 1000), 0);
        std::uint32_t interfaces = 0;
        EXPECT_EQ(gentl.TLGetNumInterfaces(m_system, &interfaces), 0);
        for (std::uint32_t index = 0; index < interfaces && stream == nullptr; ++index)
        {
            OpenCameraOn(index);
        }
    }
    ~Consumer()
    {
        EXPECT_EQ(gentl.TLClose(m_system), 0);
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;

    nq::test::Producer gentl;
    GenTL::DS_HANDLE stream = nullptr;

  private:
    void OpenCameraOn(std::uint32_t index)
    {
        std::array<char, 256> id{};
        std::size_t size = id.size();
        GenTL::IF_HANDLE interface = nullptr;
        GenTL::DEV_HANDLE device = nullptr;
        std::uint32_t cameras = 0;
        EXPECT_EQ(gentl.TLGetInterfaceID(m_system, index, id.data(), &size), 0);
        EXPECT_EQ(gentl.TLOpenInterface(m_system, id.data(), &interface), 0);
        EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 1000), 0);
        EXPECT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        if (cameras == 0)
        {
            EXPECT_EQ(gentl.IFClose(interface), 0);
            return;
        }
        size = id.size();
        EXPECT_EQ(gentl.IFGetDeviceID(interface, 0, id.data(), &size), 0);
        ASSERT_EQ(gentl.IFOpenDevice(interface, id.data(), GenTL::DEVICE_ACCESS_CONTROL, &device), 0);
        size = id.size();
        EXPECT_EQ(gentl.DevGetDataStreamID(device, 0, id.data(), &size), 0);
        ASSERT_EQ(gentl.DevOpenDataStream(device, id.data(), &stream), 0);
    }

    GenTL::TL_HANDLE m_system = nullptr;
};

} // namespace

TEST(Restart, EachOfTwentyAcquisitionsBringsFramesAndNothingIsLeftOpen)
{
    Consumer consumer;
    ASSERT_NE(consumer.stream, nullptr) << "no camera answered";
    const nq::test::Producer& gentl = consumer.gentl;
    GenTL::EVENT_HANDLE event = nullptr;
    ASSERT_EQ(gentl.GCRegisterEvent(consumer.stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    std::vector<GenTL::BUFFER_HANDLE> buffers(bufferCount);
    for (GenTL::BUFFER_HANDLE& buffer : buffers)
    {
        ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(consumer.stream, 64, nullptr, &buffer), 0);
    }
    long descriptors = 0;
    for (int acquisition = 1; acquisition <= acquisitions; ++acquisition)
    {
        ASSERT_EQ(gentl.DSFlushQueue(consumer.stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
        ASSERT_EQ(gentl.DSStartAcquisition(consumer.stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0)
            << "acquisition " << acquisition;
        for (int frame = 0; frame < framesEach; ++frame)
        {
            GenTL::EVENT_NEW_BUFFER_DATA data{};
            std::size_t size = sizeof data;
            ASSERT_EQ(gentl.EventGetData(event, &data, &size, 20000), 0)
                << "acquisition " << acquisition << ", frame " << frame;
            ASSERT_EQ(gentl.DSQueueBuffer(consumer.stream, data.BufferHandle), 0);
        }
        ASSERT_EQ(gentl.DSStopAcquisition(consumer.stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
        std::cout << "acquisition " << acquisition << std::endl;
        if (acquisition == 1)
        {
            descriptors = OpenDescriptors();
        }
    }
    EXPECT_EQ(OpenDescriptors(), descriptors);
}
