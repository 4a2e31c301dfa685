// SPDX-License-Identifier: Apache-2.0
// What exposure time, gain and rate of the virtual camera do to its pictures and their time.
#include "camera/feature_host.h"
#include "camera/plain_rdma_host.h"

#include <gmock/gmock.h>

#include <chrono>
#include <cmath>
#include <memory>
#include <numeric>

using namespace nq::test;

namespace
{

constexpr std::size_t kPixels = 176;

/// A camera of 16 x 8 pixels with its stream on.
class CameraExposure : public testing::Test
{
  protected:
    void Start(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.end(), {"--width", "16", "--height", "8", "--pattern", "ColorBar"});
        m_camera = std::make_unique<VirtualCamera>(arguments);
        m_host = std::make_unique<FeatureHost>();
        m_stream = std::make_unique<PlainRdmaHost>(kPixels + 16 * 8);
        ASSERT_EQ(m_stream->Connect(), RDMA_CM_EVENT_ESTABLISHED);
    }

    void Enable()
    {
        ASSERT_EQ(m_host->Write(++m_id, 0xE030, 0x80000000), 0U);
        m_stream->GrantAll();
    }

    /// The next picture's row.
    std::vector<std::uint8_t> NextRow()
    {
        const ReceivedFrame frame = m_stream->NextFrame();
        EXPECT_TRUE(frame.good);
        m_stream->Return();
        return {frame.bytes.begin() + kPixels, frame.bytes.begin() + kPixels + 16};
    }

    void ExpectThreePicturesOf50ms()
    {
        const auto start = std::chrono::steady_clock::now();
        Enable();
        NextRow();
        NextRow();
        NextRow();
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
    }

    std::unique_ptr<VirtualCamera> m_camera;
    std::unique_ptr<FeatureHost> m_host;
    std::unique_ptr<PlainRdmaHost> m_stream;
    std::uint16_t m_id = 0x100;
};

} // namespace

TEST_F(CameraExposure, BrightnessGoesWithItWithGainAndWithBlackLevel)
{
    Start({"--exposure", "15"});
    ASSERT_EQ(m_host->Get("ExposureTime"), 15);
    ASSERT_EQ(m_host->Set("ExposureTime", 30), 0U);
    Enable();
    EXPECT_EQ(NextRow()[8], 210) << "105 at the exposure of power on";
    ASSERT_EQ(m_host->Write(++m_id, 0xE030, 0), 0U);
    ASSERT_EQ(m_host->Set("ExposureTime", 15), 0U);
    ASSERT_EQ(m_host->Set("Gain", 6.03), 0U);
    ASSERT_EQ(m_host->Set("BlackLevel", 5), 0U);
    ASSERT_EQ(m_host->Write(++m_id, 0xE030, 0x80000000), 0U);
    std::vector<std::uint8_t> row;
    for (int frame = 0; frame < 6 && (row.empty() || row[15] != 5); ++frame)
    {
        row = NextRow(); // frames of before may be on their way
    }
    EXPECT_EQ(row[8], 215);
    EXPECT_EQ(row[15], 5);
}

TEST_F(CameraExposure, ALookUpTableChangesTheBrightnessWhileItIsOn)
{
    Start();
    EXPECT_EQ(m_host->Get("LUTEnable"), 0);
    ASSERT_EQ(m_host->Set("LUTIndex", 105), 0U);
    EXPECT_EQ(m_host->Get("LUTValue"), 105) << "as bright as before";
    ASSERT_EQ(m_host->Set("LUTValue", 7), 0U);
    ASSERT_EQ(m_host->Execute("UserSetSave"), 0x8004U) << "Default";
    ASSERT_EQ(m_host->Set("UserSetSelector", "UserSet1"), 0U);
    ASSERT_EQ(m_host->Execute("UserSetSave"), 0U);
    ASSERT_EQ(m_host->Set("LUTValue", 8), 0U);
    ASSERT_EQ(m_host->Execute("UserSetLoad"), 0U);
    EXPECT_EQ(m_host->Get("LUTValue"), 7);
    EXPECT_EQ(m_host->Set("LUTValue", 256), 0x8002U);
    EXPECT_EQ(m_host->Set("LUTIndex", 256), 0x8002U);
    ASSERT_EQ(m_host->Set("LUTEnable", 1), 0U);
    Enable();
    const auto row = NextRow();
    EXPECT_EQ(row[8], 7) << "105 without it";
    EXPECT_EQ(row[0], 255);
}

TEST_F(CameraExposure, RateIsAtMostOneByIt)
{
    Start();
    EXPECT_FLOAT_EQ(static_cast<float>(m_host->Limit("AcquisitionFrameRate", "Max")), 100000);
    ASSERT_EQ(m_host->Set("AcquisitionFrameRate", 1000), 0U);
    ASSERT_EQ(m_host->Set("ExposureTime", 50000), 0U);
    EXPECT_FLOAT_EQ(static_cast<float>(m_host->Limit("AcquisitionFrameRate", "Max")), 20);
    EXPECT_EQ(m_host->Get("AcquisitionFrameRate"), 20);
    EXPECT_EQ(m_host->Set("AcquisitionFrameRate", 21), 0x8002U);
    ExpectThreePicturesOf50ms();
}

