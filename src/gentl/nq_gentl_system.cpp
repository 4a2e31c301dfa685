// SPDX-License-Identifier: Apache-2.0
// The name by which a handle is known to be a system module.
#include "gentl/nq_gentl_system.h"

namespace GigERDMA
{

std::string NQGenTLSystem::GetName()
{
    return "TLSystem";
}

} // namespace GigERDMA
