// SPDX-License-Identifier: Apache-2.0
// A logging library for tests: formats what it is given and keeps it as lines that a test can read. In C, because a C++
// library with unique symbols would never be unloaded.
#include <pthread.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>

enum
{
    LINES = 4096,
    WIDTH = 512
};

static pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;
static char g_lines[LINES][WIDTH];
static size_t g_count;
static bool g_initResult = true;
static pthread_cond_t g_changed = PTHREAD_COND_INITIALIZER;
static bool g_holds;
static unsigned int g_held;

static void AddArguments(const char* prefix, const char* format, va_list arguments)
{
    pthread_mutex_lock(&g_mutex);
    if (g_count < LINES)
    {
        const int used = snprintf(g_lines[g_count], WIDTH, "%s", prefix);
        vsnprintf(g_lines[g_count] + used, (size_t)(WIDTH - used), format, arguments);
        ++g_count;
    }
    pthread_mutex_unlock(&g_mutex);
}

static void Add(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    AddArguments("call ", format, arguments);
    va_end(arguments);
}

static const char* Bool(bool value)
{
    return value ? "true" : "false";
}

/// What NQLInit answers from now on.
void FakeLoggerSetInitResult(bool result)
{
    g_initResult = result;
}

/// Copies line `index` to `text`; false past the last.
bool FakeLoggerLine(size_t index, char* text, size_t space)
{
    pthread_mutex_lock(&g_mutex);
    const bool found = index < g_count;
    if (found)
    {
        snprintf(text, space, "%s", g_lines[index]);
    }
    pthread_mutex_unlock(&g_mutex);
    return found;
}

/// From now on, until told otherwise, whoever traces stays inside.
void FakeLoggerHoldTraces(bool hold)
{
    pthread_mutex_lock(&g_mutex);
    g_holds = hold;
    pthread_cond_broadcast(&g_changed);
    pthread_mutex_unlock(&g_mutex);
}

/// Returns once that many threads are held inside.
void FakeLoggerAwaitHeld(unsigned int count)
{
    pthread_mutex_lock(&g_mutex);
    while (g_held < count)
    {
        pthread_cond_wait(&g_changed, &g_mutex);
    }
    pthread_mutex_unlock(&g_mutex);
}

void FakeLoggerClear(void)
{
    pthread_mutex_lock(&g_mutex);
    g_count = 0;
    pthread_mutex_unlock(&g_mutex);
}

#ifndef NQ_LACKS_NQLInit
bool NQLInit(void)
{
    Add("NQLInit");
    return g_initResult;
}
#endif

#ifndef NQ_LACKS_NQLClose
void NQLClose(void)
{
    Add("NQLClose");
}
#endif

#ifndef NQ_LACKS_NQLRegisterModule
bool NQLRegisterModule(const char* module, unsigned int id)
{
    Add("NQLRegisterModule %s %u", module, id);
    return true;
}
#endif

#ifndef NQ_LACKS_NQLEnableFileLogging
bool NQLEnableFileLogging(bool enable, const char* fileName)
{
    Add("NQLEnableFileLogging %s %s", Bool(enable), fileName);
    return true;
}
#endif

#ifndef NQ_LACKS_NQLEnableWindbg
bool NQLEnableWindbg(bool enable)
{
    Add("NQLEnableWindbg %s", Bool(enable));
    return true;
}
#endif

#ifndef NQ_LACKS_NQLSetGlobalDebugLevel
bool NQLSetGlobalDebugLevel(unsigned long level)
{
    Add("NQLSetGlobalDebugLevel %lu", level);
    return true;
}
#endif

#ifndef NQ_LACKS_NQLTraceA
void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments)
{
    char prefix[64];
    pthread_mutex_lock(&g_mutex);
    ++g_held;
    pthread_cond_broadcast(&g_changed);
    while (g_holds)
    {
        pthread_cond_wait(&g_changed, &g_mutex);
    }
    --g_held;
    pthread_mutex_unlock(&g_mutex);
    snprintf(prefix, sizeof(prefix), "%s %lu ", module, level);
    AddArguments(prefix, format, arguments);
}
#endif
