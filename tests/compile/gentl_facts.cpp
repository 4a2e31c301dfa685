// SPDX-License-Identifier: Apache-2.0
// The public headers as C++: values, records, names and the type of each function.
#include "gentl_facts.h"

#include <string_view>
#include <type_traits>

using namespace std::string_view_literals;

static_assert(TLTypeMixedName == "Mixed"sv);
static_assert(TLTypeCustomName == "Custom"sv);
static_assert(TLTypeGEVName == "GEV"sv);
static_assert(TLTypeCLName == "CL"sv);
static_assert(TLTypeIIDCName == "IIDC"sv);
static_assert(TLTypeUVCName == "UVC"sv);
static_assert(TLTypeCXPName == "CXP"sv);
static_assert(TLTypeCLHSName == "CLHS"sv);
static_assert(TLTypeU3VName == "U3V"sv);
static_assert(TLTypeETHERNETName == "Ethernet"sv);
static_assert(TLTypePCIName == "PCI"sv);
static_assert(TLSystemModuleName == "TLSystem"sv);
static_assert(TLInterfaceModuleName == "TLInterface"sv);
static_assert(TLDeviceModuleName == "TLDevice"sv);
static_assert(TLDataStreamModuleName == "TLDataStream"sv);
static_assert(TLBufferModuleName == "TLBuffer"sv);
static_assert(TLRemoteDeviceModuleName == "Device"sv);

static_assert(std::is_same_v<GenTL::bool8_t, bool>);
static_assert(std::is_same_v<GenTL::PORT_REGISTER_STACK_ENTRY, GenTL::S_PORT_REGISTER_STACK_ENTRY>);
static_assert(std::is_same_v<GenTL::EVENT_NEW_BUFFER_DATA, GenTL::S_EVENT_NEW_BUFFER>);
static_assert(std::is_same_v<GenTL::SINGLE_CHUNK_DATA, GenTL::S_SINGLE_CHUNK_DATA>);

#define NQ_CHECK_FUNCTION(name) static_assert(std::is_same_v<decltype(&GenTL::name), GenTL::P##name>);
GENTL_FUNCTIONS(NQ_CHECK_FUNCTION)

static_assert(
    std::is_same_v<GenTL::PGCGetInfo, GenTL::GC_ERROR (*)(GenTL::TL_INFO_CMD, GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCGetLastError, GenTL::GC_ERROR (*)(GenTL::GC_ERROR*, char*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCInitLib, GenTL::GC_ERROR (*)()>);
static_assert(std::is_same_v<GenTL::PGCCloseLib, GenTL::GC_ERROR (*)()>);
static_assert(std::is_same_v<GenTL::PGCReadPort, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, uint64_t, void*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PGCWritePort, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, uint64_t, const void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCGetPortURL, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, char*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCGetPortInfo, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, GenTL::PORT_INFO_CMD,
                                                                        GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCRegisterEvent,
                             GenTL::GC_ERROR (*)(GenTL::EVENTSRC_HANDLE, GenTL::EVENT_TYPE, GenTL::EVENT_HANDLE*)>);
static_assert(
    std::is_same_v<GenTL::PGCUnregisterEvent, GenTL::GC_ERROR (*)(GenTL::EVENTSRC_HANDLE, GenTL::EVENT_TYPE)>);
static_assert(std::is_same_v<GenTL::PEventGetData, GenTL::GC_ERROR (*)(GenTL::EVENT_HANDLE, void*, size_t*, uint64_t)>);
static_assert(std::is_same_v<GenTL::PEventGetDataInfo,
                             GenTL::GC_ERROR (*)(GenTL::EVENT_HANDLE, const void*, size_t, GenTL::EVENT_DATA_INFO_CMD,
                                                 GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PEventGetInfo, GenTL::GC_ERROR (*)(GenTL::EVENT_HANDLE, GenTL::EVENT_INFO_CMD,
                                                                       GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PEventFlush, GenTL::GC_ERROR (*)(GenTL::EVENT_HANDLE)>);
static_assert(std::is_same_v<GenTL::PEventKill, GenTL::GC_ERROR (*)(GenTL::EVENT_HANDLE)>);
static_assert(std::is_same_v<GenTL::PTLOpen, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PTLClose, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE)>);
static_assert(std::is_same_v<GenTL::PTLGetInfo, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, GenTL::TL_INFO_CMD,
                                                                    GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PTLGetNumInterfaces, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, uint32_t*)>);
static_assert(
    std::is_same_v<GenTL::PTLGetInterfaceID, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, uint32_t, char*, size_t*)>);
static_assert(std::is_same_v<GenTL::PTLGetInterfaceInfo,
                             GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, const char*, GenTL::INTERFACE_INFO_CMD,
                                                 GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PTLOpenInterface, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, const char*, GenTL::IF_HANDLE*)>);
