// SPDX-License-Identifier: Apache-2.0
// A system that has no thread to give.
#pragma once

#include <cstddef>
#include <pthread.h>

namespace nq::test
{

/// As long as it lives, every thread asked for with default attributes is refused: its stack would not fit in memory.
class NoThreads
{
  public:
    NoThreads()
    {
        pthread_getattr_default_np(&m_before);
        pthread_attr_t attributes;
        pthread_getattr_default_np(&attributes);
        pthread_attr_setstacksize(&attributes, std::size_t{1} << 46);
        pthread_setattr_default_np(&attributes);
        pthread_attr_destroy(&attributes);
    }
    ~NoThreads()
    {
        pthread_setattr_default_np(&m_before);
        pthread_attr_destroy(&m_before);
    }
    NoThreads(const NoThreads&) = delete;
    NoThreads& operator=(const NoThreads&) = delete;

  private:
    pthread_attr_t m_before{};
};

} // namespace nq::test
