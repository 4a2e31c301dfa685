// SPDX-License-Identifier: Apache-2.0
// Waiting for one's turn to open an id.
#include "gentl/nq_gentl_openings.h"

namespace GigERDMA
{

NQGenTLOpenings::Turn::Turn(NQGenTLOpenings& openings, const char* id) : m_openings(openings), m_id(id)
{
    const NQLock lock(m_openings.m_lock);
    auto& ids = m_openings.m_ids;
    for (auto found = ids.find(m_id); found != ids.end() && !found->second.IsInherited(); found = ids.find(m_id))
    {
        m_openings.m_ended.Wait(m_openings.m_lock);
    }
    ids.insert_or_assign(m_id, NQOrigin());
}

NQGenTLOpenings::Turn::~Turn()
{
    const NQLock lock(m_openings.m_lock);
    m_openings.m_ids.erase(m_id);
    m_openings.m_ended.NotifyAll();
}

} // namespace GigERDMA
