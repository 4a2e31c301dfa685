// SPDX-License-Identifier: Apache-2.0
// The registers of the system module.
#pragma once

#include "gev/nq_gev_common.h"
#include "gev/nq_gev_register_map.h"

inline constexpr NQGevRegister kSystemRows[] = {
    {"Description", kXmlAddress, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"TLVendorName_Reg", 0x50000, 256, NQGevAccess::ReadOnly},
    {"TLModelName_Reg", 0x50100, 256, NQGevAccess::ReadOnly},
    {"TLID_Reg", 0x50200, 256, NQGevAccess::ReadOnly},
    {"TLVersion_Reg", 0x50300, 256, NQGevAccess::ReadOnly},
    // By the standard's answers long enough for any path.
    {"TLPath_Reg", 0x50400, 256, NQGevAccess::ReadOnly, NQGevRowKind::Register,
     NQGevPlace{0x51000, 4096, NQGevAccess::ReadOnly}},
    {"GenTLVersionMajor_Reg", 0x50504, 4, NQGevAccess::ReadOnly},
    {"GenTLVersionMinor_Reg", 0x50508, 4, NQGevAccess::ReadOnly},
    {"InterfaceUpdateList_Reg", 0x5050C, 4, NQGevAccess::ReadWrite},
    {"InterfaceSelector_Reg", 0x50510, 4, NQGevAccess::ReadWrite},
    {"InterfaceID_Reg", 0x50514, 256, NQGevAccess::ReadOnly},
    {"NrInterfaces_Reg", 0x50614, 4, NQGevAccess::ReadOnly},
    {"GevInterfaceMACAddress_Reg", 0x50618, 8, NQGevAccess::ReadOnly, NQGevRowKind::NotListed},
    {"GevInterfaceDefaultIPAddress_Reg", 0x50620, 4, NQGevAccess::ReadOnly, NQGevRowKind::NotListed},
    {"GevInterfaceDefaultSubnetMask_Reg", 0x50624, 4, NQGevAccess::ReadOnly, NQGevRowKind::NotListed},
    {"GevInterfaceDefaultGateway_Reg", 0x50628, 4, NQGevAccess::ReadOnly, NQGevRowKind::NotListed},
};

inline constexpr NQGevRegisterMap kSystemRegisters(kSystemRows);
