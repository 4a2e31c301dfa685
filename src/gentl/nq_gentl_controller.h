// SPDX-License-Identifier: Apache-2.0
// The object behind the exported interface: library state, list of live modules, last errors.
#pragma once

#include "gentl/nq_gentl_error_container.h"
#include "gentl/nq_gentl_module_container.h"

#include "GenTL/GenTL.h"

#include <atomic>
#include <string>

namespace GigERDMA
{

class NQGenTLEvent;
class NQGenTLModuleBase;
class NQGenTLSystem;

/// Owns the library's initialised state, the system module, the list of every live module and the last error of each
/// thread. A handle is valid if and only if it is found in that list; an address that is not is never dereferenced.
///
///     not initialised --Init--> initialised --Close--> not initialised
///
/// Operations may be called from any thread. While a module operation runs no lock is held, but by Close its own. A
/// module closed on one thread while in use on another is the consumer's error. Results are GenTL codes; ordinary
/// failures are traced by the exported functions.
class NQGenTLController
{
  public:
    NQGenTLController();
    virtual ~NQGenTLController();
    NQGenTLController(const NQGenTLController&) = delete;
    NQGenTLController& operator=(const NQGenTLController&) = delete;

    /// Makes the root of the module tree; the controller owns it. Null on failure.
    virtual NQGenTLSystem* CreateSystem() = 0;
    /// The transport's part of Init and Close.
    virtual int DoInit() = 0;
    virtual int DoClose() = 0;

    /// -1004 when already initialised; else what DoInit says, or -1001 without a system module. Of several threads that
    /// call Init or Close at once, each waits for the outcome of the one before.
    int Init();
    /// Closes every open module. A system module that is not open stays allocated for ever, so that its handle is never
    /// that of another module, but gives back what it holds. -1002 when not initialised.
    int Close();
    bool IsInitialized() const;

    /// The system module's GetInfo, also before TLOpen.
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// Stores the system module's handle. -1009 for a null pointer, -1004 when it is open.
    int OpenSystemModule(void** phTL);
    /// Closes the system module and keeps the object. -1006 for any other handle.
    int CloseSystemModule(void* hTL);

    /// Makes a module's address a valid handle. True unless it was listed already or is null.
    bool RegisterModule(void* hModule);
    /// Ends a handle's validity; with `bDestroy` closes and deletes the module, if it was listed. True if it was.
    bool UnregisterModule(void* hModule, bool bDestroy);

    // The listed module with that address and kind, or null.

    NQGenTLModuleBase* GetSystemModule(void* hModule);
    NQGenTLModuleBase* GetInterfaceModule(void* hModule);
    NQGenTLModuleBase* GetDeviceModule(void* hModule);
    NQGenTLModuleBase* GetDataStreamModule(void* hModule);
    NQGenTLModuleBase* GetRemoteDeviceModule(void* hModule);

    // Port operations on any listed module: -1006 for an unknown handle, -1003 for a module without a port.

    int ReadPort(void* hPort, unsigned long address, void* pBuffer, unsigned long* piSize);
    int WritePort(void* hPort, unsigned long address, const void* pBuffer, unsigned long* piSize);
    int ReadPortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries);
    int WritePortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries);
    int GetPortURL(void* hPort, char* sURL, unsigned long* piSize);
    int GetPortInfo(void* hPort, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);
    int GetNumPortURLs(void* hPort, unsigned int* piNumURLs);
    int GetPortURLInfo(void* hPort, unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer,
                       unsigned long* piSize);

    /// The event with that address among the events of all listed modules, or null.
    NQGenTLEvent* FindEventModule(void* hEvent);
    /// Registers an event on a listed module; the module owns it.
    int RegisterEvent(void* hEventSrc, int iEventID, void** phEvent);
    int UnregisterEvent(void* hEventSrc, int iEventID);

    /// Records the calling thread's last error; works whether the library is initialised or not.
    void SetLastError(int code);
    /// The calling thread's last error. With a null `sErrText` only the size is asked for; a buffer that is too small
    /// gives -1016 and leaves code and size untouched.
    int GetLastError(int* piErrorCode, char* sErrText, unsigned long* piSize);

  private:
    static std::string _getErrorTxt(int code);

    NQGenTLModuleContainer m_moduleList;
    NQGenTLErrorContainer m_errors;
    std::atomic<NQGenTLSystem*> m_pSystem;
    std::atomic<bool> m_bInitialized;
    NQGenTLMutex m_lifeLock{NQHeld::Long}; ///< Held by Init and Close to their end; taken by nothing else.
    NQGenTLModuleContainer m_abandoned;    ///< The system modules that Close found closed and left allocated.
};

} // namespace GigERDMA
