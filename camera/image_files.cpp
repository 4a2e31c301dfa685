// SPDX-License-Identifier: Apache-2.0
// PNG files by the simplified interface of libpng.
#include "image_files.h"

#include <algorithm>
#include <filesystem>
#include <png.h>
#include <stdexcept>
#include <system_error>

namespace nq::camera
{

namespace
{

constexpr std::size_t kMostPixels = (std::size_t{4} << 30) / sizeof(Rgb);

RgbPicture ReadImage(const std::string& path, std::size_t mostPixels)
{
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0)
    {
        throw std::runtime_error("cannot read '" + path + "': " + image.message);
    }
    if (std::size_t{image.width} * image.height > mostPixels)
    {
        png_image_free(&image);
        throw std::runtime_error("the images take more than 4 GiB: '" + path + "'");
    }
    image.format = PNG_FORMAT_RGB;
    RgbPicture picture(image.width, image.height);
    const png_color black{};
    if (png_image_finish_read(&image, &black, picture.pixels.data(), 0, nullptr) == 0)
    {
        throw std::runtime_error("cannot read '" + path + "': " + image.message);
    }
    return picture;
}

} // namespace

std::vector<RgbPicture> ReadImages(const std::string& folder)
{
    std::vector<std::string> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error))
    {
        if (entry->path().extension() == ".png")
        {
            paths.push_back(entry->path());
        }
    }
    if (error || paths.empty())
    {
        throw std::runtime_error("no PNG files in '" + folder + "'" + (error ? ": " + error.message() : ""));
    }
    std::sort(paths.begin(), paths.end());
    std::vector<RgbPicture> pictures;
    std::size_t left = kMostPixels;
    for (const std::string& path : paths)
    {
        pictures.push_back(ReadImage(path, left));
        left -= pictures.back().pixels.size();
    }
    return pictures;
}

} // namespace nq::camera
