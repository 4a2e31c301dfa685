// SPDX-License-Identifier: Apache-2.0
// Triggers of the virtual camera: where they come from, when they take effect, and what the lines show meanwhile.
#include "camera/acquisition.h"
#include "camera/feature_host.h"

#include <gmock/gmock.h>

#include <thread>

using namespace nq::test;

namespace
{

using nq::camera::Acquisition;
using nq::camera::DeviceClock;
using nq::camera::FrameTicket;
using nq::camera::LineWave;
using nq::camera::TriggerActivation;
using nq::camera::TriggerSettings;
using nq::camera::TriggerSource;
using std::chrono::milliseconds;

/// What the acquisition does `ms` after the clock began: "frame" and its id, "at" and a time, or "idle".
std::string Next(Acquisition& acquisition, int ms, bool canSend = true)
{
    const auto decision = acquisition.Next(canSend, Acquisition::Clock::time_point(milliseconds(ms)));
    if (const auto* ticket = std::get_if<FrameTicket>(&decision))
    {
        return "frame " + std::to_string(ticket->id);
    }
    if (const auto* time = std::get_if<Acquisition::Clock::time_point>(&decision))
    {
        return "at " + std::to_string(std::chrono::duration_cast<milliseconds>(time->time_since_epoch()).count());
    }
    return "idle";
}

/// A line of 10 Hz rises at 50 ms, falls at 100 ms, rises at 150 ms.
class CameraTrigger : public testing::Test
{
  protected:
    void Begin(const TriggerSettings& frame, const TriggerSettings& burst = {}, std::uint32_t count = 1,
               double exposure = 0)
    {
        m_acquisition.Configure(
            {.exposure = exposure, .frameTrigger = frame, .burstTrigger = burst, .burstCount = count});
        m_acquisition.EnableStream(true);
    }

    DeviceClock m_clock;
    Acquisition m_acquisition{m_clock, true, 0};
};

} // namespace

TEST_F(CameraTrigger, LineTriggersByItsRisingEdge)
{
    Begin({.on = true, .source = TriggerSource::Line0});
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
    EXPECT_EQ(Next(m_acquisition, 50), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 50), "at 150");
    EXPECT_EQ(Next(m_acquisition, 149), "at 150");
    EXPECT_EQ(Next(m_acquisition, 400), "frame 2");
    EXPECT_EQ(Next(m_acquisition, 400), "frame 3") << "the edges at 150, 250 and 350 ms";
    EXPECT_EQ(Next(m_acquisition, 400), "frame 4");
    EXPECT_EQ(Next(m_acquisition, 400), "at 450");
}

TEST_F(CameraTrigger, LineTriggersByItsFallingEdgeAndByAny)
{
    Begin({.on = true, .source = TriggerSource::Line0, .activation = TriggerActivation::FallingEdge});
    EXPECT_EQ(Next(m_acquisition, 20), "at 100");
    EXPECT_EQ(Next(m_acquisition, 100), "frame 1");
    Begin({.on = true, .source = TriggerSource::Line0, .activation = TriggerActivation::AnyEdge});
    EXPECT_EQ(Next(m_acquisition, 120), "at 150");
    EXPECT_EQ(Next(m_acquisition, 150), "frame 2");
    EXPECT_EQ(Next(m_acquisition, 151), "at 200");
}

TEST_F(CameraTrigger, InvertedLineRisesWhereItFell)
{
    Begin({.on = true, .source = TriggerSource::Line0, .wave = {.frequency = 10, .inverted = true}});
    EXPECT_EQ(Next(m_acquisition, 20), "at 100");
}

TEST_F(CameraTrigger, DelayPutsTheEffectOff)
{
    Begin({.on = true, .source = TriggerSource::Line0, .delay = milliseconds(30)});
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
    EXPECT_EQ(Next(m_acquisition, 50), "at 80");
    EXPECT_EQ(Next(m_acquisition, 80), "frame 1");
}

TEST_F(CameraTrigger, CounterTriggersWhenItIsFull)
{
    Begin({.on = true, .source = TriggerSource::Counter0End, .counter = {.on = true, .duration = 3}});
    EXPECT_EQ(Next(m_acquisition, 20), "at 250") << "the third rising edge";
    EXPECT_EQ(Next(m_acquisition, 250), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 250), "at 550");
    Begin({.on = true, .source = TriggerSource::Counter0End});
    EXPECT_EQ(Next(m_acquisition, 300), "idle") << "it counts nothing";
}

TEST_F(CameraTrigger, SoftwareTriggersOnlyWhereItIsTheSource)
{
    Begin({.on = true, .source = TriggerSource::Line0});
    m_acquisition.Trigger();
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
}

TEST_F(CameraTrigger, BurstIsForSoManyFrames)
{
    Begin({}, {.on = true}, 2);
    EXPECT_EQ(Next(m_acquisition, 0), "idle");
    EXPECT_TRUE(m_acquisition.Count().burstTriggerWait);
    m_acquisition.Trigger();
    EXPECT_EQ(Next(m_acquisition, 1), "idle") << "a trigger of the frame";
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 1), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 1), "frame 2");
    EXPECT_EQ(Next(m_acquisition, 1), "idle");
}

