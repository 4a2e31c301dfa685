// SPDX-License-Identifier: Apache-2.0
// Loads the producer that is its argument; prints its id, and the number of an event of its own.
#include "GenTL/GenTL.h"
#include "nq_gev_gentl.h"
#include <dlfcn.h>
#include <stdio.h>

int main(int count, char** arguments)
{
    void* const library = count == 2 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    if (library == NULL)
    {
        puts(count == 2 ? dlerror() : "no argument");
        return 1;
    }
    // POSIX asks for this detour around a conversion that ISO C does not know.
    PGCInitLib initLib = NULL;
    PGCGetInfo getInfo = NULL;
    PGCCloseLib closeLib = NULL;
    *(void**)&initLib = dlsym(library, "GCInitLib");
    *(void**)&getInfo = dlsym(library, "GCGetInfo");
    *(void**)&closeLib = dlsym(library, "GCCloseLib");
    char text[64] = "";
    size_t size = sizeof text;
    INFO_DATATYPE type = 0;
    if (initLib() != GC_ERR_SUCCESS || getInfo(TL_INFO_ID, &type, text, &size) != GC_ERR_SUCCESS ||
        closeLib() != GC_ERR_SUCCESS)
    {
        return 1;
    }
    printf("loaded %s, connection event %d\n", text, NQ_EVENT_DEVICE_CONNECTION);
    return 0;
}
