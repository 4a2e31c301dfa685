// SPDX-License-Identifier: Apache-2.0
// The registers of the interface module.
#pragma once

#include "gev/nq_gev_common.h"
#include "gev/nq_gev_register_map.h"

inline constexpr NQGevRegister kInterfaceRows[] = {
    {"Description", kXmlAddress, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"InterfaceID_Reg", 0x60000, 256, NQGevAccess::ReadOnly},
    {"DeviceUpdateList_Reg", 0x60104, 4, NQGevAccess::ReadWrite},
    {"DeviceSelector_Reg", 0x60108, 4, NQGevAccess::ReadWrite},
    {"DeviceID_Reg", 0x6010C, 256, NQGevAccess::ReadOnly},
    {"DeviceVendorName_Reg", 0x6020C, 256, NQGevAccess::ReadOnly},
    {"DeviceModelName_Reg", 0x6030C, 256, NQGevAccess::ReadOnly},
    {"DeviceAccessStatus_Reg", 0x6040C, 4, NQGevAccess::ReadOnly},
    {"NrDevices_Reg", 0x60410, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceGatewaySelector_Reg", 0x60414, 4, NQGevAccess::ReadWrite},
    {"NrGateways_Reg", 0x60418, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceGateway_Reg", 0x6041C, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceMACAddress_Reg", 0x60420, 8, NQGevAccess::ReadOnly},
    {"GevInterfaceSubnetSelector_Reg", 0x60428, 4, NQGevAccess::ReadWrite},
    {"NrSubnets_Reg", 0x60430, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceSubnetIPAddress_Reg", 0x60434, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceSubnetMask_Reg", 0x60438, 4, NQGevAccess::ReadOnly},
    {"GevDeviceIPAddress_Reg", 0x6043C, 4, NQGevAccess::ReadOnly},
    {"GevDeviceSubnetMask_Reg", 0x60440, 4, NQGevAccess::ReadOnly},
    {"GevDeviceMACAddress_Reg", 0x60444, 8, NQGevAccess::ReadOnly},
    {"DeviceTLVersionMajor_Reg", 0x6044C, 4, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"DeviceTLVersionMinor_Reg", 0x60450, 4, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    // Inside the row of the MAC address: nothing can be read there, but a write to it has always been taken.
    {"NoRegister", 0x60448, 4, NQGevAccess::ReadWrite, NQGevRowKind::PortOnly},
};

inline constexpr NQGevRegisterMap kInterfaceRegisters(kInterfaceRows);
