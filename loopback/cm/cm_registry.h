// SPDX-License-Identifier: Apache-2.0
// The live ids of the process, to tell an id from what has ceased to be one.
#pragma once

#include "cm/cm_id.h"

#include <set>

namespace nq::loopback
{

/// The set of live ids. All operations are called under CmMutex().
class CmRegistry
{
  public:
    static void Add(CmId* id) { Ids().insert(id); }
    static void Remove(CmId* id) { Ids().erase(id); }
    static bool Contains(CmId* id) { return Ids().count(id) != 0; }
    static std::set<CmId*>& Ids()
    {
        static auto& ids = *new std::set<CmId*>;
        return ids;
    }
};

} // namespace nq::loopback
