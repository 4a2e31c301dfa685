// SPDX-License-Identifier: Apache-2.0
// A process that can make no further descriptor.
#pragma once

#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::test
{

/// While it lives, this process gets no new file descriptor. Those it has go on working.
class NoDescriptors
{
  public:
    NoDescriptors()
    {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const int lowestFree = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        close(lowestFree);
        const rlimit none = {static_cast<rlim_t>(lowestFree), m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

  private:
    rlimit m_before = {};
};

} // namespace nq::test
