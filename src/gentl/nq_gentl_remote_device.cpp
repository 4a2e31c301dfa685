// SPDX-License-Identifier: Apache-2.0
// The class name by which remote device handles are told apart.
#include "gentl/nq_gentl_remote_device.h"

namespace GigERDMA
{

std::string NQGenTLRemoteDevice::GetName()
{
    return "Device";
}

} // namespace GigERDMA
