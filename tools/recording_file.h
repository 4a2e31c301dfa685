// SPDX-License-Identifier: Apache-2.0
// A file that holds what a camera sent.
#pragma once

#include "picture.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace nq::tool
{

/// What a picture without a header has to be told.
struct RawForm
{
    size_t width = 0;
    size_t height = 0;
    uint64_t pixelFormat = 0;

    /// Bytes of a row without padding, and of the whole picture, whose rows may share a byte.
    uint64_t RowBytes() const;
    uint64_t Bytes() const;
};

/// Throws ToolFailure when there can be no such picture, or none that this machine has the memory for.
void NeedPossible(const RawForm& form);

/// A plain file open for reading, that may be anything. Any thread may read. Failures are ToolFailure.
class RecordingFile
{
  public:
    explicit RecordingFile(const std::string& path);
    ~RecordingFile();
    RecordingFile(const RecordingFile&) = delete;
    RecordingFile& operator=(const RecordingFile&) = delete;

    /// Bytes that the file had when it was opened.
    uint64_t Size() const { return m_size; }

    /// Fails when the file has no such bytes (any more).
    std::vector<uint8_t> Read(uint64_t at, size_t size) const;

  private:
    int m_descriptor;
    uint64_t m_size = 0;
};

} // namespace nq::tool
