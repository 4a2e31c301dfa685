// SPDX-License-Identifier: Apache-2.0
// Result codes and records of the camera layer, shared by its classes and by the exported camera functions.
#pragma once

#include <cstddef>
#include <cstdint>

/// Result of the camera layer. Negative values are its own; a positive value is the status code of a camera's
/// acknowledge, unchanged.
enum NQGigE_RETURN : std::int32_t
{
    NQGigE_SUCCESS = 0,
    NQGigE_SOCKET_ERROR = -10,   ///< waiting on the socket failed, or a camera was opened with no local port
    NQGigE_WRONG_KEY = -11,      ///< the access key of a camera function did not match
    NQGigE_WRONG_SIZE = -21,     ///< memory write too long, or read answer too short
    NQGigE_NO_LOCAL_PORT = -102, ///< the discovery socket has no local port
    NQGigE_BAD_ACK = -110,       ///< id or code of the acknowledge did not match
    NQGigE_NO_CONNECTION = -208, ///< no socket, unknown camera handle, or a network in broadcast state
    NQGigE_TIMEOUT = -212,       ///< nothing arrived in time; also a failed send
    NQGigE_NO_CALLBACK = -218,   ///< discovery was called without a callback
    NQGigE_BAD_ARGUMENT = -229,  ///< a null array, or one of size 0
};

/// Accepted when a camera is opened and ignored since: each camera has a unicast control socket of its own.
enum MULTICAST_MODE : std::int32_t
{
    MULTICAST_OFF = 0,
    MULTICAST_LISTEN = 1,
    MULTICAST_ON = 2,
};

/// One discovered camera. Numbers are in host order. The texts come from the camera at their full width: a text that
/// fills its field has no terminating zero.
struct NQGigE_CAMERA
{
    std::uint32_t ipAddress;
    std::uint32_t subnetMask;
    std::uint32_t defaultGateway;
    std::uint64_t macUpper; ///< value of the upper two bytes
    std::uint64_t macLower; ///< value of the lower four bytes
    char ipAddressText[16];
    char subnetMaskText[16];
    char macText[18];
    char manufacturer[32];
    char model[32];
    char manufacturerInfo[48];
    char deviceVersion[32];
    char serialNumber[16];
    char userDefinedName[16];
    std::uint16_t specVersionMinor;
    std::uint16_t specVersionMajor;
    std::uint32_t adapterIpAddress; ///< the local address that the discovery was given
    std::uint64_t reserved;         ///< zero in every stored record
};
static_assert(sizeof(NQGigE_CAMERA) == 280);
static_assert(offsetof(NQGigE_CAMERA, macUpper) == 16);
static_assert(offsetof(NQGigE_CAMERA, ipAddressText) == 32);
static_assert(offsetof(NQGigE_CAMERA, manufacturer) == 82);
static_assert(offsetof(NQGigE_CAMERA, specVersionMinor) == 258);
static_assert(offsetof(NQGigE_CAMERA, adapterIpAddress) == 264);
static_assert(offsetof(NQGigE_CAMERA, reserved) == 272);

/// What a discovery callback is given; record and data are the caller's and valid during the call only.
struct NQGigE_SIGNAL
{
    std::uint32_t type; ///< kSignalCameraFound
    void* data;         ///< an NQGigE_CAMERA
    std::uint32_t size; ///< bytes behind `data`
};

/// Signal type of a camera that answered the discovery.
inline constexpr std::uint32_t kSignalCameraFound = 14;

/// Receives one signal per answering camera; thread-bound to the thread that runs the discovery. The result is not
/// looked at.
using NQGigE_CALLBACK = NQGigE_RETURN (*)(NQGigE_SIGNAL* signal, void* context);
