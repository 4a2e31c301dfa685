// SPDX-License-Identifier: Apache-2.0
// The exported camera functions.
#include "gige/nqgige.h"

#include "gige/gige_tl.h"
#include "gige/gvcp_wire.h"

#include <memory>

namespace
{

/// The answer to a caller that may not go on, else success.
NQGigE_RETURN check(const cams::CameraUse& camera, unsigned int key)
{
    if (!camera)
    {
        return NQGigE_NO_CONNECTION;
    }
    return key == kAccessKey ? NQGigE_SUCCESS : NQGigE_WRONG_KEY;
}

} // namespace

std::atomic<int> g_mcMode{0};

NQGigE_RETURN findNetworkAdapters(unsigned int* addresses, unsigned char size)
{
    if (size == 0 || addresses == nullptr)
    {
        return NQGigE_BAD_ARGUMENT;
    }
    unsigned int stored = 0;
    for (int index = 0; index < size; ++index)
    {
        const unsigned int address = GigETL::Network::getNetAdapterIP(index);
        if (address != 0 && (stored == 0 || address != addresses[stored - 1]))
        {
            addresses[stored++] = address;
        }
    }
    if (stored < size)
    {
        addresses[stored] = 0;
    }
    return NQGigE_SUCCESS;
}

NQGigE_RETURN discoverCamerasExt(unsigned int port, unsigned int localIP, unsigned long timeoutMs,
                                 NQGigE_CALLBACK callback, void* context)
{
    if (callback == nullptr)
    {
        return NQGigE_NO_CALLBACK;
    }
    return GigETL::Camera::discoverCameras(port, localIP, timeoutMs, callback, context);
}

NQGigE_RETURN discoverCameras(unsigned int localIP, unsigned long timeoutMs, NQGigE_CALLBACK callback, void* context)
{
    return discoverCamerasExt(gvcp_wire::kControlPort, localIP, timeoutMs, callback, context);
}

NQGigE_RETURN shutdownCameras()
{
    return GigETL::Camera::shutdownCameras();
}

NQGigE_RETURN openCameraExt(unsigned long* handle, unsigned int ip, unsigned int port, unsigned int localIP,
                            unsigned int, MULTICAST_MODE mode)
{
    *handle = 0;
    auto camera = std::make_unique<GigETL::Camera>(ip, port, localIP, mode);
    const unsigned long opened = camera->handle();
    const bool hasPort = camera->getLocalPort() != 0;
    addCameraToMap(camera.get());
    static_cast<void>(camera.release());
    *handle = opened;
    // Deliberate(OpenWithoutAPort): without a local port the camera stays open under its handle, and the caller closes
    // it like any other.
    return hasPort ? NQGigE_SUCCESS : NQGigE_SOCKET_ERROR;
}

NQGigE_RETURN openCamera(unsigned long* handle, unsigned int ip, unsigned int localIP, unsigned int unusedArgument,
                         MULTICAST_MODE mode)
{
    return openCameraExt(handle, ip, gvcp_wire::kControlPort, localIP, unusedArgument, mode);
}

NQGigE_RETURN closeCamera(unsigned long handle)
{
    cams::CameraUse camera(handle);
    if (camera)
    {
        camera->setGigECameraRegister(gvcp_wire::kRegControlPrivilege, gvcp_wire::kNoControl);
        camera.close();
    }
    return NQGigE_SUCCESS;
}

NQGigE_RETURN Camera_setGigECameraRegister(unsigned long handle, unsigned int address, unsigned int value,
                                           unsigned int key)
{
    const cams::CameraUse camera(handle);
    const NQGigE_RETURN checked = check(camera, key);
    if (checked != NQGigE_SUCCESS)
    {
        return checked;
    }
    const int mode = g_mcMode.load(std::memory_order_relaxed);
    // Deliberate(ListenersDoNotWrite): in the other modes another application controls the camera, so a write is
    // reported as done and left out. Reads and memory accesses know no such rule.
    return mode == 0 || mode == 2 ? camera->setGigECameraRegister(address, value) : NQGigE_SUCCESS;
}

NQGigE_RETURN Camera_getGigECameraRegister(unsigned long handle, unsigned int address, unsigned int* value,
                                           unsigned int key)
{
    const cams::CameraUse camera(handle);
    const NQGigE_RETURN checked = check(camera, key);
    return checked == NQGigE_SUCCESS ? camera->getGigECameraRegister(address, value) : checked;
}

NQGigE_RETURN Camera_writeGigECameraMemory(unsigned long handle, unsigned int address, unsigned char* data,
                                           unsigned int count, unsigned int key)
{
    const cams::CameraUse camera(handle);
    const NQGigE_RETURN checked = check(camera, key);
    return checked == NQGigE_SUCCESS ? camera->writeCameraMemory(address, data, count) : checked;
}

NQGigE_RETURN Camera_readGigECameraMemory(unsigned long handle, unsigned int address, unsigned char* data,
                                          unsigned int count, unsigned int key)
{
    const cams::CameraUse camera(handle);
    const NQGigE_RETURN checked = check(camera, key);
    return checked == NQGigE_SUCCESS ? camera->readCameraMemory(address, data, count) : checked;
}
