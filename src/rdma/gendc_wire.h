// SPDX-License-Identifier: Apache-2.0
// What GigE Vision cameras and this library say to each other over RDMA, in numbers.
#pragma once

#include <cstddef>

/// One table for all of src/, as gige/gvcp_wire.h is for UDP. Offsets and sizes are in bytes. A number of several bytes
/// goes over the wire with its least significant byte first. Each group names its public source, or says that the
/// layout is this product's own. A number behind an offset is the size of the field.
namespace gendc_wire
{

// ---- UDP port of the camera. RoCE v2 (InfiniBand Architecture, annex A17)
inline constexpr const char* kPort = "4791";

// ---- Headers at the front of a frame: sizes, in this order. EMVA GenDC
inline constexpr std::size_t kContainerHeaderSize = 64; // with the offset of one component
inline constexpr std::size_t kComponentHeaderSize = 56; // with the offset of one part
inline constexpr std::size_t kPartHeaderSize = 56;
inline constexpr std::size_t kDescriptorSize = kContainerHeaderSize + kComponentHeaderSize + kPartHeaderSize; // 176

// ---- Container header, from the start of the frame. EMVA GenDC
inline constexpr std::size_t kContainerId = 16;     // 8
inline constexpr std::size_t kComponentOffset = 56; // 8

// ---- Component header, from the start of the frame, behind a container header with one component. EMVA GenDC
inline constexpr std::size_t kRegionX = 80;     // 4: pixels from the left of the sensor's image
inline constexpr std::size_t kRegionY = 84;     // 4: lines from its top
inline constexpr std::size_t kTimestamp = 88;   // 8
inline constexpr std::size_t kPartOffset = 112; // 8

// ---- Part header, from its own start: a two-dimensional part. EMVA GenDC
inline constexpr std::size_t kPartType = 0;        // 2
inline constexpr std::size_t kPartFlags = 2;       // 2
inline constexpr std::size_t kPartSize = 4;        // 4
inline constexpr std::size_t kPartFormat = 8;      // 4
inline constexpr std::size_t kPartFlowId = 12;     // 4
inline constexpr std::size_t kPartFlowOffset = 16; // 8
inline constexpr std::size_t kPartDataSize = 24;   // 8
inline constexpr std::size_t kPartDataOffset = 32; // 8, from the start of the frame
inline constexpr std::size_t kPartWidth = 40;      // 4
inline constexpr std::size_t kPartHeight = 44;     // 4
inline constexpr std::size_t kPartPadding = 48;    // 8

// ---- Ready message, a credit for one frame: zeros but for two bytes. This product's own
inline constexpr std::size_t kReadySize = 60;
inline constexpr std::size_t kReadyFirst = 0;
inline constexpr std::size_t kReadySecond = 3;
inline constexpr unsigned char kReadyMark = 1; // in both

// ---- Settings block, read over GVCP from the register kRegRdmaSettings. This product's own
inline constexpr std::size_t kSettingsSize = 176;
inline constexpr std::size_t kSettingsPayloadSize = 32; // 8: bytes behind the three headers
inline constexpr std::size_t kSettingsByte130 = 130;    // 1, carried unread
inline constexpr std::size_t kSettingsWord160 = 160;    // 4, carried unread
inline constexpr std::size_t kSettingsWord164 = 164;    // 4, carried unread

} // namespace gendc_wire
