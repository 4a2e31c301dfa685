// SPDX-License-Identifier: Apache-2.0
// Frames as PNG files.
#pragma once

#include "frame.h"

#include <filesystem>
#include <string>

namespace nq::tool
{

/// Writes frames into one folder. A file appears under its name only when it is whole.
class PictureWriter
{
  public:
    /// Makes the folder. Throws ToolFailure when that is impossible.
    explicit PictureWriter(const std::string& folder);

    /// Writes the frame as frame-NUMBER.png. Throws ToolFailure when the disk refuses or the pixel format has no PNG
    /// form.
    void Write(const Frame& frame);

    size_t Written() const { return m_written; }

  private:
    std::filesystem::path m_folder;
    size_t m_written = 0;
};

} // namespace nq::tool
