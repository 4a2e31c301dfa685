// SPDX-License-Identifier: Apache-2.0
// The remote device's life cycle, its camera registers and what other modules read of the camera.
#include "gev/nq_gev_remote_device.h"

#include "GenTL/GenTL.h"
#include "base/nq_answers.h"
#include "base/nq_rollback.h"
#include "base/nq_trace.h"
#include "gev/nq_gev_data_stream.h"
#include "gev/nq_gev_port.h"
#include "gev/nq_gev_thread_heartbeat.h"
#include "gige/gvcp_wire.h"
#include "gige/nq_gev_tl_linux.h"
#include "rdma/gendc_wire.h"
#include "rdma/rdma_records.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace
{

/// Of a heartbeat that keeps no privilege: a beat comes twice in it. Milliseconds.
constexpr unsigned int kReadOnlyTimeout = 2000;

/// What a GenTL access mode asks of the camera's control privilege register.
unsigned int PrivilegeOf(int accessMode)
{
    switch (accessMode)
    {
    case GenTL::DEVICE_ACCESS_CONTROL:
        return gvcp_wire::kControlAccess;
    case GenTL::DEVICE_ACCESS_EXCLUSIVE:
        return gvcp_wire::kExclusiveAccess;
    default:
        return gvcp_wire::kNoControl;
    }
}

/// Gives `done` back; traces an access that was not done.
bool Traced(bool done, const char* operation, unsigned int address)
{
    if (!done)
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! Address:0x%x", operation, address);
    }
    return done;
}

template <typename Value>
Value ReadAt(const unsigned char* block, std::size_t offset)
{
    Value value;
    std::memcpy(&value, block + offset, sizeof value);
    return value;
}

} // namespace

NQGevRemoteDevice::NQGevRemoteDevice(NQGevTL* tl, const _NQ_GEV_DEVICE_INFO& info, int accessMode,
                                     GigERDMA::NQGenTLModuleBase* parent)
    : NQGenTLRemoteDevice(parent), m_tl(tl), m_accessMode(accessMode), m_info(info),
      m_heartbeat(std::make_unique<NQGevThreadHeartbeat>(this))
{
}

NQGevRemoteDevice::~NQGevRemoteDevice()
{
    Close();
}

bool NQGevRemoteDevice::IsPortImplemented()
{
    return true;
}

bool NQGevRemoteDevice::IsEventImplemented(int)
{
    return false;
}

GigERDMA::_NQ_GENTL_PORT_INFO NQGevRemoteDevice::GetPortInfo()
{
    GigERDMA::_NQ_GENTL_PORT_INFO info = NQGevPortInfo("Device", "Device");
    info.bigEndian = (m_info.deviceMode & gvcp_wire::kBigEndianDevice) != 0;
    info.littleEndian = !info.bigEndian;
    info.accessWrite = m_accessMode != GenTL::DEVICE_ACCESS_READONLY;
    return info;
}

GigERDMA::_NQ_GENTL_XML_INFO NQGevRemoteDevice::GetXMLInfo()
{
    return {};
}

std::string NQGevRemoteDevice::GetId()
{
    return Answers().portIdOfModule ? m_info.id : "Temp Remote Device ID";
}

int NQGevRemoteDevice::DoOpen()
{
    NQRollback undo([this] {
        if (m_handle != 0)
        {
            m_tl->CameraClose(m_handle);
            m_handle = 0;
        }
    });
    if (!m_tl->CameraOpen(&m_handle, m_info.ipAddress, gvcp_wire::kControlPort))
    {
        return GenTL::GC_ERR_ERROR;
    }
    if (m_accessMode != GenTL::DEVICE_ACCESS_READONLY)
    {
        // Deliberate(RefusedPrivilegeOpens): a camera that refuses the privilege is opened all the same; its access
        // status tells.
        m_privileged = _gvcpWritereg(gvcp_wire::kRegControlPrivilege, PrivilegeOf(m_accessMode), false);
        _gvcpReadReg(gvcp_wire::kRegHeartbeatTimeout, &m_info.spareWord, false);
        _gvcpReadReg(gvcp_wire::kRegGvcpCapability, &m_info.spareWord2, false);
        if ((m_info.spareWord2 & gvcp_wire::kPendingAckSupported) != 0)
        {
            _gvcpWritereg(gvcp_wire::kRegGvcpConfiguration, gvcp_wire::kPendingAckEnable, false);
        }
    }
    m_register0D3C = 0;
    _gvcpReadReg(gvcp_wire::kReg0D3C, &m_register0D3C, true);
    // Deliberate(ReadOnlyBeatsWithoutAPause): a camera opened read-only is not asked for its timeout, so by the
    // library's own answers its heartbeat runs without a pause.
    const bool slow = Answers().readOnlyBeats && m_accessMode == GenTL::DEVICE_ACCESS_READONLY;
    m_heartbeat->Start(slow ? kReadOnlyTimeout : m_info.spareWord);
    undo.Dismiss();
    return GenTL::GC_ERR_SUCCESS;
}

