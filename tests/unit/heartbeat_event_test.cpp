// SPDX-License-Identifier: Apache-2.0
// The heartbeat of a camera: which beats report a change of status, and when it ends by itself.
#include "gev/nq_gev_remote_device.h"
#include "gev/nq_gev_thread_heartbeat.h"

#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fake_device.h"
#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/process_counts.h"

#include <chrono>
#include <cstring>
#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <string>
#include <thread>

using nq::test::FakeDevice;
using nq::test::GvcpCamera;
using nq::test::LoopbackCamera;
using nq::test::RegisteredEvent;

namespace
{

constexpr int kConnectionEvent = 4000;

int StatusOf(const std::vector<unsigned char>& record)
{
    int status = -1;
    if (!record.empty())
    {
        std::memcpy(&status, record.data(), sizeof status);
    }
    return status;
}

std::string TextOf(const std::vector<unsigned char>& record)
{
    return record.empty() ? "" : reinterpret_cast<const char*>(record.data()) + 4;
}

/// A camera with registers of its own, on a host of its own.
class SecondCamera
{
  public:
    SecondCamera()
    {
        m_host.Connect("here", "10.9.0.1/24", "there", "10.9.0.2/24");
        m_camera = std::make_unique<GvcpCamera>(&m_host);
        m_camera->SetRegister(0x0938, 100);
    }

    GvcpCamera& Get() const { return *m_camera; }

    static _NQ_GEV_DEVICE_INFO Record()
    {
        _NQ_GEV_DEVICE_INFO record = LoopbackCamera();
        record.ipAddress = 0x0A090002;
        record.id = "second";
        return record;
    }

  private:
    nq::test::Host m_host;
    std::unique_ptr<GvcpCamera> m_camera;
};

/// Keeps what a thread allocates out of the search for leaks, in a program that has one. An event that is unregistered
/// leaves its undelivered records behind.
extern "C" void __lsan_disable() __attribute__((weak));

/// The status is one for the whole process: each case relies on running in a process of its own.
class Heartbeat : public testing::Test
{
  protected:
    Heartbeat() { camera.SetRegister(0x0938, 100); }

    std::unique_ptr<NQGevRemoteDevice> Camera(int accessMode, _NQ_GEV_DEVICE_INFO record = LoopbackCamera())
    {
        return std::make_unique<NQGevRemoteDevice>(&tl, record, accessMode, &parent);
    }

    /// Whether several heartbeat periods pass without a beat.
    bool IsQuiet()
    {
        camera.Send({0}, "127.0.0.1", camera.Port());
        EXPECT_TRUE(camera.WaitFor("other")) << "and with it all that came before";
        camera.Forget();
        return !camera.WaitFor("read 0x0A00", 1, std::chrono::milliseconds(400));
    }

    GvcpCamera camera;
    NQGevTL tl;
    FakeDevice parent;
};

TEST_F(Heartbeat, ACameraOpenedForControlGivesOneEventWithStatusFive)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    const std::vector<unsigned char> record = event.Next();
    EXPECT_EQ(StatusOf(record), 5);
    EXPECT_EQ(TextOf(record), "Model:02-00-00-00-00-01");
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 5)) << "the beats go on";
    EXPECT_EQ(event.Pending(), 0U);
}

TEST_F(Heartbeat, NoBeatComesBeforeHalfTheTimeout)
{
    camera.SetRegister(0x0938, 2000);
    const auto device = Camera(3);
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(device->Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00"));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(995));
}

TEST_F(Heartbeat, ACameraThatStopsAnsweringGivesOneEventWithStatusThreeAndIsReadNoMore)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    camera.SetSilent(true);
    EXPECT_EQ(StatusOf(event.Next()), 3);
    EXPECT_TRUE(IsQuiet());
    camera.SetSilent(false);
    EXPECT_TRUE(IsQuiet()) << "nobody restarts the thread";
    EXPECT_EQ(event.Pending(), 0U);
}

