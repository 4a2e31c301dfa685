// SPDX-License-Identifier: Apache-2.0
// The one object through which the modules reach cameras.
#pragma once

#include "gige/nqgige_types.h"

/// Turns the results of the camera functions into true and false and traces failures. A camera is named by the handle
/// that CameraOpen() stored. Thread-safe: has no state that changes.
class NQGevTL
{
  public:
    NQGevTL();

    /// Always true.
    bool TLInit();

    /// Does nothing.
    void TLClose();

    /// The transport layer type, 0.
    int TLGetType() const;

    /// Opens the camera at `ip` (host order), always at the standard control port: `port` is ignored. False without a
    /// local port; the handle is to be closed then too.
    bool CameraOpen(unsigned long* handle, unsigned int ip, unsigned int port);
    /// Gives up the camera's control privilege and closes it. Always true.
    bool CameraClose(unsigned long handle);

    /// Reads or writes one register, byte-reversed with `swap`. A failed read leaves `*value` alone.
    bool CameraReadRegister(unsigned long handle, unsigned int address, unsigned int* value, bool swap);
    bool CameraWriteRegister(unsigned long handle, unsigned int address, unsigned int value, bool swap);

    /// Reads at most 536 bytes, or writes at most 520, in one exchange. A failed read leaves `data` alone.
    bool CameraReadMemory(unsigned long handle, unsigned int address, unsigned char* data, int count);
    bool CameraWriteMemory(unsigned long handle, unsigned int address, unsigned char* data, int count);

    /// The same with the code of the camera function, which is the status of the acknowledge when the camera refuses.
    NQGigE_RETURN ReadRegister(unsigned long handle, unsigned int address, unsigned int* value, bool swap);
    NQGigE_RETURN WriteRegister(unsigned long handle, unsigned int address, unsigned int value, bool swap);
    NQGigE_RETURN ReadMemory(unsigned long handle, unsigned int address, unsigned char* data, int count);
    NQGigE_RETURN WriteMemory(unsigned long handle, unsigned int address, unsigned char* data, int count);

  private:
    int m_tlType;
};
