// SPDX-License-Identifier: Apache-2.0
// The interface module: one adapter address, the cameras found through it and the devices open on it.
#pragma once

#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_module_container.h"
#include "gentl/nq_gentl_openings.h"
#include "gev/nq_gev_common.h"
#include "gige/nq_gev_broadcast_receiver.h"
#include "gige/nq_gev_socket_linux.h"

#include <atomic>
#include <string>
#include <vector>

class NQGevPortReader;
struct NQGevPort;

/// Made and owned by the system module. Open, it holds one UDP socket bound to its adapter's address, through which it
/// looks for cameras (one broadcast per scan) and asks a camera who controls it, and where it can a second one, through
/// which a scan hears the cameras of other subnets. The device list is as of the last scan
/// and keyed by `id`: a scan replaces the entries that answered, erases the others and appends the new ones. Owns the
/// device modules that the consumer opened; a device that vanishes from the list stays open until it is closed.
///
/// Thread-safe. The module mutex guards the list, the selector and the
/// updating flag, and is never held while a packet is awaited. Scans and probes share the socket without an order: each
/// takes what it happens to receive and drops what it did not ask for.
class NQGevInterface : public GigERDMA::NQGenTLInterface
{
  public:
    /// Copies `info` once and for all; `parent` is the system module, not owned.
    NQGevInterface(const _NQ_GEV_INTERFACE_INFO& info, GigERDMA::NQGenTLModuleBase* parent);

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
    /// for cameras for 5 s. GC_ERR_ACCESS_DENIED for the read-only registers, GC_ERR_INVALID_ADDRESS where no register
    /// begins.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;

    using NQGenTLModuleBase::GetPortInfo;

    std::string GetId() override;

    /// Opening makes the sockets and makes the handle valid: GC_ERR_ERROR without the first socket or its address.
    /// Closing gives both back, then closes and deletes the devices: always GC_ERR_SUCCESS.
    int DoOpen() override;
    int DoClose() override;

    /// The texts of the scan, but for the addresses, which are those of the adapter now.
    int GetInfo(int command, int* type, void* buffer, unsigned long* size) override;

    int GetNumDevices(unsigned int* count) override;
    int GetDeviceID(unsigned int index, char* buffer, unsigned long* size) override;

    /// Blocks for `timeout` milliseconds and at most 100 more. Always GC_ERR_SUCCESS, also when nothing could be sent.
    int UpdateDeviceList(bool* changed, unsigned long timeout) override;

    /// Asks the open device of that id, or else answers from the list; the access status costs one exchange with the
    /// camera, of 100 ms at most.
    int GetDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size) override;

    /// Scans for 2 s when the id is unknown, then asks the camera who controls it, for 100 ms at most. While another
    /// thread opens the same id, waits for its outcome first. GC_ERR_ACCESS_DENIED when the camera is exclusively
    /// another's or outside the adapter's subnet (it is not asked then), and for more than reading unless it answers
    /// that nobody controls it. GC_ERR_INVALID_PARAMETER for a null pointer or flags of 5 to 999,
    /// GC_ERR_RESOURCE_IN_USE when the id is open, GC_ERR_INVALID_ID when no scan finds it, GC_ERR_NOT_IMPLEMENTED for
    /// flags other than 2 to 4; else the result of the device's Open().
    int OpenDevice(const char* id, int flags, void** handle) override;

    int CloseDevice(void* handle) override;

  protected:
    /// Appends the cameras that answer one broadcast within `timeout` milliseconds; one that answers again and again is
    /// there twice, as it answered first and last. False when nothing was sent.
    /// With `until` the scan ends as soon as that camera has answered.
    bool _discoverDevices(std::vector<_NQ_GEV_DEVICE_INFO>& found, unsigned long timeout, const char* until = nullptr);

    /// Makes the list that of a scan. `changed` (may be null) receives whether a device came or went.
    void _updateDeviceList(const std::vector<_NQ_GEV_DEVICE_INFO>& found, bool* changed);

    /// Asks the camera who controls it: a DEVICE_ACCESS_STATUS from 0 (no answer) to 3. Takes 100 ms at most, and no
    /// packet when the camera is on another subnet. Addresses are numbers in host order.
    unsigned int _getDeviceAccessStatus(const sockaddr_in* controlAddress, unsigned int interfaceIp,
                                        unsigned int interfaceMask, unsigned int ipAddress, unsigned int subnetMask);

    // Look-ups hand out copies; false when there is no such entry.

    bool _findDeviceInfoByIndex(unsigned int index, _NQ_GEV_DEVICE_INFO& info);
    bool _findDeviceInfoById(const std::string& id, _NQ_GEV_DEVICE_INFO& info);

    // Overwrite an entry, its id included; nothing when there is no such entry.

    void _updateDeviceInfoById(const std::string& id, const _NQ_GEV_DEVICE_INFO& info);
    void _updateDeviceInfoByIndex(unsigned int index, const _NQ_GEV_DEVICE_INFO& info);

    /// Does nothing: the list keeps no status.
    void _updateDeviceAccessStatus(const std::string& id, unsigned int status);

    /// Answers one DEVICE_INFO command from the list.
    int _getDeviceInfo(const char* id, int command, int* type, void* buffer, unsigned long* size);

  private:
    bool _isExcluded() const;
    void _dropOldAnswers();
    bool _findForOpening(const char* id, _NQ_GEV_DEVICE_INFO& info);
    unsigned int _getListedAccessStatus(const _NQ_GEV_DEVICE_INFO& info);
    unsigned int _probeAlone(const sockaddr_in& camera);
    NQGevPort _port();
    int _readRegister(unsigned long address, void* buffer, unsigned long* size);
    int _writeRegister(unsigned long address, const void* buffer, unsigned long* size);
    int _readAdapterRegister(unsigned long address, const NQGevPortReader& reader);
    int _readAdapterAddress(unsigned long address, const NQGevPortReader& reader);
    int _readListRegister(unsigned long address, const NQGevPortReader& reader);
    int _readSelectedStatus(void* buffer, unsigned long* size);
    int _readSelectedDevice(unsigned long address, const NQGevPortReader& reader) NQ_REQUIRES(m_moduleLock);

    std::vector<_NQ_GEV_DEVICE_INFO> m_deviceList NQ_GUARDED_BY(m_moduleLock);
    const _NQ_GEV_INTERFACE_INFO m_info;        ///< The system's entry as it was when this module was made.
    NQGevSocket m_socket;                       ///< The discovery socket; exists while the module is open.
    NQGevBroadcastReceiver m_broadcasts;        ///< Hears answers by broadcast, for scans alone.
    GigERDMA::NQGenTLModuleContainer m_devices; ///< The open devices, owned.
    GigERDMA::NQGenTLOpenings m_openings;       ///< The ids of devices on the way to m_devices.
    bool m_updating = false; ///< Under the module lock: a scan asked for through the port is running.
    unsigned int m_deviceSelector NQ_GUARDED_BY(m_moduleLock) = 0; ///< Index into m_deviceList, possibly past its end.
    std::atomic<unsigned short> m_probeId = 0;                     ///< Id of the last probe by a socket of its own.
    // Deliberate(RequestIdIsFixed): nothing uses it: both packets carry the fixed id 1, as no answer here is told from
    // another by its id.
    unsigned short m_requestId = 1;
};
