// SPDX-License-Identifier: Apache-2.0
// The abstract base of all GenTL modules: identity, opening and closing, port information and registered events.
#pragma once

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_port_info.h"
#include "gentl/nq_gentl_xml_info.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

struct NQAnswers;

namespace GigERDMA
{

class NQGenTLEvent;

/// The system, an interface, a device, a remote device, a data stream or a buffer. A module's address is the handle the
/// consumer holds; the handle is valid as long as the controller's list contains it.
///
///     closed ---Open---> open ---Close---> closed ---Open---> open ...
///
/// A failing DoOpen or DoClose leaves the state as it was. Registered events survive closing and reopening. All results
/// are GenTL codes, all sizes are in bytes. Where nothing else is said, `*piSize` is the room behind a pointer and
/// receives the size needed, and a null pointer asks for that size only.
///
/// Thread-safe, but nothing protects a module from being closed or deleted while another thread uses it: that is the
/// owner's business.
class NQGenTLModuleBase
{
  public:
    /// Closed and without events. `parent` is not owned; null for the system and for buffers.
    /// Gives the parent's answers, without a parent the library's own.
    explicit NQGenTLModuleBase(NQGenTLModuleBase* parent);

    /// As above, but gives `answers`, which outlive the module.
    NQGenTLModuleBase(NQGenTLModuleBase* parent, const NQAnswers& answers);

    /// Deletes the registered events; closes nothing.
    virtual ~NQGenTLModuleBase();
    NQGenTLModuleBase(const NQGenTLModuleBase&) = delete;
    NQGenTLModuleBase& operator=(const NQGenTLModuleBase&) = delete;

    /// Whether port calls are served at all.
    virtual bool IsPortImplemented() = 0;

    /// Whether the event `id` may be registered here.
    virtual bool IsEventImplemented(int id) = 0;

    /// What the port info commands tell; the caller's own copy.
    virtual _NQ_GENTL_PORT_INFO GetPortInfo() = 0;

    /// The register description that the port serves, empty where it has none; the caller's own copy.
    virtual _NQ_GENTL_XML_INFO GetXMLInfo() = 0;

    /// URLs of the port's register descriptions.
    virtual std::vector<std::string> GetURLList() = 0;

    /// Reads or writes at `address`, `*size` bytes or one register. GC_ERR_INVALID_PARAMETER for a null pointer,
    /// GC_ERR_INVALID_ADDRESS where no register begins, GC_ERR_BUFFER_TOO_SMALL for a register that does not fit, with
    /// the size needed in `*size`, GC_ERR_ACCESS_DENIED for one that is only read, GC_ERR_IO when a camera does not
    /// answer.
    virtual int ReadPort(unsigned long address, void* buffer, unsigned long* size) = 0;
    virtual int WritePort(unsigned long address, const void* buffer, unsigned long* size) = 0;

