// SPDX-License-Identifier: Apache-2.0
// Frames as PNG files.
#include "picture_writer.h"

#include "exit_codes.h"

#include <csetjmp>
#include <cstdio>
#include <fmt/format.h>
#include <memory>
#include <png.h>
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

/// The picture's bytes in PNG order: padded with zeros where the frame was short, 16-bit samples big-endian.
std::vector<uint8_t> PngBytes(const Frame& frame, const PngForm& form)
{
    std::vector<uint8_t> bytes(frame.width * frame.height * form.bytesPerPixel);
    const size_t present = std::min(bytes.size(), frame.size);
    std::copy_n(frame.data, present, bytes.begin());
    if (form.bitDepth == 16)
    {
        for (size_t at = 0; at + 1 < bytes.size(); at += 2)
        {
            const unsigned sample = (bytes[at] | static_cast<unsigned>(bytes[at + 1]) << 8) << form.shift;
            bytes[at] = static_cast<uint8_t>(sample >> 8);
            bytes[at + 1] = static_cast<uint8_t>(sample);
        }
    }
    return bytes;
}

bool Encode(std::FILE* file, const Frame& frame, const PngForm& form, const std::vector<uint8_t>& bytes)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
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
    const size_t rowBytes = frame.width * form.bytesPerPixel;
    for (size_t y = 0; y < frame.height; ++y)
    {
        png_write_row(png, bytes.data() + y * rowBytes);
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
    const std::vector<uint8_t> bytes = PngBytes(frame, form);
    const std::filesystem::path path = m_folder / fmt::format("frame-{:08}.png", frame.frameId);
    const std::filesystem::path partial = path.string() + ".part";
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(partial.c_str(), "wbe"), std::fclose);
    const bool encoded = file && Encode(file.get(), frame, form, bytes);
    const bool closed = file && std::fclose(file.release()) == 0;
    std::error_code failure;
    if (encoded && closed)
    {
        std::filesystem::rename(partial, path, failure);
    }
    if (!encoded || !closed || failure)
    {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot write {} (is the disk full?)", path.string()));
    }
    ++m_written;
}

} // namespace nq::tool
