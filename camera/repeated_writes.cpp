// SPDX-License-Identifier: Apache-2.0
// Tells a write command that arrives a second time.
#include "repeated_writes.h"

#include <algorithm>

namespace nq::camera
{

namespace
{

constexpr std::size_t kMostHosts = 16;

} // namespace

const RepeatedWrites::Write* RepeatedWrites::Find(const Endpoint& from, std::span<const std::uint8_t> datagram)
{
    const auto latest = std::ranges::find(m_writes, from, &Write::from);
    if (latest == m_writes.end())
    {
        return nullptr;
    }
    if (std::ranges::equal(latest->datagram, datagram))
    {
        return &*latest;
    }
    m_writes.erase(latest);
    return nullptr;
}

void RepeatedWrites::Remember(Write write)
{
    // The sender may stand there: a request for control that is repeated is executed anew.
    std::erase_if(m_writes, [&write](const Write& one) { return one.from == write.from; });
    if (m_writes.size() >= kMostHosts)
    {
        m_writes.erase(m_writes.begin());
    }
    m_writes.push_back(std::move(write));
}

} // namespace nq::camera
