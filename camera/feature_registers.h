// SPDX-License-Identifier: Apache-2.0
// Addresses and values of the registers behind the camera's GenICam features, chosen by this camera.
#pragma once

#include <cstdint>

namespace nq::camera::feature
{

/// Registers of features begin here; below are those of every GigE Vision camera.
constexpr std::uint32_t kFirstFeature = 0x00010000;
/// The maximum of a feature whose maximum moves stands this far behind its register,
constexpr std::uint32_t kLimitOffset = 0x00004000;
/// and whether one that is not always there is there.
constexpr std::uint32_t kAvailableOffset = 0x00008000;

constexpr std::uint32_t kWidth = 0x00010000;
constexpr std::uint32_t kHeight = 0x00010004;
constexpr std::uint32_t kOffsetX = 0x00010008;
constexpr std::uint32_t kOffsetY = 0x0001000C;
constexpr std::uint32_t kPixelFormat = 0x00010010;
constexpr std::uint32_t kPayloadSize = 0x00010014;
constexpr std::uint32_t kWidthMax = 0x00010018;
constexpr std::uint32_t kHeightMax = 0x0001001C;
constexpr std::uint32_t kAcquisitionMode = 0x00010020;
constexpr std::uint32_t kAcquisitionStart = 0x00010024;
constexpr std::uint32_t kAcquisitionStop = 0x00010028;
constexpr std::uint32_t kAcquisitionFrameCount = 0x0001002C;
constexpr std::uint32_t kAcquisitionFrameRate = 0x00010030;
constexpr std::uint32_t kExposureTime = 0x00010034;
constexpr std::uint32_t kGain = 0x00010038;
constexpr std::uint32_t kTestPattern = 0x0001003C;
constexpr std::uint32_t kTriggerMode = 0x00010040;
constexpr std::uint32_t kTriggerSource = 0x00010044;
constexpr std::uint32_t kTriggerSoftware = 0x00010048;
constexpr std::uint32_t kDeviceTemperature = 0x0001004C;
constexpr std::uint32_t kUserSetSelector = 0x00010050;
constexpr std::uint32_t kUserSetLoad = 0x00010054;
constexpr std::uint32_t kUserSetSave = 0x00010058;
constexpr std::uint32_t kDeviceReset = 0x0001005C;
constexpr std::uint32_t kTestPendingAck = 0x00010060;
constexpr std::uint32_t kTestEventGenerate = 0x00010064;
constexpr std::uint32_t kEventSelector = 0x00010068;
constexpr std::uint32_t kUserSetDefault = 0x0001006C;
constexpr std::uint32_t kAcquisitionFrameRateEnable = 0x00010070;
constexpr std::uint32_t kBlackLevel = 0x00010074;
/// One register for each entry of EventSelector, 4 bytes apart.
constexpr std::uint32_t kEventNotification = 0x00010080;

constexpr std::uint32_t kTriggerSelector = 0x00010200;
constexpr std::uint32_t kTriggerActivation = 0x00010204;
constexpr std::uint32_t kTriggerDelay = 0x00010208;
constexpr std::uint32_t kExposureMode = 0x0001020C;
constexpr std::uint32_t kExposureAuto = 0x00010210;
constexpr std::uint32_t kGainAuto = 0x00010214;
constexpr std::uint32_t kGainSelector = 0x00010218;
constexpr std::uint32_t kAcquisitionAbort = 0x0001021C;
constexpr std::uint32_t kAcquisitionBurstFrameCount = 0x00010220;
constexpr std::uint32_t kAcquisitionStatusSelector = 0x00010224;
/// One register for each entry of AcquisitionStatusSelector.
constexpr std::uint32_t kAcquisitionStatus = 0x00010280;
constexpr std::uint32_t kLineSelector = 0x00010240;
constexpr std::uint32_t kLineStatusAll = 0x00010244;
constexpr std::uint32_t kLineSource = 0x00010248;
constexpr std::uint32_t kUserOutputValue = 0x0001024C;
constexpr std::uint32_t kTestLineFrequency = 0x00010250;
/// One register for each entry of LineSelector.
constexpr std::uint32_t kLineMode = 0x000102A0;
constexpr std::uint32_t kLineInverter = 0x000102A8;
constexpr std::uint32_t kLineStatus = 0x000102B0;
constexpr std::uint32_t kCounterEventSource = 0x000102C0;
constexpr std::uint32_t kCounterDuration = 0x000102C4;
constexpr std::uint32_t kCounterValue = 0x000102C8;
constexpr std::uint32_t kCounterReset = 0x000102CC;
constexpr std::uint32_t kTimerTriggerSource = 0x000102D0;
constexpr std::uint32_t kTimerDelay = 0x000102D4;
constexpr std::uint32_t kTimerDuration = 0x000102D8;
constexpr std::uint32_t kTimerValue = 0x000102DC;
constexpr std::uint32_t kTimerStatus = 0x000102E0;
constexpr std::uint32_t kCounterSelector = 0x000102E4;
constexpr std::uint32_t kTimerSelector = 0x000102E8;

constexpr std::uint32_t kBinningHorizontal = 0x00010500;
constexpr std::uint32_t kBinningVertical = 0x00010504;
constexpr std::uint32_t kDecimationHorizontal = 0x00010508;
constexpr std::uint32_t kDecimationVertical = 0x0001050C;
constexpr std::uint32_t kReverseX = 0x00010510;
constexpr std::uint32_t kReverseY = 0x00010514;
constexpr std::uint32_t kSensorWidth = 0x00010518;
constexpr std::uint32_t kSensorHeight = 0x0001051C;
constexpr std::uint32_t kPixelSize = 0x00010520;
constexpr std::uint32_t kPixelColorFilter = 0x00010524;
constexpr std::uint32_t kPixelDynamicRangeMin = 0x00010528;
constexpr std::uint32_t kPixelDynamicRangeMax = 0x0001052C;
constexpr std::uint32_t kGamma = 0x00010530;
constexpr std::uint32_t kBalanceRatioSelector = 0x00010534;
/// One register for each entry of BalanceRatioSelector.
constexpr std::uint32_t kBalanceRatio = 0x00010540;
constexpr std::uint32_t kDeviceType = 0x00010580;
constexpr std::uint32_t kDeviceScanType = 0x00010584;
constexpr std::uint32_t kDeviceTLType = 0x00010588;
constexpr std::uint32_t kDeviceSFNCVersionMajor = 0x0001058C;
constexpr std::uint32_t kDeviceSFNCVersionMinor = 0x00010590;
constexpr std::uint32_t kDeviceSFNCVersionSubMinor = 0x00010594;
constexpr std::uint32_t kDeviceLinkSpeed = 0x00010598;
constexpr std::uint32_t kDeviceLinkThroughputLimitMode = 0x0001059C;
constexpr std::uint32_t kDeviceLinkThroughputLimit = 0x000105A0;
constexpr std::uint32_t kDeviceLinkHeartbeatTimeout = 0x000105A4;
constexpr std::uint32_t kLUTEnable = 0x000105A8;
constexpr std::uint32_t kLUTIndex = 0x000105AC;
/// One register for each index.
constexpr std::uint32_t kLUTValue = 0x00010600;

/// 1 while the stream is enabled, which fixes the size; 1 while an acquisition runs.
constexpr std::uint32_t kStreaming = 0x00011000;
constexpr std::uint32_t kAcquiring = 0x00011004;
/// Pixels by which the width goes.
constexpr std::uint32_t kWidthStep = 0x00011008;

/// Where the register description lies: plain, and in a ZIP archive.
constexpr std::uint32_t kXmlAddress = 0x00100000;
constexpr std::uint32_t kZipAddress = 0x00200000;

} // namespace nq::camera::feature
