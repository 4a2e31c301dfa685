// SPDX-License-Identifier: Apache-2.0
// Which form the raw files of a recording have, by the lines that grab wrote of them.
#pragma once

#include "recording_file.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace nq::tool
{

/// A raw file's picture.
struct RawFrame
{
    RawForm form;
    uint64_t frameId = 0;
};

/// Reads the file that grab --metadata wrote, once.
class RawForms
{
  public:
    /// Throws ToolFailure when the file cannot be read.
    explicit RawForms(const std::string& path);

    /// What the lines tell of the file of that name, without its folder. Lines without names, which older recordings
    /// have, tell of those that have grab's own names for the frame.
    std::optional<RawFrame> Of(const std::string& name) const;

    /// The lines that tell of no frame, by their numbers from 1.
    const std::vector<size_t>& Unusable() const { return m_unusable; }

  private:
    bool Take(const std::string& line);

    std::map<std::string, RawFrame> m_frames;
    std::vector<size_t> m_unusable;
};

} // namespace nq::tool
