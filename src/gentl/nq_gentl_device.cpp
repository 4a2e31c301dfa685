// SPDX-License-Identifier: Apache-2.0
// The class name by which device handles are told apart.
#include "gentl/nq_gentl_device.h"

namespace GigERDMA
{

std::string NQGenTLDevice::GetName()
{
    return "TLDevice";
}

} // namespace GigERDMA