static_assert(
    std::is_same_v<GenTL::PTLUpdateInterfaceList, GenTL::GC_ERROR (*)(GenTL::TL_HANDLE, GenTL::bool8_t*, uint64_t)>);
static_assert(std::is_same_v<GenTL::PIFClose, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE)>);
static_assert(std::is_same_v<GenTL::PIFGetInfo, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, GenTL::INTERFACE_INFO_CMD,
                                                                    GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PIFGetNumDevices, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, uint32_t*)>);
static_assert(std::is_same_v<GenTL::PIFGetDeviceID, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, uint32_t, char*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PIFUpdateDeviceList, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, GenTL::bool8_t*, uint64_t)>);
static_assert(
    std::is_same_v<GenTL::PIFGetDeviceInfo, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, const char*, GenTL::DEVICE_INFO_CMD,
                                                                GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PIFOpenDevice,
                   GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, const char*, GenTL::DEVICE_ACCESS_FLAGS, GenTL::DEV_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDevGetPort, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, GenTL::PORT_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDevGetNumDataStreams, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, uint32_t*)>);
static_assert(
    std::is_same_v<GenTL::PDevGetDataStreamID, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, uint32_t, char*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PDevOpenDataStream, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, const char*, GenTL::DS_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDevGetInfo, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, GenTL::DEVICE_INFO_CMD,
                                                                     GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PDevClose, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE)>);
static_assert(std::is_same_v<GenTL::PDSAnnounceBuffer,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, void*, size_t, void*, GenTL::BUFFER_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDSAllocAndAnnounceBuffer,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, size_t, void*, GenTL::BUFFER_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDSFlushQueue, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::ACQ_QUEUE_TYPE)>);
static_assert(std::is_same_v<GenTL::PDSStartAcquisition,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::ACQ_START_FLAGS, uint64_t)>);
static_assert(std::is_same_v<GenTL::PDSStopAcquisition, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::ACQ_STOP_FLAGS)>);
static_assert(std::is_same_v<GenTL::PDSGetInfo, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::STREAM_INFO_CMD,
                                                                    GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(
    std::is_same_v<GenTL::PDSGetBufferID, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, uint32_t, GenTL::BUFFER_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDSClose, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE)>);
static_assert(std::is_same_v<GenTL::PDSRevokeBuffer,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE, void**, void**)>);
static_assert(std::is_same_v<GenTL::PDSQueueBuffer, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE)>);
static_assert(std::is_same_v<GenTL::PDSGetBufferInfo,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE, GenTL::BUFFER_INFO_CMD,
                                                 GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCGetNumPortURLs, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, uint32_t*)>);
static_assert(
    std::is_same_v<GenTL::PGCGetPortURLInfo, GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, uint32_t, GenTL::URL_INFO_CMD,
                                                                 GenTL::INFO_DATATYPE*, void*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCReadPortStacked,
                             GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, GenTL::PORT_REGISTER_STACK_ENTRY*, size_t*)>);
static_assert(std::is_same_v<GenTL::PGCWritePortStacked,
                             GenTL::GC_ERROR (*)(GenTL::PORT_HANDLE, GenTL::PORT_REGISTER_STACK_ENTRY*, size_t*)>);
static_assert(std::is_same_v<GenTL::PDSGetBufferChunkData, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE,
                                                                               GenTL::SINGLE_CHUNK_DATA*, size_t*)>);
static_assert(std::is_same_v<GenTL::PIFGetParentTL, GenTL::GC_ERROR (*)(GenTL::IF_HANDLE, GenTL::TL_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDevGetParentIF, GenTL::GC_ERROR (*)(GenTL::DEV_HANDLE, GenTL::IF_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDSGetParentDev, GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::DEV_HANDLE*)>);
static_assert(std::is_same_v<GenTL::PDSGetNumBufferParts,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE, uint32_t*)>);
static_assert(std::is_same_v<GenTL::PDSGetBufferPartInfo,
                             GenTL::GC_ERROR (*)(GenTL::DS_HANDLE, GenTL::BUFFER_HANDLE, uint32_t,
                                                 GenTL::BUFFER_PART_INFO_CMD, GenTL::INFO_DATATYPE*, void*, size_t*)>);

static_assert(std::is_same_v<decltype(&GenTL::NQSetIPConfig),
                             GenTL::GC_ERROR (*)(void*, bool, bool, unsigned int, unsigned int, unsigned int)>);
