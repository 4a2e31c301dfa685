// SPDX-License-Identifier: Apache-2.0
// Pictures for a browser, by libjpeg.
#include "view/jpeg.h"

#include "exit_codes.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <jpeglib.h>
#include <vector>

namespace nq::tool::view
{

namespace
{

constexpr int kQuality = 85;

struct Failure
{
    jpeg_error_mgr manager; ///< first, for the library gives its address back
    std::jmp_buf way;
};

[[noreturn]] void OnError(j_common_ptr object)
{
    std::longjmp(reinterpret_cast<Failure*>(object->err)->way, 1);
}

/// The upper 8 bits of each sample of a row.
void TakeRow(const Samples& samples, size_t row, std::vector<uint8_t>& bytes)
{
    const size_t count = samples.width * samples.channels;
    const size_t width = samples.bits / 8;
    const uint8_t* const from = samples.bytes.data() + row * count * width;
    for (size_t at = 0; at < count; ++at)
    {
        bytes[at] = from[at * width + width - 1]; // the byte order is that of this machine, little-endian
    }
}

/// False when the library refuses; holds nothing that has to be cleaned up, for a refusal jumps.
bool Encode(jpeg_compress_struct& jpeg, Failure& failure, const Samples& samples, std::vector<uint8_t>& row)
{
    if (setjmp(failure.way) != 0)
    {
        return false;
    }
    jpeg_set_defaults(&jpeg);
    jpeg_set_quality(&jpeg, kQuality, TRUE);
    jpeg_start_compress(&jpeg, TRUE);
    while (jpeg.next_scanline < jpeg.image_height)
    {
        TakeRow(samples, jpeg.next_scanline, row);
        JSAMPROW line = row.data();
        jpeg_write_scanlines(&jpeg, &line, 1);
    }
    jpeg_finish_compress(&jpeg);
    return true;
}

} // namespace

std::string JpegOf(const Samples& samples)
{
    Failure failure{};
    jpeg_compress_struct jpeg{};
    jpeg.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = OnError;
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    jpeg_create_compress(&jpeg);
    jpeg_mem_dest(&jpeg, &bytes, &size);
    jpeg.image_width = static_cast<JDIMENSION>(samples.width);
    jpeg.image_height = static_cast<JDIMENSION>(samples.height);
    jpeg.input_components = static_cast<int>(samples.channels);
    jpeg.in_color_space = samples.channels == 3 ? JCS_RGB : JCS_GRAYSCALE;
    std::vector<uint8_t> row(samples.width * samples.channels);
    const bool whole = Encode(jpeg, failure, samples, row);
    std::string picture(reinterpret_cast<const char*>(bytes), whole ? size : 0);
    jpeg_destroy_compress(&jpeg);
    std::free(bytes);
    if (!whole)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("{} x {} pixels are no JPEG: 65500 a side are the most",
                                                         samples.width, samples.height));
    }
    return picture;
}

} // namespace nq::tool::view
