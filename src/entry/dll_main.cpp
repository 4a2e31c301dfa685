// SPDX-License-Identifier: Apache-2.0
// Load hook kept for its exported name: loading and unloading rest on the static g_Controller.
#include "entry/dll_main.h"

int DllMain(void*, unsigned long, void*)
{
    return 1;
}
