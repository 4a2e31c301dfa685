// SPDX-License-Identifier: Apache-2.0
// Load hook kept for its exported name.
#pragma once

#include "base/nq_export.h"

extern "C"
{
/// Does nothing and returns 1; nothing calls it. Thread-safe.
NQ_EXPORT int DllMain(void* module, unsigned long reason, void* reserved);
}
