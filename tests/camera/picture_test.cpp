// SPDX-License-Identifier: Apache-2.0
// The pictures that the virtual camera draws.
#include "camera/picture_painter.h"

#include <gtest/gtest.h>

#include <set>

using namespace nq::camera;

namespace
{

PictureSettings Settings(std::uint32_t width, std::uint32_t height, std::uint32_t format,
                         TestPattern pattern = TestPattern::MovingRamp)
{
    return {width, height, *FindPixelFormat(format), pattern};
}

std::vector<std::uint8_t> Draw(const PictureSettings& settings, std::uint64_t frameId)
{
    std::vector<std::uint8_t> pixels(settings.Payload());
    PicturePainter(settings).Draw(frameId, pixels);
    return pixels;
}

} // namespace

TEST(CameraPicture, MovingRampOfEightBitsFollowsItsFormula)
{
    for (const std::uint32_t format : {0x01080001U, 0x01080009U})
    {
        const auto pixels = Draw(Settings(300, 270, format), 1000000007);
        ASSERT_EQ(pixels.size(), 81000U);
        for (std::uint64_t y = 0; y < 270; ++y)
        {
            for (std::uint64_t x = 0; x < 300; ++x)
            {
                ASSERT_EQ(pixels[y * 300 + x], (x + y + 7 * 1000000007ULL) % 256) << x << "," << y;
            }
        }
    }
}

TEST(CameraPicture, MovingRampKnownPixels)
{
    const auto first = Draw(Settings(3, 2, 0x01080001), 1);
    EXPECT_EQ(first, (std::vector<std::uint8_t>{7, 8, 9, 8, 9, 10}));
    const auto wrapped = Draw(Settings(3, 2, 0x01080001), 36);
    EXPECT_EQ(wrapped, (std::vector<std::uint8_t>{252, 253, 254, 253, 254, 255}));
}

TEST(CameraPicture, MovingRampOfTwoByteFormatsHasTheLowByteFirst)
{
    const std::vector<std::pair<std::uint32_t, std::uint64_t>> formats{
        {0x01100003, 1024}, {0x01100005, 4096}, {0x01100007, 65536}};
    for (const auto& [format, levels] : formats)
    {
        const auto pixels = Draw(Settings(50, 40, format), 9999);
        ASSERT_EQ(pixels.size(), 4000U);
        for (std::uint64_t y = 0; y < 40; ++y)
        {
            for (std::uint64_t x = 0; x < 50; ++x)
            {
                const std::size_t at = 2 * (y * 50 + x);
                ASSERT_EQ(pixels[at] + 256U * pixels[at + 1], (x + y + 7 * 9999) % levels);
            }
        }
    }
}

TEST(CameraPicture, MovingRampOfColourShiftsItsChannels)
{
    const auto pixels = Draw(Settings(2, 1, 0x02180014), 2);
    EXPECT_EQ(pixels, (std::vector<std::uint8_t>{14, 99, 184, 15, 100, 185}));
}

TEST(CameraPicture, ColourBarsRunFromWhiteToBlack)
{
    const auto colour = Draw(Settings(8, 1, 0x02180014, TestPattern::ColorBar), 1);
    EXPECT_EQ(colour, (std::vector<std::uint8_t>{255, 255, 255, 255, 255, 0, 0, 255, 255, 0, 255, 0,
                                                 255, 0,   255, 255, 0,   0, 0, 0,   255, 0, 0,   0}));
    const auto grey = Draw(Settings(8, 2, 0x01080001, TestPattern::ColorBar), 1);
    EXPECT_EQ(grey,
              (std::vector<std::uint8_t>{255, 225, 178, 149, 105, 76, 29, 0, 255, 225, 178, 149, 105, 76, 29, 0}));
}

TEST(CameraPicture, ColourBarsStandStill)
{
    const auto settings = Settings(100, 10, 0x02180014, TestPattern::ColorBar);
    EXPECT_EQ(Draw(settings, 1), Draw(settings, 2));
}

TEST(CameraPicture, NoiseChangesFromFrameToFrameAndRepeatsWithItsId)
{
    const auto settings = Settings(100, 100, 0x01080001, TestPattern::Noise);
    EXPECT_EQ(Draw(settings, 5), Draw(settings, 5));
    EXPECT_NE(Draw(settings, 5), Draw(settings, 6));
    const auto pixels = Draw(settings, 5);
    EXPECT_GT(std::set<std::uint8_t>(pixels.begin(), pixels.end()).size(), 200U);
}

