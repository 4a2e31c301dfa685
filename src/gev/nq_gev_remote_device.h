// SPDX-License-Identifier: Apache-2.0
// The GigE Vision remote device module: one camera's register space, control privilege and stream registers.
#pragma once

#include "gentl/nq_gentl_remote_device.h"
#include "gev/nq_gev_common.h"
#include "gige/gvcp_wire.h"

#include <atomic>
#include <memory>
#include <string>
#include <vector>

class NQGevDataStream;
class NQGevThreadHeartbeat;
class NQGevTL;
struct gevrdmaBufferSettings;

/// The stream capability word of a camera, in host order.
struct _NQ_STREAM_CAPABILITY
{
    unsigned char bytes[4];
};
static_assert(sizeof(_NQ_STREAM_CAPABILITY) == 4);

/// A block of the camera that is handed on as it arrives.
struct buffer_Layout
{
    unsigned char bytes[gvcp_wire::kBufferLayoutSize];
};
static_assert(sizeof(buffer_Layout) == 16);

/// The camera as a GenTL port.
///
/// Opening takes the control privilege (unless the device is opened read-only), reads the heartbeat timeout and starts
/// the heartbeat; closing stops it and gives the privilege back. Thread-safe, since the consumer's threads, heartbeat,
/// message and acquisition thread come here at the same time: one exchange with the camera is atomic, a port access of
/// several chunks is not. The class does not reconnect; the heartbeat notices a lost camera.
class NQGevRemoteDevice : public GigERDMA::NQGenTLRemoteDevice
{
  public:
    /// `tl` is not owned and outlives the object. `accessMode` is the GenTL open flag: 2 read-only, 3 control,
    /// 4 exclusive. The record is copied.
    NQGevRemoteDevice(NQGevTL* tl, const _NQ_GEV_DEVICE_INFO& info, int accessMode,
                      GigERDMA::NQGenTLModuleBase* parent);
    ~NQGevRemoteDevice() override;
    NQGevRemoteDevice(const NQGevRemoteDevice&) = delete;
    NQGevRemoteDevice& operator=(const NQGevRemoteDevice&) = delete;

    using GigERDMA::NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override;
    bool IsEventImplemented(int type) override;
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override;
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override;

    /// The camera's own URLs, read once and then kept; asked for again while none could be read.
    std::vector<std::string> GetURLList() override;

    /// Reads `*size` bytes of the camera. One to 4 bytes are one register access in network order, more are memory
    /// accesses of at most 512 bytes each. GC_ERR_INVALID_PARAMETER for a null pointer, or when the low 32 bits of the
    /// size come to 2 GiB or more, GC_ERR_IO when the camera did not answer all of them; then `buffer` is left alone.
    /// `*size` is never changed. With the standard's answers as ReadRange.
    int ReadPort(unsigned long address, void* buffer, unsigned long* size) override;

    /// Writes `*size` bytes to the camera, rounded up to a multiple of 4: four are one register access, up to 508 one
    /// memory access, more are memory accesses of at most 512 bytes each. A register and the last of several accesses
    /// take up to three bytes behind the size from the caller's memory, zeros where it ends; one memory access is
    /// filled up with zeros. GC_ERR_NOT_INITIALIZED before the first opening, GC_ERR_INVALID_PARAMETER for a null
    /// pointer or a size of 2 GiB, GC_ERR_IO when the camera did not acknowledge all of them: the earlier ones are then
    /// written. `*size` is never changed. With the standard's answers as WriteRange.
    int WritePort(unsigned long address, const void* buffer, unsigned long* size) override;

    std::string GetId() override;

    /// GC_ERR_ERROR when there is no local port for the camera. A camera that does not answer, or refuses the
    /// privilege, is opened all the same.
    int DoOpen() override;

    /// Always GC_ERR_SUCCESS. Waits for the heartbeat thread.
    int DoClose() override;

    unsigned int GetStreamChannelCount() override;
    unsigned int GetMessageChannelCount() override;
    bool EnableStream(bool on) override;

