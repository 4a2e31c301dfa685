// SPDX-License-Identifier: Apache-2.0
// An address of this machine that a camera brings along.
#pragma once

#include "local_interface.h"

namespace nq::camera
{

/// Gives the interface the camera's address, and takes it away at the end. An address that the interface has already is
/// left as it is, now and at the end.
class MachineAddress
{
  public:
    /// Throws std::system_error, with EPERM where the process may not (CAP_NET_ADMIN).
    explicit MachineAddress(const LocalInterface& network);
    ~MachineAddress();
    MachineAddress(const MachineAddress&) = delete;
    MachineAddress& operator=(const MachineAddress&) = delete;

  private:
    const LocalInterface m_network;
    bool m_added = false;
};

} // namespace nq::camera
