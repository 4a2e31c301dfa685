// SPDX-License-Identifier: Apache-2.0
// Files of GenDC containers, good, changed and made up, as nq-gev convert reads them. Compared with: what was written,
// up to the first container that is none of ours; behind that every picture lies in its container and every container
// in its file, and convert makes no more pictures than there are.
#include "convert.h"
#include "fuzz/fuzz_input.h"
#include "gendc_container.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;
using nq::tool::ContainerImage;

std::string g_folder; // pictures

void Put(Bytes& bytes, std::size_t at, std::uint64_t number, std::size_t size)
{
    for (std::size_t byte = 0; byte < size && at + byte < bytes.size(); ++byte)
    {
        bytes[at + byte] = static_cast<unsigned char>(number >> 8 * byte);
    }
}

/// A file, and what has to be found in it.
struct Recording
{
    Bytes bytes;
    std::vector<std::vector<ContainerImage>> images; ///< of the containers at its front that are as they should be
    bool asWritten = true;                           ///< all of them are
};

/// As grab writes it.
void AddWritten(Recording& file, FuzzInput& input)
{
    nq::tool::Picture picture;
    picture.frameId = input.Quad();
    picture.width = 1 + input.Below(16);
    picture.height = 1 + input.Below(16);
    picture.pixelFormat = 0x01080001;
    picture.cameraTime = input.Byte();
    picture.bytes.assign(picture.width * picture.height, input.Byte());
    const nq::tool::ContainerHeader header = HeaderOf(picture);
    if (file.asWritten)
    {
        ContainerImage image;
        image.frameId = picture.frameId;
        image.form = {picture.width, picture.height, picture.pixelFormat};
        image.at = file.bytes.size() + 176;
        image.size = picture.bytes.size();
        file.images.push_back({image});
    }
    file.bytes.insert(file.bytes.end(), header.begin(), header.end());
    file.bytes.insert(file.bytes.end(), picture.bytes.begin(), picture.bytes.end());
}

/// With several components of several parts, by the layout of EMVA GenDC. All parts show the same pixels.
Bytes MadeUp(FuzzInput& input)
{
    const std::size_t components = input.Below(4);
    const std::size_t parts = input.Below(4);
    const std::uint64_t side = 1 + input.Below(8);
    const std::uint64_t padding = input.Below(4);
    const std::size_t componentBytes = 48 + 8 * parts;
    const std::size_t first = 56 + 8 * components;
    const std::size_t headers = first + components * (componentBytes + parts * 56);
    const std::uint64_t pixels = (side + padding) * side;
    Bytes bytes(headers + pixels, 0x55);
    std::fill_n(bytes.begin(), headers, static_cast<unsigned char>(0));
    std::memcpy(bytes.data(), "GNDC\1\1", 6);
    Put(bytes, 8, 0x1000, 2);
    Put(bytes, 16, input.Byte(), 8);
    Put(bytes, 32, pixels, 8);
    Put(bytes, 40, headers, 8);
    Put(bytes, 48, headers, 4);
    Put(bytes, 52, components, 4);
    for (std::size_t component = 0; component < components; ++component)
    {
        const std::size_t place = first + component * (componentBytes + parts * 56);
        Put(bytes, 56 + 8 * component, place, 8);
        Put(bytes, place, 0x2000, 2);
        Put(bytes, place + 46, parts, 2);
        for (std::size_t part = 0; part < parts; ++part)
        {
            const std::size_t at = place + componentBytes + part * 56;
            Put(bytes, place + 48 + 8 * part, at, 8);
            Put(bytes, at, input.Flag() ? 0x4200 : 0x4100, 2);
            Put(bytes, at + 8, 0x01080001, 4);
            Put(bytes, at + 24, pixels, 8);
            Put(bytes, at + 32, headers, 8);
            Put(bytes, at + 40, side, 4);
            Put(bytes, at + 44, side, 4);
            Put(bytes, at + 48, padding, 2);
        }
    }
    return bytes;
}

/// Replaces numbers anywhere behind `begin`.
void Change(Bytes& bytes, std::size_t begin, FuzzInput& input)
{
    static constexpr std::uint64_t kEdges[] = {
        0, 1, 56, 64, 176, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF, 0x100000000, INT64_MAX, UINT64_MAX, UINT64_MAX - 63};
    for (std::size_t changes = 1 + input.Below(4); changes > 0; --changes)
    {
        const std::size_t at = begin + input.Word() % (bytes.size() - begin);
        const bool edge = input.Flag();
        const std::uint64_t number = edge ? kEdges[input.Below(std::size(kEdges))] : input.Byte();
        Put(bytes, at, number, edge ? std::size_t{1} << input.Below(4) : 1);
    }
}

