// SPDX-License-Identifier: Apache-2.0
// The system module: the host's adapters and the interfaces that are open on them.
#pragma once

#include "base/nq_answers.h"
#include "gentl/nq_gentl_module_container.h"
#include "gentl/nq_gentl_openings.h"
#include "gentl/nq_gentl_system.h"
#include "gev/nq_gev_common.h"

#include <string>
#include <vector>

class NQGevPortReader;
struct NQGevPort;

/// Root of the module tree, made by the controller. Keeps the list of adapters as of the last scan, which is keyed by
/// `id`: a scan erases what is gone and appends what is new, and never refreshes an entry that stays. Owns the
/// interface modules that the consumer opened; an interface whose adapter vanishes stays open until it is closed.
///
/// Thread-safe. The module mutex guards the list, the selector and the
/// updating flag, and is never held during a scan.
class NQGevSystem : public GigERDMA::NQGenTLSystem
{
  public:
    /// Gives `answers`, as all modules below it do.
    explicit NQGevSystem(const NQAnswers& answers = kStatedAnswers);

    bool IsPortImplemented() override;
    bool IsEventImplemented(int type) override;
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override;
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override;
    std::vector<std::string> GetURLList() override;

    /// Reads one register, or the description at 0x10000; an address matches exactly or not at all.
    /// GC_ERR_BUFFER_TOO_SMALL when `*size` bytes do not hold the register; GC_ERR_INVALID_ADDRESS where no register
    /// begins.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;

    /// Writes the selector (the first 4 of `*size` bytes, unchecked, missing ones as zeros) or, with any value, scans
    /// for adapters. GC_ERR_ACCESS_DENIED for the other registers, GC_ERR_INVALID_ADDRESS where no register begins.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;

    using NQGenTLModuleBase::GetPortInfo;

    std::string GetId() override;

    /// Always GC_ERR_SUCCESS. Opening makes the handle valid; closing closes and deletes the interfaces first.
    int DoOpen() override;
    int DoClose() override;
    int GetInfo(int command, int* type, void* buffer, unsigned long* size) override;

    /// Always GC_ERR_SUCCESS, also when nothing could be scanned. The timeout is ignored: a scan takes no noticeable
    /// time.
    int UpdateInterfaceList(bool* changed, unsigned long timeout) override;

    int GetNumInterfaces(unsigned int* count) override;
    int GetInterfaceID(unsigned int index, char* buffer, unsigned long* size) override;

    /// Asks the open interface of that id, or else answers from the list.
    int GetInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) override;

    /// Scans once when the id is unknown. GC_ERR_RESOURCE_IN_USE when an interface of that id is open. While another
    /// thread opens the same id, waits for its outcome first.
    int OpenInterface(const char* id, void** handle) override;

    int CloseInterface(void* handle) override;

    /// Gives back the list of adapters. Nobody uses the module any more.
    void Abandon() override;

    /// Whether a register that describes the system itself, its list or its selection begins at `address`.
    static bool _isAddressValid(unsigned long address);

  protected:
    /// Makes the list that of a scan. `changed` (may be null) receives whether an adapter came or went.
    void _updateInterfaceList(const std::vector<_NQ_GEV_INTERFACE_INFO>& found, bool* changed);

    // Look-ups hand out copies; false when there is no such entry.

    bool _findInterfaceInfoByIndex(unsigned int index, _NQ_GEV_INTERFACE_INFO& info);
    bool _findInterfaceInfoById(const std::string& id, _NQ_GEV_INTERFACE_INFO& info);
    bool _discoverInterface(const std::string& id, _NQ_GEV_INTERFACE_INFO& info);

    /// Answers one INTERFACE_INFO command from the list.
    int _getInterfaceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size);

  private:
    NQGevPort _port();
    int _readRegister(unsigned long address, void* buffer, unsigned long* size);
    int _writeRegister(unsigned long address, const void* buffer, unsigned long* size);
    int _readListRegister(unsigned long address, const NQGevPortReader& reader);
    int _readSelectedInterface(unsigned long address, const NQGevPortReader& reader) NQ_REQUIRES(m_moduleLock);

    std::vector<_NQ_GEV_INTERFACE_INFO> m_interfaceList NQ_GUARDED_BY(m_moduleLock);
    GigERDMA::NQGenTLModuleContainer m_interfaces; ///< The open interfaces, owned.
    GigERDMA::NQGenTLOpenings m_openings;          ///< The ids of interfaces on the way to m_interfaces.
    bool m_updating = false; ///< Under the module lock: a scan asked for through the port is running.
    unsigned int m_interfaceSelector NQ_GUARDED_BY(m_moduleLock) =
        0; ///< Index into m_interfaceList, possibly past its end.
};
