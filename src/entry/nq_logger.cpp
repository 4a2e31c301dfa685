// SPDX-License-Identifier: Apache-2.0
// Trace facade: the C layer over the logging library, and the class over the C layer.
#include "entry/nq_logger.h"

#include <chrono>
#include <cstdio>
#include <dlfcn.h>
#include <thread>
#include <type_traits>

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

// How many threads are inside the logging library. It is not given back while one is.
std::atomic<int> g_callers = 0;

class Caller
{
  public:
    Caller() { ++g_callers; }
    ~Caller() { --g_callers; }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;
};

// Calls the library's function, if there is one to call; else the result is false.
template <class Function, class... Arguments>
auto Forward(const std::atomic<Function>& slot, Arguments... arguments)
{
    using Result = std::invoke_result_t<Function, Arguments...>;
    const Caller caller;
    const Function function = g_libraryGone ? nullptr : slot.load(std::memory_order_relaxed);
    return function == nullptr ? Result() : function(arguments...);
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
    if (library == nullptr || g_libraryGone.exchange(true))
    {
        return;
    }
    // In a forked child a caller may never come back: then the library stays loaded.
    for (int waits = 0; g_callers != 0; ++waits)
    {
        if (waits == 1000)
        {
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    dlclose(library);
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
    g_libraryGone = false;

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
    return Forward(g_pFnInit);
}

void NQLClose()
{
    if (!g_libraryGone && g_pFnClose.load(std::memory_order_relaxed) != nullptr)
    {
        Forward(g_pFnClose);
        CloseDLL();
    }
}

bool NQLRegisterModule(const char* module, unsigned int id)
{
    return Forward(g_pFnRegisterModule, module, id);
}

bool NQLEnableFileLogging(bool enable, const char* fileName)
{
    return Forward(g_pFnEnableFileLogging, enable, fileName);
}

bool NQLEnableWindbg(bool enable)
{
    return Forward(g_pFnEnableWindbg, enable);
}

bool NQLSetGlobalDebugLevel(unsigned long level)
{
    return Forward(g_pFnSetGlobalDebugLevel, level);
}

void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments)
{
    Forward(g_pFnTraceA, module, level, format, arguments);
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
