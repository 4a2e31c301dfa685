// SPDX-License-Identifier: Apache-2.0
// Records the frames of one camera while somebody wants it.
#include "view/recorder.h"

#include "name_pattern.h"

#include <filesystem>
#include <utility>

namespace nq::tool::view
{

Recorder::Recorder(PictureOptions options) : m_options(std::move(options)) {}

void Recorder::Begin()
{
    const std::lock_guard turn(m_turn);
    const std::lock_guard writing(m_writing);
    if (m_writer)
    {
        return;
    }
    PictureOptions options = m_options;
    options.out = std::filesystem::path(m_options.out) /
                  (TimeText(std::chrono::system_clock::now()) + "-" + SafeName(m_options.camera));
    m_writer = std::make_unique<PictureWriter>(options);
    m_current = options;
    m_streams = 1;
    m_framesOfStream = 0;
    m_waitsBefore = 0;
    m_writtenBefore = 0;
    m_frames = 0;
    m_waits = 0;
    const std::lock_guard lock(m_mutex);
    m_running = true;
    m_problem.clear();
    m_folder = options.out;
}

void Recorder::End()
{
    const std::lock_guard turn(m_turn);
    std::unique_ptr<PictureWriter> writer;
    uint64_t writtenBefore = 0;
    {
        const std::lock_guard writing(m_writing);
        writer = std::move(m_writer);
        writtenBefore = m_writtenBefore;
    }
    if (!writer)
    {
        return;
    }
    std::string problem;
    try
    {
        writer->Finish();
    }
    catch (const ToolFailure& failure)
    {
        problem = failure.what();
    }
    NoteEnd(writtenBefore + writer->Written(), problem);
}

void Recorder::BeginStream()
{
    const std::lock_guard writing(m_writing);
    if (!m_writer || m_framesOfStream == 0)
    {
        return;
    }
    try
    {
        m_writer->Finish();
        m_current.name = "stream-" + std::to_string(++m_streams) + "-" + m_options.name;
        auto next = std::make_unique<PictureWriter>(m_current);
        m_waitsBefore += m_writer->Waits();
        m_writtenBefore += m_writer->Written();
        m_framesOfStream = 0;
        m_writer = std::move(next);
    }
    catch (const ToolFailure& failure)
    {
        Fail(failure.what());
    }
}

void Recorder::Take(const Frame& frame)
{
    const std::lock_guard writing(m_writing);
    if (!m_writer)
    {
        return;
    }
    try
    {
        m_writer->Write(frame, std::chrono::system_clock::now());
        ++m_frames;
        ++m_framesOfStream;
        m_waits = m_waitsBefore + m_writer->Waits();
    }
    catch (const ToolFailure& failure)
    {
        Fail(failure.what());
    }
}

void Recorder::Fail(const std::string& problem)
{
    const std::unique_ptr<PictureWriter> writer = std::move(m_writer);
    try
    {
        writer->Finish();
    }
    catch (const ToolFailure&) // the problem, once more
    {
    }
    NoteEnd(m_writtenBefore + writer->Written(), problem);
}

/// What was handed over need not have been written.
void Recorder::NoteEnd(uint64_t written, const std::string& problem)
{
    m_frames = written;
    const std::lock_guard lock(m_mutex);
    m_running = false;
    m_problem = problem;
}

nlohmann::ordered_json Recorder::Json() const
{
    const std::lock_guard lock(m_mutex);
    return {{"running", m_running},
            {"folder", m_folder},
            {"frames", m_frames.load()},
            {"waits", m_waits.load()},
            {"problem", m_problem}};
}

} // namespace nq::tool::view
