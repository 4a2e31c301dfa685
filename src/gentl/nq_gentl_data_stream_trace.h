// SPDX-License-Identifier: Apache-2.0
// The trace line that all data stream operations write.
#pragma once

#include "base/nq_logger.h"

namespace GigERDMA
{

/// `format`, a literal, begins with a %s for the operation's name. Thread-safe.
template <typename... Values>
void TraceDataStream(const char* format, const char* operation, Values... values)
{
    NQLogger::getInstance().TraceA("NQGenTL", 2, format, operation, values...);
}

} // namespace GigERDMA
