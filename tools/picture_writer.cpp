// SPDX-License-Identifier: Apache-2.0
// Frames as PNG files.
#include "picture_writer.h"

#include "exit_codes.h"
#include "new_file.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <fmt/format.h>
#include <png.h>
#include <system_error>
#include <vector>

namespace nq::tool
{

namespace
{

/// How a PFNC pixel format becomes PNG samples. `shift` moves the significant bits of a 16-bit sample to the top.
struct PngForm
{
    int colourType;
    int bitDepth;
    unsigned shift;
    size_t bytesPerPixel;
};

PngForm FormOf(uint64_t pixelFormat)
{
    switch (pixelFormat)
    {
    case 0x01080001: // Mono8
    case 0x01080009: // BayerRG8: the raw mosaic
        return {PNG_COLOR_TYPE_GRAY, 8, 0, 1};
    case 0x01100003: // Mono10
        return {PNG_COLOR_TYPE_GRAY, 16, 6, 2};
    case 0x01100005: // Mono12
        return {PNG_COLOR_TYPE_GRAY, 16, 4, 2};
    case 0x01100007: // Mono16
        return {PNG_COLOR_TYPE_GRAY, 16, 0, 2};
    case 0x02180014: // RGB8
        return {PNG_COLOR_TYPE_RGB, 8, 0, 3};
    default:
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("pixel format 0x{:08x} cannot be written as PNG", pixelFormat));
    }
}

/// Row `y` of the picture in PNG order: zeros where the frame was short, 16-bit samples big-endian.
void FillRow(std::vector<uint8_t>& row, const Frame& frame, const PngForm& form, size_t y)
{
    const size_t begin = std::min(frame.size, y * row.size());
    const size_t present = std::min(row.size(), frame.size - begin);
    std::fill(std::copy_n(frame.data + begin, present, row.begin()), row.end(), uint8_t{0});
    if (form.bitDepth == 16)
    {
        for (size_t at = 0; at + 1 < row.size(); at += 2)
        {
            const unsigned sample = (row[at] | static_cast<unsigned>(row[at + 1]) << 8) << form.shift;
            row[at] = static_cast<uint8_t>(sample >> 8);
            row[at + 1] = static_cast<uint8_t>(sample);
        }
    }
}

bool Encode(std::FILE* file, const Frame& frame, const PngForm& form, std::vector<uint8_t>& row)
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
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, static_cast<png_uint_32>(frame.width), static_cast<png_uint_32>(frame.height),
                 form.bitDepth, form.colourType, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (size_t y = 0; y < frame.height; ++y)
    {
        FillRow(row, frame, form, y);
        png_write_row(png, row.data());
    }
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

PictureWriter::PictureWriter(const std::string& folder) : m_folder(folder)
{
    std::error_code failure;
    std::filesystem::create_directories(m_folder, failure);
    if (failure)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot make the folder {}: {}", folder, failure.message()));
    }
}

void PictureWriter::Write(const Frame& frame)
{
    const PngForm form = FormOf(frame.pixelFormat);
    std::vector<uint8_t> row(frame.width * form.bytesPerPixel);
    const std::filesystem::path path = m_folder / fmt::format("frame-{:08}.png", frame.frameId);
    try
    {
        NewFile file(path);
        if (!Encode(file.Stream(), frame, form, row))
        {
            throw std::system_error(errno, std::generic_category(), path.string());
        }
        file.Publish();
    }
    catch (const std::system_error& failure)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot write {}", failure.what()));
    }
    ++m_written;
}

} // namespace nq::tool
