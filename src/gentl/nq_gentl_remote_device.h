// SPDX-License-Identifier: Apache-2.0
// The abstract GenTL remote device module: the camera itself, seen as a port with channels.
#pragma once

#include "gentl/nq_gentl_module_base.h"

#include <string>

namespace GigERDMA
{

/// The camera's own port. Its address space, its register description and its channels are the camera's. Thread-safe.
class NQGenTLRemoteDevice : public NQGenTLModuleBase
{
  public:
    explicit NQGenTLRemoteDevice(NQGenTLModuleBase* parent) : NQGenTLModuleBase(parent) {}

    /// Always "Device".
    std::string GetName() override;

    /// The number of stream channels the camera reports, 0 when it cannot be asked.
    virtual unsigned int GetStreamChannelCount() = 0;

    /// The number of message channels the camera reports, 0 when it cannot be asked.
    virtual unsigned int GetMessageChannelCount() = 0;

    /// Switches the camera's image stream on or off; false when the camera did not take it.
    virtual bool EnableStream(bool on) = 0;
};

} // namespace GigERDMA
