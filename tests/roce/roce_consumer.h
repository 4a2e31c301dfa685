// SPDX-License-Identifier: Apache-2.0
// A consumer of whatever camera is there, on whatever RDMA device there is.
#pragma once

#include "support/ask_until.h"
#include "support/producer.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace nq::test
{

/// Number of entries of a directory of this process, "fd" or "task".
inline long CountOf(const std::string& what)
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/" + what),
                         std::filesystem::directory_iterator());
}

/// Number of descriptors once no more than so many threads are left: by the library's own answers the one of a run that
/// was stopped leaves a while later. Not after more than 20 s.
inline long DescriptorsAtRest(long threads)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (CountOf("task") > threads && std::chrono::steady_clock::now() < end)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return CountOf("fd");
}

/// The first stream of the first camera that is found, with buffers that the library allocates, not queued yet.
class RoceConsumer
{
  public:
    explicit RoceConsumer(int buffers = 4)
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
        if (stream != nullptr)
        {
            Announce(buffers);
        }
    }
    ~RoceConsumer()
    {
        EXPECT_EQ(gentl.TLClose(m_system), 0);
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }
    RoceConsumer(const RoceConsumer&) = delete;
    RoceConsumer& operator=(const RoceConsumer&) = delete;

    /// Queues every buffer and starts.
    GenTL::GC_ERROR Start()
    {
        EXPECT_EQ(gentl.DSFlushQueue(stream, GenTL::ACQ_QUEUE_ALL_TO_INPUT), 0);
        return gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE);
    }

    /// The buffer of the next frame; null when none came in `timeout` milliseconds.
    GenTL::BUFFER_HANDLE Next(std::uint64_t timeout)
    {
        GenTL::EVENT_NEW_BUFFER_DATA data{};
        std::size_t size = sizeof data;
        return gentl.EventGetData(m_event, &data, &size, timeout) == 0 ? data.BufferHandle : nullptr;
    }

    template <typename Value>
    Value Info(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command)
    {
        Value value{};
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(gentl.DSGetBufferInfo(stream, buffer, command, &type, &value, &size), 0);
        return value;
    }

    /// Waits for a frame and gives its buffer back; false when none came in `timeout` milliseconds.
    bool TakeFrame(std::uint64_t timeout)
    {
        const GenTL::BUFFER_HANDLE buffer = Next(timeout);
        return buffer != nullptr && gentl.DSQueueBuffer(stream, buffer) == 0;
    }

    GenTL::GC_ERROR Stop() { return gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL); }

    nq::test::Producer gentl;
    GenTL::DS_HANDLE stream = nullptr; ///< Null when no camera answered.

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
        for (int attempt = 0; attempt < 3 && cameras == 0; ++attempt)
        {
            EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 1000), 0);
            EXPECT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        }
        if (cameras == 0)
        {
            EXPECT_EQ(gentl.IFClose(interface), 0);
            return;
        }
        size = id.size();
        EXPECT_EQ(gentl.IFGetDeviceID(interface, 0, id.data(), &size), 0);
        const auto open = [&] {
            return gentl.IFOpenDevice(interface, id.data(), GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, open), 0);
        size = id.size();
        EXPECT_EQ(gentl.DevGetDataStreamID(device, 0, id.data(), &size), 0);
        ASSERT_EQ(AskUntil(0, [&] { return gentl.DevOpenDataStream(device, id.data(), &stream); }), 0);
    }

    void Announce(int buffers)
    {
        std::size_t payload = 0;
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof payload;
        ASSERT_EQ(gentl.DSGetInfo(stream, GenTL::STREAM_INFO_PAYLOAD_SIZE, &type, &payload, &size), 0);
        ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &m_event), 0);
        for (int buffer = 0; buffer < buffers; ++buffer)
        {
            GenTL::BUFFER_HANDLE handle = nullptr;
            ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, payload, nullptr, &handle), 0);
        }
    }

    GenTL::TL_HANDLE m_system = nullptr;
    GenTL::EVENT_HANDLE m_event = nullptr;
};

} // namespace nq::test
