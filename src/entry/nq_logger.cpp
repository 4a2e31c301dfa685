// SPDX-License-Identifier: Apache-2.0
// Trace facade: the C layer over the logging library, and the class over the C layer.
#include "entry/nq_logger.h"

#include <cstdio>
#include <dlfcn.h>

extern "C"
{
std::atomic<void*> g_hModule = nullptr;
std::atomic<NQLInitFunction> g_pFnInit = nullptr;
std::atomic<NQLCloseFunction> g_pFnClose = nullptr;
std::atomic<NQLRegisterModuleFunction> g_pFnRegisterModule = nullptr;
std::atomic<NQLEnableFileLoggingFunction> g_pFnEnableFileLogging = nullptr;
std::atomic<NQLEnableWindbgFunction> g_pFnEnableWindbg = nullptr;
std::atomic<NQLSetGlobalDebugLevelFunction> g_pFnSetGlobalDebugLevel = nullptr;
std::atomic<NQLTraceAFunction> g_pFnTraceA = nullptr;
}

namespace
{

// True from the moment the library is given back until the next load: the slots, and after a failed load the handle
// too, keep their values, but nothing may be reached through them any more.
std::atomic<bool> g_libraryGone = false;

template <class Function>
Function Callable(const std::atomic<Function>& slot)
{
    return g_libraryGone.load(std::memory_order_relaxed) ? nullptr : slot.load(std::memory_order_relaxed);
}

// Stores the address of `symbol`. A null handle searches the process, where this library's own function of that name is
// not an answer: it would call itself.
template <class Function>
bool Resolve(const char* symbol, Function own, std::atomic<Function>& slot)
{
    auto* found = reinterpret_cast<Function>(dlsym(g_hModule.load(std::memory_order_relaxed), symbol));
    if (found == own)
    {
        found = nullptr;
    }
    slot.store(found, std::memory_order_relaxed);
    return found != nullptr;
}

void GiveBackLibrary()
{
    void* const library = g_hModule.load(std::memory_order_relaxed);
    if (library != nullptr && !g_libraryGone.exchange(true, std::memory_order_relaxed))
    {
        dlclose(library);
    }
}

} // namespace

extern "C"
{

unsigned int OpenDLL()
{
    g_hModule.store(dlopen("libNQLogLinux.so.1", RTLD_LAZY), std::memory_order_relaxed);
    if (g_hModule.load(std::memory_order_relaxed) == nullptr)
    {
        // Deliberate: the one console line of the library, with this wording.
        std::puts("return GetLastError();");
    }
    g_libraryGone.store(false, std::memory_order_relaxed);

    bool complete = Resolve("NQLInit", &NQLInit, g_pFnInit);
    complete = Resolve("NQLClose", &NQLClose, g_pFnClose) && complete;
    complete = Resolve("NQLRegisterModule", &NQLRegisterModule, g_pFnRegisterModule) && complete;
    complete = Resolve("NQLEnableFileLogging", &NQLEnableFileLogging, g_pFnEnableFileLogging) && complete;
    complete = Resolve("NQLEnableWindbg", &NQLEnableWindbg, g_pFnEnableWindbg) && complete;
    complete = Resolve("NQLSetGlobalDebugLevel", &NQLSetGlobalDebugLevel, g_pFnSetGlobalDebugLevel) && complete;
    complete = Resolve("NQLTraceA", &NQLTraceA, g_pFnTraceA) && complete;
    if (complete)
    {
        return 0;
    }
    // Deliberate: handle and slots keep their values after a failed load.
    GiveBackLibrary();
    return 0xFFFFFFFF;
}

void CloseDLL()
{
    // Deliberate: the slots keep their values.
    GiveBackLibrary();
    g_hModule.store(nullptr, std::memory_order_relaxed);
}

bool NQLInit()
{
    if (g_hModule.load(std::memory_order_relaxed) == nullptr && OpenDLL() != 0)
    {
        return false;
    }
    const NQLInitFunction init = Callable(g_pFnInit);
    return init != nullptr && init();
}

void NQLClose()
{
    if (const NQLCloseFunction close = Callable(g_pFnClose))
    {
        close();
        CloseDLL();
    }
}

bool NQLRegisterModule(const char* module, unsigned int id)
{
    const NQLRegisterModuleFunction forward = Callable(g_pFnRegisterModule);
    return forward != nullptr && forward(module, id);
}

bool NQLEnableFileLogging(bool enable, const char* fileName)
{
    const NQLEnableFileLoggingFunction forward = Callable(g_pFnEnableFileLogging);
    return forward != nullptr && forward(enable, fileName);
}

bool NQLEnableWindbg(bool enable)
{
    const NQLEnableWindbgFunction forward = Callable(g_pFnEnableWindbg);
    return forward != nullptr && forward(enable);
}

bool NQLSetGlobalDebugLevel(unsigned long level)
{
    const NQLSetGlobalDebugLevelFunction forward = Callable(g_pFnSetGlobalDebugLevel);
    return forward != nullptr && forward(level);
}

void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments)
{
    if (const NQLTraceAFunction forward = Callable(g_pFnTraceA))
    {
        forward(module, level, format, arguments);
    }
}
}

NQLogger::NQLogger() : m_bOpened(false) {}

NQLogger::~NQLogger()
{
    Close();
}

bool NQLogger::IsLoaded()
{
    return m_bOpened.load(std::memory_order_relaxed);
}

bool NQLogger::Open()
{
    if (IsLoaded() || !NQLInit())
    {
        return false;
    }
    m_bOpened.store(true, std::memory_order_relaxed);
    return true;
}

void NQLogger::Close()
{
    if (IsLoaded())
    {
        NQLClose();
        m_bOpened.store(false, std::memory_order_relaxed);
    }
}

bool NQLogger::Register(const char* module, unsigned int id)
{
    return IsLoaded() && NQLRegisterModule(module, id);
}

bool NQLogger::EnableFileLogging(bool enable, const char* fileName)
{
    return IsLoaded() && NQLEnableFileLogging(enable, fileName);
}

bool NQLogger::EnableWindbg(bool enable)
{
    return IsLoaded() && NQLEnableWindbg(enable);
}

bool NQLogger::SetGlobalDebugLevel(unsigned long level)
{
    return IsLoaded() && NQLSetGlobalDebugLevel(level);
}

void NQLogger::TraceA(const char* module, unsigned long level, const char* format, ...)
{
    if (IsLoaded())
    {
        va_list arguments;
        va_start(arguments, format);
        NQLTraceA(module, level, format, arguments);
        va_end(arguments);
    }
}
