// SPDX-License-Identifier: Apache-2.0
// When the virtual camera takes a frame.
#include "camera/acquisition.h"

#include <gtest/gtest.h>

using namespace nq::camera;
using std::chrono::milliseconds;

namespace
{

class CameraAcquisition : public testing::Test
{
  protected:
    Acquisition Make(bool freeRun, std::uint64_t limit = 0) { return Acquisition(m_clock, freeRun, limit); }

    /// The id of the frame taken, 0 for none.
    static std::uint64_t Next(Acquisition& acquisition, Acquisition::Clock::time_point now = {}, bool canSend = true)
    {
        const auto decision = acquisition.Next(canSend, now);
        const auto* ticket = std::get_if<FrameTicket>(&decision);
        return ticket == nullptr ? 0 : ticket->id;
    }

    DeviceClock m_clock;
};

} // namespace

TEST_F(CameraAcquisition, FreeRunningBeginsWithTheStream)
{
    Acquisition acquisition = Make(true);
    EXPECT_EQ(Next(acquisition), 0U);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 2U);
    acquisition.EnableStream(false);
    EXPECT_EQ(Next(acquisition), 0U);
}

TEST_F(CameraAcquisition, IdsBeginAtOneWhenTheStreamIsEnabledAgain)
{
    Acquisition acquisition = Make(true);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 2U);
    acquisition.EnableStream(false);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
}

TEST_F(CameraAcquisition, WithoutFreeRunningItWaitsForStart)
{
    Acquisition acquisition = Make(false);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 0U);
    acquisition.Start();
    EXPECT_EQ(Next(acquisition), 1U);
    acquisition.Stop();
    EXPECT_EQ(Next(acquisition), 0U);
}

TEST_F(CameraAcquisition, StartBeforeTheStreamIsRemembered)
{
    Acquisition acquisition = Make(false);
    acquisition.Start();
    acquisition.EnableStream(false);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
}

TEST_F(CameraAcquisition, NothingIsTakenWithoutACredit)
{
    Acquisition acquisition = Make(true);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition, {}, false), 0U);
    EXPECT_EQ(Next(acquisition, {}, true), 1U);
}

TEST_F(CameraAcquisition, SingleFrameEndsAfterOne)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.mode = AcquisitionMode::SingleFrame});
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 0U);
    acquisition.Start();
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 0U);
}

TEST_F(CameraAcquisition, MultiFrameEndsAfterItsCount)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.mode = AcquisitionMode::MultiFrame, .frameCount = 2});
    acquisition.EnableStream(true);
    acquisition.Start();
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 2U);
    EXPECT_EQ(Next(acquisition), 0U);
    acquisition.Start();
    EXPECT_EQ(Next(acquisition), 3U);
}

TEST_F(CameraAcquisition, FrameLimitHoldsOverAllStreams)
{
    Acquisition acquisition = Make(true, 2);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
    acquisition.EnableStream(false);
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 0U);
}

TEST_F(CameraAcquisition, EachTriggerTakesOneFrame)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.frameTrigger = {.on = true}});
    acquisition.Trigger();
    acquisition.EnableStream(true);
    EXPECT_EQ(Next(acquisition), 0U); // the trigger before the stream does not count
    acquisition.Trigger();
    acquisition.Trigger();
    EXPECT_EQ(Next(acquisition, {}, false), 0U); // waits for a credit
    EXPECT_EQ(Next(acquisition), 1U);
    EXPECT_EQ(Next(acquisition), 2U);
    EXPECT_EQ(Next(acquisition), 0U);
}

/// Consumers execute AcquisitionStart behind the start of the stream, with which this camera begins by itself.
TEST_F(CameraAcquisition, AStartOfWhatRunsAlreadyKeepsItsPace)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.frameRate = 20});
    acquisition.EnableStream(true);
    const Acquisition::Clock::time_point start{};
    EXPECT_EQ(Next(acquisition, start), 1U);
    acquisition.Start();
    EXPECT_EQ(Next(acquisition, start + milliseconds(1)), 0U);
    EXPECT_EQ(Next(acquisition, start + milliseconds(49)), 0U);
    EXPECT_EQ(Next(acquisition, start + milliseconds(50)), 2U);
    acquisition.Stop();
    acquisition.Start();
    EXPECT_EQ(Next(acquisition, start + milliseconds(51)), 3U);
}

TEST_F(CameraAcquisition, FrameRateSpacesTheFrames)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.frameRate = 100});
    acquisition.EnableStream(true);
    const Acquisition::Clock::time_point start{milliseconds(1000)};
    EXPECT_EQ(Next(acquisition, start), 1U);
    const auto decision = acquisition.Next(true, start + milliseconds(5));
    ASSERT_TRUE(std::holds_alternative<Acquisition::Clock::time_point>(decision));
    EXPECT_EQ(std::get<Acquisition::Clock::time_point>(decision), start + milliseconds(10));
    EXPECT_EQ(Next(acquisition, start + milliseconds(10)), 2U);
    EXPECT_EQ(Next(acquisition, start + milliseconds(20)), 3U);
}

TEST_F(CameraAcquisition, FrameThatIsDueWithoutACreditIsLostWithItsId)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure({.frameRate = 100});
    acquisition.EnableStream(true);
    const Acquisition::Clock::time_point start{milliseconds(1000)};
    EXPECT_EQ(Next(acquisition, start, false), 0U); // the rate's clock has not started
    EXPECT_EQ(Next(acquisition, start + milliseconds(50)), 1U);
    EXPECT_EQ(Next(acquisition, start + milliseconds(60), false), 0U);
    EXPECT_EQ(Next(acquisition, start + milliseconds(70)), 3U);
    EXPECT_EQ(acquisition.Count().lost, 1U);
}

TEST_F(CameraAcquisition, TicketCarriesTheSettings)
{
    Acquisition acquisition = Make(true);
    acquisition.Configure(
        {.picture = {12, 34, *FindPixelFormat(0x01100003), TestPattern::Noise}, .offsetX = 5, .offsetY = 6});
    acquisition.EnableStream(true);
    const auto decision = acquisition.Next(true, {});
    ASSERT_TRUE(std::holds_alternative<FrameTicket>(decision));
    const auto& ticket = std::get<FrameTicket>(decision);
    EXPECT_EQ(ticket.picture.width, 12U);
    EXPECT_EQ(ticket.picture.height, 34U);
    EXPECT_EQ(ticket.picture.Payload(), 816U);
    EXPECT_EQ(ticket.offsetX, 5U);
    EXPECT_EQ(ticket.offsetY, 6U);
    EXPECT_GT(ticket.timestamp, 0U);
}
