// SPDX-License-Identifier: Apache-2.0
// The trace lines of this library's own code.
#include "base/nq_trace.h"

#include <cstdarg>

namespace
{

__attribute__((format(printf, 2, 0))) void Send(NQTraceLevel level, const char* format, va_list arguments)
{
    if (NQLogger::getInstance().IsLoaded())
    {
        NQLTraceA("NQGenTL", static_cast<unsigned long>(level), format, arguments);
    }
}

} // namespace

void NQTraceLine(NQTraceLevel level, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Send(level, format, arguments);
    va_end(arguments);
}

int NQFailed(int code, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    Send(NQTraceLevel::Failure, format, arguments);
    va_end(arguments);
    return code;
}
