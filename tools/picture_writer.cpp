// SPDX-License-Identifier: Apache-2.0
// Frames as files in a folder, or as a row of bytes into a pipe.
#include "picture_writer.h"

#include "gendc_container.h"
#include "name_pattern.h"
#include "new_file.h"
#include "picture_files.h"
#include "stop_signals.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fmt/format.h>
#include <system_error>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr size_t kWriters = 4;

[[noreturn]] void FailAs(const std::string& what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

bool WriteRaw(std::FILE* file, const Picture& picture)
{
    return std::fwrite(picture.bytes.data(), 1, picture.bytes.size(), file) == picture.bytes.size();
}

bool WriteContainer(std::FILE* file, const Picture& picture)
{
    const ContainerHeader header = HeaderOf(picture);
    return std::fwrite(header.data(), 1, header.size(), file) == header.size() && WriteRaw(file, picture);
}

bool Encode(std::FILE* file, const Picture& picture, const PictureOptions& options)
{
    switch (options.format)
    {
    case PictureFormat::Png:
        return WritePng(file, SamplesOf(picture, options.debayer));
    case PictureFormat::Tiff:
        return WriteTiff(file, SamplesOf(picture, options.debayer));
    case PictureFormat::GenDC:
        return WriteContainer(file, picture);
    default:
        return WriteRaw(file, picture);
    }
}

} // namespace

const char* ExtensionOf(PictureFormat format)
{
    switch (format)
    {
    case PictureFormat::Png:
        return "png";
    case PictureFormat::Tiff:
        return "tiff";
    case PictureFormat::GenDC:
        return "gendc";
    default:
        return "raw";
    }
}

void MakeFolder(const std::string& path)
{
    std::error_code failure;
    std::filesystem::create_directories(path, failure);
    if (failure)
    {
        throw ToolFailure(ExitCode::Failure, fmt::format("cannot make the folder {}: {}", path, failure.message()));
    }
}

PictureWriter::PictureWriter(PictureOptions options) : m_options(std::move(options))
{
    if (m_options.out != "-")
    {
        MakeFolder(m_options.out);
    }
}

PictureWriter::~PictureWriter() = default;

void PictureWriter::Write(const Frame& frame, std::chrono::system_clock::time_point arrival)
{
    ThrowFailure();
    Write(CopyOf(frame, arrival, SpareMemory()));
}

void PictureWriter::Write(Picture copied)
{
    ThrowFailure();
    auto picture = std::make_shared<Picture>(std::move(copied));
    if (!m_queue)
    {
        // A pipe keeps the order of the frames.
        const size_t bound = m_options.queuedBytes / std::max<size_t>(picture->bytes.size(), 1);
        m_queue = std::make_unique<WorkQueue>(m_options.out == "-" ? 1 : kWriters,
                                              std::clamp(bound, kWriters, m_options.queued));
    }
    m_queue->Add([this, picture] { Work(*picture); }, StopAsked);
}

void PictureWriter::Finish()
{
    if (m_queue)
    {
        m_queue->Finish();
    }
    ThrowFailure();
}

void PictureWriter::ThrowFailure()
{
    const std::lock_guard lock(m_mutex);
    if (m_failure)
    {
        throw ToolFailure(*m_failure);
    }
}

std::vector<uint8_t> PictureWriter::SpareMemory()
{
    const std::lock_guard lock(m_mutex);
    if (m_spare.empty())
    {
        return {};
    }
    std::vector<uint8_t> memory = std::move(m_spare.back());
    m_spare.pop_back();
    return memory;
}

void PictureWriter::Spare(std::vector<uint8_t> memory)
{
    const std::lock_guard lock(m_mutex);
    m_spare.push_back(std::move(memory));
}

void PictureWriter::Work(Picture& picture)
{
    std::optional<ToolFailure> failure;
    try
    {
        WriteFile(picture);
        ++m_written;
    }
    catch (const ToolFailure& unfit)
    {
        failure = unfit;
    }
    catch (const std::exception& refused)
    {
        failure.emplace(ExitCode::Failure, fmt::format("cannot write {}", refused.what()));
    }
    const std::lock_guard lock(m_mutex);
    m_failure = m_failure ? m_failure : failure;
    m_spare.push_back(std::move(picture.bytes));
}

std::string PictureWriter::NameOf(uint64_t frameId, std::chrono::system_clock::time_point arrival) const
{
    return NameBy(m_options.name, {m_options.camera, frameId, arrival}) + "." + ExtensionOf(m_options.format);
}

void PictureWriter::WriteFile(const Picture& picture) const
{
    if (m_options.out == "-")
    {
        if (!Encode(stdout, picture, m_options) || std::fflush(stdout) != 0)
        {
            FailAs("the output");
        }
        return;
    }
    WritePicture(picture, std::filesystem::path(m_options.out) / NameOf(picture.frameId, picture.arrival), m_options);
}

void WritePicture(const Picture& picture, const std::filesystem::path& path, const PictureOptions& options)
{
    NewFile file(path);
    if (!Encode(file.Stream(), picture, options))
    {
        FailAs(path.string());
    }
    try
    {
        file.Publish(options.overwrite);
    }
    catch (const std::system_error& failure)
    {
        if (failure.code() == std::errc::file_exists && !options.overwrite)
        {
            throw ToolFailure(
                ExitCode::Failure,
                fmt::format("{} is there already; --overwrite replaces it, --name gives other names", path.string()));
        }
        throw;
    }
}

} // namespace nq::tool
