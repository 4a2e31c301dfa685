// SPDX-License-Identifier: Apache-2.0
// The object behind the exported interface: library state, list of live modules, last errors.
#pragma once

#include "gentl/nq_gentl_error_container.h"
#include "gentl/nq_gentl_module_container.h"

#include "GenTL/GenTL.h"

#include <atomic>
#include <string>

struct NQAnswers;

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
/// Thread-safe. While a module operation runs no lock is held, but by Close its own. A module closed on one thread
/// while in use on another is the consumer's error. Results are GenTL codes, sizes are in bytes; ordinary failures are
/// traced by the exported functions. Where nothing else is said, `*piSize` is the room behind a pointer and receives
/// the size needed, and a null pointer asks for that size only.
class NQGenTLController
{
  public:
    NQGenTLController();
    virtual ~NQGenTLController();
    NQGenTLController(const NQGenTLController&) = delete;
    NQGenTLController& operator=(const NQGenTLController&) = delete;

    /// Makes the root of the module tree; the controller owns it. Null on failure.
    virtual NQGenTLSystem* CreateSystem() = 0;
    /// The transport's part of Init and Close. What either gives but GC_ERR_SUCCESS is the result of that call.
    virtual int DoInit() = 0;
    virtual int DoClose() = 0;

    /// GC_ERR_RESOURCE_IN_USE when already initialised; else what DoInit says, or GC_ERR_ERROR without a system module.
    /// Of several threads that call Init or Close at once, each waits for the outcome of the one before.
    int Init();
    /// Closes every open module. A system module that is not open stays allocated for ever, so that its handle is never
    /// that of another module, but gives back what it holds. GC_ERR_NOT_INITIALIZED when not initialised; else what
    /// DoClose says, and the controller is not initialised any more.
    int Close();
    bool IsInitialized() const;

    /// The answers of the session that the last Init began, the library's own before the first. They never change or
    /// go.
    const NQAnswers& Answers() const;

    // Only while initialised.

    /// One TL_INFO command to the system module, open or not. GC_ERR_INVALID_PARAMETER for a null `piType` or `piSize`,
    /// GC_ERR_NOT_IMPLEMENTED for any other command, GC_ERR_BUFFER_TOO_SMALL.
    int GetInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// Opens the system module and stores its handle; it stays owned here. GC_ERR_INVALID_PARAMETER for a null pointer,
    /// GC_ERR_RESOURCE_IN_USE when it is open.
    int OpenSystemModule(void** phTL);
    /// Closes the system module, with all that is open below it, and keeps the object. GC_ERR_INVALID_HANDLE for any
    /// other handle, GC_ERR_ERROR when it is not open.
    int CloseSystemModule(void* hTL);

    /// Makes a module's address a valid handle; the module is not owned here. True unless it was listed already or is
    /// null.
    bool RegisterModule(void* hModule);
    /// Ends a handle's validity; with `bDestroy` closes and deletes the module, if it was listed. True if it was.
    bool UnregisterModule(void* hModule, bool bDestroy);

    // The listed module with that address and kind, or null. An address that is not listed is only compared. The module
    // stays its owner's, and nothing keeps it from being closed while the pointer is used.

    NQGenTLModuleBase* GetSystemModule(void* hModule);
    NQGenTLModuleBase* GetInterfaceModule(void* hModule);
    NQGenTLModuleBase* GetDeviceModule(void* hModule);
    NQGenTLModuleBase* GetDataStreamModule(void* hModule);
    NQGenTLModuleBase* GetRemoteDeviceModule(void* hModule);

    // Port operations on any listed module, buffers included: GC_ERR_INVALID_HANDLE for an unknown handle,
    // GC_ERR_NOT_IMPLEMENTED for a module without a port; else what the module's operation of the same name says, which
    // for each of them is GC_ERR_INVALID_PARAMETER for a null pointer that it needs.

