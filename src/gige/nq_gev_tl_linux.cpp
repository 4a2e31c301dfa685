// SPDX-License-Identifier: Apache-2.0
// Camera access for the modules, with a trace line per failure.
#include "gige/nq_gev_tl_linux.h"

#include "base/nq_trace.h"
#include "gige/nqgige.h"

namespace
{

constexpr unsigned int kUnusedArgument = 3000;

/// True on success; else traces the operation's name and the code in the words of `format`.
bool succeeded(NQGigE_RETURN result, const char* format, const char* operation)
{
    if (result == NQGigE_SUCCESS)
    {
        return true;
    }
    NQTrace(NQTraceLevel::Failure, format, operation, static_cast<int>(result));
    return false;
}

unsigned int swapped(unsigned int value, bool swap)
{
    return swap ? __builtin_bswap32(value) : value;
}

} // namespace

NQGevTL::NQGevTL() : m_tlType(0) {}

bool NQGevTL::TLInit()
{
    return true;
}

void NQGevTL::TLClose() {}

int NQGevTL::TLGetType() const
{
    return m_tlType;
}

bool NQGevTL::CameraOpen(unsigned long* handle, unsigned int ip, unsigned int)
{
    const NQGigE_RETURN result = openCamera(handle, ip, 0, kUnusedArgument, MULTICAST_OFF);
    return succeeded(result, "%s failed! openCamera %d", "CameraOpen");
}

bool NQGevTL::CameraClose(unsigned long handle)
{
    return succeeded(closeCamera(handle), "%s failed! closeCamera %d", "CameraClose");
}

bool NQGevTL::CameraReadRegister(unsigned long handle, unsigned int address, unsigned int* value, bool swap)
{
    return ReadRegister(handle, address, value, swap) == NQGigE_SUCCESS;
}

bool NQGevTL::CameraWriteRegister(unsigned long handle, unsigned int address, unsigned int value, bool swap)
{
    return WriteRegister(handle, address, value, swap) == NQGigE_SUCCESS;
}

bool NQGevTL::CameraReadMemory(unsigned long handle, unsigned int address, unsigned char* data, int count)
{
    return ReadMemory(handle, address, data, count) == NQGigE_SUCCESS;
}

bool NQGevTL::CameraWriteMemory(unsigned long handle, unsigned int address, unsigned char* data, int count)
{
    return WriteMemory(handle, address, data, count) == NQGigE_SUCCESS;
}

NQGigE_RETURN NQGevTL::ReadRegister(unsigned long handle, unsigned int address, unsigned int* value, bool swap)
{
    unsigned int read = 0;
    const NQGigE_RETURN result = Camera_getGigECameraRegister(handle, address, &read, kAccessKey);
    if (succeeded(result, "%s failed! m_Camera_getGigECameraRegister %d", "CameraReadRegister"))
    {
        *value = swapped(read, swap);
    }
    return result;
}

NQGigE_RETURN NQGevTL::WriteRegister(unsigned long handle, unsigned int address, unsigned int value, bool swap)
{
    const NQGigE_RETURN result = Camera_setGigECameraRegister(handle, address, swapped(value, swap), kAccessKey);
    succeeded(result, "%s failed! m_Camera_setGigECameraRegister %d", "CameraWriteRegister");
    return result;
}

NQGigE_RETURN NQGevTL::ReadMemory(unsigned long handle, unsigned int address, unsigned char* data, int count)
{
    const NQGigE_RETURN result =
        Camera_readGigECameraMemory(handle, address, data, static_cast<unsigned int>(count), kAccessKey);
    succeeded(result, "%s failed! m_Camera_readGigECameraMemory %d", "CameraReadMemory");
    return result;
}

NQGigE_RETURN NQGevTL::WriteMemory(unsigned long handle, unsigned int address, unsigned char* data, int count)
{
    const NQGigE_RETURN result =
        Camera_writeGigECameraMemory(handle, address, data, static_cast<unsigned int>(count), kAccessKey);
    succeeded(result, "%s failed! m_Camera_writeGigECameraMemory %d", "CameraWriteMemory");
    return result;
}
