// SPDX-License-Identifier: Apache-2.0
// The library opened down to a data stream of a scripted camera, one virtual cable away.
#pragma once

#include "support/gvcp_camera.h"
#include "support/network.h"
#include "support/producer.h"

#include <cstdint>
#include <string>

namespace nq::test
{

/// The body of a discovery acknowledge: a camera "Model" at 10.9.`subnet`.2 with the MAC address
/// 02:00:00:00:`subnet`:09.
GvcpDiscovery DiscoveryFrom(unsigned char subnet);

/// Makes a camera at 10.9.0.2/24, the test's own adapter being "cam0" at 10.9.0.1, and opens system, interface, device
/// and data stream. Throws std::runtime_error when one of them does not open. Closes nothing: a test ends the library
/// as it likes. The heartbeat comes twice in `heartbeatMs`, 0: without a pause.
class OpenTree
{
  public:
    explicit OpenTree(const Producer& producer, std::uint32_t heartbeatMs = 600000);

    Host host;
    GvcpCamera camera; ///< on `host`
    std::string interfaceId;
    std::string deviceId;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    void* stream = nullptr;
};

} // namespace nq::test
