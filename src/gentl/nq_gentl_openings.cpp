// SPDX-License-Identifier: Apache-2.0
// Waiting for one's turn to open an id.
#include "gentl/nq_gentl_openings.h"

namespace GigERDMA
{

NQGenTLOpenings::Turn::Turn(NQGenTLOpenings& openings, const char* id) : m_openings(openings), m_id(id)
{
    const NQLock lock(m_openings.m_lock);
    while (!m_openings.m_ids.insert(m_id).second)
    {
        m_openings.m_ended.Wait(m_openings.m_lock);
    }
}

NQGenTLOpenings::Turn::~Turn()
{
    const NQLock lock(m_openings.m_lock);
    m_openings.m_ids.erase(m_id);
    m_openings.m_ended.NotifyAll();
}

} // namespace GigERDMA
