// SPDX-License-Identifier: Apache-2.0
// The name by which a handle is known to be an interface module.
#include "gentl/nq_gentl_interface.h"

namespace GigERDMA
{

std::string NQGenTLInterface::GetName()
{
    return "TLInterface";
}

} // namespace GigERDMA
