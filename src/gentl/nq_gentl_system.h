// SPDX-License-Identifier: Apache-2.0
// The abstract system module, root of the tree of GenTL modules.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// What the exported TL... functions call. Thread-safe. Results are GenTL codes, GC_ERR_INVALID_PARAMETER for a null
/// pointer unless told otherwise; `*size` is the room behind `buffer`, in bytes, and receives the size needed,
/// GC_ERR_BUFFER_TOO_SMALL when that is more. What refuses its arguments leaves every state as it was.
class NQGenTLSystem : public NQGenTLModuleBase
{
  public:
    using NQGenTLModuleBase::NQGenTLModuleBase;

    std::string GetName() override;

    /// Answers one TL_INFO command; a null `buffer` asks for the size. GC_ERR_NOT_IMPLEMENTED for any other command.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Looks for adapters anew. `changed` (may be null) receives whether the list differs; `timeout` in milliseconds.
    virtual int UpdateInterfaceList(bool* changed, unsigned long timeout) = 0;

    /// Number of interfaces of the last scan.
    virtual int GetNumInterfaces(unsigned int* count) = 0;

    /// Id of the interface at `index` in the list of the last scan; a null `buffer` asks for the size.
    /// GC_ERR_INVALID_INDEX.
    virtual int GetInterfaceID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Answers one INTERFACE_INFO command about an interface that need not be open; a null `buffer` asks for the size.
    /// GC_ERR_INVALID_ID for a null id and for one that is neither open nor listed; for any other command
    /// GC_ERR_NOT_AVAILABLE, of an open interface GC_ERR_NOT_IMPLEMENTED.
    virtual int GetInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Makes and opens an interface module; this module owns it, the caller gets it as a handle. GC_ERR_RESOURCE_IN_USE
    /// when the id is open, GC_ERR_INVALID_ID when nothing finds it; else what the interface's Open gives.
    virtual int OpenInterface(const char* id, void** handle) = 0;

    /// Closes and deletes an interface module. GC_ERR_INVALID_HANDLE for any that was not opened here; else what its
    /// Close gives, and one that refuses to close is not deleted.
    virtual int CloseInterface(void* handle) = 0;

    /// Gives back the memory of what was found. For a closed module that stays allocated and is never used again.
    virtual void Abandon() {}
};

} // namespace GigERDMA
