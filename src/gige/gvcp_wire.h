// SPDX-License-Identifier: Apache-2.0
// What GigE Vision cameras and this library say to each other over UDP, in numbers.
#pragma once

/// One table for all of src/. Offsets and sizes are in bytes; an offset counts from the start of the packet. A number
/// of several bytes goes over the wire with its most significant byte first. Each group names its public source, or
/// says that its numbers are this library's own choice.
namespace gvcp_wire
{

// ---- Header of a command. GigE Vision, GVCP header ------------------------------------------------------------------
inline constexpr int kHeaderSize = 8;
inline constexpr int kKeyOffset = 0;    // 1 byte
inline constexpr int kCodeOffset = 2;   // 2 bytes
inline constexpr int kFlagsOffset = 1;  // 1 byte
inline constexpr int kLengthOffset = 4; // 2 bytes: how many follow the header
inline constexpr int kIdOffset = 6;     // 2 bytes

inline constexpr unsigned char kKey = 0x42;
inline constexpr unsigned char kAckRequired = 0x01;         // flag
inline constexpr unsigned char kBroadcastAckAllowed = 0x10; // flag of a discovery
inline constexpr unsigned int kLastRequestId = 0xFFFF;      // 0 is never sent

// ---- Header of an acknowledge. GigE Vision, GVCP header; code, length and id lie as in a command --------------------
inline constexpr int kStatusOffset = 0; // 2 bytes, 0 for success

// ---- Codes of commands and acknowledges. GigE Vision, GVCP ----------------------------------------------------------
inline constexpr unsigned int kDiscovery = 0x0002;
inline constexpr unsigned int kDiscoveryAck = 0x0003;
inline constexpr unsigned int kReadRegister = 0x0080;
inline constexpr unsigned int kReadRegisterAck = 0x0081;
inline constexpr unsigned int kWriteRegister = 0x0082;
inline constexpr unsigned int kWriteRegisterAck = 0x0083;
inline constexpr unsigned int kReadMemory = 0x0084;
inline constexpr unsigned int kReadMemoryAck = 0x0085;
inline constexpr unsigned int kWriteMemory = 0x0086;
inline constexpr unsigned int kWriteMemoryAck = 0x0087;
inline constexpr unsigned int kPendingAck = 0x0089;
inline constexpr unsigned int kEvent = 0x00C0;

// ---- Bodies of register and memory accesses. GigE Vision, GVCP: READREG, WRITEREG, READMEM, WRITEMEM, PENDING_ACK
// ----
inline constexpr int kAddressOffset = 8; // 4 bytes, in each of the four commands
inline constexpr int kAddressSize = 4;
inline constexpr int kReadRegisterBody = 4;
inline constexpr int kReadValueOffset = 8; // 4 bytes, in the acknowledge
inline constexpr int kWriteRegisterBody = 8;
inline constexpr int kWrittenValueOffset = 12; // 4 bytes
inline constexpr int kReadMemoryBody = 8;
inline constexpr int kReadCountOffset = 14;   // 2 bytes
inline constexpr int kDataOffset = 12;        // what is written, and in the acknowledge what was read
inline constexpr int kPendingTimeOffset = 10; // 2 bytes: milliseconds until the acknowledge
inline constexpr int kPendingAckSize = 12;    // header and body

// ---- Limits of both. Our own choice, within the 576 bytes of an IP packet that every host takes ---------------------
inline constexpr int kLargestPacket = 548;         // that is received: header and body
inline constexpr unsigned int kLargestWrite = 520; // data of one WRITEMEM
inline constexpr int kDiscoveryZeros = 8;          // body of the discovery that the camera layer sends

} // namespace gvcp_wire
