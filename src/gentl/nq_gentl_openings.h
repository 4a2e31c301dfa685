// SPDX-License-Identifier: Apache-2.0
// Which children of a module are being opened right now.
#pragma once

#include "base/nq_mutex.h"

#include <map>
#include <string>

namespace GigERDMA
{

/// Makes the opening of one id one step for other threads: whoever wants the same id waits for the outcome, and then
/// finds the child open, or tries for itself. Different ids are opened side by side. No lock is held while an id is
/// being opened, so the lists of children can be asked meanwhile. Thread-safe.
class NQGenTLOpenings
{
  public:
    /// The caller's time alone with `id`, from construction to destruction. A thread has one at a time.
    class Turn
    {
      public:
        /// Waits until no other thread of the process opens `id`.
        Turn(NQGenTLOpenings& openings, const char* id);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        NQGenTLOpenings& m_openings;
        const std::string m_id;
    };

  private:
    NQMutex m_lock;
    NQCondition m_ended;
    std::map<std::string, NQOrigin> m_ids NQ_GUARDED_BY(m_lock);
};

} // namespace GigERDMA
