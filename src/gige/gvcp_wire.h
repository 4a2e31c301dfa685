// SPDX-License-Identifier: Apache-2.0
// What GigE Vision cameras and this library say to each other over UDP, in numbers.
#pragma once

/// One table for all of src/. Offsets and sizes are in bytes; an offset counts from the start of the packet. A number
/// of several bytes goes over the wire with its most significant byte first. Each group names its public source, or
/// says that its numbers are this library's own choice.
namespace gvcp_wire
{

// ---- UDP port of the camera. GigE Vision, GVCP transport
inline constexpr unsigned short kControlPort = 3956;

// ---- UDP ports of this host, the first free one of each range. Our own choice
inline constexpr unsigned short kFirstMessagePort = 3456; // takes a camera's events
inline constexpr unsigned short kLastMessagePort = 3520;
inline constexpr unsigned short kFirstTestPort = 3500; // takes a camera's test packets
inline constexpr unsigned short kLastTestPort = 3564;

// ---- Header of a command. GigE Vision, GVCP header
inline constexpr int kHeaderSize = 8;
inline constexpr int kKeyOffset = 0;    // 1 byte
inline constexpr int kFlagsOffset = 1;  // 1 byte
inline constexpr int kCodeOffset = 2;   // 2 bytes
inline constexpr int kLengthOffset = 4; // 2 bytes: how many follow the header
inline constexpr int kIdOffset = 6;     // 2 bytes

inline constexpr unsigned char kKey = 0x42;
inline constexpr unsigned char kAckRequired = 0x01;         // flag
inline constexpr unsigned char kBroadcastAckAllowed = 0x10; // flag of a discovery
inline constexpr unsigned int kLastRequestId = 0xFFFF;      // 0 is never sent

// ---- Header of an acknowledge. GigE Vision, GVCP header; code, length and id lie as in a command
inline constexpr int kStatusOffset = 0; // 2 bytes, 0 for success

inline constexpr unsigned int kStatusInvalidParameter = 0x8002;
inline constexpr unsigned int kStatusInvalidAddress = 0x8003;
inline constexpr unsigned int kStatusWriteProtect = 0x8004;
inline constexpr unsigned int kStatusAccessDenied = 0x8006;
inline constexpr unsigned int kStatusBusy = 0x8007;

// ---- Codes of commands and acknowledges. GigE Vision, GVCP
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

// ---- The acknowledge of a discovery. GigE Vision, DISCOVERY_ACK
inline constexpr int kDiscoverySpecVersion = 8;        // 2 bytes major, 2 bytes minor
inline constexpr int kDiscoveryDeviceMode = 12;        // 4 bytes
inline constexpr int kDiscoveryMacWord = 16;           // 4 bytes, the lower two of them are
inline constexpr int kDiscoveryMac = 18;               // 6 bytes
inline constexpr int kDiscoveryMacLow = 20;            // 4 bytes, the last of the six
inline constexpr int kDiscoveryIpOptions = 24;         // 4 bytes: IP configurations the camera supports
inline constexpr int kDiscoveryIpCurrent = 28;         // 4 bytes: the one in use
inline constexpr int kDiscoveryIpAddress = 44;         // 4 bytes
inline constexpr int kDiscoverySubnetMask = 60;        // 4 bytes
inline constexpr int kDiscoveryGateway = 76;           // 4 bytes
inline constexpr int kDiscoveryManufacturer = 80;      // text of 32 bytes
inline constexpr int kDiscoveryModel = 112;            // text of 32 bytes
inline constexpr int kDiscoveryDeviceVersion = 144;    // text of 32 bytes
inline constexpr int kDiscoveryManufacturerInfo = 176; // text of 48 bytes
inline constexpr int kDiscoverySerialNumber = 224;     // text of 16 bytes
inline constexpr int kDiscoveryUserDefinedName = 240;  // text of 16 bytes
inline constexpr unsigned int kDiscoveryAckSize = 256; // header and body

inline constexpr unsigned int kBigEndianDevice = 0x80000000; // in the device mode

// ---- An event, a command of the camera. GigE Vision, EVENT_CMD
inline constexpr int kEventDataOffset = 8;
inline constexpr int kEventIdOffset = 10;            // 2 bytes
inline constexpr unsigned short kEventDataSize = 16; // of one event
inline constexpr unsigned int kEventPacketSize = 24; // header and one event

// ---- Registers of a camera, a value below its register. GigE Vision, bootstrap registers
inline constexpr unsigned int kRegUserDefinedName = 0x00E8;
inline constexpr unsigned int kRegFirstUrl = 0x0200;  // text of 512 bytes
inline constexpr unsigned int kRegSecondUrl = 0x0400; // text of 512 bytes
inline constexpr unsigned int kUrlSize = 512;
inline constexpr unsigned int kRegPersistentIp = 0x064C;
inline constexpr unsigned int kRegPersistentSubnet = 0x065C;
inline constexpr unsigned int kRegPersistentGateway = 0x066C;
inline constexpr unsigned int kRegMessageChannels = 0x0900; // how many there are
inline constexpr unsigned int kRegStreamChannels = 0x0904;  // how many there are
inline constexpr unsigned int kRegStreamCapability = 0x092C;
inline constexpr unsigned int kRegGvcpCapability = 0x0934;
inline constexpr unsigned int kPendingAckSupported = 0x00000020;
inline constexpr unsigned int kRegHeartbeatTimeout = 0x0938;       // milliseconds
inline constexpr unsigned int kRegTimestampFrequencyHigh = 0x093C; // ticks per second
inline constexpr unsigned int kRegTimestampFrequencyLow = 0x0940;
inline constexpr unsigned int kRegGvcpConfiguration = 0x0954;
inline constexpr unsigned int kPendingAckEnable = 0x00000002;
inline constexpr unsigned int kRegControlPrivilege = 0x0A00;
inline constexpr unsigned int kNoControl = 0; // of any host
inline constexpr unsigned int kExclusiveAccess = 1;
inline constexpr unsigned int kControlAccess = 2;
inline constexpr unsigned int kRegMessagePort = 0x0B00; // 0: no events
inline constexpr unsigned int kRegMessageAddress = 0x0B10;
inline constexpr unsigned int kRegMessageSourcePort = 0x0B1C;
inline constexpr unsigned int kRegStreamPort = 0x0D00; // of stream channel 0, as the next two
inline constexpr unsigned int kRegStreamPacketSize = 0x0D04;
inline constexpr unsigned int kFireTestPacket = 0x80000000; // bits beside the packet size
inline constexpr unsigned int kDoNotFragment = 0x40000000;
inline constexpr unsigned int kRegStreamAddress = 0x0D18;

// ---- Registers of the RDMA stream. Cameras of this product; rdma/gendc_wire.h has the layout of the settings block
inline constexpr unsigned int kRdmaSupported = 0x04000000; // in the stream capability
inline constexpr unsigned int kReg0D3C = 0x0D3C;           // read at opening, and kept
inline constexpr unsigned int kRegRdmaStreamEnable = 0xE030;
inline constexpr unsigned int kRdmaStreamOn = 0x80000000;
inline constexpr unsigned int kRegBufferLayout = 0xE034;  // address of a block of kBufferLayoutSize bytes
inline constexpr unsigned int kRegBufferLayout2 = 0xE038; // read, and dropped
inline constexpr unsigned int kBufferLayoutSize = 16;
inline constexpr unsigned int kRegRdmaSettings = 0xE600; // the settings block

// ---- Sizes of packets. Our own choice
inline constexpr int kLargestPacket = 548;             // that is received: header and body
inline constexpr unsigned short kLargestMessage = 612; // that the message channel receives
inline constexpr unsigned int kLargestWrite = 520;     // data of one WRITEMEM
inline constexpr int kMessageOpener = 12;              // zeros that open the way for events through a firewall
inline constexpr int kTestOpener = 8;                  // zeros that open the way for test packets
inline constexpr int kDiscoveryZeros = 8;              // body of the discovery that the camera layer sends

} // namespace gvcp_wire
