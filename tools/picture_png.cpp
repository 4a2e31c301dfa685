// SPDX-License-Identifier: Apache-2.0
// Pictures as PNG.
#include "picture_files.h"

#include <bit>
#include <csetjmp>
#include <png.h>

namespace nq::tool
{

namespace
{

void WriteAll(png_structp png, png_infop info, const Samples& samples)
{
    const bool grey = samples.channels == 1;
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, static_cast<png_uint_32>(samples.width), static_cast<png_uint_32>(samples.height),
                 static_cast<int>(samples.bits), grey ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (samples.significant < samples.bits)
    {
        const auto bits = static_cast<png_byte>(samples.significant);
        const png_color_8 significant{bits, bits, bits, bits, 0};
        png_set_sBIT(png, info, &significant);
    }
    png_write_info(png, info);
    if (samples.bits == 16 && std::endian::native == std::endian::little)
    {
        png_set_swap(png);
    }
    const size_t stride = samples.width * samples.channels * samples.bits / 8;
    for (size_t y = 0; y < samples.height; ++y)
    {
        png_write_row(png, samples.bytes.data() + y * stride);
    }
    png_write_end(png, info);
}

} // namespace

bool WritePng(std::FILE* file, const Samples& samples)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr)
    {
        png_destroy_write_struct(&png, nullptr);
        return false;
    }
    if (setjmp(png_jmpbuf(png)) != 0)
    {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    WriteAll(png, info, samples);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace nq::tool
