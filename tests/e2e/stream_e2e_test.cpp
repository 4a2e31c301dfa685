// SPDX-License-Identifier: Apache-2.0
// Acquisition through the exported interface alone: frames of the virtual camera, good and bad, stop and restart.
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <iterator>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using nq::test::Producer;
using nq::test::VirtualCamera;
using Arguments = std::vector<std::string>;

/// The producer runs in this very process, so the process itself needs the software RDMA: starts it again with it.
__attribute__((constructor)) void PreloadLoopback(int, char** arguments, char**)
{
    const char* preloaded = std::getenv("LD_PRELOAD");
    const std::string before = preloaded == nullptr ? "" : preloaded;
    if (before.find(NQ_LOOPBACK_PATH) == std::string::npos)
    {
        setenv("LD_PRELOAD", (before.empty() ? NQ_LOOPBACK_PATH : before + ":" NQ_LOOPBACK_PATH).c_str(), 1);
        execv("/proc/self/exe", arguments);
    }
}

long Count(const std::string& what)
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/" + what),
                         std::filesystem::directory_iterator());
}

/// A consumer with the first camera's first stream open.
class Consumer
{
  public:
    Consumer()
    {
        nq::test::RdmaFolder();
        EXPECT_EQ(gentl.GCInitLib(), 0);
        EXPECT_EQ(gentl.TLOpen(&system), 0);
        EXPECT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
        std::uint32_t interfaces = 0;
        EXPECT_EQ(gentl.TLGetNumInterfaces(system, &interfaces), 0);
        for (std::uint32_t index = 0; index < interfaces && stream == nullptr; ++index)
        {
            OpenFirstCamera(index);
        }
        EXPECT_NE(stream, nullptr) << "no camera answered";
    }

    ~Consumer()
    {
        EXPECT_EQ(gentl.TLClose(system), 0);
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;

    void AnnounceAndQueue(int count)
    {
        for (int index = 0; index < count; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, 64, nullptr, &buffer), 0);
            ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
            buffers.push_back(buffer);
        }
        ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    }

    int Start(std::uint64_t frames = GENTL_INFINITE)
    {
        return gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, frames);
    }

    int Stop() { return gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL); }

    /// The next buffer with a frame, null when none came in time.
    GenTL::BUFFER_HANDLE Next(std::uint64_t timeout = 5000)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        return gentl.EventGetData(event, &data, &size, timeout) == 0 ? data.BufferHandle : nullptr;
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

    std::uint64_t FrameId(GenTL::BUFFER_HANDLE buffer)
    {
        return Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_FRAMEID);
    }

    /// Takes `count` frames, giving each buffer back. Their ids.
    std::vector<std::uint64_t> Take(int count)
    {
        std::vector<std::uint64_t> ids;
        for (int frame = 0; frame < count; ++frame)
        {
            const GenTL::BUFFER_HANDLE buffer = Next();
            if (buffer == nullptr)
            {
                break;
            }
            ids.push_back(FrameId(buffer));
            EXPECT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
        return ids;
    }

    std::uint64_t Register64(std::uint64_t address)
    {
        std::uint64_t value = 0;
        std::size_t size = sizeof value;
        EXPECT_EQ(gentl.GCReadPort(stream, address, &value, &size), 0);
        return value;
    }

    Producer gentl;
    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    GenTL::DS_HANDLE stream = nullptr;
    GenTL::EVENT_HANDLE event = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> buffers;

  private:
    void OpenFirstCamera(std::uint32_t index)
    {
        std::array<char, 256> id{};
        std::size_t size = id.size();
        std::uint32_t cameras = 0;
        EXPECT_EQ(gentl.TLGetInterfaceID(system, index, id.data(), &size), 0);
        EXPECT_EQ(gentl.TLOpenInterface(system, id.data(), &interface), 0);
        EXPECT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
        EXPECT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        if (cameras == 0)
        {
            return;
        }
        size = id.size();
        EXPECT_EQ(gentl.IFGetDeviceID(interface, 0, id.data(), &size), 0);
        ASSERT_EQ(gentl.IFOpenDevice(interface, id.data(), GenTL::DEVICE_ACCESS_CONTROL, &device), 0);
        size = id.size();
        EXPECT_EQ(gentl.DevGetDataStreamID(device, 0, id.data(), &size), 0);
        ASSERT_EQ(gentl.DevOpenDataStream(device, id.data(), &stream), 0);
    }
};

Arguments SmallFrames(const Arguments& more = {})
{
    Arguments arguments = {"--width", "64", "--height", "16", "--fps", "100"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(Stream, FramesTravelToTheBuffersAndTheBlocksGoRound)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    const auto ids = consumer.Take(50);
    ASSERT_EQ(ids.size(), 50U);
    for (std::size_t frame = 1; frame < ids.size(); ++frame)
    {
        EXPECT_EQ(ids[frame], ids[frame - 1] + 1);
    }
    EXPECT_EQ(consumer.Register64(0x80110), 0U);
    EXPECT_GE(consumer.Register64(0x80114), 50U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, AllocatedBuffersPointIntoTheFrameBlocks)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    ASSERT_EQ(consumer.Start(), 0);
    std::set<void*> bases;
    for (int frame = 0; frame < 10; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_WIDTH), 64U);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_HEIGHT), 16U);
        EXPECT_EQ(consumer.Info<std::uint64_t>(buffer, GenTL::BUFFER_INFO_SIZE_FILLED), 1024U);
        bases.insert(consumer.Info<void*>(buffer, GenTL::BUFFER_INFO_BASE));
        ASSERT_EQ(consumer.gentl.DSQueueBuffer(consumer.stream, buffer), 0);
    }
    EXPECT_EQ(bases.size(), 2U);
    EXPECT_EQ(consumer.Stop(), 0);
}

