// SPDX-License-Identifier: Apache-2.0
// The open cameras by handle, and register access by handle.
#include "gige/gige_tl.h"

#include <memory>
#include <set>
#include <vector>

namespace cams
{
namespace
{

/// What is known about cameras beyond the map; guarded by `g_lock` and as lasting as the map.
struct Lives
{
    std::map<const GigETL::Camera*, int> uses;              ///< cameras in use and how often
    std::set<const GigETL::Camera*> closed;                 ///< cameras to be deleted with their last use
    std::multimap<unsigned long, GigETL::Camera*> setAside; ///< replaced cameras by their handle
    NQOrigin origin;                                        ///< whose uses these are
};

Lives& lives() NQ_REQUIRES(g_lock)
{
    static Lives& instance = *new Lives;
    return instance;
}

/// In a forked child: ends the uses of threads that are not here.
void dropInheritedUses() NQ_REQUIRES(g_lock)
{
    if (!lives().origin.IsInherited())
    {
        return;
    }
    lives().uses.clear();
    for (const GigETL::Camera* const camera : lives().closed)
    {
        delete camera;
    }
    lives().closed.clear();
    lives().origin = NQOrigin();
}

} // namespace

NQMutex& g_lock = *new NQMutex;
std::map<unsigned long, GigETL::Camera*>& mCameras = *new std::map<unsigned long, GigETL::Camera*>;

CameraUse::CameraUse(unsigned long handle)
{
    const NQLock guard(g_lock);
    dropInheritedUses();
    mCamera = mCameras[handle];
    if (mCamera != nullptr)
    {
        ++lives().uses[mCamera];
    }
}

CameraUse::~CameraUse()
{
    std::unique_ptr<GigETL::Camera> last;
    const NQLock guard(g_lock);
    dropInheritedUses();
    const auto use = lives().uses.find(mCamera);
    if (use == lives().uses.end() || --use->second > 0)
    {
        return;
    }
    lives().uses.erase(use);
    if (lives().closed.erase(mCamera) > 0)
    {
        last.reset(mCamera);
    }
}

void CameraUse::close()
{
    std::vector<std::unique_ptr<GigETL::Camera>> unused;
    const NQLock guard(g_lock);
    const auto entry = mCameras.find(mCamera->handle());
    if (entry == mCameras.end() || entry->second != mCamera)
    {
        return;
    }
    mCameras.erase(entry);
    lives().closed.insert(mCamera);
    const auto [begin, end] = lives().setAside.equal_range(mCamera->handle());
    for (auto replaced = begin; replaced != end; ++replaced)
    {
        if (lives().uses.count(replaced->second) > 0)
        {
            lives().closed.insert(replaced->second);
        }
        else
        {
            unused.emplace_back(replaced->second);
        }
    }
    lives().setAside.erase(begin, end);
}

} // namespace cams

void addCameraToMap(GigETL::Camera* camera)
{
    const NQLock guard(cams::g_lock);
    GigETL::Camera*& entry = cams::mCameras[camera->handle()];
    if (entry != nullptr && entry != camera)
    {
        cams::lives().setAside.emplace(camera->handle(), entry);
    }
    entry = camera;
}

void removeCameraFromMap(GigETL::Camera* camera)
{
    const NQLock guard(cams::g_lock);
    cams::mCameras.erase(camera->handle());
}

GigETL::Camera* getCamera(unsigned long handle)
{
    const NQLock guard(cams::g_lock);
    return cams::mCameras[handle];
}

NQGigE_RETURN Camera_setGigECameraRegister(unsigned long handle, unsigned int address, unsigned int value)
{
    const cams::CameraUse camera(handle);
    return camera ? camera->setGigECameraRegister(address, value) : NQGigE_NO_CONNECTION;
}

NQGigE_RETURN Camera_getGigECameraRegister(unsigned long handle, unsigned int address, unsigned int* value)
{
    *value = 0;
    const cams::CameraUse camera(handle);
    return camera ? camera->getGigECameraRegister(address, value) : NQGigE_NO_CONNECTION;
}
