// SPDX-License-Identifier: Apache-2.0
// The cameras that discoveries have found.
#include "gige/gige_camera_map.h"

#include <memory>

namespace GigETL
{

CameraMap cameras;

CameraMap::~CameraMap()
{
    clear();
}

void CameraMap::store(const NQGigE_CAMERA& camera)
{
    auto copy = std::make_unique<NQGigE_CAMERA>(camera);
    copy->reserved = 0;
    const NQLock guard(mLock);
    if (mRecords.size() >= kMostRecords && mRecords.count(camera.ipAddress) == 0)
    {
        return;
    }
    NQGigE_CAMERA*& entry = mRecords[camera.ipAddress];
    delete entry;
    entry = copy.release();
}

const NQGigE_CAMERA* CameraMap::find(unsigned int ip) const
{
    const NQLock guard(mLock);
    const auto found = mRecords.find(ip);
    return found == mRecords.end() ? nullptr : found->second;
}

bool CameraMap::empty() const
{
    const NQLock guard(mLock);
    return mRecords.empty();
}

void CameraMap::clear()
{
    const NQLock guard(mLock);
    for (const auto& [ip, record] : mRecords)
    {
        delete record;
    }
    mRecords.clear();
}

} // namespace GigETL