/// A fault of one frame, by its name.
class StreamBadFrame : public testing::TestWithParam<const char*>
{
};

TEST_P(StreamBadFrame, CostsItsBlockAndNothingElse)
{
    const VirtualCamera camera(SmallFrames({"--fault", GetParam()}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(30).size(), 30U);
    EXPECT_EQ(consumer.Stop(), 0);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10).size(), 10U);
    EXPECT_EQ(consumer.Stop(), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, StreamBadFrame,
                         testing::Values("empty-frame", "wrong-component-offset", "wild-part-offset",
                                         "wild-data-offset", "huge-data-size"),
                         [](const auto& fault) {
                             std::string name = fault.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST(Stream, AShortFrameIsDeliveredAsIncomplete)
{
    const VirtualCamera camera(SmallFrames({"--fault", "short-frame"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(), 0);
    int incomplete = 0;
    for (int frame = 0; frame < 4; ++frame)
    {
        const GenTL::BUFFER_HANDLE buffer = consumer.Next();
        ASSERT_NE(buffer, nullptr);
        incomplete += consumer.Info<bool>(buffer, GenTL::BUFFER_INFO_IS_INCOMPLETE) ? 1 : 0;
    }
    EXPECT_EQ(incomplete, 1);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, AnIdThatJumpsForwardCountsNothing)
{
    const VirtualCamera camera(SmallFrames({"--fault", "id-jump"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(20).size(), 20U);
    EXPECT_EQ(consumer.Register64(0x80110), 0U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, AnIdThatRunsBackwardsLowersFrameLoss)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10).size(), 10U);
    camera.Fault("id-backwards");
    EXPECT_EQ(consumer.Take(20).size(), 20U);
    EXPECT_GT(consumer.Register64(0x80110), 0x8000000000000000U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, ARefusedConnectionFailsTheStartAndTheNextStartWorks)
{
    const VirtualCamera camera(SmallFrames({"--fault", "reject-connect"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    const long descriptors = Count("fd");
    const long threads = Count("task");
    EXPECT_EQ(consumer.Start(), -1001);
    EXPECT_EQ(Count("task"), threads + 1) << "only the software RDMA has a thread more";
    EXPECT_LE(Count("fd"), descriptors + 4) << "only the software RDMA has descriptors more";
    EXPECT_EQ(camera.Control(R"({"cmd":"clear","name":"reject-connect"})"), R"({"ok":true})");
    EXPECT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(5).size(), 5U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, APayloadTooLargeForABlockFailsTheStart)
{
    const VirtualCamera camera(SmallFrames({"--fault", "huge-payload-size"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(2);
    EXPECT_EQ(consumer.Start(), -1001);
}

TEST(Stream, ACameraThatDisconnectsEndsTheFlowAndARestartBringsItBack)
{
    const VirtualCamera camera(SmallFrames({"--fault", "disconnect-mid-frame:5"}));
    Consumer consumer;
    consumer.AnnounceAndQueue(3);
    ASSERT_EQ(consumer.Start(), 0);
    consumer.Take(1000);
    EXPECT_EQ(consumer.Next(0), nullptr);
    EXPECT_EQ(consumer.Stop(), 0);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(10).size(), 10U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, ALimitOnLockedMemoryLeavesTheBlocksRegisteredUntilThen)
{
    const VirtualCamera camera({"--width", "128", "--height", "64", "--fps", "100"});
    setenv("NQ_RDMA_LOOPBACK_MEMLOCK", "30000", 1); // the camera runs already and keeps its own
    Consumer consumer;
    consumer.AnnounceAndQueue(8);
    ASSERT_EQ(consumer.Start(), 0);
    EXPECT_EQ(consumer.Take(30).size(), 30U);
    EXPECT_EQ(consumer.Stop(), 0);
}

TEST(Stream, TheFrameAfterTheLastOneAskedForStopsTheStream)
{
    const VirtualCamera camera(SmallFrames());
    Consumer consumer;
    consumer.AnnounceAndQueue(4);
    ASSERT_EQ(consumer.Start(5), 0);
    EXPECT_EQ(consumer.Take(5).size(), 5U);
    EXPECT_EQ(consumer.Next(1000), nullptr);
    EXPECT_EQ(consumer.Stop(), -1004) << "it stopped by itself";
    ASSERT_EQ(consumer.Start(5), 0);
    EXPECT_EQ(consumer.Take(5).size(), 5U);
}

TEST(Stream, ClosingTheLibraryDuringAcquisitionLeavesNoThreadAndNoDescriptor)
{
    const VirtualCamera camera(SmallFrames());
    long descriptors = 0;
    long threads = 0;
    for (int round = 0; round < 3; ++round)
    {
        {
            Consumer consumer;
            consumer.AnnounceAndQueue(3);
            ASSERT_EQ(consumer.Start(), 0);
            EXPECT_EQ(consumer.Take(5).size(), 5U);
        }
        if (round == 0)
        {
            descriptors = Count("fd");
            threads = Count("task");
        }
        EXPECT_EQ(Count("fd"), descriptors);
        EXPECT_EQ(Count("task"), threads);
    }
}

} // namespace
