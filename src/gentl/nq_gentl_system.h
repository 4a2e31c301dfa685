// SPDX-License-Identifier: Apache-2.0
// The abstract system module, root of the tree of GenTL modules.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// What the exported TL... functions call. All operations return a GenTL code, may run on any of the consumer's
/// threads, and leave every state as it was when they refuse their arguments.
class NQGenTLSystem : public NQGenTLModuleBase
{
  public:
    using NQGenTLModuleBase::NQGenTLModuleBase;

    std::string GetName() override;

    /// Answers one TL_INFO command.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Looks for adapters anew. `changed` (may be null) receives whether the list differs; `timeout` in milliseconds.
    virtual int UpdateInterfaceList(bool* changed, unsigned long timeout) = 0;

    /// Number of interfaces of the last scan.
    virtual int GetNumInterfaces(unsigned int* count) = 0;

    /// Id of the interface at `index` in the list of the last scan.
    virtual int GetInterfaceID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Answers one INTERFACE_INFO command about an interface that need not be open.
    virtual int GetInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) = 0;

    /// Makes and opens an interface module; this module owns it, the caller gets it as a handle.
    virtual int OpenInterface(const char* id, void** handle) = 0;

    /// Closes and deletes an interface module.
    virtual int CloseInterface(void* handle) = 0;

    /// Gives back the memory of what was found. For a closed module that stays allocated and is never used again.
    virtual void Abandon() {}
};

} // namespace GigERDMA
