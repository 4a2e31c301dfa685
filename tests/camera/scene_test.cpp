// SPDX-License-Identifier: Apache-2.0
// The camera's pictures for eyes: the drawn scene, and files of the user's own.
#include "camera/image_files.h"
#include "camera/picture_painter.h"
#include "camera/raw_host.h"
#include "support/temporary_folder.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <numeric>
#include <set>

namespace
{

using namespace nq::camera;
using nq::test::Hex;
using nq::test::TemporaryFolder;
using testing::HasSubstr;
using testing::ThrowsMessage;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kMono8 = 0x01080001;
constexpr std::uint32_t kMono12 = 0x01100005;
constexpr std::uint32_t kBayerRG8 = 0x01080009;
constexpr std::uint32_t kRGB8 = 0x02180014;

/// Two pixels beside each other, (10, 20, 30) and (200, 100, 50).
const char* const kTwoPixels =
    "89 50 4E 47 0D 0A 1A 0A 00 00 00 0D 49 48 44 52 00 00 00 02 00 00 00 01 08 02 00 00 00 7B 40 E8 DD 00 00 00 0F "
    "49 44 41 54 78 DA 63 E0 12 91 3B 91 62 04 00 04 71 01 9B CE 4A ED C5 00 00 00 00 49 45 4E 44 AE 42 60 82";
/// One pixel, (1, 2, 3).
const char* const kOnePixel =
    "89 50 4E 47 0D 0A 1A 0A 00 00 00 0D 49 48 44 52 00 00 00 01 00 00 00 01 08 02 00 00 00 90 77 53 DE 00 00 00 0C "
    "49 44 41 54 78 DA 63 60 64 62 06 00 00 0E 00 07 E9 92 37 D4 00 00 00 00 49 45 4E 44 AE 42 60 82";

void Write(const std::string& path, const Bytes& bytes)
{
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::ssize(bytes));
}

PictureSettings Settings(std::uint32_t width, std::uint32_t height, std::uint32_t format)
{
    return {width, height, *FindPixelFormat(format), TestPattern::Scene};
}

Bytes Draw(const PictureSettings& settings, std::uint64_t frameId)
{
    Bytes pixels(settings.Payload());
    PicturePainter(settings).Draw(frameId, pixels);
    return pixels;
}

TEST(CameraScene, IsAPictureThatMovesOnWithTheFrameId)
{
    const auto settings = Settings(320, 240, kRGB8);
    const Bytes first = Draw(settings, 1);
    EXPECT_EQ(Draw(settings, 1), first);
    const Bytes second = Draw(settings, 2);
    // 40 rows above and below the belt stand still.
    const std::ptrdiff_t rails = 40 * 320 * 3;
    EXPECT_TRUE(std::equal(first.begin(), first.begin() + rails, second.begin()));
    EXPECT_TRUE(std::equal(first.end() - rails, first.end(), second.end() - rails));
    const auto differing = std::inner_product(first.begin(), first.end(), second.begin(), 0, std::plus<>(),
                                              [](auto one, auto other) { return one != other ? 1 : 0; });
    EXPECT_GT(differing, 320 * 160) << "the belt moves";
    EXPECT_GT(std::set<std::uint8_t>(first.begin(), first.end()).size(), 150U) << "from shadow to light";
}

TEST(CameraScene, MovesAlikeForPainterAndAnew)
{
    const auto settings = Settings(160, 120, kMono8);
    PicturePainter painter(settings);
    Bytes pixels(settings.Payload());
    for (const std::uint64_t frameId : {1ULL, 7ULL, 100000ULL, 1ULL << 63})
    {
        painter.Draw(frameId, pixels);
        EXPECT_EQ(pixels, Draw(settings, frameId)) << frameId;
    }
}

TEST(CameraScene, FitsPicturesOfEverySize)
{
    for (std::uint32_t width : {1U, 2U, 7U, 300U})
    {
        for (std::uint32_t height = 1; height < 40; ++height)
        {
            const Bytes pixels = Draw(Settings(width, height, kRGB8), 50 * height);
            EXPECT_EQ(pixels.size(), std::size_t{width} * height * 3);
        }
    }
}

class CameraImages : public testing::Test
{
  protected:
    CameraImages()
    {
        Write(m_folder / "b.png", Hex(kOnePixel));
        Write(m_folder / "a.png", Hex(kTwoPixels));
        Write(m_folder / "notes.txt", {1, 2, 3});
    }

    PictureSettings Shown(std::uint32_t width, std::uint32_t height, std::uint32_t format) const
    {
        PictureSettings settings = Settings(width, height, format);
        settings.images = std::make_shared<const std::vector<RgbPicture>>(ReadImages(m_folder.Path()));
        return settings;
    }

    TemporaryFolder m_folder;
};

TEST_F(CameraImages, FollowEachOtherInTheOrderOfTheirNames)
{
    EXPECT_EQ(Draw(Shown(2, 1, kRGB8), 2), (Bytes{10, 20, 30, 200, 100, 50}));
    EXPECT_EQ(Draw(Shown(2, 1, kRGB8), 3), (Bytes{1, 2, 3, 1, 2, 3}));
    EXPECT_EQ(Draw(Shown(2, 1, kRGB8), 4), (Bytes{10, 20, 30, 200, 100, 50}));
}

TEST_F(CameraImages, AreScaledToThePicture)
{
    EXPECT_EQ(Draw(Shown(4, 2, kRGB8), 0), (Bytes{10, 20, 30, 10, 20, 30, 200, 100, 50, 200, 100, 50, //
                                                  10, 20, 30, 10, 20, 30, 200, 100, 50, 200, 100, 50}));
    EXPECT_EQ(Draw(Shown(1, 1, kRGB8), 0), (Bytes{10, 20, 30}));
}

TEST_F(CameraImages, BecomeWhatThePixelFormatHolds)
{
    // 0.299 red + 0.587 green + 0.114 blue.
    EXPECT_EQ(Draw(Shown(2, 1, kMono8), 0), (Bytes{18, 124}));
    EXPECT_EQ(Draw(Shown(2, 1, kMono12), 0), (Bytes{0x21, 0x01, 0xC7, 0x07})) << "18 and 124 of 255, of 4095";
    EXPECT_EQ(Draw(Shown(2, 2, kBayerRG8), 0), (Bytes{10, 100, 20, 50})) << "red green, green blue";
}

TEST_F(CameraImages, ThatCannotBeReadAreNamed)
{
    Write(m_folder / "c.png", {0x89, 0x50});
    EXPECT_THAT([&] { ReadImages(m_folder.Path()); },
                ThrowsMessage<std::runtime_error>(HasSubstr("cannot read '" + (m_folder / "c.png'"))));
    const TemporaryFolder empty;
    EXPECT_THAT([&] { ReadImages(empty.Path()); },
                ThrowsMessage<std::runtime_error>("no PNG files in '" + empty.Path() + "'"));
    EXPECT_THAT(
        [&] { ReadImages(empty / "none"); },
        ThrowsMessage<std::runtime_error>("no PNG files in '" + empty.Path() + "/none': No such file or directory"));
}

} // namespace