    /// One register or memory exchange with the camera; false, and a line in the log, when it failed. `swap` reverses
    /// the bytes of the value between the camera layer (host order) and the caller.
    bool _gvcpReadReg(unsigned int address, unsigned int* value, bool swap);
    bool _gvcpWritereg(unsigned int address, unsigned int value, bool swap);
    bool _gvcpReadMem(unsigned int address, unsigned char* data, int count);
    bool _gvcpWriteMem(unsigned int address, unsigned char* data, int count);

    /// The UDP port the camera sends its events from, 0 when it cannot be asked.
    unsigned int GetSourcePort();

    /// Tells the camera where to send its events: a UDP port of this host (0 switches them off) ...
    bool SetMessagePort(int port);

    /// ... and an IPv4 address of this host, in host order.
    bool SetMessageAddress(int address);

    /// Reads the stream capability word; false, with `capability` left alone, when the camera cannot be asked.
    bool GetStreachannelCapability(_NQ_STREAM_CAPABILITY* capability);

    /// Whether the camera can be told to stream: GC_ERR_ACCESS_DENIED when it is opened read-only, refused the
    /// privilege or has lost it to another, GC_ERR_IO when it does not answer.
    int CheckControl();

    /// Ticks of the camera's clock in a second, 0 when it cannot be asked.
    unsigned long GetTickFrequency();

    /// Fills all of `settings` but `bufferCount` from the camera's settings block; its bytes are 0 when the read fails.
    bool GetBufferSettings(gevrdmaBufferSettings* settings);

    /// Reads 16 bytes from the address that the camera keeps for them; false, with all of them 0, when that read fails.
    bool GetbufferLayout(buffer_Layout* layout);

    /// Finds the largest packet, in bytes, that the camera gets through to this host, by letting it send test packets.
    unsigned int GetMaxSizeMTU(unsigned int unused, unsigned int bufferExtra);

    /// The control state of the camera as a GenTL access status: 0 unknown, 3 no access, 5 open for reading and
    /// writing.
    int GetAccessStatus();

    /// This object's own copy of the device record, with what DoOpen added to it.
    const _NQ_GEV_DEVICE_INFO& GetDeviceInfo() const { return m_info; }

    /// Lists a stream, which ForgetStream takes out before it goes.
    void AddStream(NQGevDataStream* stream);
    void ForgetStream(NQGevDataStream* stream);

    /// Tells the listed streams that the camera is lost. Thread-safe.
    void TellStreamsOfLoss();

    /// The listed stream at an index, or null. By the library's own answers nothing is listed, since the device has the
    /// streams.
    NQGevDataStream* _findStream(unsigned int index);

  private:
    /// Reads or writes any bytes of the camera by the whole words around them; a write reads those that it takes only a
    /// part of, and is not atomic. GC_ERR_INVALID_ADDRESS beyond 32 bits or where the camera says so,
    /// GC_ERR_ACCESS_DENIED where the camera says so and for every write to one opened read-only, which is not asked,
    /// GC_ERR_INVALID_VALUE for a value it does not take, GC_ERR_INVALID_PARAMETER for a read of which it says that,
    /// GC_ERR_BUSY, and GC_ERR_IO when it does not answer. A failed read leaves `buffer` alone.
    int ReadRange(unsigned long address, void* buffer, unsigned long size);
    int WriteRange(unsigned long address, const void* buffer, unsigned long size);

    /// Both ends on whole words.
    int ReadWords(unsigned int address, unsigned char* data, std::size_t count);
    int WriteWords(unsigned int address, unsigned char* data, std::size_t count);
    bool ReadChunks(unsigned int address, unsigned char* data, int count);
    bool WriteChunks(unsigned int address, unsigned char* data, int count);
    unsigned int MeasurePacketSize(unsigned int bufferExtra);

    NQGevTL* m_tl;
    unsigned long m_handle = 0;
    int m_accessMode;
    _NQ_GEV_DEVICE_INFO m_info;
    std::vector<std::string> m_urls NQ_GUARDED_BY(m_urlMutex);
    std::vector<NQGevDataStream*> m_streams NQ_GUARDED_BY(m_moduleLock);
    std::unique_ptr<NQGevThreadHeartbeat> m_heartbeat;
    std::atomic<bool> m_privileged = false; ///< The camera has acknowledged the privilege at the last opening.
    unsigned int m_register0D3C = 0;

    NQMutex m_urlMutex; // Never held during an exchange with the camera.
};
