// SPDX-License-Identifier: Apache-2.0
// A logging library for tests: formats what it is given and keeps it as lines that a test can read.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

namespace
{

std::mutex g_mutex;
std::vector<std::string> g_lines;
bool g_initResult = true;

void Add(const std::string& line)
{
    const std::lock_guard lock(g_mutex);
    g_lines.push_back(line);
}

std::string Bool(bool value)
{
    return value ? "true" : "false";
}

} // namespace

extern "C"
{

/// What NQLInit answers from now on.
void FakeLoggerSetInitResult(bool result)
{
    g_initResult = result;
}

/// Copies line `index` to `text`; false past the last.
bool FakeLoggerLine(std::size_t index, char* text, std::size_t space)
{
    const std::lock_guard lock(g_mutex);
    if (index >= g_lines.size())
    {
        return false;
    }
    std::snprintf(text, space, "%s", g_lines[index].c_str());
    return true;
}

void FakeLoggerClear()
{
    const std::lock_guard lock(g_mutex);
    g_lines.clear();
}

bool NQLInit()
{
    Add("call NQLInit");
    return g_initResult;
}

void NQLClose()
{
    Add("call NQLClose");
}

bool NQLRegisterModule(const char* module, unsigned int id)
{
    Add("call NQLRegisterModule " + std::string(module) + " " + std::to_string(id));
    return true;
}

bool NQLEnableFileLogging(bool enable, const char* fileName)
{
    Add("call NQLEnableFileLogging " + Bool(enable) + " " + fileName);
    return true;
}

bool NQLEnableWindbg(bool enable)
{
    Add("call NQLEnableWindbg " + Bool(enable));
    return true;
}

#ifndef NQ_FAKE_LOGGER_INCOMPLETE
bool NQLSetGlobalDebugLevel(unsigned long level)
{
    Add("call NQLSetGlobalDebugLevel " + std::to_string(level));
    return true;
}
#endif

void NQLTraceA(const char* module, unsigned long level, const char* format, va_list arguments)
{
    char text[2048];
    std::vsnprintf(text, sizeof(text), format, arguments);
    Add(std::string(module) + " " + std::to_string(level) + " " + text);
}
}
