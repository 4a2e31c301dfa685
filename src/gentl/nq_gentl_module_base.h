// SPDX-License-Identifier: Apache-2.0
// The abstract base of all GenTL modules: identity, opening and closing, port information and registered events.
#pragma once

#include "GenTL/GenTL.h"
#include "gentl/nq_gentl_mutex.h"
#include "gentl/nq_gentl_port_info.h"
#include "gentl/nq_gentl_xml_info.h"

#include <memory>
#include <string>
#include <vector>

namespace GigERDMA
{

class NQGenTLEvent;

/// The system, an interface, a device, a remote device, a data stream or a buffer. A module's address is the handle the
/// consumer holds; the handle is valid as long as the controller's list contains it.
///
///     closed ---Open---> open ---Close---> closed ---Open---> open ...
///
/// A failing DoOpen or DoClose leaves the state as it was. Registered events survive closing and reopening. All results
/// are GenTL codes, all sizes are in bytes. Any thread may call anything, but nothing protects a module from being
/// closed or deleted while another thread uses it: that is the owner's business.
class NQGenTLModuleBase
{
  public:
    /// Closed and without events. `parent` is not owned; null for the system and for buffers.
    explicit NQGenTLModuleBase(NQGenTLModuleBase* parent);

    /// Deletes the registered events; closes nothing.
    virtual ~NQGenTLModuleBase();
    NQGenTLModuleBase(const NQGenTLModuleBase&) = delete;
    NQGenTLModuleBase& operator=(const NQGenTLModuleBase&) = delete;

    /// Whether port calls are served at all.
    virtual bool IsPortImplemented() = 0;

    /// Whether the event `id` may be registered here.
    virtual bool IsEventImplemented(int id) = 0;

    virtual _NQ_GENTL_PORT_INFO GetPortInfo() = 0;
    virtual _NQ_GENTL_XML_INFO GetXMLInfo() = 0;

    /// URLs of the port's register descriptions.
    virtual std::vector<std::string> GetURLList() = 0;

    virtual int ReadPort(unsigned long address, void* buffer, unsigned long* size) = 0;
    virtual int WritePort(unsigned long address, const void* buffer, unsigned long* size) = 0;

    /// Serves the entries in order up to the first failure, whose code is the result; what came before stays done. The
    /// entries and their number are left as they are.
    virtual int ReadPortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries);
    virtual int WritePortStacked(GenTL::S_PORT_REGISTER_STACK_ENTRY* entries, unsigned long* piNumEntries);

    /// All URLs, each with its NUL, closed by an empty string.
    virtual int GetPortURL(char* sURL, unsigned long* piSize);

    /// One port info command, 0 to 12.
    virtual int GetPortInfo(int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    virtual int GetNumPortURLs(unsigned int* piNumURLs);

    /// One URL info command of the URL at an index; only 0, the URL itself.
    virtual int GetPortURLInfo(unsigned int iURLIndex, int iInfoCmd, int* piType, void* pBuffer, unsigned long* piSize);

    /// The fixed word of the module's kind, against which handles are checked.
    virtual std::string GetName() = 0;

    virtual std::string GetId() = 0;

    /// The subclass's part of Open and Close, called with no lock held but the one of Open.
    virtual int DoOpen() = 0;
    virtual int DoClose() = 0;

    /// -1004 when open already, else what DoOpen gives. Of several threads that open at once, each waits for the
    /// outcome of the one before.
    int Open();

    /// -1001 when not open, else what DoClose gives.
    int Close();

    bool IsOpen();

    NQGenTLModuleBase* GetParent() const { return m_pParent; }

    /// The registered event at that address, or null. The address is only compared. The event stays owned here.
    NQGenTLEvent* FindEventByHandle(void* handle);

    /// The registered event of that id, or null. With `remove` the caller owns it from then on.
    NQGenTLEvent* FindEventById(int id, bool remove);

    /// Hands `entry` to the registered event of that id. False when there is none, or when it takes no more; the entry
    /// is then still the caller's. Unlike a search and a Signal of one's own, this is safe against another thread that
    /// unregisters the event.
    bool SignalEvent(int id, void* entry);

    /// Makes the event of that id and stores its handle in `phEvent`. -1003 when the module does not offer the event,
    /// -1004 when it is registered already, -1009 when there is nowhere to store the handle.
    int RegisterEvent(int iEventID, void** phEvent);

    /// Deletes the event of that id. -1003 when the module does not offer it, -1002 when it is not registered.
    int UnregisterEvent(int iEventID);

  protected:
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

    NQGenTLModuleBase* const m_pParent;
    NQGenTLMutex m_openLock{NQHeld::Long}; ///< Held while DoOpen runs; taken by nothing else.
    bool m_bOpen NQ_GUARDED_BY(m_moduleLock) = false;
    std::vector<std::unique_ptr<NQGenTLEvent>> m_events NQ_GUARDED_BY(m_moduleLock); ///< At most one of each id.
};

} // namespace GigERDMA
