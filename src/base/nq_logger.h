// SPDX-License-Identifier: Apache-2.0
// Trace facade: forwards to a logging library loaded at run time, and does nothing on a machine without it.
#pragma once

#include "base/nq_export.h"

#include <atomic>
#include <cstdarg>

// The C layer owns the library's handle and the addresses of its seven functions. All are zero at load. Thread-safe,
// but for OpenDLL, CloseDLL, NQLInit and NQLClose: the host makes one of them at a time.

extern "C"
{
using NQLInitFunction = bool (*)();
using NQLCloseFunction = void (*)();
using NQLRegisterModuleFunction = bool (*)(const char* module, unsigned int id);
using NQLEnableFileLoggingFunction = bool (*)(bool enable, const char* fileName);
using NQLEnableWindbgFunction = bool (*)(bool enable);
using NQLSetGlobalDebugLevelFunction = bool (*)(unsigned long level);
using NQLTraceAFunction = void (*)(const char* module, unsigned long level, const char* format, va_list arguments);

NQ_EXPORT extern std::atomic<void*> g_hModule;
NQ_EXPORT extern std::atomic<NQLInitFunction> g_pFnInit;
NQ_EXPORT extern std::atomic<NQLCloseFunction> g_pFnClose;
NQ_EXPORT extern std::atomic<NQLRegisterModuleFunction> g_pFnRegisterModule;
NQ_EXPORT extern std::atomic<NQLEnableFileLoggingFunction> g_pFnEnableFileLogging;
NQ_EXPORT extern std::atomic<NQLEnableWindbgFunction> g_pFnEnableWindbg;
NQ_EXPORT extern std::atomic<NQLSetGlobalDebugLevelFunction> g_pFnSetGlobalDebugLevel;
NQ_EXPORT extern std::atomic<NQLTraceAFunction> g_pFnTraceA;

/// Loads `libNQLogLinux.so.1` and looks its functions up. 0, or 0xFFFFFFFF when one of the seven is missing. Without
/// the library it prints one line on standard output.
NQ_EXPORT unsigned int OpenDLL();

/// Gives the library back and returns at once: a thread that is still inside does so when it leaves. The function slots
/// keep their values.
NQ_EXPORT void CloseDLL();

/// Loads the library when it is not loaded and initialises it; the library's result, false when there is none.
NQ_EXPORT bool NQLInit();

/// Closes the library and gives it back. Nothing while the slot of its NQLClose is null.
NQ_EXPORT void NQLClose();

// The following forward to what their slots hold, also after CloseDLL when others keep the library loaded. Where that
// is nothing, or code that is gone, they return false or do nothing.

NQ_EXPORT bool NQLRegisterModule(const char* module, unsigned int id);
NQ_EXPORT bool NQLEnableFileLogging(bool enable, const char* fileName);
NQ_EXPORT bool NQLEnableWindbg(bool enable);
NQ_EXPORT bool NQLSetGlobalDebugLevel(unsigned long level);
NQ_EXPORT void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments);
}

/// The one logger of the process. Closed from the start, and nothing in this library opens it: a host that holds the
/// exported symbols does, on `NQLogger::getInstance()`. While it is closed a trace call costs the test of one flag.
///
///     closed --Open() reaches the library--> open --Close(), or the end of the process--> closed
///
/// No operation takes a lock or waits. Thread-safe, but for Open and Close: the host makes one of them at a time, and
/// the others, TraceA above all, may run meanwhile.
class NQ_EXPORT NQLogger
{
  public:
    NQLogger();
    ~NQLogger();
    NQLogger(const NQLogger&) = delete;
    NQLogger& operator=(const NQLogger&) = delete;

    /// The instance that all copies of this inline function share.
    static NQLogger& getInstance()
    {
        static NQLogger instance;
        return instance;
    }

    /// True while the logger is open.
    bool IsLoaded();

    /// The same for this library's own code, without a call.
    bool IsOpen() const { return m_bOpened.load(std::memory_order_relaxed); }

    /// Loads and initialises the logging library. False when it is already open or there is no such library.
    bool Open();

    /// Closes an open logger and unloads the library.
    void Close();

    // The following forward to the logging library; false while the logger is closed.

    bool Register(const char* module, unsigned int id);
    bool EnableFileLogging(bool enable, const char* fileName);
    bool EnableWindbg(bool enable);
    bool SetGlobalDebugLevel(unsigned long level);

    /// One trace line in printf form. Levels: 2 failures, 8 expected conditions, 32 call flow, 0x10000000 event queues.
    void TraceA(const char* module, unsigned long level, const char* format, ...) __attribute__((format(printf, 4, 5)));

  private:
    std::atomic<bool> m_bOpened;
};

static_assert(sizeof(NQLogger) == sizeof(bool));
