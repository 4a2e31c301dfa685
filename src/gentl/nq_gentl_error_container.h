// SPDX-License-Identifier: Apache-2.0
// The last error of each thread.
#pragma once

#include "gentl/nq_gentl_mutex.h"

#include <memory>
#include <string>
#include <vector>

namespace GigERDMA
{

/// Last error of one thread that has failed at least once.
struct _NQ_GENTL_ERROR_INTERNAL
{
    unsigned long threadId; ///< pthread_self() of the thread
    int code;               ///< GenTL code
    std::string text;
};

/// Keeps one record for each thread that ever failed, until the container goes. A record is written and read by its own
/// thread alone. Thread-safe. A new thread that gets the pthread id of an ended one inherits that one's record.
class NQGenTLErrorContainer
{
  public:
    NQGenTLErrorContainer();
    ~NQGenTLErrorContainer();
    NQGenTLErrorContainer(const NQGenTLErrorContainer&) = delete;
    NQGenTLErrorContainer& operator=(const NQGenTLErrorContainer&) = delete;

    /// The calling thread's last error; 0 and "No Error" for a thread that never failed.
    void GetError(int* code, std::string& text);

    /// Replaces the calling thread's last error.
    void SetError(int code, const std::string& text);

  private:
    _NQ_GENTL_ERROR_INTERNAL* _findByThreadId(unsigned long threadId);

    NQGenTLMutex m_mutex;
    std::vector<std::unique_ptr<_NQ_GENTL_ERROR_INTERNAL>> m_errors NQ_GUARDED_BY(m_mutex);
};

} // namespace GigERDMA
