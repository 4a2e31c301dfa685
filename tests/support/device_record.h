// SPDX-License-Identifier: Apache-2.0
// The record of a camera on the loopback interface, for unit tests of the device modules.
#pragma once

#include "gev/nq_gev_common.h"

#include <arpa/inet.h>

namespace nq::test
{

inline _NQ_GEV_DEVICE_INFO LoopbackCamera()
{
    _NQ_GEV_DEVICE_INFO info;
    info.id = "Model:02-00-00-00-00-01";
    info.vendorName = "Vendor";
    info.modelName = "Model";
    info.displayName = "Display";
    info.tlType = "GEV";
    info.userDefinedName = "from the scan";
    info.serialNumber = "SN-7";
    info.deviceVersion = "3.1.0";
    info.macHigh = 0x0200;
    info.macLow = 0x00000001;
    info.ipAddress = 0x7F000001;
    info.subnetMask = 0xFF000000;
    info.gateway = 0x7F0000FE;
    info.interfaceIp = 0x7F000002;
    info.interfaceMask = 0xFF000000;
    info.controlAddress.sin_family = AF_INET;
    info.controlAddress.sin_port = htons(3956);
    info.controlAddress.sin_addr.s_addr = htonl(0x7F000001);
    return info;
}

} // namespace nq::test