    /// Reads a register, or `*piSize` bytes of a camera, at `address`. GC_ERR_INVALID_ADDRESS where no register begins,
    /// GC_ERR_BUFFER_TOO_SMALL for too little room; for a camera GC_ERR_IO when it does not answer.
    int ReadPort(void* hPort, unsigned long address, void* pBuffer, unsigned long* piSize);

    /// Writes a register, or `*piSize` bytes of a camera, at `address`. GC_ERR_INVALID_ADDRESS where no register
    /// begins, GC_ERR_ACCESS_DENIED for one that is only read; for a camera GC_ERR_IO when it does not acknowledge.
    int WritePort(void* hPort, unsigned long address, const void* pBuffer, unsigned long* piSize);

    /// Serves `*piNumEntries` entries in order up to the first failure, whose code is the result. The number stays.
    int ReadPortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries);
    int WritePortStacked(void* hPort, GenTL::S_PORT_REGISTER_STACK_ENTRY* pEntries, unsigned long* piNumEntries);

    /// All URLs of the port, each with its NUL, closed by an empty string. GC_ERR_BUFFER_TOO_SMALL.
    int GetPortURL(void* hPort, char* sURL, unsigned long* piSize);

    /// One PORT_INFO command, its type in `*piType`. GC_ERR_NOT_IMPLEMENTED for any other, GC_ERR_BUFFER_TOO_SMALL.
    int GetPortInfo(void* hPort, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    int GetNumPortURLs(void* hPort, unsigned int* piNumURLs);

    /// The URL at an index, with URL_INFO_URL. GC_ERR_NOT_IMPLEMENTED for any other command, GC_ERR_INVALID_INDEX,
    /// GC_ERR_BUFFER_TOO_SMALL.
    int GetPortURLInfo(void* hPort, unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer,
                       unsigned long* piSize);

    /// The event with that address among the events of all listed modules, or null. The address is only compared. The
    /// event stays its module's. With the standard's answers it is entered, and not deleted until the caller leaves it;
    /// else nothing keeps it from being unregistered while the pointer is used.
    NQGenTLEvent* FindEventModule(void* hEvent);

    /// Registers an event on a listed module and stores its handle; the module owns it. GC_ERR_INVALID_HANDLE for an
    /// unknown module, GC_ERR_NOT_IMPLEMENTED when it does not offer the event, GC_ERR_RESOURCE_IN_USE when it is
    /// registered already, GC_ERR_INVALID_PARAMETER for a null `phEvent`.
    int RegisterEvent(void* hEventSrc, int iEventID, void** phEvent);

    /// Deletes an event, in which nobody may wait any more. GC_ERR_INVALID_HANDLE for an unknown module,
    /// GC_ERR_NOT_IMPLEMENTED when it does not offer the event, GC_ERR_NOT_INITIALIZED when it is not registered.
    int UnregisterEvent(void* hEventSrc, int iEventID);

    /// Records the calling thread's last error; works whether the library is initialised or not.
    void SetLastError(int code);
    /// The calling thread's last error; GC_ERR_SUCCESS and "No Error" when it never had one. With a null `sErrText`
    /// only code and size are asked for. GC_ERR_INVALID_PARAMETER for a null `piErrorCode` or `piSize`; a buffer that
    /// is too small gives GC_ERR_BUFFER_TOO_SMALL and leaves code and size untouched.
    int GetLastError(int* piErrorCode, char* sErrText, unsigned long* piSize);

  private:
    static std::string _getErrorTxt(int code);

    NQGenTLModuleContainer m_moduleList;
    NQGenTLErrorContainer m_errors;
    std::atomic<NQGenTLSystem*> m_pSystem;
    std::atomic<bool> m_bInitialized;
    std::atomic<const NQAnswers*> m_answers;
    NQGenTLMutex m_lifeLock{NQHeld::Long}; ///< Held by Init and Close to their end; taken by nothing else.
    NQGenTLModuleContainer m_abandoned;    ///< The system modules that Close found closed and left allocated.
};

/// The controller behind the exported functions, which are where it is defined. Thread-safe.
NQGenTLController& TheController();

} // namespace GigERDMA
