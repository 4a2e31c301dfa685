// SPDX-License-Identifier: Apache-2.0
// The cameras that discoveries have found.
#pragma once

#include "base/nq_mutex.h"
#include "gige/nqgige_types.h"

#include <cstddef>
#include <map>

namespace GigETL
{

/// Owns one record per IP address (host order) until clear() or the end of the process. Thread-safe.
class CameraMap
{
  public:
    static constexpr std::size_t kMostRecords = 65536;

    CameraMap() = default;
    ~CameraMap();
    CameraMap(const CameraMap&) = delete;
    CameraMap& operator=(const CameraMap&) = delete;

    /// Keeps a copy of the record under its address, in place of one that was there. The copy's reserved bytes are 0.
    /// Beyond `kMostRecords` addresses nothing is kept: anybody on the network can answer for any number of cameras.
    void store(const NQGigE_CAMERA& camera);

    /// The record of an address, or null. Valid until it is replaced or the map is cleared.
    const NQGigE_CAMERA* find(unsigned int ip) const;

    bool empty() const;
    void clear();

  private:
    mutable NQMutex mLock;
    std::map<unsigned int, NQGigE_CAMERA*> mRecords NQ_GUARDED_BY(mLock);
};

extern CameraMap cameras;

} // namespace GigETL
