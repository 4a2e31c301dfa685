// SPDX-License-Identifier: Apache-2.0
// The info commands of GenTL 1.5 by their names.
#include "info_commands.h"

#include "nq_gev_gentl.h"

namespace nq::tool
{

namespace
{

#define NQ_ROW(Name)                                                                                                   \
    InfoCommand                                                                                                        \
    {                                                                                                                  \
        GenTL::Name, #Name                                                                                             \
    }

constexpr InfoCommand kSystemRows[] = {NQ_ROW(TL_INFO_ID),
                                       NQ_ROW(TL_INFO_VENDOR),
                                       NQ_ROW(TL_INFO_MODEL),
                                       NQ_ROW(TL_INFO_VERSION),
                                       NQ_ROW(TL_INFO_TLTYPE),
                                       NQ_ROW(TL_INFO_NAME),
                                       NQ_ROW(TL_INFO_PATHNAME),
                                       NQ_ROW(TL_INFO_DISPLAYNAME),
                                       NQ_ROW(TL_INFO_CHAR_ENCODING),
                                       NQ_ROW(TL_INFO_GENTL_VER_MAJOR),
                                       NQ_ROW(TL_INFO_GENTL_VER_MINOR)};

constexpr InfoCommand kInterfaceRows[] = {NQ_ROW(INTERFACE_INFO_ID), NQ_ROW(INTERFACE_INFO_DISPLAYNAME),
                                          NQ_ROW(INTERFACE_INFO_TLTYPE)};

constexpr InfoCommand kDeviceRows[] = {NQ_ROW(DEVICE_INFO_ID),
                                       NQ_ROW(DEVICE_INFO_VENDOR),
                                       NQ_ROW(DEVICE_INFO_MODEL),
                                       NQ_ROW(DEVICE_INFO_TLTYPE),
                                       NQ_ROW(DEVICE_INFO_DISPLAYNAME),
                                       NQ_ROW(DEVICE_INFO_ACCESS_STATUS),
                                       NQ_ROW(DEVICE_INFO_USER_DEFINED_NAME),
                                       NQ_ROW(DEVICE_INFO_SERIAL_NUMBER),
                                       NQ_ROW(DEVICE_INFO_VERSION),
                                       NQ_ROW(DEVICE_INFO_TIMESTAMP_FREQUENCY)};

constexpr InfoCommand kStreamRows[] = {NQ_ROW(STREAM_INFO_ID),
                                       NQ_ROW(STREAM_INFO_NUM_DELIVERED),
                                       NQ_ROW(STREAM_INFO_NUM_UNDERRUN),
                                       NQ_ROW(STREAM_INFO_NUM_ANNOUNCED),
                                       NQ_ROW(STREAM_INFO_NUM_QUEUED),
                                       NQ_ROW(STREAM_INFO_NUM_AWAIT_DELIVERY),
                                       NQ_ROW(STREAM_INFO_NUM_STARTED),
                                       NQ_ROW(STREAM_INFO_PAYLOAD_SIZE),
                                       NQ_ROW(STREAM_INFO_IS_GRABBING),
                                       NQ_ROW(STREAM_INFO_DEFINES_PAYLOADSIZE),
                                       NQ_ROW(STREAM_INFO_TLTYPE),
                                       NQ_ROW(STREAM_INFO_NUM_CHUNKS_MAX),
                                       NQ_ROW(STREAM_INFO_BUF_ANNOUNCE_MIN),
                                       NQ_ROW(STREAM_INFO_BUF_ALIGNMENT)};

constexpr InfoCommand kBufferRows[] = {NQ_ROW(BUFFER_INFO_BASE),
                                       NQ_ROW(BUFFER_INFO_SIZE),
                                       NQ_ROW(BUFFER_INFO_USER_PTR),
                                       NQ_ROW(BUFFER_INFO_TIMESTAMP),
                                       NQ_ROW(BUFFER_INFO_NEW_DATA),
                                       NQ_ROW(BUFFER_INFO_IS_QUEUED),
                                       NQ_ROW(BUFFER_INFO_IS_ACQUIRING),
                                       NQ_ROW(BUFFER_INFO_IS_INCOMPLETE),
                                       NQ_ROW(BUFFER_INFO_TLTYPE),
                                       NQ_ROW(BUFFER_INFO_SIZE_FILLED),
                                       NQ_ROW(BUFFER_INFO_WIDTH),
                                       NQ_ROW(BUFFER_INFO_HEIGHT),
                                       NQ_ROW(BUFFER_INFO_XOFFSET),
                                       NQ_ROW(BUFFER_INFO_YOFFSET),
                                       NQ_ROW(BUFFER_INFO_XPADDING),
                                       NQ_ROW(BUFFER_INFO_YPADDING),
                                       NQ_ROW(BUFFER_INFO_FRAMEID),
                                       NQ_ROW(BUFFER_INFO_IMAGEPRESENT),
                                       NQ_ROW(BUFFER_INFO_IMAGEOFFSET),
                                       NQ_ROW(BUFFER_INFO_PAYLOADTYPE),
                                       NQ_ROW(BUFFER_INFO_PIXELFORMAT),
                                       NQ_ROW(BUFFER_INFO_PIXELFORMAT_NAMESPACE),
                                       NQ_ROW(BUFFER_INFO_DELIVERED_IMAGEHEIGHT),
                                       NQ_ROW(BUFFER_INFO_DELIVERED_CHUNKPAYLOADSIZE),
                                       NQ_ROW(BUFFER_INFO_CHUNKLAYOUTID),
                                       NQ_ROW(BUFFER_INFO_FILENAME),
                                       NQ_ROW(BUFFER_INFO_PIXEL_ENDIANNESS),
                                       NQ_ROW(BUFFER_INFO_DATA_SIZE),
                                       NQ_ROW(BUFFER_INFO_TIMESTAMP_NS),
                                       NQ_ROW(BUFFER_INFO_DATA_LARGER_THAN_BUFFER),
                                       NQ_ROW(BUFFER_INFO_CONTAINS_CHUNKDATA)};

constexpr InfoCommand kPartRows[] = {NQ_ROW(BUFFER_PART_INFO_BASE),
                                     NQ_ROW(BUFFER_PART_INFO_DATA_SIZE),
                                     NQ_ROW(BUFFER_PART_INFO_DATA_TYPE),
                                     NQ_ROW(BUFFER_PART_INFO_DATA_FORMAT),
                                     NQ_ROW(BUFFER_PART_INFO_DATA_FORMAT_NAMESPACE),
                                     NQ_ROW(BUFFER_PART_INFO_WIDTH),
                                     NQ_ROW(BUFFER_PART_INFO_HEIGHT),
                                     NQ_ROW(BUFFER_PART_INFO_XOFFSET),
                                     NQ_ROW(BUFFER_PART_INFO_YOFFSET),
                                     NQ_ROW(BUFFER_PART_INFO_XPADDING),
                                     NQ_ROW(BUFFER_PART_INFO_SOURCE_ID),
                                     NQ_ROW(BUFFER_PART_INFO_DELIVERED_IMAGEHEIGHT)};

constexpr InfoCommand kPortRows[] = {
    NQ_ROW(PORT_INFO_ID),         NQ_ROW(PORT_INFO_VENDOR),      NQ_ROW(PORT_INFO_MODEL),
    NQ_ROW(PORT_INFO_TLTYPE),     NQ_ROW(PORT_INFO_MODULE),      NQ_ROW(PORT_INFO_LITTLE_ENDIAN),
    NQ_ROW(PORT_INFO_BIG_ENDIAN), NQ_ROW(PORT_INFO_ACCESS_READ), NQ_ROW(PORT_INFO_ACCESS_WRITE),
    NQ_ROW(PORT_INFO_ACCESS_NA),  NQ_ROW(PORT_INFO_ACCESS_NI),   NQ_ROW(PORT_INFO_VERSION),
    NQ_ROW(PORT_INFO_PORTNAME)};

constexpr InfoCommand kUrlRows[] = {NQ_ROW(URL_INFO_URL),
                                    NQ_ROW(URL_INFO_SCHEMA_VER_MAJOR),
                                    NQ_ROW(URL_INFO_SCHEMA_VER_MINOR),
                                    NQ_ROW(URL_INFO_FILE_VER_MAJOR),
                                    NQ_ROW(URL_INFO_FILE_VER_MINOR),
                                    NQ_ROW(URL_INFO_FILE_VER_SUBMINOR),
                                    NQ_ROW(URL_INFO_FILE_SHA1_HASH),
                                    NQ_ROW(URL_INFO_FILE_REGISTER_ADDRESS),
                                    NQ_ROW(URL_INFO_FILE_SIZE),
                                    NQ_ROW(URL_INFO_SCHEME),
                                    NQ_ROW(URL_INFO_FILENAME)};

constexpr InfoCommand kEventRows[] = {NQ_ROW(EVENT_EVENT_TYPE), NQ_ROW(EVENT_NUM_IN_QUEUE), NQ_ROW(EVENT_NUM_FIRED),
                                      NQ_ROW(EVENT_SIZE_MAX), NQ_ROW(EVENT_INFO_DATA_SIZE_MAX)};

constexpr InfoCommand kOurInterfaceRows[] = {NQ_ROW(NQ_INTERFACE_INFO_MAC), NQ_ROW(NQ_INTERFACE_INFO_IP),
                                             NQ_ROW(NQ_INTERFACE_INFO_SUBNET), NQ_ROW(NQ_INTERFACE_INFO_GATEWAY)};

constexpr InfoCommand kOurDeviceRows[] = {NQ_ROW(NQ_DEVICE_INFO_MAC),
                                          NQ_ROW(NQ_DEVICE_INFO_IP),
                                          NQ_ROW(NQ_DEVICE_INFO_SUBNET),
                                          NQ_ROW(NQ_DEVICE_INFO_GATEWAY),
                                          NQ_ROW(NQ_DEVICE_INFO_IPCONFIG_CURRENT),
                                          NQ_ROW(NQ_DEVICE_INFO_IPCONFIG_OPTIONS),
                                          NQ_ROW(NQ_DEVICE_INFO_PERSISTENT_IP),
                                          NQ_ROW(NQ_DEVICE_INFO_PERSISTENT_SUBNET),
                                          NQ_ROW(NQ_DEVICE_INFO_PERSISTENT_GATEWAY)};

#undef NQ_ROW

} // namespace

const InfoCommands kSystemCommands = kSystemRows;
const InfoCommands kInterfaceCommands = kInterfaceRows;
const InfoCommands kDeviceCommands = kDeviceRows;
const InfoCommands kStreamCommands = kStreamRows;
const InfoCommands kBufferCommands = kBufferRows;
const InfoCommands kPartCommands = kPartRows;
const InfoCommands kPortCommands = kPortRows;
const InfoCommands kUrlCommands = kUrlRows;
const InfoCommands kEventCommands = kEventRows;
const InfoCommands kOurInterfaceCommands = kOurInterfaceRows;
const InfoCommands kOurDeviceCommands = kOurDeviceRows;

} // namespace nq::tool
