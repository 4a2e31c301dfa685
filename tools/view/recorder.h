// SPDX-License-Identifier: Apache-2.0
// Records the frames of one camera while somebody wants it.
#pragma once

#include "picture_writer.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace nq::tool::view
{

/// Each recording is a folder of its own.
class Recorder
{
  public:
    /// `options.out` is the folder of all recordings.
    explicit Recorder(PictureOptions options);

    /// Begins a recording; does nothing while there is one. Throws ToolFailure when its folder cannot be made. Any
    /// thread.
    void Begin();

    /// Ends it once all of its pictures are written. Any thread.
    void End();

    /// A camera numbers the frames of each stream from 1: those of a further stream within a recording get names of
    /// their own. Waits until those of the last one are written. For the thread of the stream.
    void BeginStream();

    /// Keeps the frame, which was not refused, if there is a recording; waits as a grab does when the disk is too slow.
    /// For the thread of the stream.
    void Take(const Frame& frame);

    nlohmann::ordered_json Json() const;

  private:
    /// Ends the recording.
    void Fail(const std::string& problem);
    void NoteEnd(uint64_t written, const std::string& problem);

    const PictureOptions m_options;
    std::mutex m_turn;    ///< who begins waits until the last recording has ended
    std::mutex m_writing; ///< guards the writer; held while a frame is handed to it
    std::unique_ptr<PictureWriter> m_writer;
    PictureOptions m_current;      ///< of this recording
    uint64_t m_streams = 0;        ///< of it so far
    uint64_t m_framesOfStream = 0; ///< of the last of them
    uint64_t m_waitsBefore = 0;    ///< in the streams before that
    uint64_t m_writtenBefore = 0;
    mutable std::mutex m_mutex; ///< guards what follows
    bool m_running = false;
    std::string m_folder;
    std::string m_problem;
    std::atomic<uint64_t> m_frames{0}; ///< of this recording
    std::atomic<uint64_t> m_waits{0};
};

} // namespace nq::tool::view
