// SPDX-License-Identifier: Apache-2.0
// GenDC containers: the header that a picture is written with, and the images of a file of them.
#include "gendc_container.h"

#include "exit_codes.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

// EMVA GenDC 1.1: numbers stand with their lowest byte first. Sizes and offsets in bytes.
constexpr uint8_t kSignature[] = {'G', 'N', 'D', 'C'};
constexpr uint16_t kContainerType = 0x1000;
constexpr uint16_t kComponentType = 0x2000;
constexpr uint16_t kImageType = 0x4200; // a part of two dimensions, not compressed
constexpr uint64_t kIntensity = 1;
constexpr size_t kContainerBytes = 64; // with the place of one component
constexpr size_t kComponentBytes = 56; // with the place of one part
constexpr size_t kPartBytes = 56;
constexpr size_t kComponentPlaces = 56; // in the container
constexpr size_t kPartPlaces = 48;      // in a component
constexpr size_t kMostDescriptorBytes = size_t{1} << 20;

template <class Number>
void Put(uint8_t* at, Number number)
{
    for (size_t byte = 0; byte < sizeof number; ++byte)
    {
        at[byte] = static_cast<uint8_t>(number >> 8 * byte);
    }
}

/// All headers of one container, read with a look at where they end.
class Descriptor
{
  public:
    Descriptor(std::vector<uint8_t> bytes, uint64_t at) : m_bytes(std::move(bytes)), m_at(at) {}

    /// The number of that many bytes at that place.
    uint64_t Number(uint64_t place, size_t bytes) const
    {
        Need(place, bytes);
        uint64_t number = 0;
        for (size_t byte = bytes; byte > 0; --byte)
        {
            number = number << 8 | m_bytes[place + byte - 1];
        }
        return number;
    }

    /// A header of that type or, when it may be `another` one, false.
    bool IsHeader(uint64_t place, uint16_t type, bool another) const
    {
        const bool is = Number(place, 2) == type;
        if (!is && !another)
        {
            Fail(fmt::format("the container at byte {} has a header of type 0x{:04x} where one of 0x{:04x} has to be",
                             m_at, Number(place, 2), type));
        }
        return is;
    }

    uint64_t At() const { return m_at; }
    size_t Bytes() const { return m_bytes.size(); }

  private:
    void Need(uint64_t place, size_t bytes) const
    {
        if (place > m_bytes.size() || bytes > m_bytes.size() - place)
        {
            Fail(fmt::format("the container at byte {} names a header beyond the {} bytes that it has for them", m_at,
                             m_bytes.size()));
        }
    }

    std::vector<uint8_t> m_bytes;
    uint64_t m_at;
};

/// The image of a part; nothing for a part of another kind.
std::optional<ContainerImage> ImageOf(const Descriptor& headers, uint64_t part, uint64_t containerBytes)
{
    if (!headers.IsHeader(part, kImageType, true))
    {
        return std::nullopt;
    }
    ContainerImage image;
    image.frameId = headers.Number(16, 8);
    image.form = {headers.Number(part + 40, 4), headers.Number(part + 44, 4), headers.Number(part + 8, 4)};
    image.rowPadding = headers.Number(part + 48, 2);
    image.size = headers.Number(part + 24, 8);
    const uint64_t offset = headers.Number(part + 32, 8);
    if (offset > containerBytes || image.size > containerBytes - offset)
    {
        Fail(fmt::format("the container at byte {} has a picture of {} bytes at {}, but {} bytes in all", headers.At(),
                         image.size, offset, containerBytes));
    }
    image.at = headers.At() + offset;
    return image;
}

std::vector<ContainerImage> ImagesOf(const Descriptor& headers, uint64_t containerBytes)
{
    std::vector<ContainerImage> images;
    const uint64_t components = headers.Number(52, 4);
    uint64_t named = 0;
    for (uint64_t component = 0; component < components; ++component)
    {
        const uint64_t place = headers.Number(kComponentPlaces + component * 8, 8);
        headers.IsHeader(place, kComponentType, false);
        const uint64_t parts = headers.Number(place + 46, 2);
        named += parts + 1;
        if (named >
            headers.Bytes() / sizeof(uint64_t)) // components may share their parts, and a few bytes name millions
        {
            Fail(fmt::format("the container at byte {} names more parts than it has room for", headers.At()));
        }
        for (uint64_t part = 0; part < parts; ++part)
        {
            const uint64_t partPlace = headers.Number(place + kPartPlaces + part * 8, 8);
            if (const auto image = ImageOf(headers, partPlace, containerBytes))
            {
                images.push_back(*image);
            }
        }
    }
    return images;
}

} // namespace

