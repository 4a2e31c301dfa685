// SPDX-License-Identifier: Apache-2.0
// Linked into a library that is compiled with -fsanitize-coverage=trace-pc: marks each block that runs, in a file of
// the folder $NQ_LINES, one byte per address. What ran stays marked however the process ends.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

enum
{
    MapSize = 1 << 24
};

extern const char __ehdr_start[] __attribute__((visibility("hidden")));
static char* g_Map;

__attribute__((constructor(101))) static void OpenMap(void)
{
    const char* folder = getenv("NQ_LINES");
    Dl_info library;
    char path[PATH_MAX];
    if (folder == NULL || dladdr(__ehdr_start, &library) == 0)
    {
        return;
    }
    const char* slash = strrchr(library.dli_fname, '/');
    snprintf(path, sizeof path, "%s/%s", folder, slash == NULL ? library.dli_fname : slash + 1);
    const int file = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0)
    {
        return;
    }
    if (ftruncate(file, MapSize) == 0)
    {
        void* map = mmap(NULL, MapSize, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
        g_Map = map == MAP_FAILED ? NULL : map;
    }
    close(file);
}

__attribute__((visibility("hidden"))) void __sanitizer_cov_trace_pc(void)
{
    const long offset = (const char*)__builtin_return_address(0) - __ehdr_start;
    if (g_Map != NULL && offset < MapSize)
    {
        g_Map[offset] = 1;
    }
}
