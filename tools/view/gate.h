// SPDX-License-Identifier: Apache-2.0
// Who may ask: whoever knows the token, from a page that this program served.
#pragma once

#include <httplib.h>
#include <string>

namespace nq::tool::view
{

/// 128 bits of the kernel's randomness in hexadecimal digits. Throws ToolFailure.
std::string NewToken();

/// What of the page a request asks for.
struct Admission
{
    int refusal = 0;  ///< the HTTP status of a refused one; 0 for one that may be answered
    std::string name; ///< what stands behind "/TOKEN/"
};

/// Refuses what does not begin with the token (as 404: nothing tells a wrong token from a wrong path), hosts by name
/// other than localhost, which a foreign page may have pointed here, and requests that a page of another origin makes.
Admission Admit(const httplib::Request& request, const std::string& token);

} // namespace nq::tool::view
