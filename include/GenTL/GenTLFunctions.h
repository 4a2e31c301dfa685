// SPDX-License-Identifier: Apache-2.0
// The names of the 57 GenTL functions, once: GENTL_FUNCTIONS(X) expands X(Name) for each, in the order of GenTL.h.
#ifndef GENTL_FUNCTIONS_H
#define GENTL_FUNCTIONS_H

// clang-format off
#define GENTL_FUNCTIONS(X) \
    X(GCGetInfo) \
    X(GCGetLastError) \
    X(GCInitLib) \
    X(GCCloseLib) \
    X(GCReadPort) \
    X(GCWritePort) \
    X(GCGetPortURL) \
    X(GCGetPortInfo) \
    X(GCRegisterEvent) \
    X(GCUnregisterEvent) \
    X(EventGetData) \
    X(EventGetDataInfo) \
    X(EventGetInfo) \
    X(EventFlush) \
    X(EventKill) \
    X(TLOpen) \
    X(TLClose) \
    X(TLGetInfo) \
    X(TLGetNumInterfaces) \
    X(TLGetInterfaceID) \
    X(TLGetInterfaceInfo) \
    X(TLOpenInterface) \
    X(TLUpdateInterfaceList) \
    X(IFClose) \
    X(IFGetInfo) \
    X(IFGetNumDevices) \
    X(IFGetDeviceID) \
    X(IFUpdateDeviceList) \
    X(IFGetDeviceInfo) \
    X(IFOpenDevice) \
    X(DevGetPort) \
    X(DevGetNumDataStreams) \
    X(DevGetDataStreamID) \
    X(DevOpenDataStream) \
    X(DevGetInfo) \
    X(DevClose) \
    X(DSAnnounceBuffer) \
    X(DSAllocAndAnnounceBuffer) \
    X(DSFlushQueue) \
    X(DSStartAcquisition) \
    X(DSStopAcquisition) \
    X(DSGetInfo) \
    X(DSGetBufferID) \
    X(DSClose) \
    X(DSRevokeBuffer) \
    X(DSQueueBuffer) \
    X(DSGetBufferInfo) \
    X(GCGetNumPortURLs) \
    X(GCGetPortURLInfo) \
    X(GCReadPortStacked) \
    X(GCWritePortStacked) \
    X(DSGetBufferChunkData) \
    X(IFGetParentTL) \
    X(DevGetParentIF) \
    X(DSGetParentDev) \
    X(DSGetNumBufferParts) \
    X(DSGetBufferPartInfo)
// clang-format on

#endif