TEST_F(Heartbeat, AThreadThatEndedByItselfIsStillStoppedByClose)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    camera.SetRegister(0x0A00, 0);
    ASSERT_EQ(StatusOf(event.Next()), 0);
    EXPECT_TRUE(IsQuiet());
    ASSERT_EQ(device->Close(), 0);
    EXPECT_THAT(camera.Accesses(), testing::ElementsAre("write 0x0A00 = 0x00000000", "write 0x0A00 = 0x00000000"));
}

TEST_F(Heartbeat, WithNoEventRegisteredTheStatusStillChangesAndTheThreadStillStops)
{
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 2));
    const long threads = nq::test::LivingThreads();
    camera.SetRegister(0x0A00, 1);
    while (nq::test::LivingThreads() == threads)
    {
        std::this_thread::yield();
    }
    EXPECT_TRUE(IsQuiet());
    ASSERT_EQ(device->Close(), 0);

    RegisteredEvent event(parent, kConnectionEvent);
    const auto exclusive = Camera(4);
    ASSERT_EQ(exclusive->Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 3)) << "a status that did not change ends nothing";
    EXPECT_EQ(event.Pending(), 0U) << "the status was 3 already";
}

TEST_F(Heartbeat, ACameraOpenedForExclusiveAccessReportsThreeAndEndsTheThread)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(4);
    ASSERT_EQ(device->Open(), 0);
    EXPECT_EQ(StatusOf(event.Next()), 3);
    EXPECT_TRUE(IsQuiet());
}

TEST_F(Heartbeat, AnyOtherValueIsReportedAsItIsAndTheThreadGoesOn)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    camera.SetRegister(0x0A00, 77);
    EXPECT_EQ(StatusOf(event.Next()), 77);
    camera.SetRegister(0x0A00, 2);
    EXPECT_EQ(StatusOf(event.Next()), 5);
}

// Deliberate(ReadOnlyBeatsWithoutAPause)
TEST_F(Heartbeat, DeliberatelyTheBeatsOfAReadOnlyCameraFollowEachOtherWithoutAPause)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(2);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 50));
    EXPECT_EQ(event.Pending(), 0U) << "nobody controls the camera, as the status was from the start";
}

// Deliberate(OneStatusForTheProcess)
TEST_F(Heartbeat, DeliberatelyOneStatusForTheWholeProcess)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto first = Camera(3);
    ASSERT_EQ(first->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    _NQ_GEV_DEVICE_INFO record = LoopbackCamera();
    record.ipAddress = 0x7F000003;
    record.id = "second";
    const auto second = Camera(3, record);
    ASSERT_EQ(second->Open(), 0);
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", camera.Count("read 0x0A00") + 8));
    EXPECT_EQ(event.Pending(), 0U) << "the second camera is in the state of the first";
}

// Deliberate(OneStatusForTheProcess)
TEST_F(Heartbeat, DeliberatelyTwoCamerasInDifferentStatesReportAChangeAtEachOthersBeats)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const SecondCamera elsewhere;
    const auto first = Camera(3);
    ASSERT_EQ(first->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    const auto second = Camera(3, elsewhere.Record());
    ASSERT_EQ(second->Open(), 0);
    elsewhere.Get().SetRegister(0x0A00, 77);
    std::map<std::string, int> reports;
    for (int change = 0; change < 6; ++change)
    {
        const std::vector<unsigned char> record = event.Next();
        EXPECT_EQ(StatusOf(record), TextOf(record) == "second" ? 77 : 5);
        ++reports[TextOf(record)];
    }
    EXPECT_EQ(reports["second"], 3);
    EXPECT_EQ(reports["Model:02-00-00-00-00-01"], 3);
    ASSERT_EQ(first->Close(), 0);
    ASSERT_EQ(second->Close(), 0);
    while (event.Pending() > 0) // A record that nobody fetches is never freed.
    {
        event.Next();
    }
}

