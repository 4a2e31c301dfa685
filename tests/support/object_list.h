// SPDX-License-Identifier: Apache-2.0
// Which objects of a fake device exist, and which of its rules were broken.
#pragma once

#include <mutex>
#include <set>
#include <string>
#include <vector>

namespace nq::test
{

/// Objects by name. Any thread.
class ObjectList
{
  public:
    void Born(const std::string& object)
    {
        const std::lock_guard lock(m_mutex);
        m_live.insert(object);
    }

    /// One object of this name is given back; that there is none breaks a rule.
    void Gone(const std::string& object)
    {
        const std::lock_guard lock(m_mutex);
        const auto found = m_live.find(object);
        if (found == m_live.end())
        {
            m_violations.push_back(object + " given back twice");
            return;
        }
        m_live.erase(found);
    }

    void Violated(const std::string& rule)
    {
        const std::lock_guard lock(m_mutex);
        m_violations.push_back(rule);
    }

    std::multiset<std::string> Live() const
    {
        const std::lock_guard lock(m_mutex);
        return m_live;
    }

    std::vector<std::string> Violations() const
    {
        const std::lock_guard lock(m_mutex);
        return m_violations;
    }

  private:
    mutable std::mutex m_mutex;
    std::multiset<std::string> m_live;
    std::vector<std::string> m_violations;
};

} // namespace nq::test
