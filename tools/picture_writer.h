// SPDX-License-Identifier: Apache-2.0
// Frames as files in a folder, or as a row of bytes into a pipe.
#pragma once

#include "exit_codes.h"
#include "picture.h"
#include "work_queue.h"

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

enum class PictureFormat
{
    Png,
    Tiff,
    Raw,   ///< the bytes as the camera sent them
    GenDC, ///< the same in a container that tells what they are
};

/// What becomes of the frames that are to be kept.
struct PictureOptions
{
    std::string out; ///< a folder, or "-" for standard output; empty for nothing
    PictureFormat format = PictureFormat::Png;
    std::string name;                ///< the pattern of the names
    std::string camera;              ///< for {camera}
    size_t queuedBytes = 256U << 20; ///< how many bytes of pictures may wait to be written
    size_t queued = 256;             ///< and how many pictures
    bool debayer = false;
    bool overwrite = false;
};

/// Throws ToolFailure when that is impossible.
void MakeFolder(const std::string& path);

/// Writes the picture as a file of that path, which appears when it is whole. Throws ToolFailure and std::system_error.
/// Any thread may call.
void WritePicture(const Picture& picture, const std::filesystem::path& path, const PictureOptions& options);

/// Copies frames and writes them by threads of its own, so that no frame waits for a file. A file appears under its
/// name only when it is whole. Used from one thread.
class PictureWriter
{
  public:
    /// Makes the folder. Throws ToolFailure when that is impossible.
    explicit PictureWriter(PictureOptions options);
    ~PictureWriter();

    /// Copies the frame and has it written. Waits only while the queue of frames is full, and a signal that asks to
    /// stop ends that without the frame. Throws what failed of an earlier one as ToolFailure: the disk refused, the
    /// file is there already, the pixel format has no such form.
    void Write(const Frame& frame, std::chrono::system_clock::time_point arrival);

    /// The same for a copy.
    void Write(Picture copied);

    /// Throws what failed of a picture, as Write does.
    void ThrowFailure();

    /// Waits until everything is written; throws as Write does.
    void Finish();

    /// Memory of a picture that is written, or that was given; without room when there is none.
    std::vector<uint8_t> SpareMemory();
    void Spare(std::vector<uint8_t> memory);

    /// The name of the file that a frame of that id and time gets.
    std::string NameOf(uint64_t frameId, std::chrono::system_clock::time_point arrival) const;

    size_t Written() const { return m_written; }

    /// How often a frame had to wait because the queue was full.
    uint64_t Waits() const { return m_queue ? m_queue->Waits() : 0; }

  private:
    void Work(Picture& picture);
    void WriteFile(const Picture& picture) const;

    const PictureOptions m_options;
    std::atomic<size_t> m_written{0};
    std::mutex m_mutex; ///< guards what follows
    std::optional<ToolFailure> m_failure;
    std::vector<std::vector<uint8_t>> m_spare; ///< memory of written pictures, to be used again
    std::unique_ptr<WorkQueue> m_queue;        ///< last, so that it ends first
};

/// The extension of the files of a format, without the dot.
const char* ExtensionOf(PictureFormat format);

} // namespace nq::tool
