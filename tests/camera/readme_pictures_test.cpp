// SPDX-License-Identifier: Apache-2.0
// The pictures in the virtual camera's README are what it sends. With NQ_WRITE_PICTURES=1 they are written anew.
#include "camera/feature_host.h"
#include "camera/image_files.h"
#include "camera/plain_rdma_host.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <png.h>

using namespace nq::test;

namespace
{

constexpr std::size_t kDescriptor = 176;
constexpr std::uint32_t kWidth = 240;
constexpr std::uint32_t kHeight = 160;

struct Shot
{
    const char* name;
    double exposure;
    std::uint32_t binning;
};

/// In the order of their files.
constexpr std::array kShots{Shot{"binning-2", 10000, 2}, Shot{"binning-4", 10000, 4}, Shot{"exposure-05000us", 5000, 1},
                            Shot{"exposure-10000us", 10000, 1}, Shot{"exposure-20000us", 20000, 1}};

/// The samples of the first frame of a stream.
std::vector<std::uint8_t> Take(const Shot& shot)
{
    const VirtualCamera camera({"--width", std::to_string(kWidth), "--height", std::to_string(kHeight), "--exposure",
                                "10000", "--pattern", "Scene", "--pixel-format", "RGB8"});
    FeatureHost host;
    EXPECT_EQ(host.Set("ExposureTime", shot.exposure), 0U);
    EXPECT_EQ(host.Set("BinningHorizontal", shot.binning), 0U);
    EXPECT_EQ(host.Set("BinningVertical", shot.binning), 0U);
    PlainRdmaHost stream(kDescriptor + std::size_t{3} * kWidth * kHeight);
    EXPECT_EQ(stream.Connect(), RDMA_CM_EVENT_ESTABLISHED);
    EXPECT_EQ(host.Write(1, 0xE030, 0x80000000), 0U);
    stream.GrantAll();
    const ReceivedFrame frame = stream.NextFrame();
    EXPECT_TRUE(frame.good);
    EXPECT_EQ(frame.Id(), 1U);
    return {frame.bytes.begin() + kDescriptor, frame.bytes.end()};
}

void WritePicture(const std::string& path, const Shot& shot, const std::vector<std::uint8_t>& samples)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = kWidth / shot.binning;
    image.height = kHeight / shot.binning;
    image.format = PNG_FORMAT_RGB;
    ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, samples.data(), 0, nullptr), 0) << image.message;
}

class CameraReadmePictures : public testing::TestWithParam<std::size_t>
{
};

} // namespace

TEST_P(CameraReadmePictures, AreWhatTheCameraSends)
{
    const Shot& shot = kShots.at(GetParam());
    const std::string folder = std::string(NQ_SOURCE_DIR) + "/camera/pictures";
    const auto samples = Take(shot);
    if (std::getenv("NQ_WRITE_PICTURES") != nullptr)
    {
        WritePicture(folder + "/" + shot.name + ".png", shot, samples);
    }
    const auto pictures = nq::camera::ReadImages(folder);
    ASSERT_EQ(pictures.size(), kShots.size());
    const nq::camera::RgbPicture& picture = pictures[GetParam()];
    ASSERT_EQ(picture.width, kWidth / shot.binning);
    ASSERT_EQ(picture.height, kHeight / shot.binning);
    ASSERT_EQ(samples.size(), 3 * picture.pixels.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
    {
        ASSERT_EQ(samples[i], picture.pixels[i / 3][i % 3]) << shot.name << " differs at sample " << i;
    }
}

INSTANTIATE_TEST_SUITE_P(Each, CameraReadmePictures, testing::Range<std::size_t>(0, kShots.size()),
                         [](const auto& shot) {
                             std::string name = kShots.at(shot.param).name;
                             name[name.find('-')] = '_';
                             return name;
                         });
