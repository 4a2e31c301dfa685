// SPDX-License-Identifier: Apache-2.0
// Trace facade: the C layer over the logging library, and the class over the C layer.
#include "base/nq_logger.h"

#include "base/nq_logger_hold.h"

#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <link.h>
#include <sys/mman.h>
#include <type_traits>
#include <unistd.h>

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

constexpr const char* kLibraryName = "libNQLogLinux.so.1";

NQLoggerHold g_hold;

// Whether OpenDLL made g_hold hold the library. Its reference is not the one of g_hModule: another copy of this
// library, loaded globally, has the same g_hModule and may close that one.
std::atomic<bool> g_owns = false;

// The handle that a failed load gave back at once, though g_hModule keeps it.
std::atomic<void*> g_refused = nullptr;

// One function of the logging library.
template <class Function>
struct Target
{
    const char* const symbol;
    const Function own; // what this library exports under the name
    std::atomic<Function>& slot;
    std::atomic<Function> found = nullptr; // what OpenDLL found in the logging library
};

constinit Target<NQLInitFunction> g_init{"NQLInit", &NQLInit, g_pFnInit};
constinit Target<NQLCloseFunction> g_close{"NQLClose", &NQLClose, g_pFnClose};
constinit Target<NQLRegisterModuleFunction> g_registerModule{"NQLRegisterModule", &NQLRegisterModule,
                                                             g_pFnRegisterModule};
constinit Target<NQLEnableFileLoggingFunction> g_enableFileLogging{"NQLEnableFileLogging", &NQLEnableFileLogging,
                                                                   g_pFnEnableFileLogging};
constinit Target<NQLEnableWindbgFunction> g_enableWindbg{"NQLEnableWindbg", &NQLEnableWindbg, g_pFnEnableWindbg};
constinit Target<NQLSetGlobalDebugLevelFunction> g_setGlobalDebugLevel{
    "NQLSetGlobalDebugLevel", &NQLSetGlobalDebugLevel, g_pFnSetGlobalDebugLevel};
constinit Target<NQLTraceAFunction> g_traceA{"NQLTraceA", &NQLTraceA, g_pFnTraceA};

// Whether `code` only leads to a function of another object: what a program has whose code takes the function's
// address.
bool IsDoor(const void* code)
{
    Dl_info object{};
    const ElfW(Sym)* symbol = nullptr;
    return dladdr1(code, &object, const_cast<void**>(reinterpret_cast<const void**>(&symbol)), RTLD_DL_SYMENT) != 0 &&
           symbol != nullptr && symbol->st_shndx == SHN_UNDEF;
}

// Stores the address of the target. A null handle searches the process, where this library's own function of that name
// is not an answer, nor a door to it: it would call itself.
template <class Function>
bool Resolve(Target<Function>& target, void* library)
{
    auto* found = reinterpret_cast<Function>(dlsym(library, target.symbol));
    if (found == target.own || IsDoor(reinterpret_cast<void*>(found)))
    {
        found = nullptr;
    }
    target.slot = found;
    target.found = library != nullptr ? found : nullptr; // In this order: see Use.
    return found != nullptr;
}

bool IsMapped(const void* code)
{
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    unsigned char resident = 0;
    return mincore(reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(code) & ~(page - 1)), 1, &resident) == 0;
}

