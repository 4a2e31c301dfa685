// SPDX-License-Identifier: Apache-2.0
// The registers of the data stream module.
#pragma once

#include "gev/nq_gev_common.h"
#include "gev/nq_gev_register_map.h"

inline constexpr NQGevRegister kDataStreamRows[] = {
    {"Description", kXmlAddress, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"EventSelector_reg", 0x10100, 4, NQGevAccess::ReadWrite, NQGevRowKind::DescriptionOnly},
    {"EventNotification_reg", 0x10104, 4, NQGevAccess::ReadWrite, NQGevRowKind::DescriptionOnly},
    {"StreamID_Reg", 0x80000, 256, NQGevAccess::ReadOnly},
    {"StreamAnnouncedBufferCount_Reg", 0x80100, 4, NQGevAccess::ReadOnly},
    {"StreamBufferHandlingMode_Reg", 0x80104, 4, NQGevAccess::ReadWrite, NQGevRowKind::Register,
     NQGevPlace{0x80104, 4, NQGevAccess::ReadOnly}},
    {"StreamAnnounceBufferMinimum_Reg", 0x80108, 4, NQGevAccess::ReadOnly},
    {"StreamDeliveredFrameCount_Reg", 0x8010C, 8, NQGevAccess::ReadOnly}, // the next row begins inside it
    // This and the next: 8 bytes at the port, so they have another place in the standard's description.
    {"FrameLoss_Reg", 0x80110, 4, NQGevAccess::ReadOnly, NQGevRowKind::Register,
     NQGevPlace{0x80118, 8, NQGevAccess::ReadOnly}},
    {"FramesReceived_Reg", 0x80114, 4, NQGevAccess::ReadOnly, NQGevRowKind::Register,
     NQGevPlace{0x80120, 8, NQGevAccess::ReadOnly}},
    {"StreamLostFrameCount_Reg", 0x80128, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamInputBufferCount_Reg", 0x80130, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamOutputBufferCount_Reg", 0x80138, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamStartedFrameCount_Reg", 0x80140, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"PayloadSize_Reg", 0x80148, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamIsGrabbing_Reg", 0x80150, 4, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamChunkCountMaximum_Reg", 0x80158, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"StreamBufferAlignment_Reg", 0x80160, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    {"CopiedFrames_Reg", 0x80168, 8, NQGevAccess::ReadOnly, NQGevRowKind::StandardOnly},
    // Those without a name cannot be read either; they are kept for consumers that probe them.
    {"", 0x80118, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x80218, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x80418, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x8041C, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x80420, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x80424, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"", 0x80428, 0, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"UnderrunCount", 0x8042C, 8, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"ReservedCount", 0x80430, 8, NQGevAccess::ReadOnly, NQGevRowKind::PortOnly},
    {"PlainValue", 0x80434, 4, NQGevAccess::ReadWrite, NQGevRowKind::PortOnly},
};

inline constexpr NQGevRegisterMap kDataStreamRegisters(kDataStreamRows);
