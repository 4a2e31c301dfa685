// SPDX-License-Identifier: Apache-2.0
// The abstract interface module: one network adapter that the consumer has opened.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// What the exported IF... functions call. Thread-safe. Results are GenTL codes, GC_ERR_INVALID_PARAMETER for a null
/// pointer unless told otherwise; `*size` is the room behind `buffer`, in bytes, and receives the size needed,
/// GC_ERR_BUFFER_TOO_SMALL when that is more. What refuses its arguments leaves every state as it was.
class NQGenTLInterface : public NQGenTLModuleBase
{
  public:
    using NQGenTLModuleBase::NQGenTLModuleBase;

    std::string GetName() override;

    /// Answers one INTERFACE_INFO command; a null `buffer` asks for the size. GC_ERR_NOT_IMPLEMENTED for any other
    /// command.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Number of devices of the last scan.
    virtual int GetNumDevices(unsigned int* count) = 0;

    /// Id of the device at `index` in the list of the last scan; a null `buffer` asks for the size.
    /// GC_ERR_INVALID_INDEX.
    virtual int GetDeviceID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Looks for devices for `timeout` milliseconds. `changed` (may be null) receives whether the list differs.
    virtual int UpdateDeviceList(bool* changed, unsigned long timeout) = 0;

    /// Answers one DEVICE_INFO command about a device that need not be open; a null `buffer` asks for the size.
    /// GC_ERR_INVALID_ID for one that is neither open nor listed, GC_ERR_NOT_IMPLEMENTED for any other command,
    /// GC_ERR_IO when an open device's camera does not answer.
    virtual int GetDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Makes and opens a device module with a DEVICE_ACCESS_FLAGS value; this module owns it, the caller gets it as a
    /// handle. GC_ERR_RESOURCE_IN_USE when the id is open, GC_ERR_INVALID_ID when nothing finds it,
    /// GC_ERR_NOT_IMPLEMENTED or GC_ERR_INVALID_PARAMETER for flags that are no access mode, GC_ERR_ACCESS_DENIED; else
    /// what the device's Open gives.
    virtual int OpenDevice(const char* id, int flags, void** handle) = 0;

    /// Closes and deletes a device module. GC_ERR_INVALID_HANDLE for any that was not opened here; else what its Close
    /// gives, and one that refuses to close is not deleted.
    virtual int CloseDevice(void* handle) = 0;
};

} // namespace GigERDMA