TEST(CameraPicture, NoiseStaysWithinTheFormatsLevels)
{
    const auto pixels = Draw(Settings(101, 3, 0x01100003, TestPattern::Noise), 5);
    for (std::size_t i = 1; i < pixels.size(); i += 2)
    {
        ASSERT_LE(pixels[i], 3);
    }
}

TEST(CameraPicture, PatternsFollowExposureGainAndBlackLevel)
{
    auto settings = Settings(8, 1, 0x01080001, TestPattern::ColorBar);
    settings.development.factor = 2;
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{255, 255, 255, 255, 210, 152, 58, 0}));
    settings.development = {.factor = 0.5, .blackLevel = 10};
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{137, 122, 99, 84, 62, 48, 24, 10}));
    settings.format = *FindPixelFormat(0x02180014);
    const auto colours = Draw(settings, 1);
    EXPECT_EQ(std::vector<std::uint8_t>(colours.begin() + 3, colours.begin() + 6),
              (std::vector<std::uint8_t>{137, 137, 10}));
}

TEST(CameraPicture, CheckableRampFollowsNoneOfThem)
{
    auto settings = Settings(3, 2, 0x01080001);
    settings.development = {.factor = 7, .blackLevel = 99};
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{7, 8, 9, 8, 9, 10}));
}

TEST(CameraPicture, ShowsThePartOfTheSensorThatSizeAndOffsetCutOut)
{
    auto settings = Settings(4, 1, 0x01080001, TestPattern::ColorBar);
    settings.readout = {.sensorWidth = 16, .sensorHeight = 4, .offsetX = 3, .offsetY = 2};
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{225, 178, 178, 149}));
}

namespace
{

/// The eight bars, on a sensor of 8 x 2 pixels, in grey.
PictureSettings Bars(std::uint32_t width)
{
    auto settings = Settings(width, 1, 0x01080001, TestPattern::ColorBar);
    settings.readout = {.sensorWidth = 8, .sensorHeight = 2};
    return settings;
}

} // namespace

TEST(CameraPicture, BinningTakesTheMeanAndDecimationLeavesOut)
{
    auto settings = Bars(4);
    settings.readout.binningX = 2;
    settings.readout.binningY = 2;
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{240, 163, 90, 14}));
    settings.readout = {.sensorWidth = 8, .sensorHeight = 2, .decimationX = 2, .decimationY = 2};
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{255, 178, 105, 29}));
}

TEST(CameraPicture, ReverseTurnsTheSensorBeforeSizeAndOffset)
{
    auto settings = Bars(3);
    settings.readout.reverseX = true;
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{0, 29, 76}));
    settings.readout.offsetX = 5;
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{178, 225, 255}));
}

TEST(CameraPicture, GammaAndBalanceChangeTheBrightness)
{
    auto settings = Bars(8);
    settings.development.gamma = 2;
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{255, 198, 124, 87, 43, 22, 3, 0}));
    settings = Settings(8, 1, 0x02180014, TestPattern::ColorBar);
    settings.development.balance = {0.5, 1, 1};
    const auto colours = Draw(settings, 1);
    EXPECT_EQ(std::vector<std::uint8_t>(colours.begin(), colours.begin() + 6),
              (std::vector<std::uint8_t>{127, 255, 255, 127, 255, 0}));
}

TEST(CameraPicture, ALookUpTableComesBehindGammaAndGoesStraightBetweenItsPlaces)
{
    auto settings = Bars(8);
    settings.development.gamma = 2;
    for (int i = 0; i < 256; ++i)
    {
        settings.development.table.push_back(static_cast<std::uint8_t>(255 - i));
    }
    // 255, 198.6, 124.2, 87.3, 43.2, 22.6, 3.2 and 0 without the table.
    EXPECT_EQ(Draw(settings, 1), (std::vector<std::uint8_t>{0, 56, 130, 167, 211, 232, 251, 255}));
    settings = Settings(2, 1, 0x01100007, TestPattern::White);
    settings.development = {.factor = 100.5 / 255, .table = std::vector<std::uint8_t>(256)};
    settings.development.table[100] = 10;
    settings.development.table[101] = 20;
    const auto wide = Draw(settings, 1);
    EXPECT_EQ(wide[0] + 256 * wide[1], 15 * 257) << "halfway from 10 to 20, in 16 bits";
}

