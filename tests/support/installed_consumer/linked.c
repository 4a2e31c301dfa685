// SPDX-License-Identifier: Apache-2.0
// Linked with the producer; prints the producer's id.
#include "GenTL/GenTL.h"
#include <stdio.h>

int main(void)
{
    char text[64] = "";
    size_t size = sizeof text;
    INFO_DATATYPE type = 0;
    if (GCInitLib() != GC_ERR_SUCCESS || GCGetInfo(TL_INFO_ID, &type, text, &size) != GC_ERR_SUCCESS ||
        GCCloseLib() != GC_ERR_SUCCESS)
    {
        return 1;
    }
    printf("linked with %s\n", text);
    return 0;
}
