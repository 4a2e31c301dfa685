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
    const std::lock_guard writing(m_writing);
    if (m_writer)
    {
        return;
    }
    PictureOptions options = m_options;
    options.out = std::filesystem::path(m_options.out) /
                  (TimeText(std::chrono::system_clock::now()) + "-" + SafeName(m_options.camera));
    m_writer = std::make_unique<PictureWriter>(options);
    m_frames = 0;
    m_waits = 0;
    m_failed = false;
    const std::lock_guard lock(m_mutex);
    m_running = true;
    m_problem.clear();
    m_folder = options.out;
}

void Recorder::End()
{
    std::unique_ptr<PictureWriter> writer;
    {
        const std::lock_guard writing(m_writing);
        writer = std::move(m_writer);
    }
    if (!writer)
    {
        return;
    }
    try
    {
        writer->Finish();
    }
    catch (const ToolFailure& failure)
    {
        Note(failure.what());
    }
    const std::lock_guard lock(m_mutex);
    m_running = false;
}

void Recorder::Take(const Frame& frame)
{
    const std::lock_guard writing(m_writing);
    if (!m_writer || m_failed)
    {
        return;
    }
    try
    {
        m_writer->Write(frame, std::chrono::system_clock::now());
        ++m_frames;
        m_waits = m_writer->Waits();
    }
    catch (const ToolFailure& failure)
    {
        m_failed = true;
        Note(failure.what());
    }
}

void Recorder::Note(const std::string& problem)
{
    const std::lock_guard lock(m_mutex);
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
