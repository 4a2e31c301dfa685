// SPDX-License-Identifier: Apache-2.0
// The remote device's port: reads and writes of any size as register and memory exchanges, and the camera's URLs.
#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/gvcp_wire.h"

#include <algorithm>
#include <climits>
#include <cstring>

namespace
{

constexpr int kChunkSize = 512;

/// A size in bytes, up to the next multiple of 4, in the 32 bits that a camera access has.
int RoundedSize(unsigned long size)
{
    return static_cast<int>(static_cast<unsigned int>((size + 3) & ~3UL));
}

} // namespace

int NQGevRemoteDevice::ReadPort(unsigned long address, void* buffer, unsigned long* size)
{
    if (buffer == nullptr || size == nullptr || RoundedSize(*size) < 0)
    {
        return NQGevPortRefused("ReadPort");
    }
    if (Answers().cameraPort)
    {
        return ReadRange(address, buffer, *size);
    }
    const int rounded = RoundedSize(*size);
    const auto camera = static_cast<unsigned int>(address);
    std::vector<unsigned char> block(std::max<std::size_t>(static_cast<std::size_t>(rounded), 1));
    bool done = false;
    if (rounded > kChunkSize)
    {
        done = ReadChunks(camera, block.data(), rounded);
    }
    else if (rounded == 4)
    {
        unsigned int value = 0;
        done = _gvcpReadReg(camera, &value, true);
        std::memcpy(block.data(), &value, sizeof value);
    }
    else
    {
        done = _gvcpReadMem(camera, block.data(), rounded);
    }
    if (!done)
    {
        return GenTL::GC_ERR_IO;
    }
    std::memcpy(buffer, block.data(), std::min<std::size_t>(static_cast<std::size_t>(rounded), *size));
    return GenTL::GC_ERR_SUCCESS;
}

bool NQGevRemoteDevice::ReadChunks(unsigned int address, unsigned char* data, int count)
{
    for (int offset = 0; offset < count; offset += kChunkSize)
    {
        const int chunk = std::min(kChunkSize, count - offset);
        if (!_gvcpReadMem(address + static_cast<unsigned int>(offset), data + offset, chunk))
        {
            return false;
        }
    }
    return true;
}

int NQGevRemoteDevice::WritePort(unsigned long address, const void* buffer, unsigned long* size)
{
    if (m_handle == 0)
    {
        return GenTL::GC_ERR_NOT_INITIALIZED;
    }
    if (buffer == nullptr || size == nullptr || *size > static_cast<unsigned long>(INT_MAX - 3))
    {
        return NQGevPortRefused("WritePort");
    }
    if (Answers().cameraPort)
    {
        return WriteRange(address, buffer, *size);
    }
    const int rounded = RoundedSize(*size);
    const auto camera = static_cast<unsigned int>(address);
    std::vector<unsigned char> block(std::max<std::size_t>(static_cast<std::size_t>(rounded), 1));
    std::memcpy(block.data(), buffer, *size);
    if (rounded == 4 || rounded >= kChunkSize)
    {
        // Deliberate(WholeWordsGoOut): cameras take whole words only, so a register and the last chunk of a long write
        // go out as whole words of the caller's memory, up to three bytes past the size. A short memory write is filled
        // up with zeros.
        NQGevCopyReadable(static_cast<const unsigned char*>(buffer) + *size, block.data() + *size,
                          static_cast<std::size_t>(rounded) - *size);
    }
    bool done = false;
    if (rounded >= kChunkSize)
    {
        done = WriteChunks(camera, block.data(), rounded);
    }
    else if (rounded == 4)
    {
        unsigned int value = 0;
        std::memcpy(&value, block.data(), sizeof value);
        done = _gvcpWritereg(camera, value, true);
    }
    else
    {
        done = _gvcpWriteMem(camera, block.data(), rounded);
    }
    return done ? GenTL::GC_ERR_SUCCESS : GenTL::GC_ERR_IO;
}

bool NQGevRemoteDevice::WriteChunks(unsigned int address, unsigned char* data, int count)
{
    for (int offset = 0; offset < count; offset += kChunkSize)
    {
        const int chunk = std::min(kChunkSize, count - offset);
        if (!_gvcpWriteMem(address + static_cast<unsigned int>(offset), data + offset, chunk))
        {
            return false;
        }
    }
    return true;
}

std::vector<std::string> NQGevRemoteDevice::GetURLList()
{
    {
        const NQLock lock(m_urlMutex);
        if (!m_urls.empty())
        {
            return m_urls;
        }
    }
    std::vector<std::string> urls;
    char buffer[gvcp_wire::kUrlSize] = {};
    for (const unsigned int address : {gvcp_wire::kRegFirstUrl, gvcp_wire::kRegSecondUrl})
    {
        // Deliberate(EmptyUrlIsAnEntry): an empty text is an entry like any other, so that the index of a URL always
        // names the same register of the camera; one with one URL lists two.
        if (_gvcpReadMem(address, reinterpret_cast<unsigned char*>(buffer), gvcp_wire::kUrlSize))
        {
            urls.emplace_back(buffer, strnlen(buffer, gvcp_wire::kUrlSize));
        }
    }
    const NQLock lock(m_urlMutex);
    if (m_urls.empty())
    {
        m_urls = std::move(urls);
    }
    return m_urls;
}
