// SPDX-License-Identifier: Apache-2.0
// The abstract GenTL device module: what every transport's local view of a camera offers beyond a module.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// A device module owns the remote device, the data streams and the message channel of one opened camera. The exported
/// device functions reach it through this class only. Thread-safe. Results are GenTL codes, GC_ERR_INVALID_PARAMETER
/// for a null pointer unless told otherwise; `*size` is the room behind `buffer`, in bytes, and receives the size
/// needed, GC_ERR_BUFFER_TOO_SMALL when that is more.
class NQGenTLDevice : public NQGenTLModuleBase
{
  public:
    explicit NQGenTLDevice(NQGenTLModuleBase* parent) : NQGenTLModuleBase(parent) {}

    /// Always "TLDevice".
    std::string GetName() override;

    /// One of the device info commands. A null `buffer` asks for the size. GC_ERR_NOT_IMPLEMENTED for any other
    /// command, GC_ERR_IO when the camera is to be asked and does not answer.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// The handle of the camera's own port. It stays owned by the device.
    virtual int GetPort(void** port) = 0;

    /// The number of data streams, open or not.
    virtual int GetNumDataStreams(unsigned int* count) = 0;

    /// The id of the stream at `index`, as text. A null `buffer` asks for the size. GC_ERR_INVALID_INDEX.
    virtual int GetDataStreamID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Opens the stream of that id. The handle stays owned by the device. GC_ERR_INVALID_ID when the device has no such
    /// stream, GC_ERR_RESOURCE_IN_USE when it is open; else what its DoOpen gives.
    virtual int OpenDataStream(const char* id, void** stream) = 0;
};

} // namespace GigERDMA
