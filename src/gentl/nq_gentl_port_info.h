// SPDX-License-Identifier: Apache-2.0
// The data behind the port info commands of a module.
#pragma once

#include <string>

namespace GigERDMA
{

/// A value that each module fills anew for every query. The comment names the port info command that serves the field.
struct _NQ_GENTL_PORT_INFO
{
    std::string id;            ///< 0
    std::string vendor;        ///< 1
    std::string model;         ///< 2
    std::string tlType;        ///< 3
    std::string module;        ///< 4
    bool littleEndian = false; ///< 5
    bool bigEndian = false;    ///< 6
    bool accessRead = false;   ///< 7
    bool accessWrite = false;  ///< 8
    bool accessNA = false;     ///< 9: not available
    bool accessNI = false;     ///< 10: not implemented
    std::string version;       ///< 11
    std::string portName;      ///< 12

    // Kept for the record's layout: every module leaves them empty and nothing reads them.
    std::string spareText1;
    std::string spareText2;
    unsigned long spareValue = 0;
};

} // namespace GigERDMA