int NQGevRemoteDevice::DoClose()
{
    if (m_heartbeat->IsRunning())
    {
        _gvcpWritereg(gvcp_wire::kRegControlPrivilege, gvcp_wire::kNoControl, false);
        m_heartbeat->RequestExit();
        m_heartbeat->Wait();
    }
    m_tl->CameraClose(m_handle);
    return GenTL::GC_ERR_SUCCESS;
}

unsigned int NQGevRemoteDevice::GetStreamChannelCount()
{
    unsigned int count = 0;
    if (m_handle != 0)
    {
        _gvcpReadReg(gvcp_wire::kRegStreamChannels, &count, false);
    }
    return count;
}

unsigned int NQGevRemoteDevice::GetMessageChannelCount()
{
    unsigned int count = 0;
    if (m_handle != 0)
    {
        _gvcpReadReg(gvcp_wire::kRegMessageChannels, &count, false);
    }
    return count;
}

bool NQGevRemoteDevice::EnableStream(bool on)
{
    return _gvcpWritereg(gvcp_wire::kRegRdmaStreamEnable, on ? gvcp_wire::kRdmaStreamOn : 0, false);
}

bool NQGevRemoteDevice::_gvcpReadReg(unsigned int address, unsigned int* value, bool swap)
{
    return Traced(m_tl->CameraReadRegister(m_handle, address, value, swap), "_gvcpReadReg", address);
}

bool NQGevRemoteDevice::_gvcpWritereg(unsigned int address, unsigned int value, bool swap)
{
    return Traced(m_tl->CameraWriteRegister(m_handle, address, value, swap), "_gvcpWritereg", address);
}

bool NQGevRemoteDevice::_gvcpReadMem(unsigned int address, unsigned char* data, int count)
{
    return Traced(m_tl->CameraReadMemory(m_handle, address, data, count), "_gvcpReadMem", address);
}

bool NQGevRemoteDevice::_gvcpWriteMem(unsigned int address, unsigned char* data, int count)
{
    return Traced(m_tl->CameraWriteMemory(m_handle, address, data, count), "_gvcpWriteMem", address);
}

unsigned int NQGevRemoteDevice::GetSourcePort()
{
    unsigned int port = 0;
    if (m_handle != 0 && !_gvcpReadReg(gvcp_wire::kRegMessageSourcePort, &port, false))
    {
        NQTrace(NQTraceLevel::Failure, "%s Failed! _gvcpReadReg", "GetSourcePort");
    }
    return port;
}

bool NQGevRemoteDevice::SetMessagePort(int port)
{
    if (m_handle == 0)
    {
        return false;
    }
    if (!_gvcpWritereg(gvcp_wire::kRegMessagePort, static_cast<unsigned int>(port), false))
    {
        NQTrace(NQTraceLevel::Failure, "%s Failed! _gvcpWritereg", "SetMessagePort");
        return false;
    }
    return true;
}

bool NQGevRemoteDevice::SetMessageAddress(int address)
{
    if (m_handle == 0)
    {
        return false;
    }
    if (!_gvcpWritereg(gvcp_wire::kRegMessageAddress, static_cast<unsigned int>(address), false))
    {
        NQTrace(NQTraceLevel::Failure, "%s Failed! _gvcpWritereg", "SetMessageAddress");
        return false;
    }
    return true;
}

bool NQGevRemoteDevice::GetStreachannelCapability(_NQ_STREAM_CAPABILITY* capability)
{
    unsigned int value = 0;
    if (m_handle == 0 || !_gvcpReadReg(gvcp_wire::kRegStreamCapability, &value, false))
    {
        return false;
    }
    std::memcpy(capability, &value, sizeof *capability);
    return true;
}

int NQGevRemoteDevice::CheckControl()
{
    const unsigned int needed = PrivilegeOf(m_accessMode);
    if (needed == 0 || !m_privileged)
    {
        return GenTL::GC_ERR_ACCESS_DENIED;
    }
    unsigned int privilege = 0;
    if (!_gvcpReadReg(gvcp_wire::kRegControlPrivilege, &privilege, false))
    {
        return GenTL::GC_ERR_IO;
    }
    return (privilege & needed) != 0 ? GenTL::GC_ERR_SUCCESS : GenTL::GC_ERR_ACCESS_DENIED;
}

