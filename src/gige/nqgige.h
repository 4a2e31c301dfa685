// SPDX-License-Identifier: Apache-2.0
// The exported camera functions: a numeric handle stands for a camera.
#pragma once

#include "base/nq_export.h"
#include "gige/nqgige_types.h"

#include <atomic>

/// The `key` that register and memory access by these functions takes; it keeps a caller that was never meant to drive
/// a camera directly from doing so by accident.
inline constexpr unsigned int kAccessKey = 0x4E514745;

static_assert(sizeof(std::atomic<int>) == sizeof(int) && std::atomic<int>::is_always_lock_free);

// Addresses and ports are in host order, timeouts in milliseconds, sizes in bytes. All are thread-safe.
extern "C"
{

/// Register writes by Camera_setGigECameraRegister happen at 0 and 2 and are left out at any other value. 0 at load;
/// written by the application only.
extern NQ_EXPORT std::atomic<int> g_mcMode;

/// Stores the IPv4 addresses of the interfaces with kernel index 0 to `size` - 1, each once when it repeats in a row,
/// and a 0 behind the last when there is room. NQGigE_BAD_ARGUMENT for a null array or a size of 0.
NQ_EXPORT NQGigE_RETURN findNetworkAdapters(unsigned int* addresses, unsigned char size);

/// Discovers cameras as GigETL::Camera::discoverCameras does. NQGigE_NO_CALLBACK without a callback.
NQ_EXPORT NQGigE_RETURN discoverCamerasExt(unsigned int port, unsigned int localIP, unsigned long timeoutMs,
                                           NQGigE_CALLBACK callback, void* context);

/// The same at the standard port.
NQ_EXPORT NQGigE_RETURN discoverCameras(unsigned int localIP, unsigned long timeoutMs, NQGigE_CALLBACK callback,
                                        void* context);

/// Forgets every discovered camera. Always NQGigE_SUCCESS.
NQ_EXPORT NQGigE_RETURN shutdownCameras();

/// Opens a camera and stores its handle, which is valid until closeCamera(), even when the result is
/// NQGigE_SOCKET_ERROR for want of a local port. Takes no control privilege.
NQ_EXPORT NQGigE_RETURN openCameraExt(unsigned long* handle, unsigned int ip, unsigned int port, unsigned int localIP,
                                      unsigned int unusedArgument, MULTICAST_MODE mode);

/// The same at the standard port.
NQ_EXPORT NQGigE_RETURN openCamera(unsigned long* handle, unsigned int ip, unsigned int localIP,
                                   unsigned int unusedArgument, MULTICAST_MODE mode);

/// Gives up the camera's control privilege and closes it. Always NQGigE_SUCCESS, for an unknown handle too.
NQ_EXPORT NQGigE_RETURN closeCamera(unsigned long handle);

// The four accesses check the handle first (NQGigE_NO_CONNECTION), then the key (NQGigE_WRONG_KEY), and then do as the
// operations of GigETL::Camera.
NQ_EXPORT NQGigE_RETURN Camera_setGigECameraRegister(unsigned long handle, unsigned int address, unsigned int value,
                                                     unsigned int key);
NQ_EXPORT NQGigE_RETURN Camera_getGigECameraRegister(unsigned long handle, unsigned int address, unsigned int* value,
                                                     unsigned int key);
NQ_EXPORT NQGigE_RETURN Camera_writeGigECameraMemory(unsigned long handle, unsigned int address, unsigned char* data,
                                                     unsigned int count, unsigned int key);
NQ_EXPORT NQGigE_RETURN Camera_readGigECameraMemory(unsigned long handle, unsigned int address, unsigned char* data,
                                                    unsigned int count, unsigned int key);

} // extern "C"
