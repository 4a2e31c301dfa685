// SPDX-License-Identifier: Apache-2.0
// A file that holds what a camera sent.
#include "recording_file.h"

#include "available_memory.h"
#include "exit_codes.h"
#include "frame.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace nq::tool
{

namespace
{

[[noreturn]] void FailAsTold(int why)
{
    Fail("cannot be read: " + std::generic_category().message(why));
}

} // namespace

uint64_t RawForm::RowBytes() const
{
    return (width * BitsPerPixel(pixelFormat) + 7) / 8;
}

uint64_t RawForm::Bytes() const
{
    return (width * height * BitsPerPixel(pixelFormat) + 7) / 8;
}

void NeedPossible(const RawForm& form)
{
    constexpr uint64_t kCopies = 8; // as sent, as samples of 16 bits, in three colours
    if (form.width == 0 || form.height == 0 || form.width > kMaxSide || form.height > kMaxSide)
    {
        Fail(fmt::format("holds a picture that is said to be {} x {} pixels large", form.width, form.height));
    }
    if (!HasForm(form.pixelFormat))
    {
        Fail(fmt::format("pixel format 0x{:08x} has no form as a picture", form.pixelFormat));
    }
    if (const uint64_t available = AvailableMemory(); form.Bytes() > available / kCopies)
    {
        Fail(fmt::format("a picture of {} x {} pixels takes {} bytes of memory, of which {} are available", form.width,
                         form.height, form.Bytes() * kCopies, available));
    }
}

RecordingFile::RecordingFile(const std::string& path)
    : m_descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) // a pipe would be waited for
{
    struct stat there
    {
    };
    if (m_descriptor == -1)
    {
        FailAsTold(errno);
    }
    fstat(m_descriptor, &there);
    if (!S_ISREG(there.st_mode))
    {
        close(m_descriptor);
        Fail(S_ISDIR(there.st_mode) ? "is a folder; name the files in it" : "is no plain file");
    }
    m_size = static_cast<uint64_t>(there.st_size);
}

RecordingFile::~RecordingFile()
{
    close(m_descriptor);
}

std::vector<uint8_t> RecordingFile::Read(uint64_t at, size_t size) const
{
    if (at > m_size || size > m_size - at)
    {
        Fail(fmt::format("ends at byte {}, within a picture or its header", m_size));
    }
    std::vector<uint8_t> bytes(size);
    for (size_t done = 0; done < size;)
    {
        const ssize_t got = pread(m_descriptor, bytes.data() + done, size - done, static_cast<off_t>(at + done));
        if (got == -1 && errno == EINTR)
        {
            continue;
        }
        if (got == -1)
        {
            FailAsTold(errno);
        }
        if (got == 0)
        {
            Fail("became shorter while it was read");
        }
        done += static_cast<size_t>(got);
    }
    return bytes;
}

} // namespace nq::tool
