// SPDX-License-Identifier: Apache-2.0
// The public headers as C11: values, records and the type of each function.
#include "gentl_facts.h"

_Static_assert(_Generic((bool8_t)0, unsigned char: 1, default: 0), "bool8_t is unsigned in C");

#define NQ_CHECK_FUNCTION(name) _Static_assert(_Generic(&name, P##name: 1, default: 0), #name);
GENTL_FUNCTIONS(NQ_CHECK_FUNCTION)