TEST(CameraPicture, PackedFormatsHoldTheRampWithoutAGap)
{
    // 7, 8, 9, 10 in 10 bits each, from the lowest bit on.
    EXPECT_EQ(Draw(Settings(4, 1, 0x010A0046), 1), (std::vector<std::uint8_t>{0x07, 0x20, 0x90, 0x80, 0x02}));
    // 7, 8, 9 in 12 bits each.
    EXPECT_EQ(Draw(Settings(3, 1, 0x010C0047), 1), (std::vector<std::uint8_t>{0x07, 0x80, 0x00, 0x09, 0x00}));
    // Rows follow each other without a gap: 7, 8, 9 and 8, 9, 10.
    EXPECT_EQ(Draw(Settings(3, 2, 0x010C0047), 1),
              (std::vector<std::uint8_t>{0x07, 0x80, 0x00, 0x09, 0x80, 0x00, 0x09, 0xA0, 0x00}));
}

TEST(CameraPicture, FurtherColourFormatsHoldTheirChannelsInOrder)
{
    EXPECT_EQ(Draw(Settings(2, 1, 0x02180015), 2), (std::vector<std::uint8_t>{184, 99, 14, 185, 100, 15})) << "BGR8";
    EXPECT_EQ(Draw(Settings(2, 1, 0x02100032), 2), (std::vector<std::uint8_t>{14, 99, 15, 185})) << "Y U Y V";
    const auto bars = Draw(Settings(8, 1, 0x02100032, TestPattern::ColorBar), 1);
    EXPECT_EQ(std::vector<std::uint8_t>(bars.begin(), bars.begin() + 2), (std::vector<std::uint8_t>{255, 128}))
        << "white has no colour";
    const auto bayer = Draw(Settings(8, 1, 0x01100011, TestPattern::ColorBar), 1);
    EXPECT_EQ(std::vector<std::uint8_t>(bayer.begin(), bayer.begin() + 2), (std::vector<std::uint8_t>{0xFF, 0x0F}));
}

TEST(CameraPicture, PatternsOfTheStandardLookAsTheyAreCalled)
{
    const auto row = [](TestPattern pattern, std::uint64_t frameId) {
        const auto pixels = Draw(Settings(256, 1, 0x01080001, pattern), frameId);
        return std::vector<int>{pixels[0], pixels[1], pixels[100], pixels[255]};
    };
    EXPECT_EQ(row(TestPattern::Black, 1), (std::vector<int>{0, 0, 0, 0}));
    EXPECT_EQ(row(TestPattern::White, 1), (std::vector<int>{255, 255, 255, 255}));
    EXPECT_EQ(row(TestPattern::GreyHorizontalRamp, 9), (std::vector<int>{0, 1, 100, 255}));
    EXPECT_EQ(row(TestPattern::GreyHorizontalRampMoving, 9), (std::vector<int>{9, 10, 109, 8}));
    EXPECT_EQ(Draw(Settings(64, 48, 0x01080001, TestPattern::Off), 3),
              Draw(Settings(64, 48, 0x01080001, TestPattern::Scene), 3));
}

TEST(CameraPicture, FrameCounterShowsTheFrameIdInDigits)
{
    const auto one = Draw(Settings(320, 240, 0x01080001, TestPattern::FrameCounter), 1);
    const auto eight = Draw(Settings(320, 240, 0x01080001, TestPattern::FrameCounter), 8);
    const auto dot = [](const std::vector<std::uint8_t>& pixels, std::size_t column, std::size_t row) {
        return int{pixels[320 * (4 * (row + 1) + 1) + 16 * 9 + 4 * column + 1]};
    };
    for (std::size_t row = 0; row < 5; ++row)
    {
        EXPECT_EQ(dot(eight, 0, row), 255) << "the left edge of an 8";
        EXPECT_EQ(dot(one, 1, row), 255) << "the stem of a 1";
    }
    EXPECT_EQ(dot(one, 2, 0), 0);
    EXPECT_NE(one[320 * 239], 0) << "below it the scene";
}