    /// Serves the entries in order up to the first failure, whose code is the result; what came before stays done. The
    /// entries and their number are left as they are; with the standard's answers the number of a stack that failed is
    /// that of those done. GC_ERR_INVALID_PARAMETER for a null pointer.
    virtual int ReadPortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries);
    virtual int WritePortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries);

    /// All URLs, each with its NUL, closed by an empty string. GC_ERR_INVALID_PARAMETER for a null `piSize`,
    /// GC_ERR_BUFFER_TOO_SMALL.
    virtual int GetPortURL(char* sURL, unsigned long* piSize);

    /// One port info command, 0 to 12. `*piSize` bytes of `pBuffer` are cleared first. GC_ERR_INVALID_PARAMETER for a
    /// null `piType` or `piSize`, GC_ERR_NOT_IMPLEMENTED for any other command, GC_ERR_BUFFER_TOO_SMALL.
    virtual int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// GC_ERR_INVALID_PARAMETER for a null pointer.
    virtual int GetNumPortURLs(unsigned int* piNumURLs);

    /// One URL info command of the URL at an index; only 0, the URL itself. GC_ERR_INVALID_PARAMETER for a null
    /// `piType` or `piSize`, GC_ERR_NOT_IMPLEMENTED for any other command, GC_ERR_INVALID_INDEX,
    /// GC_ERR_BUFFER_TOO_SMALL.
    virtual int GetPortURLInfo(unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// The fixed word of the module's kind, against which handles are checked.
    virtual std::string GetName() = 0;

    /// What the module is found by in the list of its parent.
    virtual std::string GetId() = 0;

    /// The subclass's part of Open and Close, called with no lock held but the one of Open. What either gives but
    /// GC_ERR_SUCCESS fails that call.
    virtual int DoOpen() = 0;
    virtual int DoClose() = 0;

    /// GC_ERR_RESOURCE_IN_USE when open already, else what DoOpen gives. Of several threads that open at once, each
    /// waits for the outcome of the one before.
    int Open();

    /// GC_ERR_ERROR when not open, with the standard's answers GC_ERR_INVALID_HANDLE; else what DoClose gives.
    int Close();

    bool IsOpen();

    NQGenTLModuleBase* GetParent() const { return m_pParent; }

    /// Which answers the module gives.
    const NQAnswers& Answers() const { return m_answers; }

    /// The registered event at that address, or null. The address is only compared. The event stays owned here.
    /// With `enter` it is entered and stays until it is left.
    NQGenTLEvent* FindEventByHandle(void* handle, bool enter = false);

    /// The registered event of that id, or null. The event stays owned here; with `remove` the caller owns it from then
    /// on.
    NQGenTLEvent* FindEventById(int id, bool remove);

    /// Hands `entry` to the registered event of that id. False when there is none, or when it takes no more; the entry
    /// is then still the caller's. Unlike a search and a Signal of one's own, this is safe against another thread that
    /// unregisters the event.
    bool SignalEvent(int id, void* entry);

    /// Makes the event of that id and stores its handle in `phEvent`. GC_ERR_NOT_IMPLEMENTED when the module does not
    /// offer the event, GC_ERR_RESOURCE_IN_USE when it is registered already, GC_ERR_INVALID_PARAMETER when there is
    /// nowhere to store the handle.
    int RegisterEvent(int iEventID, void** phEvent);

    /// Deletes the event of that id. GC_ERR_NOT_IMPLEMENTED when the module does not offer it, GC_ERR_NOT_INITIALIZED
    /// when it is not registered.
    int UnregisterEvent(int iEventID);

  protected:
    /// As FindEventById without `remove`.
    NQGenTLEvent* RegisteredEvent(int id) NQ_REQUIRES(m_moduleLock);

    NQGenTLMutex m_moduleLock; ///< For the state of this class and that of its subclasses.

  private:
    int _getId(int* piType, void* pBuffer, unsigned long* piSize);
    int _getVendor(int* piType, void* pBuffer, unsigned long* piSize);
    int _getModel(int* piType, void* pBuffer, unsigned long* piSize);
    int _getTLType(int* piType, void* pBuffer, unsigned long* piSize);
    int _getModule(int* piType, void* pBuffer, unsigned long* piSize);
    int _getLittleEndian(int* piType, void* pBuffer, unsigned long* piSize);
    int _getBigEndian(int* piType, void* pBuffer, unsigned long* piSize);
    int _getAccessRead(int* piType, void* pBuffer, unsigned long* piSize);
    int _getAccessWrite(int* piType, void* pBuffer, unsigned long* piSize);
    int _getAccessNA(int* piType, void* pBuffer, unsigned long* piSize);
    int _getAccessNI(int* piType, void* pBuffer, unsigned long* piSize);
    int _getVersion(int* piType, void* pBuffer, unsigned long* piSize);
    int _getPortName(int* piType, void* pBuffer, unsigned long* piSize);
    int _getURLInfoURL(unsigned int index, int* piType, void* pBuffer, unsigned long* piSize);
    int _getPortURL(char* sURL, unsigned long* piSize);

    void EndEvents(bool flush);

    NQGenTLModuleBase* const m_pParent;
    const NQAnswers& m_answers;
    NQGenTLMutex m_openLock{NQHeld::Long}; ///< Held while DoOpen runs; taken by nothing else.
    bool m_bOpen NQ_GUARDED_BY(m_moduleLock) = false;
    std::vector<std::unique_ptr<NQGenTLEvent>> m_events NQ_GUARDED_BY(m_moduleLock); ///< At most one of each id.
    std::atomic<bool> m_hasEvents{false}; ///< So that a search for an event need not lock the modules without any.
};

} // namespace GigERDMA
