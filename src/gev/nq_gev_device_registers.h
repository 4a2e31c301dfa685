// SPDX-License-Identifier: Apache-2.0
// The registers of the device module, and of the port that stands for its event.
#pragma once

#include "gev/nq_gev_common.h"
#include "gev/nq_gev_register_map.h"

inline constexpr NQGevRegister kDeviceRows[] = {
    {"Description", kXmlAddress, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"DeviceID_Reg", 0x70000, 256, NQGevAccess::ReadOnly},
    {"DeviceVendorName_Reg", 0x70100, 256, NQGevAccess::ReadOnly},
    {"DeviceModelName_Reg", 0x70200, 256, NQGevAccess::ReadOnly},
    {"DeviceAccessStatus_Reg", 0x70300, 4, NQGevAccess::ReadOnly},
    {"StreamSelector_Reg", 0x70304, 4, NQGevAccess::ReadWrite},
    {"StreamID_Reg", 0x70308, 256, NQGevAccess::ReadOnly},
    {"NrStreams_Reg", 0x70408, 4, NQGevAccess::ReadOnly},
    // The next row begins inside it; by the standard's answers it lies apart.
    {"GevDeviceMACAddress_Reg", 0x7040C, 8, NQGevAccess::ReadOnly, NQGevRowKind::Register,
     NQGevPlace{0x70538, 8, NQGevAccess::ReadOnly}},
    {"GevDeviceIPAddress_Reg", 0x70410, 4, NQGevAccess::ReadOnly},
    {"GevDeviceSubnetMask_Reg", 0x70414, 4, NQGevAccess::ReadOnly},
    {"GevDeviceGateway_Reg", 0x70418, 4, NQGevAccess::ReadOnly},
    // The next three begin inside it.
    {"UpdateXMLFile_Reg", 0x7041C, 512, NQGevAccess::ReadWrite, NQGevRowKind::StatedOnly},
    // Disabled in the description, and not to be read.
    {"UpdateXMLStatus_Reg", 0x7051C, 256, NQGevAccess::ReadOnly, NQGevRowKind::StatedOnly},
    {"UpdateXML_Reg", 0x7052C, 4, NQGevAccess::ReadWrite, NQGevRowKind::StatedOnly},
    {"EventNotification_Reg", 0x70530, 4, NQGevAccess::ReadWrite, NQGevRowKind::StatedOnly},
    {"DeviceEndianessMechanism_Reg", 0x70534, 4, NQGevAccess::ReadWrite, NQGevRowKind::StandardOnly},
    // In the data of the event.
    {"EventRemoteDeviceConnectionStateID_Reg", 0x00, 4, NQGevAccess::ReadOnly, NQGevRowKind::DescriptionOnly},
    {"EventRemoteDeviceConnectionStateState_Reg", 0x04, 4, NQGevAccess::ReadOnly, NQGevRowKind::DescriptionOnly},
};

inline constexpr NQGevRegisterMap kDeviceRegisters(kDeviceRows);
