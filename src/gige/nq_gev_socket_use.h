// SPDX-License-Identifier: Apache-2.0
// The descriptor of a socket, kept open while one call works on it.
#pragma once

#include "gige/nq_gev_socket_linux.h"

/// A copy of the descriptor for the length of one call, -1 when there is none. Reentrant.
class NQGevSocket::Use
{
  public:
    explicit Use(NQGevSocket& socket) : m_owner(socket)
    {
        const NQLock guard(m_owner.m_mutex);
        m_descriptor = m_owner.m_socket == 0 || m_owner.m_origin.IsInherited() ? -1 : m_owner.m_socket;
        m_owner.m_users += m_descriptor == -1 ? 0 : 1;
    }

    ~Use()
    {
        if (m_descriptor == -1)
        {
            return;
        }
        const NQLock guard(m_owner.m_mutex);
        if (--m_owner.m_users == 0)
        {
            m_owner.m_released.NotifyAll();
        }
    }

    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    int Descriptor() const { return m_descriptor; }

  private:
    NQGevSocket& m_owner;
    int m_descriptor;
};
