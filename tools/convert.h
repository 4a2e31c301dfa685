// SPDX-License-Identifier: Apache-2.0
// Makes pictures of the files of a recording, one file after the other.
#pragma once

#include "picture_writer.h"
#include "raw_forms.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace nq::tool
{

struct ConvertOptions
{
    std::vector<std::string> files;
    PictureOptions pictures; ///< `out` is empty for the folder of each file
    std::string metadata;    ///< of raw files; empty for none
    RawForm raw;             ///< of all raw files; without a width it is not told
};

/// A picture that was written.
struct ConvertedPicture
{
    std::string path;
    uint64_t frameId;
    RawForm form;
};

/// What came of one file.
struct ConvertedFile
{
    std::string file;
    std::vector<ConvertedPicture> pictures;
    std::string problem; ///< why there are not more; empty for none
};

/// Used from one thread.
class Converter
{
  public:
    /// Throws ToolFailure when the folder cannot be made, or the lines about raw files not be read.
    explicit Converter(const ConvertOptions& options);

    /// Does what can be done of the file; what is wrong with it is a result. A signal that asks to stop ends it
    /// between two pictures.
    ConvertedFile Convert(const std::string& path);

    /// The lines about raw files that tell of none.
    const std::vector<size_t>& UnusableLines() const;

  private:
    void ConvertContainers(const RecordingFile& file, ConvertedFile& result);
    void ConvertRaw(const RecordingFile& file, ConvertedFile& result);
    RawFrame FrameIn(const std::string& path) const;
    void Write(const Picture& picture, size_t part, ConvertedFile& result);

    const ConvertOptions& m_options;
    std::optional<RawForms> m_forms;
    bool m_single = false;           ///< The file is one picture, and gives it its name.
    std::set<std::string> m_written; ///< names that --overwrite does not mean
};

} // namespace nq::tool
