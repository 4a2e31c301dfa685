// SPDX-License-Identifier: Apache-2.0
// The remote device's port as the standard has it: any range of bytes, and the camera's refusals by their own codes.
#include "GenTL/GenTL.h"
#include "base/nq_trace.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/gvcp_wire.h"
#include "gige/nq_gev_tl_linux.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace
{

constexpr std::size_t kWord = 4;        // the unit of a camera's accesses, bytes
constexpr std::size_t kMostBytes = 512; // of one memory access

/// The whole words around a range of bytes.
struct Words
{
    unsigned int begin;
    std::size_t offset; ///< Of the range in them.
    std::size_t count;  ///< Bytes, a multiple of a word.
};

bool IsInCamera(unsigned long address, unsigned long size)
{
    return address <= UINT_MAX && size <= UINT_MAX - address + 1UL;
}

Words Around(unsigned long address, unsigned long size)
{
    const unsigned long begin = address & ~(kWord - 1);
    const unsigned long end = (address + size + kWord - 1) & ~(kWord - 1);
    return {static_cast<unsigned int>(begin), address - begin, end - begin};
}

struct Access
{
    const char* name;
    unsigned int address;
    GenTL::GC_ERROR_LIST refused; ///< The code for a camera that does not take what it was told.
};

/// What a camera's status, or the failure of the exchange, is to a consumer. Traces one that is not 0.
int CodeOf(NQGigE_RETURN result, const Access& access)
{
    if (result != NQGigE_SUCCESS)
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! Address:0x%x", access.name, access.address);
    }
    switch (static_cast<unsigned int>(result))
    {
    case 0:
        return GenTL::GC_ERR_SUCCESS;
    case gvcp_wire::kStatusInvalidParameter:
        return access.refused;
    case gvcp_wire::kStatusInvalidAddress:
        return GenTL::GC_ERR_INVALID_ADDRESS;
    case gvcp_wire::kStatusWriteProtect:
    case gvcp_wire::kStatusAccessDenied:
        return GenTL::GC_ERR_ACCESS_DENIED;
    case gvcp_wire::kStatusBusy:
        return GenTL::GC_ERR_BUSY;
    default:
        return GenTL::GC_ERR_IO;
    }
}

} // namespace

int NQGevRemoteDevice::ReadRange(unsigned long address, void* buffer, unsigned long size)
{
    if (!IsInCamera(address, size))
    {
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
    if (size == 0)
    {
        return GenTL::GC_ERR_SUCCESS;
    }
    const Words words = Around(address, size);
    std::vector<unsigned char> block(words.count);
    const int result = ReadWords(words.begin, block.data(), words.count);
    if (result == GenTL::GC_ERR_SUCCESS)
    {
        std::memcpy(buffer, block.data() + words.offset, size);
    }
    return result;
}

int NQGevRemoteDevice::WriteRange(unsigned long address, const void* buffer, unsigned long size)
{
    if (m_accessMode == GenTL::DEVICE_ACCESS_READONLY)
    {
        return GenTL::GC_ERR_ACCESS_DENIED;
    }
    if (!IsInCamera(address, size))
    {
        return GenTL::GC_ERR_INVALID_ADDRESS;
    }
    if (size == 0)
    {
        return GenTL::GC_ERR_SUCCESS;
    }
    const Words words = Around(address, size);
    std::vector<unsigned char> block(words.count);
    int result = GenTL::GC_ERR_SUCCESS;
    const std::size_t last = words.count - kWord;
    const bool tailWanted = words.offset + size != words.count;
    if (words.offset != 0 || (tailWanted && last == 0))
    {
        result = ReadWords(words.begin, block.data(), kWord);
    }
    if (result == GenTL::GC_ERR_SUCCESS && tailWanted && last != 0)
    {
        result = ReadWords(words.begin + static_cast<unsigned int>(last), block.data() + last, kWord);
    }
    if (result != GenTL::GC_ERR_SUCCESS)
    {
        return result;
    }
    std::memcpy(block.data() + words.offset, buffer, size);
    return WriteWords(words.begin, block.data(), words.count);
}

int NQGevRemoteDevice::ReadWords(unsigned int address, unsigned char* data, std::size_t count)
{
    if (count == kWord)
    {
        unsigned int value = 0;
        const NQGigE_RETURN read = m_tl->ReadRegister(m_handle, address, &value, true);
        std::memcpy(data, &value, sizeof value);
        return CodeOf(read, {"_gvcpReadReg", address, GenTL::GC_ERR_INVALID_PARAMETER});
    }
    int result = GenTL::GC_ERR_SUCCESS;
    for (std::size_t done = 0; done < count && result == GenTL::GC_ERR_SUCCESS; done += kMostBytes)
    {
        const auto chunk = static_cast<int>(std::min(kMostBytes, count - done));
        const unsigned int at = address + static_cast<unsigned int>(done);
        result = CodeOf(m_tl->ReadMemory(m_handle, at, data + done, chunk),
                        {"_gvcpReadMem", at, GenTL::GC_ERR_INVALID_PARAMETER});
    }
    return result;
}

int NQGevRemoteDevice::WriteWords(unsigned int address, unsigned char* data, std::size_t count)
{
    if (count == kWord)
    {
        unsigned int value = 0;
        std::memcpy(&value, data, sizeof value);
        return CodeOf(m_tl->WriteRegister(m_handle, address, value, true),
                      {"_gvcpWritereg", address, GenTL::GC_ERR_INVALID_VALUE});
    }
    int result = GenTL::GC_ERR_SUCCESS;
    for (std::size_t done = 0; done < count && result == GenTL::GC_ERR_SUCCESS; done += kMostBytes)
    {
        const auto chunk = static_cast<int>(std::min(kMostBytes, count - done));
        const unsigned int at = address + static_cast<unsigned int>(done);
        result = CodeOf(m_tl->WriteMemory(m_handle, at, data + done, chunk),
                        {"_gvcpWriteMem", at, GenTL::GC_ERR_INVALID_VALUE});
    }
    return result;
}
