// SPDX-License-Identifier: Apache-2.0
// One line of JSON per frame.
#include "metadata_file.h"

#include "exit_codes.h"
#include "new_file.h"
#include "stop_signals.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace nq::tool
{

namespace
{

constexpr size_t kQueuedLines = 4096;

constexpr const char* kStandardOutput = "-";

[[noreturn]] void Fail(const std::string& path, int why)
{
    throw ToolFailure(ExitCode::Failure,
                      fmt::format("cannot write {}: {}", path == kStandardOutput ? "the output" : path,
                                  std::generic_category().message(why)));
}

int LeaveOpen(std::FILE*)
{
    return 0;
}

} // namespace

MetadataFile::MetadataFile(std::string path, bool overwrite)
    : m_path(std::move(path)), m_overwrite(overwrite), m_file(nullptr, std::fclose), m_queue(1, kQueuedLines)
{
    if (!m_overwrite && m_path != kStandardOutput)
    {
        RefuseExisting(m_path);
    }
}

void MetadataFile::Open()
{
    const std::lock_guard lock(m_opening);
    if (m_file)
    {
        return;
    }
    if (m_path == kStandardOutput)
    {
        m_file = {stdout, LeaveOpen};
        return;
    }
    constexpr mode_t kForAll = 0666; // less what the user's mask takes away
    const int descriptor =
        open(m_path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC | O_NOFOLLOW | (m_overwrite ? O_TRUNC : O_EXCL), kForAll);
    if (descriptor == -1 && errno == EEXIST)
    {
        ThrowThere();
    }
    if (descriptor == -1)
    {
        Fail(m_path, errno);
    }
    m_file.reset(fdopen(descriptor, "w"));
    if (!m_file)
    {
        const int why = errno;
        close(descriptor);
        Fail(m_path, why);
    }
}

MetadataFile::~MetadataFile()
{
    m_queue.Finish();
}

void MetadataFile::Add(std::string line)
{
    ThrowFailure();
    const auto write = [this, text = std::move(line) + "\n"] {
        const bool written = std::fputs(text.c_str(), m_file.get()) >= 0 && std::fflush(m_file.get()) == 0;
        const std::lock_guard lock(m_mutex);
        m_errno = written || m_errno != 0 ? m_errno : errno;
    };
    m_queue.Add(write, StopAsked);
}

void MetadataFile::Finish()
{
    m_queue.Finish();
    ThrowFailure();
}

void MetadataFile::ThrowThere() const
{
    throw ToolFailure(ExitCode::Failure, fmt::format("{} is there already; --overwrite replaces it", m_path));
}

void MetadataFile::ThrowFailure()
{
    const std::lock_guard lock(m_mutex);
    if (m_errno != 0)
    {
        Fail(m_path, m_errno);
    }
}

} // namespace nq::tool
