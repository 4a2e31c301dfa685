// SPDX-License-Identifier: Apache-2.0
// The abstract GenTL device module: what every transport's local view of a camera offers beyond a module.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// A device module owns the remote device, the data streams and the message channel of one opened camera. The exported
/// device functions reach it through this class only. Every operation may run on any thread of the consumer and returns
/// a GenTL code.
class NQGenTLDevice : public NQGenTLModuleBase
{
  public:
    explicit NQGenTLDevice(NQGenTLModuleBase* parent) : NQGenTLModuleBase(parent) {}

    /// Always "TLDevice".
    std::string GetName() override;

    /// One of the device info commands. `type` and `size` (in bytes) are required, a null `buffer` asks for the size.
    virtual int GetInfo(int command, int* type, void* buffer, unsigned long* size) = 0;

    /// The handle of the camera's own port. It stays owned by the device.
    virtual int GetPort(void** port) = 0;

    /// The number of data streams, open or not.
    virtual int GetNumDataStreams(unsigned int* count) = 0;

    /// The id of the stream at `index`, as text. `size` is in bytes, a null `buffer` asks for it.
    virtual int GetDataStreamID(unsigned int index, char* buffer, unsigned long* size) = 0;

    /// Opens the stream of that id. The handle stays owned by the device.
    virtual int OpenDataStream(const char* id, void** stream) = 0;
};

} // namespace GigERDMA
