// SPDX-License-Identifier: Apache-2.0
// GenDC containers: the header that a picture is written with, and the images of a file of them.
#pragma once

#include "picture.h"
#include "recording_file.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace nq::tool
{

/// The headers of a container with one component of one part: what stands before the pixels.
constexpr size_t kContainerHeaderBytes = 176;
using ContainerHeader = std::array<uint8_t, kContainerHeaderBytes>;

/// The headers for a picture whose bytes follow them, with the camera's id and time.
ContainerHeader HeaderOf(const Picture& picture);

/// A part with an image of rows and columns, not compressed.
struct ContainerImage
{
    uint64_t frameId = 0;
    RawForm form;
    uint64_t at = 0;       ///< in the file
    uint64_t size = 0;     ///< bytes
    size_t rowPadding = 0; ///< bytes behind each row
};

/// Whether a container begins at the start of the file.
bool IsContainer(const RecordingFile& file);

/// Reads the containers that lie one behind the other in a file, and believes nothing that they say of themselves.
class ContainerReader
{
  public:
    explicit ContainerReader(const RecordingFile& file) : m_file(file) {}

    /// The images of the next container; nothing behind the last one. Throws ToolFailure for what is no whole
    /// container, behind which nothing can be read any more.
    std::optional<std::vector<ContainerImage>> Next();

    /// Where the container ends that Next() gave last.
    uint64_t Behind() const { return m_at; }

  private:
    const RecordingFile& m_file;
    uint64_t m_at = 0; ///< where the next container begins
};

} // namespace nq::tool