TEST_F(CameraTrigger, EdgesBetweenAcquisitionsTriggerNothing)
{
    m_acquisition.Configure({.mode = nq::camera::AcquisitionMode::SingleFrame,
                             .frameTrigger = {.on = true, .source = TriggerSource::Line0}});
    m_acquisition.EnableStream(true);
    m_acquisition.Start();
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
    EXPECT_EQ(Next(m_acquisition, 50), "frame 1");
    m_acquisition.Start();
    EXPECT_EQ(Next(m_acquisition, 520), "at 550") << "the edges of 150 to 450 ms came while no acquisition ran";
    EXPECT_EQ(Next(m_acquisition, 550), "frame 2");
}

TEST_F(CameraTrigger, BurstThatAnAcquisitionCutShortIsOver)
{
    m_acquisition.Configure(
        {.mode = nq::camera::AcquisitionMode::SingleFrame, .burstTrigger = {.on = true}, .burstCount = 3});
    m_acquisition.EnableStream(true);
    m_acquisition.Start();
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 0), "frame 1");
    m_acquisition.Start();
    EXPECT_EQ(Next(m_acquisition, 1), "idle") << "waits for a trigger of its own";
}

TEST_F(CameraTrigger, EdgesBeyondThoseThatMayWaitAreLost)
{
    Begin({.on = true, .source = TriggerSource::Line0, .wave = {.frequency = 10000}});
    EXPECT_EQ(Next(m_acquisition, 20), "at 20");
    for (int frame = 1; frame <= 4096; ++frame)
    {
        ASSERT_EQ(Next(m_acquisition, 1020), "frame " + std::to_string(frame)) << "10000 edges, of which 4096 wait";
    }
    EXPECT_EQ(Next(m_acquisition, 1020), "at 1020") << "the next edge, 50 us later";
}

TEST_F(CameraTrigger, EdgesBetweenBurstsTriggerNothing)
{
    Begin({.on = true, .source = TriggerSource::Line0}, {.on = true}, 2);
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
    EXPECT_EQ(Next(m_acquisition, 160), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 160), "frame 2") << "the edges at 50 and 150 ms";
    EXPECT_EQ(Next(m_acquisition, 170), "idle");
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 420), "at 450") << "those at 250 and 350 ms came while no burst ran";
}

TEST_F(CameraTrigger, SoftwareTriggersOfFramesCountWhileABurstRunsOrIsDue)
{
    Begin({.on = true}, {.on = true}, 1);
    m_acquisition.Trigger();
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 0), "idle") << "the trigger came before the burst's";
    m_acquisition.Trigger();
    m_acquisition.Trigger();
    EXPECT_EQ(Next(m_acquisition, 1), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 1), "idle");
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 2), "idle") << "the second trigger was for the burst before";
    m_acquisition.TriggerBurst();
    m_acquisition.Trigger();
    m_acquisition.Trigger();
    EXPECT_EQ(Next(m_acquisition, 3), "frame 2");
    EXPECT_EQ(Next(m_acquisition, 3), "frame 3") << "the next burst is due";
}

TEST_F(CameraTrigger, BurstThatIsSwitchedOffIsOver)
{
    Begin({}, {.on = true}, 3);
    m_acquisition.TriggerBurst();
    EXPECT_EQ(Next(m_acquisition, 0), "frame 1");
    m_acquisition.Configure({.frameTrigger = {.on = true}, .burstCount = 3});
    m_acquisition.Configure({.burstTrigger = {.on = true}, .burstCount = 3});
    EXPECT_EQ(Next(m_acquisition, 1), "idle") << "waits for a trigger of its own";
}

TEST_F(CameraTrigger, FrameComesWhenItsExposureEnds)
{
    Begin({.on = true, .source = TriggerSource::Line0}, {}, 1, 0.02);
    EXPECT_EQ(Next(m_acquisition, 20), "at 50");
    EXPECT_TRUE(m_acquisition.Count().frameTriggerWait);
    EXPECT_EQ(Next(m_acquisition, 50), "at 70");
    EXPECT_TRUE(m_acquisition.Count().exposing);
    EXPECT_EQ(Next(m_acquisition, 70), "frame 1");
}

TEST_F(CameraTrigger, StopLetsTheExposureEndAndAbortDoesNot)
{
    Begin({}, {}, 1, 0.02);
    EXPECT_EQ(Next(m_acquisition, 10), "at 30");
    m_acquisition.Stop();
    EXPECT_EQ(Next(m_acquisition, 30), "frame 1");
    EXPECT_EQ(Next(m_acquisition, 31), "idle");
    m_acquisition.Start();
    EXPECT_EQ(Next(m_acquisition, 40), "at 60");
    m_acquisition.Abort();
    EXPECT_EQ(Next(m_acquisition, 60), "idle");
}

namespace
{

/// Whether a feature comes to stand at each of two values within 20 s.
bool Shows(const FeatureHost& host, const std::string& name, double one, double other)
{
    bool sawOne = false;
    bool sawOther = false;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!(sawOne && sawOther) && std::chrono::steady_clock::now() < end)
    {
        const double value = host.Get(name);
        sawOne |= value == one;
        sawOther |= value == other;
        std::this_thread::sleep_for(milliseconds(1));
    }
    return sawOne && sawOther;
}

} // namespace