unsigned long NQGevRemoteDevice::GetTickFrequency()
{
    unsigned int high = 0;
    unsigned int low = 0;
    if (m_handle == 0 || !_gvcpReadReg(gvcp_wire::kRegTimestampFrequencyHigh, &high, false) ||
        !_gvcpReadReg(gvcp_wire::kRegTimestampFrequencyLow, &low, false))
    {
        return 0;
    }
    return static_cast<unsigned long>(high) << 32 | low;
}

bool NQGevRemoteDevice::GetBufferSettings(gevrdmaBufferSettings* settings)
{
    unsigned char block[gendc_wire::kSettingsSize] = {};
    // Deliberate(UnreadSettingsAreZero): a block that could not be read is handed on as zeros; the acquisition then
    // fails by itself.
    const bool read = _gvcpReadMem(gvcp_wire::kRegRdmaSettings, block, sizeof block);
    settings->blockWord160 = ReadAt<unsigned int>(block, gendc_wire::kSettingsWord160);
    settings->blockWord164 = ReadAt<unsigned int>(block, gendc_wire::kSettingsWord164);
    settings->payloadSize = ReadAt<unsigned long>(block, gendc_wire::kSettingsPayloadSize);
    settings->blockByte130 = block[gendc_wire::kSettingsByte130];
    return read;
}

bool NQGevRemoteDevice::GetbufferLayout(buffer_Layout* layout)
{
    unsigned int address = 0;
    unsigned int unused = 0;
    buffer_Layout block = {};
    _gvcpReadReg(gvcp_wire::kRegBufferLayout, &address, false);
    _gvcpReadReg(gvcp_wire::kRegBufferLayout2, &unused, false);
    const bool read = _gvcpReadMem(address, block.bytes, sizeof block.bytes);
    NQTrace(NQTraceLevel::Failure, "%s  *bufferLayout = layoutt ENTER", "GetbufferLayout");
    *layout = block;
    return read;
}

int NQGevRemoteDevice::GetAccessStatus()
{
    if (m_handle == 0)
    {
        return GenTL::DEVICE_ACCESS_STATUS_UNKNOWN;
    }
    unsigned int privilege = 0;
    if (!_gvcpReadReg(gvcp_wire::kRegControlPrivilege, &privilege, false))
    {
        NQTrace(NQTraceLevel::Failure, "%s failed! ReadPort: address:0x%x error:%d", "GetAccessStatus",
                gvcp_wire::kRegControlPrivilege, GenTL::GC_ERR_IO);
        return GenTL::DEVICE_ACCESS_STATUS_NOACCESS;
    }
    NQTrace(NQTraceLevel::Expected, "%s currentAccessStatus:%d", "GetAccessStatus", privilege);
    if (Answers().readOnlyBeats && m_accessMode == GenTL::DEVICE_ACCESS_READONLY)
    {
        return GenTL::DEVICE_ACCESS_STATUS_OPEN_READONLY;
    }
    switch (privilege)
    {
    case gvcp_wire::kExclusiveAccess:
        if (Answers().exclusiveGoesOn && m_accessMode == GenTL::DEVICE_ACCESS_EXCLUSIVE)
        {
            return GenTL::DEVICE_ACCESS_STATUS_OPEN_READWRITE;
        }
        // Deliberate(ExclusiveIsNoAccess): exclusive access counts as no access, by the library's own answers even
        // where it is this object's own, for the register does not say whose it is.
        return GenTL::DEVICE_ACCESS_STATUS_NOACCESS;
    case gvcp_wire::kControlAccess:
        return GenTL::DEVICE_ACCESS_STATUS_OPEN_READWRITE;
    default:
        return static_cast<int>(privilege);
    }
}

void NQGevRemoteDevice::AddStream(NQGevDataStream* stream)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    if (std::find(m_streams.begin(), m_streams.end(), stream) == m_streams.end())
    {
        m_streams.push_back(stream);
    }
}

void NQGevRemoteDevice::ForgetStream(NQGevDataStream* stream)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    std::erase(m_streams, stream);
}

void NQGevRemoteDevice::TellStreamsOfLoss()
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock); // To the end: no stream goes meanwhile.
    for (NQGevDataStream* const stream : m_streams)
    {
        stream->CameraLost();
    }
}

NQGevDataStream* NQGevRemoteDevice::_findStream(unsigned int index)
{
    const GigERDMA::NQGenTLLock lock(m_moduleLock);
    return index < m_streams.size() ? m_streams[index] : nullptr;
}