Recording Chosen(FuzzInput& input)
{
    Recording file;
    while (!input.Empty() && file.bytes.size() < 4096)
    {
        const std::size_t begin = file.bytes.size();
        const std::size_t kind = input.Below(4);
        if (kind == 0)
        {
            AddWritten(file, input);
            continue;
        }
        file.asWritten = false;
        const Bytes more = kind == 1 ? MadeUp(input) : kind == 2 ? input.Take(input.Byte()) : Bytes();
        file.bytes.insert(file.bytes.end(), more.begin(), more.end());
        if (kind == 3)
        {
            AddWritten(file, input);
        }
        if (kind != 2)
        {
            Change(file.bytes, begin, input);
        }
    }
    return file;
}

void CheckImages(const std::vector<ContainerImage>& found, std::uint64_t begin, std::uint64_t end)
{
    for (const ContainerImage& image : found)
    {
        Require(image.at >= begin && image.at <= end && image.size <= end - image.at,
                "a picture lies in its container");
    }
}

void CheckEqual(const std::vector<ContainerImage>& found, const std::vector<ContainerImage>& written)
{
    Require(found.size() == written.size(), "each picture is found", static_cast<long>(found.size()));
    for (std::size_t at = 0; at < found.size(); ++at)
    {
        const ContainerImage& one = found[at];
        const ContainerImage& other = written[at];
        Require(one.frameId == other.frameId && one.at == other.at && one.size == other.size && one.rowPadding == 0,
                "a picture is where it was written");
        Require(one.form.width == other.form.width && one.form.height == other.form.height &&
                    one.form.pixelFormat == other.form.pixelFormat,
                "a picture has the form that was written");
    }
}

struct Walk
{
    std::size_t pictures = 0;
    bool whole = false; ///< to the end of the file
};

Walk WalkThrough(const nq::tool::RecordingFile& file, const Recording& recording)
{
    Walk walk;
    nq::tool::ContainerReader reader(file);
    std::size_t container = 0;
    try
    {
        for (std::uint64_t begin = 0;; begin = reader.Behind(), ++container)
        {
            const auto images = reader.Next();
            if (!images)
            {
                Require(begin == file.Size(), "the end is that of the file");
                walk.whole = true;
                break;
            }
            Require(reader.Behind() > begin && reader.Behind() <= file.Size(), "a container lies in its file");
            CheckImages(*images, begin, reader.Behind());
            if (container < recording.images.size())
            {
                CheckEqual(*images, recording.images[container]);
            }
            walk.pictures += images->size();
        }
    }
    catch (const nq::tool::ToolFailure& failure)
    {
        Require(*failure.what() != 0, "a failure has a reason");
    }
    Require(container >= recording.images.size(), "what was written is read", static_cast<long>(container));
    Require(walk.whole || !recording.asWritten, "a file that was written is read to its end");
    return walk;
}

void CheckConversion(const std::string& path, const Walk& walk, const Recording& recording)
{
    nq::tool::ConvertOptions options;
    options.pictures.out = g_folder;
    options.pictures.overwrite = true;
    options.raw = {32, 32, 0x01080001};
    const nq::tool::ConvertedFile converted = nq::tool::Converter(options).Convert(path);
    const bool container = recording.bytes.size() >= 4 && std::memcmp(recording.bytes.data(), "GNDC", 4) == 0;
    Require(!container || converted.pictures.size() <= walk.pictures, "no picture is made up");
    Require(!container || walk.whole || !converted.problem.empty(), "what is wrong with a file is told");
    std::filesystem::remove_all(g_folder);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    std::string path = (std::filesystem::temp_directory_path() / "nq-fuzz-XXXXXX").string();
    Require(mkdtemp(path.data()) != nullptr, "there is a folder");
    g_folder = path;
    std::atexit([] { std::filesystem::remove_all(g_folder); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    const bool convert = input.Flag();
    const Recording recording = Chosen(input);
    const int descriptor = memfd_create("recording", MFD_CLOEXEC);
    Require(descriptor != -1, "there is a file");
    Require(write(descriptor, recording.bytes.data(), recording.bytes.size()) ==
                static_cast<ssize_t>(recording.bytes.size()),
            "the file is written");
    const std::string path = "/proc/self/fd/" + std::to_string(descriptor);
    {
        const nq::tool::RecordingFile file(path);
        const Walk walk = WalkThrough(file, recording);
        if (convert)
        {
            CheckConversion(path, walk, recording);
        }
    }
    close(descriptor);
    return 0;
}