// A target's function, whose code stays in place while this lives; null when there is none or its code is gone.
template <class Function>
class Use
{
  public:
    explicit Use(const Target<Function>& target) : m_entered(g_hold.Enter()), m_function(target.slot)
    {
        // Not, or no longer, this library's to keep: others may have it loaded, and a host may have stored a function
        // of its own.
        while (!m_entered && m_function != nullptr && !IsToBeCalled(target))
        {
            // What was found is gone. What a load has put in its place meanwhile is another matter.
            const Function latest = target.slot;
            m_function = latest != m_function ? latest : nullptr;
        }
    }
    ~Use()
    {
        if (m_entered)
        {
            g_hold.Leave();
        }
        if (m_borrowed != nullptr)
        {
            dlclose(m_borrowed);
        }
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;

    Function Get() const { return m_function; }

  private:
    bool IsToBeCalled(const Target<Function>& target)
    {
        void* const code = reinterpret_cast<void*>(m_function);
        if (m_borrowed == nullptr)
        {
            m_borrowed = dlopen(kLibraryName, RTLD_LAZY | RTLD_NOLOAD);
        }
        if (m_borrowed != nullptr && dlsym(m_borrowed, target.symbol) == code)
        {
            return true;
        }
        // A load stores what it found in the slot first: what stands there still, and was not found, is a host's.
        const bool wasFound = m_function == target.found;
        return !wasFound && m_function == target.slot && IsMapped(code);
    }

    const bool m_entered;
    Function m_function;
    void* m_borrowed = nullptr;
};

// Calls the target's function, if there is one to call; else the result is false.
template <class Function, class... Arguments>
auto Forward(const Target<Function>& target, Arguments... arguments)
{
    using Result = std::invoke_result_t<Function, Arguments...>;
    const Use<Function> use(target);
    return use.Get() == nullptr ? Result() : use.Get()(arguments...);
}

void HoldLibrary()
{
    void* const library = dlopen(kLibraryName, RTLD_LAZY);
    if (library == nullptr)
    {
        return;
    }
    if (!g_hold.Hold(library))
    {
        dlclose(library);
    }
    else if (g_owns.exchange(true))
    {
        g_hold.Leave(); // Another thread was first.
    }
}

} // namespace

extern "C"
{

unsigned int OpenDLL()
{
    void* const library = dlopen(kLibraryName, RTLD_LAZY);
    if (library == nullptr)
    {
        // Deliberate(ConsoleLine): the one console line of the library. Where there is no logging library nothing else
        // could tell; its wording is kept like that of every log line.
        std::puts("return GetLastError();");
    }
    bool complete = Resolve(g_init, library);
    complete = Resolve(g_close, library) && complete;
    complete = Resolve(g_registerModule, library) && complete;
    complete = Resolve(g_enableFileLogging, library) && complete;
    complete = Resolve(g_enableWindbg, library) && complete;
    complete = Resolve(g_setGlobalDebugLevel, library) && complete;
    complete = Resolve(g_traceA, library) && complete;

    // Deliberate(FailedLoadKeepsTheSlots): handle and slots keep their values after a failed load: they are exported,
    // and a host sees from them which function was missing.
    g_refused = complete ? nullptr : library;
    if (library != nullptr && !complete)
    {
        dlclose(library);
    }
    else if (library != nullptr && !g_owns)
    {
        HoldLibrary();
    }
    g_hModule = library;
    return complete ? 0 : 0xFFFFFFFF;
}

void CloseDLL()
{
    // Deliberate(CloseKeepsTheSlots): the slots keep their values, as others in the process may keep the library loaded
    // and go on tracing through them.
    void* const library = g_hModule.exchange(nullptr);
    if (library != nullptr && library != g_refused)
    {
        dlclose(library);
    }
    if (g_owns.exchange(false))
    {
        g_hold.Leave();
    }
}

bool NQLInit()
{
    if (g_hModule == nullptr && OpenDLL() != 0)
    {
        return false;
    }
    return Forward(g_init);
}

void NQLClose()
{
    if (g_pFnClose != nullptr)
    {
        Forward(g_close);
        CloseDLL();
    }
}

bool NQLRegisterModule(const char* module, unsigned int id)
{
    return Forward(g_registerModule, module, id);
}

bool NQLEnableFileLogging(bool enable, const char* fileName)
{
    return Forward(g_enableFileLogging, enable, fileName);
}

bool NQLEnableWindbg(bool enable)
{
    return Forward(g_enableWindbg, enable);
}

bool NQLSetGlobalDebugLevel(unsigned long level)
{
    return Forward(g_setGlobalDebugLevel, level);
}

void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments)
{
    Forward(g_traceA, module, level, format, arguments);
}
}

NQLogger::NQLogger() : m_bOpened(false) {}

NQLogger::~NQLogger()
{
    Close();
}

bool NQLogger::IsLoaded()
{
    return IsOpen();
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
