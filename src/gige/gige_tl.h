// SPDX-License-Identifier: Apache-2.0
// The open cameras by handle, and register access by handle.
#pragma once

#include "base/nq_mutex.h"
#include "gige/gige_camera.h"

#include <map>

namespace cams
{

extern NQMutex& g_lock;

/// Every open camera by its handle. Lives as long as the process, so that a thread still working while static objects
/// are destroyed finds it intact.
extern std::map<unsigned long, GigETL::Camera*>& mCameras NQ_GUARDED_BY(g_lock);

/// The camera of a handle, found as getCamera() finds it and kept alive while this object lives: a camera closed
/// meanwhile is deleted when the last use of it ends. Reentrant, and any number of threads may hold one camera each in
/// a CameraUse of their own.
class CameraUse
{
  public:
    explicit CameraUse(unsigned long handle);
    ~CameraUse();
    CameraUse(const CameraUse&) = delete;
    CameraUse& operator=(const CameraUse&) = delete;

    explicit operator bool() const { return mCamera != nullptr; }
    GigETL::Camera* operator->() const { return mCamera; }

    /// Takes the camera out of the map, with those that were set aside under its handle, and has each deleted at the
    /// end of its last use. Closing a camera that another thread has closed already does nothing.
    void close();

  private:
    GigETL::Camera* mCamera;
};

} // namespace cams

// Thread-safe.

/// Stores the camera under its handle; the map owns it from then on. A camera that was there is set aside, not deleted:
/// it goes when the handle is closed.
void addCameraToMap(GigETL::Camera* camera);

/// Erases the entry of the camera's handle; the camera is the caller's again.
void removeCameraFromMap(GigETL::Camera* camera);

/// The camera of a handle, or null; nothing keeps it from being closed meanwhile. Asking for an unknown handle leaves
/// an entry with a null value behind.
GigETL::Camera* getCamera(unsigned long handle);

/// Register access without access key and without the g_mcMode rule. NQGigE_NO_CONNECTION for an unknown handle. The
/// read sets the value to 0 first.
NQGigE_RETURN Camera_setGigECameraRegister(unsigned long handle, unsigned int address, unsigned int value);
NQGigE_RETURN Camera_getGigECameraRegister(unsigned long handle, unsigned int address, unsigned int* value);
