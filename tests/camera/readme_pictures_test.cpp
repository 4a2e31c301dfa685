// SPDX-License-Identifier: Apache-2.0
// The pictures that pages show of the virtual camera are what it sends. With NQ_WRITE_PICTURES=1 they are written anew.
#include "camera/feature_host.h"
#include "camera/image_files.h"
#include "camera/plain_rdma_host.h"
#include "support/temporary_folder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <png.h>

using namespace nq::test;

namespace
{

constexpr std::size_t kDescriptor = 176;

struct Shot
{
    const char* file;
    std::uint32_t sensorWidth;
    std::uint32_t sensorHeight;
    double exposure;
    std::uint32_t binning;

    std::uint32_t Width() const { return sensorWidth / binning; }
    std::uint32_t Height() const { return sensorHeight / binning; }
    std::string Path() const { return std::string(NQ_SOURCE_DIR) + "/" + file; }
};

constexpr std::array kShots{Shot{"camera/pictures/binning-2.png", 240, 160, 10000, 2},
                            Shot{"camera/pictures/binning-4.png", 240, 160, 10000, 4},
                            Shot{"camera/pictures/exposure-05000us.png", 240, 160, 5000, 1},
                            Shot{"camera/pictures/exposure-10000us.png", 240, 160, 10000, 1},
                            Shot{"camera/pictures/exposure-20000us.png", 240, 160, 20000, 1},
                            Shot{"docs/pictures/scene.png", 1280, 1024, 10000, 2}};

/// The samples of the first frame of a stream.
std::vector<std::uint8_t> Take(const Shot& shot)
{
    const VirtualCamera camera({"--width", std::to_string(shot.sensorWidth), "--height",
                                std::to_string(shot.sensorHeight), "--exposure", "10000", "--pattern", "Scene",
                                "--pixel-format", "RGB8"});
    FeatureHost host;
    EXPECT_EQ(host.Set("ExposureTime", shot.exposure), 0U);
    EXPECT_EQ(host.Set("BinningHorizontal", shot.binning), 0U);
    EXPECT_EQ(host.Set("BinningVertical", shot.binning), 0U);
    PlainRdmaHost stream(kDescriptor + std::size_t{3} * shot.sensorWidth * shot.sensorHeight);
    EXPECT_EQ(stream.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    stream.GrantAll();
    const ReceivedFrame frame = stream.NextFrame();
    EXPECT_TRUE(frame.good);
    EXPECT_EQ(frame.Id(), 1U);
    return {frame.bytes.begin() + kDescriptor, frame.bytes.end()};
}

void WritePicture(const Shot& shot, const std::vector<std::uint8_t>& samples)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = shot.Width();
    image.height = shot.Height();
    image.format = PNG_FORMAT_RGB;
    ASSERT_NE(png_image_write_to_file(&image, shot.Path().c_str(), 0, samples.data(), 0, nullptr), 0) << image.message;
}

class CameraReadmePictures : public testing::TestWithParam<std::size_t>
{
};

} // namespace

TEST_P(CameraReadmePictures, AreWhatTheCameraSends)
{
    const Shot& shot = kShots.at(GetParam());
    const auto samples = Take(shot);
    if (std::getenv("NQ_WRITE_PICTURES") != nullptr)
    {
        WritePicture(shot, samples);
    }
    const TemporaryFolder folder;
    std::filesystem::copy_file(shot.Path(), folder / "picture.png");
    const nq::camera::RgbPicture picture = nq::camera::ReadImages(folder.Path()).at(0);
    ASSERT_EQ(picture.width, shot.Width());
    ASSERT_EQ(picture.height, shot.Height());
    ASSERT_EQ(samples.size(), 3 * picture.pixels.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
    {
        // The sine of another Debian's C library ends in another bit here and there.
        ASSERT_NEAR(samples[i], picture.pixels[i / 3][i % 3], 1) << shot.file << " differs at sample " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, CameraReadmePictures, testing::Range<std::size_t>(0, kShots.size()),
                         [](const auto& shot) {
                             std::string name = std::filesystem::path(kShots.at(shot.param).file).stem();
                             std::replace(name.begin(), name.end(), '-', '_');
                             return name;
                         });
