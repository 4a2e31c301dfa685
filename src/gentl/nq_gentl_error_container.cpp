// SPDX-License-Identifier: Apache-2.0
// The last error of each thread.
#include "gentl/nq_gentl_error_container.h"

#include <algorithm>
#include <pthread.h>

namespace GigERDMA
{

NQGenTLErrorContainer::NQGenTLErrorContainer() = default;

NQGenTLErrorContainer::~NQGenTLErrorContainer()
{
    const NQGenTLLock lock(m_mutex);
    m_errors.clear();
}

void NQGenTLErrorContainer::GetError(int* code, std::string& text)
{
    if (const _NQ_GENTL_ERROR_INTERNAL* record = _findByThreadId(pthread_self()))
    {
        *code = record->code;
        text = record->text;
    }
    else
    {
        *code = 0;
        text = "No Error";
    }
}

void NQGenTLErrorContainer::SetError(int code, const std::string& text)
{
    const unsigned long threadId = pthread_self();
    if (_NQ_GENTL_ERROR_INTERNAL* record = _findByThreadId(threadId))
    {
        const NQGenTLLock lock(m_mutex);
        record->code = code;
        record->text = text;
        return;
    }
    auto record = std::make_unique<_NQ_GENTL_ERROR_INTERNAL>(_NQ_GENTL_ERROR_INTERNAL{threadId, code, text});
    const NQGenTLLock lock(m_mutex);
    m_errors.push_back(std::move(record));
}

_NQ_GENTL_ERROR_INTERNAL* NQGenTLErrorContainer::_findByThreadId(unsigned long threadId)
{
    const NQGenTLLock lock(m_mutex);
    const auto found = std::find_if(m_errors.begin(), m_errors.end(),
                                    [threadId](const auto& record) { return record->threadId == threadId; });
    return found != m_errors.end() ? found->get() : nullptr;
}

} // namespace GigERDMA
