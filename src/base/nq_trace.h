// SPDX-License-Identifier: Apache-2.0
// The trace lines of this library's own code. All of them go through here, in printf form with the operation's name for
// the first %s, and cost the test of one flag while the logger is closed.
#pragma once

#include "base/nq_logger.h"

/// What a line is about. A logging library selects by these bits.
enum class NQTraceLevel : unsigned long
{
    Failure = 2,
    Expected = 8,           ///< a condition that occurs in good order, such as a timeout
    CallFlow = 32,          ///< entry and exit of the exported functions
    EventQueue = 0x10000000 ///< an event's queue grew, ended or was found empty
};

/// One line of the module "NQGenTL", by NQTraceLine. Thread-safe. A macro, so that the test of the flag stands where
/// the line does and a closed logger's line costs no call: there is more than one for each call of a frame. An argument
/// does nothing but tell a value, so that nobody sees whether it was evaluated.
#define NQTrace(...) (NQLogger::getInstance().IsOpen() ? NQTraceLine(__VA_ARGS__) : static_cast<void>(0))

void NQTraceLine(NQTraceLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// One line at the level of failures; gives `code` back. Thread-safe.
int NQFailed(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));