// Deliberate(OneStatusForTheProcess)
TEST_F(Heartbeat, DeliberatelyALostCameraMakesTheOtherOneReportItsStateAgain)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const SecondCamera elsewhere;
    const auto first = Camera(3);
    ASSERT_EQ(first->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    const auto second = Camera(4, elsewhere.Record());
    ASSERT_EQ(second->Open(), 0);
    std::map<std::string, int> reports;
    for (int change = 0; change < 2; ++change)
    {
        const std::vector<unsigned char> record = event.Next();
        reports[TextOf(record)] = StatusOf(record);
    }
    EXPECT_EQ(reports["second"], 3);
    EXPECT_EQ(reports["Model:02-00-00-00-00-01"], 5);
    camera.Forget();
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 5));
    EXPECT_EQ(event.Pending(), 0U) << "the second camera's thread has ended with its own report";
    EXPECT_EQ(elsewhere.Get().Count("read 0x0A00"), 1U);
}

TEST_F(Heartbeat, TheStatusIsKeptAcrossCloseAndOpen)
{
    RegisteredEvent event(parent, kConnectionEvent);
    const auto device = Camera(3);
    ASSERT_EQ(device->Open(), 0);
    ASSERT_EQ(StatusOf(event.Next()), 5);
    ASSERT_EQ(device->Close(), 0);
    ASSERT_EQ(device->Open(), 0);
    camera.Forget();
    ASSERT_TRUE(camera.WaitFor("read 0x0A00", 3)) << "the heartbeat was started again";
    EXPECT_EQ(event.Pending(), 0U);
}

TEST_F(Heartbeat, ADeviceIdOfThreeHundredCharactersArrivesAsTwoHundredAndFiftyFiveAndAZeroByte)
{
    RegisteredEvent event(parent, kConnectionEvent);
    _NQ_GEV_DEVICE_INFO record = LoopbackCamera();
    record.id = std::string(300, 'x');
    const auto device = Camera(3, record);
    ASSERT_EQ(device->Open(), 0);
    const std::vector<unsigned char> data = event.Next();
    ASSERT_FALSE(data.empty());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(data.data()) + 4, 256), std::string(255, 'x') + '\0');
    EXPECT_EQ(data[260], 0xEE) << "the record is 260 bytes";
}

TEST_F(Heartbeat, AnIdWithAZeroByteEndsThere)
{
    RegisteredEvent event(parent, kConnectionEvent);
    NQGevRemoteDevice device(&tl, LoopbackCamera(), 3, &parent);
    NQGevThreadHeartbeat heartbeat(&device);
    heartbeat._sendConnectionEvent(-7, std::string("ab\0cd", 5));
    const std::vector<unsigned char> data = event.Next();
    EXPECT_EQ(StatusOf(data), -7);
    EXPECT_EQ(TextOf(data), "ab");
}

TEST_F(Heartbeat, ItsDestructorStopsAThreadThatRuns)
{
    const auto device = Camera(2);
    {
        NQGevThreadHeartbeat heartbeat(device.get());
        EXPECT_TRUE(heartbeat.Start(600000));
        EXPECT_TRUE(heartbeat.IsRunning());
    }
    EXPECT_TRUE(IsQuiet());
}

TEST_F(Heartbeat, ACameraWithoutAParentSignalsNothing)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), 3, nullptr);
    NQGevThreadHeartbeat heartbeat(&device);
    heartbeat._sendConnectionEvent(5, "id");
}

TEST_F(Heartbeat, TheEventMayBeUnregisteredWhileItIsSignalled)
{
    NQGevRemoteDevice device(&tl, LoopbackCamera(), 3, &parent);
    NQGevThreadHeartbeat heartbeat(&device);
    std::thread signaller([&heartbeat] {
        if (__lsan_disable != nullptr)
        {
            __lsan_disable();
        }
        for (int count = 0; count < 2000; ++count)
        {
            heartbeat._sendConnectionEvent(5, "id");
        }
    });
    for (int count = 0; count < 500; ++count)
    {
        void* handle = nullptr;
        parent.RegisterEvent(kConnectionEvent, &handle);
        parent.UnregisterEvent(kConnectionEvent);
    }
    signaller.join();
}

} // namespace