ContainerHeader HeaderOf(const Picture& picture)
{
    ContainerHeader header{};
    uint8_t* const container = header.data();
    std::copy(std::begin(kSignature), std::end(kSignature), container);
    container[4] = 1; // version 1.1.0
    container[5] = 1;
    Put<uint16_t>(container + 8, kContainerType);
    Put<uint32_t>(container + 12, kContainerBytes);
    Put<uint64_t>(container + 16, picture.frameId);
    Put<uint64_t>(container + 32, picture.bytes.size());
    Put<uint64_t>(container + 40, kContainerHeaderBytes);
    Put<uint32_t>(container + 48, kContainerHeaderBytes);
    Put<uint32_t>(container + 52, 1);
    Put<uint64_t>(container + kComponentPlaces, kContainerBytes);
    uint8_t* const component = container + kContainerBytes;
    Put<uint16_t>(component, kComponentType);
    Put<uint32_t>(component + 4, kComponentBytes);
    Put<uint32_t>(component + 16, picture.offsetX);
    Put<uint32_t>(component + 20, picture.offsetY);
    Put<uint64_t>(component + 24, picture.cameraTime);
    Put<uint64_t>(component + 32, kIntensity);
    Put<uint32_t>(component + 40, static_cast<uint32_t>(picture.pixelFormat));
    Put<uint16_t>(component + 46, 1);
    Put<uint64_t>(component + kPartPlaces, kContainerBytes + kComponentBytes);
    uint8_t* const part = component + kComponentBytes;
    Put<uint16_t>(part, kImageType);
    Put<uint32_t>(part + 4, kPartBytes);
    Put<uint32_t>(part + 8, static_cast<uint32_t>(picture.pixelFormat));
    Put<uint64_t>(part + 24, picture.bytes.size());
    Put<uint64_t>(part + 32, kContainerHeaderBytes);
    Put<uint32_t>(part + 40, static_cast<uint32_t>(picture.width));
    Put<uint32_t>(part + 44, static_cast<uint32_t>(picture.height));
    return header;
}

bool IsContainer(const RecordingFile& file)
{
    return file.Size() >= sizeof kSignature &&
           std::memcmp(file.Read(0, sizeof kSignature).data(), kSignature, sizeof kSignature) == 0;
}

std::optional<std::vector<ContainerImage>> ContainerReader::Next()
{
    if (m_at >= m_file.Size())
    {
        return std::nullopt;
    }
    const std::vector<uint8_t> first = m_file.Read(m_at, kContainerBytes);
    if (std::memcmp(first.data(), kSignature, sizeof kSignature) != 0)
    {
        Fail(fmt::format("has no GenDC container at byte {}", m_at));
    }
    const Descriptor header(first, m_at);
    header.IsHeader(8, kContainerType, false);
    const uint64_t headers = header.Number(48, 4);
    const uint64_t data = header.Number(32, 8);
    const uint64_t dataPlace = header.Number(40, 8);
    const uint64_t left = m_file.Size() - m_at;
    if (headers < kContainerBytes || headers > kMostDescriptorBytes)
    {
        Fail(fmt::format("the container at byte {} is said to have {} bytes of headers", m_at, headers));
    }
    if (dataPlace < headers || dataPlace > left || data > left - dataPlace)
    {
        Fail(fmt::format("the container at byte {} is said to have {} bytes of data at {}, and {} bytes are left of "
                         "the file",
                         m_at, data, dataPlace, left));
    }
    std::vector<ContainerImage> images = ImagesOf(Descriptor(m_file.Read(m_at, headers), m_at), dataPlace + data);
    m_at += dataPlace + data;
    return images;
}

} // namespace nq::tool
