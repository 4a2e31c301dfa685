// SPDX-License-Identifier: Apache-2.0
// Makes pictures of the files of a recording, one file after the other.
#include "convert.h"

#include "gendc_container.h"
#include "name_pattern.h"
#include "stop_signals.h"

#include <filesystem>
#include <fmt/format.h>
#include <functional>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

/// The picture without what may stand behind its rows.
Picture PictureOf(const RecordingFile& file, const ContainerImage& image)
{
    NeedPossible(image.form);
    const uint64_t row = image.form.RowBytes() + image.rowPadding;
    const uint64_t needed =
        image.rowPadding == 0 ? image.form.Bytes() : row * image.form.height - image.rowPadding; // the last may be bare
    if (image.size < needed)
    {
        Fail(fmt::format("its picture of {} x {} pixels of format 0x{:08x} takes {} bytes, and has {}",
                         image.form.width, image.form.height, image.form.pixelFormat, needed, image.size));
    }
    Picture picture{image.form.width, image.form.height, image.form.pixelFormat, image.frameId, {}, {}};
    if (image.rowPadding == 0)
    {
        picture.bytes = file.Read(image.at, needed);
        return picture;
    }
    if (image.form.width * BitsPerPixel(image.form.pixelFormat) % 8 != 0)
    {
        Fail("has rows that are padded and do not end with a byte");
    }
    for (size_t at = 0; at < image.form.height; ++at)
    {
        const std::vector<uint8_t> bytes = file.Read(image.at + at * row, image.form.RowBytes());
        picture.bytes.insert(picture.bytes.end(), bytes.begin(), bytes.end());
    }
    return picture;
}

/// Does one thing after the other, and keeps the first failure.
class Attempts
{
  public:
    void Try(const std::function<void()>& work)
    {
        try
        {
            work();
        }
        catch (const std::exception& failure)
        {
            m_first = m_failed == 0 ? failure.what() : m_first;
            ++m_failed;
        }
    }

    void ThrowFailure() const
    {
        if (m_failed != 0)
        {
            Fail(m_failed == 1   ? m_first
                 : m_failed == 2 ? m_first + "; and one failure more"
                                 : fmt::format("{}; and {} failures more", m_first, m_failed - 1));
        }
    }

  private:
    std::string m_first;
    size_t m_failed = 0;
};

} // namespace

Converter::Converter(const ConvertOptions& options) : m_options(options)
{
    if (!options.pictures.out.empty())
    {
        MakeFolder(options.pictures.out);
    }
    if (!options.metadata.empty())
    {
        m_forms.emplace(options.metadata);
    }
}

const std::vector<size_t>& Converter::UnusableLines() const
{
    static const std::vector<size_t> kNone;
    return m_forms ? m_forms->Unusable() : kNone;
}

ConvertedFile Converter::Convert(const std::string& path)
{
    ConvertedFile result{path, {}, {}};
    try
    {
        const RecordingFile file(path);
        const bool raw = fs::path(path).extension() == ".raw"; // whose first pixels may look like anything
        !raw&& IsContainer(file) ? ConvertContainers(file, result) : ConvertRaw(file, result);
        if (result.pictures.empty() && !StopAsked())
        {
            Fail("holds no picture");
        }
    }
    catch (const std::exception& failure)
    {
        result.problem = failure.what();
    }
    return result;
}

void Converter::ConvertContainers(const RecordingFile& file, ConvertedFile& result)
{
    ContainerReader reader(file);
    Attempts attempts;
    for (bool isFirst = true; !StopAsked(); isFirst = false)
    {
        std::optional<std::vector<ContainerImage>> images;
        attempts.Try([&] { images = reader.Next(); });
        if (!images)
        {
            break;
        }
        m_single = isFirst && images->size() == 1 && reader.Behind() == file.Size();
        for (size_t at = 0; at < images->size() && !StopAsked(); ++at)
        {
            attempts.Try([&] { Write(PictureOf(file, (*images)[at]), at, result); });
        }
    }
    attempts.ThrowFailure();
}

void Converter::ConvertRaw(const RecordingFile& file, ConvertedFile& result)
{
    const RawFrame frame = FrameIn(result.file);
    NeedPossible(frame.form);
    const uint64_t bytes = frame.form.Bytes();
    const uint64_t count = file.Size() / bytes;
    const uint64_t rest = file.Size() % bytes;
    m_single = count == 1 && rest == 0;
    Attempts attempts;
    for (uint64_t at = 0; at < count && !StopAsked(); ++at)
    {
        attempts.Try([&] {
            const uint64_t id = count == 1 ? frame.frameId : at + 1;
            const RawForm& form = frame.form;
            Write({form.width, form.height, form.pixelFormat, id, {}, file.Read(at * bytes, bytes)}, 0, result);
        });
    }
    attempts.ThrowFailure();
    if (rest != 0)
    {
        Fail(fmt::format("{}{} bytes, and a picture of {} x {} pixels of format 0x{:08x} takes {}",
                         count == 0 ? "has " : "ends with ", rest, frame.form.width, frame.form.height,
                         frame.form.pixelFormat, bytes));
    }
}

RawFrame Converter::FrameIn(const std::string& path) const
{
    const std::optional<RawFrame> told = m_forms ? m_forms->Of(fs::path(path).filename()) : std::nullopt;
    if (!told && m_options.raw.width == 0)
    {
        Fail(m_forms ? "is no GenDC container, and no line of " + m_options.metadata + " tells of it"
                     : "is no GenDC container, and nothing tells its size and format: --metadata, or --width, "
                       "--height and --pixel-format");
    }
    return told.value_or(RawFrame{m_options.raw, 1});
}

void Converter::Write(const Picture& picture, size_t part, ConvertedFile& result)
{
    const PictureOptions& options = m_options.pictures;
    const fs::path source(result.file);
    const std::string pattern = !options.name.empty() ? options.name : m_single ? "{file}" : "{file}-{id}";
    const std::string name = NameBy(pattern, {"", picture.frameId, {}, source.stem()}) +
                             (part == 0 ? "" : fmt::format("-{}", part + 1)) + "." + ExtensionOf(options.format);
    const fs::path folder = !options.out.empty() ? fs::path(options.out) : source.parent_path();
    const fs::path path = (folder.empty() ? fs::path(".") : folder) / name;
    if (m_written.count(path) != 0)
    {
        Fail(path.string() + " has a picture of this run already; --name gives other names");
    }
    WritePicture(picture, path, options);
    m_written.insert(path);
    result.pictures.push_back({path, picture.frameId, {picture.width, picture.height, picture.pixelFormat}});
}

} // namespace nq::tool
