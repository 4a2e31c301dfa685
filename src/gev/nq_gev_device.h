// SPDX-License-Identifier: Apache-2.0
// The GigE Vision device module: the producer's local view of one camera.
#pragma once

#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_module_container.h"
#include "gev/nq_gev_common.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class NQGevMessageStream;
class NQGevPortReader;
struct NQGevPort;
class NQGevRemoteDevice;
class NQGevTL;

/// One camera, opened through an interface module.
///
///     made ---Open---> open ---Close---> closed ---Open---> open ...
///
/// Opening opens the remote device (which takes the control privilege and starts the heartbeat), makes the data stream
/// modules and starts the message channels; closing undoes all of it in the opposite order. An open that fails half way
/// leaves nothing behind. Thread-safe; the heartbeat and message threads come here only to find events.
class NQGevDevice : public GigERDMA::NQGenTLDevice
{
  public:
    /// `tl` is not owned and outlives the object; `accessMode` is the GenTL open flag 2, 3 or 4. The record is copied.
    NQGevDevice(NQGevTL* tl, const _NQ_GEV_DEVICE_INFO& info, int accessMode, GigERDMA::NQGenTLModuleBase* parent);

    /// Closes a device that is still open.
    ~NQGevDevice() override;
    NQGevDevice(const NQGevDevice&) = delete;
    NQGevDevice& operator=(const NQGevDevice&) = delete;

    using GigERDMA::NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override;
    bool IsEventImplemented(int type) override;
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override;
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override;
    std::vector<std::string> GetURLList() override;

    /// The virtual register map of the device port. Every register is matched at its exact address, with the standard's
    /// answers any range inside it; values are in the order of the host.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;

    std::string GetId() override;

    /// What the remote device's Open gives.
    int DoOpen() override;

    /// Always GC_ERR_SUCCESS. Waits for the message threads, the heartbeat and the streams' acquisition threads.
    int DoClose() override;

    int GetInfo(int command, int* type, void* buffer, unsigned long* size) override;
    int GetPort(void** port) override;
    int GetNumDataStreams(unsigned int* count) override;
    int GetDataStreamID(unsigned int index, char* buffer, unsigned long* size) override;
    int OpenDataStream(const char* id, void** stream) override;

  private:
    int _getId(int* type, void* buffer, unsigned long* size);
    int _getVendor(int* type, void* buffer, unsigned long* size);
    int _getModel(int* type, void* buffer, unsigned long* size);
    int _getTLType(int* type, void* buffer, unsigned long* size);
    int _getDisplayName(int* type, void* buffer, unsigned long* size);
    int _getAccessStatus(int* type, void* buffer, unsigned long* size);
    int _getUserDefinedName(int* type, void* buffer, unsigned long* size);
    int _getSerialNumber(int* type, void* buffer, unsigned long* size);
    int _getVersion(int* type, void* buffer, unsigned long* size);
    int _getTimestampFreq(int* type, void* buffer, unsigned long* size);
    int _getPersistentIP(int* type, void* buffer, unsigned long* size);
    int _getPersistentSubnet(int* type, void* buffer, unsigned long* size);
    int _getPersistentGateway(int* type, void* buffer, unsigned long* size);

    int GetAddressInfo(int command, int* type, void* buffer, unsigned long* size);
    int GetTickFrequencyInfo(int* type, void* buffer, unsigned long* size);
    int GetPersistentAddress(const char* operation, unsigned long address, int* type, void* buffer,
                             unsigned long* size);
    int ReadCamera(unsigned long address, void* buffer, unsigned long size);
    NQGevPort Port();
    int ReadRegister(unsigned long address, void* buffer, unsigned long* size);
    int WriteRegister(unsigned long address, const void* buffer, unsigned long* size);
    int WriteStandardRegister(unsigned long address, unsigned int value);
    int ReadStreamRegister(unsigned long address, const NQGevPortReader& reader);
    int ReadAddressRegister(unsigned long address, const NQGevPortReader& reader);
    int ReadStoredRegister(unsigned long address, const NQGevPortReader& reader);
    void MakeStreams();
    void StartMessageChannels();
    void StopMessageChannels();
    void CloseStreams();
    void CloseRemoteDevice();

    int m_accessMode;
    _NQ_GEV_DEVICE_INFO m_info;
    std::unique_ptr<NQGevRemoteDevice> m_remote;
    GigERDMA::NQGenTLModuleContainer m_streams;
    NQGevTL* m_tl;
    std::unique_ptr<NQGevMessageStream> m_messages;
    unsigned int m_streamSelector NQ_GUARDED_BY(m_moduleLock) = 0;
    std::atomic<unsigned int> m_eventNotification = 1;
    std::atomic<unsigned int> m_endianessMechanism = 0; ///< Kept for the consumer's engine alone.
    char m_updateFile[512] NQ_GUARDED_BY(m_moduleLock) = {};

    // A camera with several message channels keeps the earlier ones running; they end with the last one.
    std::vector<std::unique_ptr<NQGevMessageStream>> m_earlierMessages;
};
