// SPDX-License-Identifier: Apache-2.0
// One line of JSON per frame.
#pragma once

#include "work_queue.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

namespace nq::tool
{

/// A file of lines, written by a thread of its own. Any thread may add lines. Failures are ToolFailure.
class MetadataFile
{
  public:
    /// Makes no file yet; what is there already is a failure unless `overwrite`. "-" is standard output.
    MetadataFile(std::string path, bool overwrite);
    ~MetadataFile();

    /// Makes the file, or empties one that is there if it may. Links are not followed. Does nothing
    /// once that is done; to be called before Add().
    void Open();

    /// Has the line written, unless a signal asks to stop while too many wait; throws what failed of an earlier one.
    void Add(std::string line);

    /// Waits until all lines are written; throws as Add does.
    void Finish();

  private:
    [[noreturn]] void ThrowThere() const;
    void ThrowFailure();

    const std::string m_path;
    const bool m_overwrite;
    std::mutex m_opening; ///< guards the making of m_file
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> m_file;
    std::mutex m_mutex; ///< guards m_errno
    int m_errno = 0;    ///< of the first line that could not be written
    WorkQueue m_queue;
};

} // namespace nq::tool
