// SPDX-License-Identifier: Apache-2.0
// Marks a module as updating its list for the time of a scope.
#pragma once

#include "gentl/nq_gentl_mutex.h"

/// Sets `flag` at construction and clears it at destruction, both under `mutex`, which is free in between. Two at once
/// on one flag: the first to end clears it. Thread-safe.
class NQGevUpdatingFlag
{
  public:
    NQGevUpdatingFlag(GigERDMA::NQGenTLMutex& mutex, bool& flag) : m_mutex(mutex), m_flag(flag) { Set(true); }
    ~NQGevUpdatingFlag() { Set(false); }
    NQGevUpdatingFlag(const NQGevUpdatingFlag&) = delete;
    NQGevUpdatingFlag& operator=(const NQGevUpdatingFlag&) = delete;

  private:
    void Set(bool updating)
    {
        const GigERDMA::NQGenTLLock lock(m_mutex);
        m_flag = updating;
    }

    GigERDMA::NQGenTLMutex& m_mutex;
    bool& m_flag;
};
