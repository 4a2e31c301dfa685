// SPDX-License-Identifier: Apache-2.0
// Pictures as TIFF, without compression. Empty where libtiff is absent.
#include "picture_files.h"

#ifdef NQ_WITH_TIFF

#include <algorithm>
#include <cerrno>
#include <tiffio.h>
#include <unistd.h>

namespace nq::tool
{

namespace
{

bool WriteAll(TIFF* tiff, const Samples& samples)
{
    constexpr size_t kStripBytes = 1U << 20;
    const size_t stride = samples.width * samples.channels * samples.bits / 8;
    const size_t rows = std::clamp<size_t>(kStripBytes / stride, 1, samples.height);
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(samples.width));
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(samples.height));
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, static_cast<int>(samples.channels));
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, static_cast<int>(samples.bits));
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, samples.channels == 1 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(rows));
    uint32_t strip = 0;
    for (size_t y = 0; y < samples.height; y += rows, ++strip)
    {
        const size_t size = std::min(rows, samples.height - y) * stride;
        // libtiff takes data that it may change, and changes none of this machine's own byte order.
        auto* const data = const_cast<uint8_t*>(samples.bytes.data() + y * stride);
        if (TIFFWriteEncodedStrip(tiff, strip, data, static_cast<tmsize_t>(size)) < 0)
        {
            return false;
        }
    }
    return TIFFFlush(tiff) != 0;
}

} // namespace

bool WriteTiff(std::FILE* file, const Samples& samples)
{
    static const bool kQuiet = (TIFFSetErrorHandler(nullptr), TIFFSetWarningHandler(nullptr), true);
    static_cast<void>(kQuiet);
    const int descriptor = dup(fileno(file));
    TIFF* tiff = descriptor == -1 ? nullptr : TIFFFdOpen(descriptor, "picture", "w");
    if (tiff == nullptr)
    {
        return false;
    }
    const bool written = WriteAll(tiff, samples);
    const int why = errno;
    TIFFClose(tiff); // and the descriptor
    errno = why;
    return written;
}

} // namespace nq::tool

#else

namespace nq::tool
{

bool WriteTiff(std::FILE*, const Samples&)
{
    return false;
}

} // namespace nq::tool

#endif
