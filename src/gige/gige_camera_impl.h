// SPDX-License-Identifier: Apache-2.0
// What one GigETL::Camera holds: its handle and its socket.
#pragma once

#include "gige/gige_network.h"
#include "gige/nqgige_types.h"

#include <memory>

namespace GigETL
{

/// Private part of Camera. Reentrant.
class CameraImpl
{
  public:
    /// Makes the camera's network with a local port of the system's choice.
    CameraImpl(unsigned int ip, unsigned int port, unsigned int localIP, MULTICAST_MODE mode)
        : mHandle(ip + port), mNetwork(std::make_unique<Network>(ip, port, localIP, 0U))
    {
        static_cast<void>(mode);
    }

    unsigned long mHandle; ///< 32-bit sum, zero-extended
    bool mConnected = false;
    std::unique_ptr<Network> mNetwork;
};

} // namespace GigETL
