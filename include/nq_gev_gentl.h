/* SPDX-License-Identifier: Apache-2.0 */
/* What this producer offers beyond GenTL 1.5: info commands, one event and its record. Usable from C and C++. */
#ifndef NQ_GEV_GENTL_H
#define NQ_GEV_GENTL_H

#include "GenTL/GenTL.h"

#ifdef __cplusplus
namespace GenTL
{
#endif

/** Commands of TLGetInterfaceInfo and IFGetInfo. All answers are strings. */
enum NQ_INTERFACE_INFO_CMD_LIST
{
    NQ_INTERFACE_INFO_MAC = 0xA000,    /**< MAC address of the adapter, six hexadecimal pairs */
    NQ_INTERFACE_INFO_IP = 0xA001,     /**< IPv4 address, dotted decimal */
    NQ_INTERFACE_INFO_SUBNET = 0xA002, /**< subnet mask, dotted decimal */
    NQ_INTERFACE_INFO_GATEWAY = 0xA003 /**< gateway, always an empty text */
};

/** Commands of IFGetDeviceInfo (up to 0xB005) and DevGetInfo. IPv4 addresses are numbers in host order. */
enum NQ_DEVICE_INFO_CMD_LIST
{
    NQ_DEVICE_INFO_MAC = 0xB000,               /**< UINT64: MAC address */
    NQ_DEVICE_INFO_IP = 0xB001,                /**< UINT32: IPv4 address */
    NQ_DEVICE_INFO_SUBNET = 0xB002,            /**< UINT32: subnet mask */
    NQ_DEVICE_INFO_GATEWAY = 0xB003,           /**< UINT32: gateway */
    NQ_DEVICE_INFO_IPCONFIG_CURRENT = 0xB004,  /**< UINT32: IP configuration in use, as in the bootstrap register */
    NQ_DEVICE_INFO_IPCONFIG_OPTIONS = 0xB005,  /**< UINT32: IP configurations supported */
    NQ_DEVICE_INFO_PERSISTENT_IP = 0xB006,     /**< UINT32: persistent IPv4 address, read from the camera */
    NQ_DEVICE_INFO_PERSISTENT_SUBNET = 0xB007, /**< UINT32: persistent subnet mask, read from the camera */
    NQ_DEVICE_INFO_PERSISTENT_GATEWAY = 0xB008 /**< UINT32: persistent gateway, read from the camera */
};

/** Events of a device module, for GCRegisterEvent. */
enum NQ_EVENT_TYPE_LIST
{
    NQ_EVENT_DEVICE_CONNECTION = 4000 /**< the host's access to the camera changed */
};

#pragma pack(push, 1)

/** What EventGetData delivers for NQ_EVENT_DEVICE_CONNECTION, 260 bytes. */
typedef struct S_NQ_EVENT_DEVICE_CONNECTION
{
    int32_t Status;      /**< the new access status, a DEVICE_ACCESS_STATUS */
    char sDeviceID[256]; /**< the device's id, terminated; the bytes behind the terminator have no set value */
} NQ_EVENT_DEVICE_CONNECTION_DATA;

#pragma pack(pop)

#ifdef __cplusplus
static_assert(sizeof(S_NQ_EVENT_DEVICE_CONNECTION) == 260, "the record is delivered byte for byte");

/** Reserved for setting a camera's address. Not implemented: always GC_ERR_NOT_IMPLEMENTED, and needs no GCInitLib. */
GC_API NQSetIPConfig(void* hInterface, bool dhcp, bool persistent, unsigned int ip, unsigned int subnet,
                     unsigned int gateway);
}
#else
_Static_assert(sizeof(NQ_EVENT_DEVICE_CONNECTION_DATA) == 260, "the record is delivered byte for byte");
#endif

#endif
