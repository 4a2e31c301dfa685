// SPDX-License-Identifier: Apache-2.0
// The register description that a module's port offers.
#pragma once

#include <string>

namespace GigERDMA
{

/// A value that each module fills anew for every query; empty for a module without a description of its own.
struct _NQ_GENTL_XML_INFO
{
    std::string fileName;
    std::string xml;
    unsigned long size = 0; ///< Length of `xml` plus 1, in bytes.
};

} // namespace GigERDMA
