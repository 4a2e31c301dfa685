/* SPDX-License-Identifier: Apache-2.0
 * What this producer adds to GenTL.h: info commands and the event that tells of a lost or changed camera connection.
 * Usable from C and C++. */
#ifndef NQ_GEV_GENTL_H
#define NQ_GEV_GENTL_H

#include <stdint.h>

/* Commands for TLGetInterfaceInfo and IFGetInfo beside INTERFACE_INFO_CMD; all answer with a text. */
enum NQ_INTERFACE_INFO_CMD_LIST
{
    NQ_INTERFACE_INFO_MAC = 0xA000,    /* MAC address as six hexadecimal pairs joined with "-" */
    NQ_INTERFACE_INFO_IP = 0xA001,     /* IPv4 address, dotted decimal */
    NQ_INTERFACE_INFO_SUBNET = 0xA002, /* IPv4 netmask, dotted decimal */
    NQ_INTERFACE_INFO_GATEWAY = 0xA003 /* an empty text: no gateway is known */
};

/* Commands for IFGetDeviceInfo and DevGetInfo beside DEVICE_INFO_CMD. IFGetDeviceInfo knows those up to
 * NQ_DEVICE_INFO_IPCONFIG_OPTIONS and only for a device that is not open. Addresses hold the first octet in the most
 * significant byte. */
enum NQ_DEVICE_INFO_CMD_LIST
{
    NQ_DEVICE_INFO_MAC = 0xB000,               /* UINT64, the lower 48 bits */
    NQ_DEVICE_INFO_IP = 0xB001,                /* UINT32 */
    NQ_DEVICE_INFO_SUBNET = 0xB002,            /* UINT32 */
    NQ_DEVICE_INFO_GATEWAY = 0xB003,           /* UINT32 */
    NQ_DEVICE_INFO_IPCONFIG_CURRENT = 0xB004,  /* UINT32, GigE Vision register 0x0014 */
    NQ_DEVICE_INFO_IPCONFIG_OPTIONS = 0xB005,  /* UINT32, GigE Vision register 0x0010 */
    NQ_DEVICE_INFO_PERSISTENT_IP = 0xB006,     /* UINT32 */
    NQ_DEVICE_INFO_PERSISTENT_SUBNET = 0xB007, /* UINT32 */
    NQ_DEVICE_INFO_PERSISTENT_GATEWAY = 0xB008 /* UINT32 */
};

/* Event type for GCRegisterEvent on a device handle; EventGetData delivers an NQ_EVENT_DEVICE_CONNECTION_DATA. */
enum NQ_EVENT_TYPE_LIST
{
    NQ_EVENT_DEVICE_CONNECTION = 4000
};

/* The record of NQ_EVENT_DEVICE_CONNECTION, 260 bytes. */
typedef struct NQ_EVENT_DEVICE_CONNECTION_DATA
{
    int32_t iStatus;     /* DEVICE_ACCESS_STATUS of the camera from now on */
    char sDeviceID[256]; /* the camera's id, cut to 255 characters and terminated */
} NQ_EVENT_DEVICE_CONNECTION_DATA;

#endif /* NQ_GEV_GENTL_H */
