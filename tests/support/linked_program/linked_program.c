// SPDX-License-Identifier: Apache-2.0
// An ordinary program: linked with the library, compiled without position-independent code, so that the exported
// variables lie in the program. Its argument is the path of a logging library, if it is to have one; it prints what it
// sees, a line each. With the argument "answers" it prints whose answers the library gives it.
#include <dlfcn.h>
#include <stdbool.h>
#include <stdio.h>
#include <string.h>

extern int g_mcMode;
extern void* g_hModule;
extern void* g_pFnInit;
extern void* g_pFnClose;
extern void* g_pFnRegisterModule;
extern void* g_pFnEnableFileLogging;
extern void* g_pFnEnableWindbg;
extern void* g_pFnSetGlobalDebugLevel;
extern void* g_pFnTraceA;

int openCamera(unsigned long* handle, unsigned int ip, unsigned int localIP, unsigned int unused, int mode);
int closeCamera(unsigned long handle);
int Camera_setGigECameraRegister(unsigned long handle, unsigned int address, unsigned int value, unsigned int key);
unsigned int OpenDLL(void);
bool NQLSetGlobalDebugLevel(unsigned long level);
bool NQLInit(void);
void NQLClose(void);
int GCInitLib(void);
int GCCloseLib(void);
int GCGetInfo(int command, int* type, void* buffer, size_t* size);

enum
{
    LOOPBACK = 0x7F000001,
    KEY = 0x4E514745
};

static const char* Same(const void* slot, void* library, const char* symbol)
{
    return slot != NULL && slot == dlsym(library, symbol) ? "the library's" : slot == NULL ? "null" : "another";
}

static void PrintSlots(void* library)
{
    printf("g_hModule %s\n", g_hModule == library ? "the library's" : g_hModule == NULL ? "null" : "another");
    printf("g_pFnInit %s\n", Same(g_pFnInit, library, "NQLInit"));
    printf("g_pFnClose %s\n", Same(g_pFnClose, library, "NQLClose"));
    printf("g_pFnRegisterModule %s\n", Same(g_pFnRegisterModule, library, "NQLRegisterModule"));
    printf("g_pFnEnableFileLogging %s\n", Same(g_pFnEnableFileLogging, library, "NQLEnableFileLogging"));
    printf("g_pFnEnableWindbg %s\n", Same(g_pFnEnableWindbg, library, "NQLEnableWindbg"));
    printf("g_pFnSetGlobalDebugLevel %s\n", Same(g_pFnSetGlobalDebugLevel, library, "NQLSetGlobalDebugLevel"));
    printf("g_pFnTraceA %s\n", Same(g_pFnTraceA, library, "NQLTraceA"));
}

/// A program that takes the address of a function answers for it when the process is searched for that name.
static int RunWithoutLibrary(void)
{
    bool (*volatile setLevel)(unsigned long) = NQLSetGlobalDebugLevel;
    printf("OpenDLL %x\n", OpenDLL());
    printf("NQLSetGlobalDebugLevel %d\n", setLevel(1));
    return 0;
}

/// An info call that clears what it is given shows the library's own answers.
static int PrintAnswers(void)
{
    char text[64];
    memset(text, 'x', sizeof text);
    int type = 0;
    size_t size = sizeof text;
    if (GCInitLib() != 0 || GCGetInfo(0, &type, text, &size) != 0)
    {
        return 1;
    }
    puts(text[sizeof text - 1] == 'x' ? "standard" : "stated");
    return GCCloseLib();
}

int main(int count, char** arguments)
{
    if (count == 2 && strcmp(arguments[1], "answers") == 0)
    {
        return PrintAnswers();
    }
    if (count == 1)
    {
        return RunWithoutLibrary();
    }
    void* const library = count == 2 ? dlopen(arguments[1], RTLD_NOW | RTLD_LOCAL) : NULL;
    unsigned long camera = 0;
    if (library == NULL || openCamera(&camera, LOOPBACK, LOOPBACK, 3000, 0) != 0)
    {
        return 1;
    }
    for (g_mcMode = 1; g_mcMode < 4; ++g_mcMode)
    {
        printf("mode %d: %d\n", g_mcMode, Camera_setGigECameraRegister(camera, 0x0B00, (unsigned int)g_mcMode, KEY));
    }
    closeCamera(camera);
    printf("NQLInit %d\n", NQLInit());
    PrintSlots(library);
    NQLClose();
    printf("g_hModule %s\n", g_hModule == NULL ? "null" : "set");
    printf("GCInitLib %d\n", GCInitLib());
    printf("GCCloseLib %d\n", GCCloseLib());
    return 0;
}