TEST_F(CameraExposure, PicturesWithoutARateFollowEachOtherNoFaster)
{
    Start();
    ASSERT_EQ(m_host->Set("ExposureTime", 50000), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionFrameRateEnable"), 0);
    ExpectThreePicturesOf50ms();
}

TEST_F(CameraExposure, AbortEndsOneThatIsUnderWayAndStopDoesNot)
{
    Start();
    ASSERT_EQ(m_host->Set("ExposureTime", 10000000), 0U);
    ASSERT_EQ(m_host->Set("AcquisitionStatusSelector", "ExposureActive"), 0U);
    Enable();
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(8);
    while (m_host->Get("AcquisitionStatus") == 0 && std::chrono::steady_clock::now() < end)
    {
    }
    ASSERT_EQ(m_host->Get("AcquisitionStatus"), 1);
    ASSERT_EQ(m_host->Set("AcquisitionStatusSelector", "AcquisitionActive"), 0U);
    ASSERT_EQ(m_host->Execute("AcquisitionStop"), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionStatus"), 1);
    ASSERT_EQ(m_host->Execute("AcquisitionAbort"), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionStatus"), 0);
    ASSERT_EQ(m_host->Set("AcquisitionStatusSelector", "ExposureActive"), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionStatus"), 0);
}

TEST_F(CameraExposure, WritingARateSwitchesItOnAndZeroOff)
{
    Start();
    EXPECT_EQ(m_host->Get("AcquisitionFrameRateEnable"), 0);
    ASSERT_EQ(m_host->Set("AcquisitionFrameRate", 50), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionFrameRateEnable"), 1);
    EXPECT_EQ(m_host->Write(++m_id, 0x10030, 0), 0U);
    EXPECT_EQ(m_host->Get("AcquisitionFrameRateEnable"), 0);
    EXPECT_EQ(m_host->Get("AcquisitionFrameRate"), 50) << "what the range allows";
}

TEST_F(CameraExposure, AutomaticsMakePicturesOfMediumBrightness)
{
    Start({"--exposure", "500"});
    ASSERT_EQ(m_host->Set("ExposureTime", 30), 0U);
    ASSERT_EQ(m_host->Set("ExposureAuto", "Once"), 0U);
    Enable();
    double mean = 0;
    for (int frame = 0; frame < 50 && std::abs(mean - 127) > 6; ++frame)
    {
        const auto row = NextRow();
        mean = std::accumulate(row.begin(), row.end(), 0.0) / static_cast<double>(row.size());
    }
    EXPECT_NEAR(mean, 127, 6);
    NextRow();
    NextRow();
    EXPECT_EQ(m_host->Entry("ExposureAuto"), "Off") << "once is done";
    EXPECT_GT(m_host->Get("ExposureTime"), 400);
}

TEST_F(CameraExposure, GainAutoDoesWhatExposureCannot)
{
    Start({"--exposure", "500"});
    ASSERT_EQ(m_host->Set("ExposureTime", 50), 0U);
    ASSERT_EQ(m_host->Set("GainAuto", "Continuous"), 0U);
    Enable();
    for (int frame = 0; frame < 20; ++frame)
    {
        NextRow();
    }
    EXPECT_NEAR(m_host->Get("Gain"), 20, 3) << "ten times as bright";
    EXPECT_EQ(m_host->Get("ExposureTime"), 50);
    EXPECT_EQ(m_host->Entry("GainAuto"), "Continuous");
    ASSERT_EQ(m_host->Set("GainAuto", "Off"), 0U);
    ASSERT_EQ(m_host->Set("GainSelector", "DigitalAll"), 0U);
    EXPECT_EQ(m_host->Get("Gain"), 0) << "each gain has its own";
}

TEST_F(CameraExposure, ExposureAutoLeavesToGainAutoWhatTheLineExposes)
{
    Start({"--exposure", "50000"});
    ASSERT_EQ(m_host->Set("ExposureTime", 1000), 0U);
    ASSERT_EQ(m_host->Set("ExposureAuto", "Continuous"), 0U);
    ASSERT_EQ(m_host->Set("GainAuto", "Continuous"), 0U);
    ASSERT_EQ(m_host->Set("TriggerMode", "On"), 0U);
    ASSERT_EQ(m_host->Set("TriggerSource", "Line0"), 0U);
    ASSERT_EQ(m_host->Set("TestLineFrequency", 100), 0U);
    EXPECT_TRUE(m_host->IsWritable("ExposureTime"));
    ASSERT_EQ(m_host->Set("ExposureMode", "TriggerWidth"), 0U);
    EXPECT_FALSE(m_host->IsWritable("ExposureTime")) << "it has no effect";
    EXPECT_FALSE(m_host->IsWritable("ExposureAuto"));
    EXPECT_EQ(m_host->Set("ExposureTime", 2000), 0x8004U);
    Enable();
    for (int frame = 0; frame < 12; ++frame)
    {
        NextRow();
    }
    EXPECT_NEAR(m_host->Get("Gain"), 20, 3) << "5 ms are a tenth of what is bright";
    EXPECT_EQ(m_host->Get("ExposureTime"), 1000);
}