TEST(CameraLines, InputMovesAndTheCounterCountsIt)
{
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("TestLineFrequency", 50), 0U);
    EXPECT_EQ(host.Entry("LineMode"), "Input");
    EXPECT_TRUE(Shows(host, "LineStatus", 0, 1));
    EXPECT_TRUE(Shows(host, "LineStatusAll", 0, 1));
    EXPECT_EQ(host.Get("CounterValue"), 0);
    ASSERT_EQ(host.Set("CounterDuration", 3), 0U);
    ASSERT_EQ(host.Set("CounterEventSource", "Line0"), 0U);
    EXPECT_TRUE(Shows(host, "CounterValue", 1, 2));
    ASSERT_EQ(host.Set("CounterEventSource", "Off"), 0U);
    EXPECT_EQ(host.Get("CounterValue"), 0);
}

TEST(CameraLines, CounterGoesOnWhereItIsWhenTheWaveChanges)
{
    // An edge comes every 10 s at most, so that few come during the test.
    constexpr double kFew = 6;
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("CounterDuration", 65535), 0U);
    ASSERT_EQ(host.Set("TestLineFrequency", 0.1), 0U);
    ASSERT_EQ(host.Set("CounterEventSource", "Line0"), 0U);
    EXPECT_LE(host.Get("CounterValue"), kFew);
    ASSERT_EQ(host.Set("LineInverter", 1), 0U);
    EXPECT_LE(host.Get("CounterValue"), kFew) << "inverted";
    ASSERT_EQ(host.Set("UserSetSelector", "UserSet1"), 0U);
    ASSERT_EQ(host.Execute("UserSetSave"), 0U);
    ASSERT_EQ(host.Set("TestLineFrequency", 0.2), 0U);
    EXPECT_LE(host.Get("CounterValue"), kFew) << "at another frequency";
    ASSERT_EQ(host.Execute("UserSetLoad"), 0U);
    EXPECT_LE(host.Get("CounterValue"), kFew) << "at the frequency of the set";
    ASSERT_EQ(host.Set("UserSetDefault", "UserSet1"), 0U);
    ASSERT_EQ(host.Execute("DeviceReset"), 0U);
    host.KeepControl();
    EXPECT_LE(host.Get("CounterValue"), kFew) << "begins at power on";
}

TEST(CameraLines, CounterKeepsItsValueWhenItsEndMovesOn)
{
    const VirtualCamera camera;
    FeatureHost host;
    ASSERT_EQ(host.Set("CounterDuration", 2), 0U);
    ASSERT_EQ(host.Set("TestLineFrequency", 10000), 0U);
    ASSERT_EQ(host.Set("CounterEventSource", "Line0"), 0U);
    std::this_thread::sleep_for(milliseconds(20));
    ASSERT_EQ(host.Set("TestLineFrequency", 0.1), 0U);
    ASSERT_EQ(host.Set("CounterDuration", 65535), 0U);
    EXPECT_LE(host.Get("CounterValue"), 6) << "not the 200 edges that it counted in rounds of 2";
}

TEST(CameraLines, OutputFollowsItsSourceAndInverter)
{
    const VirtualCamera camera;
    FeatureHost host;
    EXPECT_FALSE(host.IsAvailable("LineSource"));
    ASSERT_EQ(host.Set("LineSelector", "Line1"), 0U);
    EXPECT_EQ(host.Entry("LineMode"), "Output");
    EXPECT_EQ(host.Get("LineStatus"), 0);
    ASSERT_EQ(host.Set("LineSource", "UserOutput0"), 0U);
    ASSERT_EQ(host.Set("UserOutputValue", 1), 0U);
    EXPECT_EQ(host.Get("LineStatus"), 1);
    ASSERT_EQ(host.Set("LineInverter", 1), 0U);
    EXPECT_EQ(host.Get("LineStatus"), 0);
}

TEST(CameraLines, ExposureModeIsThereWhileTheLineTriggersAndTakesItsWidth)
{
    const VirtualCamera camera;
    FeatureHost host;
    EXPECT_FALSE(host.IsAvailable("ExposureMode"));
    ASSERT_EQ(host.Set("TriggerMode", "On"), 0U);
    ASSERT_EQ(host.Set("TriggerSource", "Line0"), 0U);
    EXPECT_TRUE(host.IsAvailable("ExposureMode"));
    ASSERT_EQ(host.Set("TestLineFrequency", 10), 0U);
    ASSERT_EQ(host.Set("ExposureMode", "TriggerWidth"), 0U);
    EXPECT_FLOAT_EQ(static_cast<float>(host.Limit("AcquisitionFrameRate", "Max")), 20) << "exposed for 50 ms";
    ASSERT_EQ(host.Set("TriggerSelector", "FrameBurstStart"), 0U);
    EXPECT_EQ(host.Entry("TriggerMode"), "Off") << "each trigger has its own";
}
