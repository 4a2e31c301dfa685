// SPDX-License-Identifier: Apache-2.0
// The abstract interface module: one network adapter that the consumer has opened.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// What the exported IF... functions call. All operations return a GenTL code, may run on any of the consumer's
/// threads, and leave every state as it was when they refuse their arguments.
class NQGenTLInterface : public NQGenTLModuleBase
{
  public:
    using NQGenTLModuleBase::NQGenTLModuleBase;

    std::string GetName() override;

    /// Answers one INTERFACE_INFO command.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Number of devices of the last scan.
    virtual int GetNumDevices(unsigned int* count) = 0;

    /// Id of the device at `index` in the list of the last scan.
    virtual int GetDeviceID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Looks for devices for `timeout` milliseconds. `changed` (may be null) receives whether the list differs.
    virtual int UpdateDeviceList(bool* changed, unsigned long timeout) = 0;

    /// Answers one DEVICE_INFO command about a device that need not be open.
    virtual int GetDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Makes and opens a device module with a DEVICE_ACCESS_FLAGS value; this module owns it, the caller gets it as a
    /// handle.
    virtual int OpenDevice(const char* id, int flags, void** handle) = 0;

    /// Closes and deletes a device module.
    virtual int CloseDevice(void* handle) = 0;
};

} // namespace GigERDMA
