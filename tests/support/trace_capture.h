// SPDX-License-Identifier: Apache-2.0
// The trace lines of the library under test, for unit tests that link it.
#pragma once

#include "base/nq_logger.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace nq::test
{

/// Stands in for the logging library as long as it lives. One at a time.
class TraceCapture
{
  public:
    TraceCapture()
    {
        Lines().clear();
        static int anything = 0;
        g_hModule = &anything;
        g_pFnInit = [] { return true; };
        g_pFnTraceA = &Take;
        NQLogger::getInstance().Open();
    }
    ~TraceCapture()
    {
        g_pFnClose = nullptr;
        NQLogger::getInstance().Close();
        g_hModule = nullptr;
        g_pFnTraceA = nullptr;
    }
    TraceCapture(const TraceCapture&) = delete;
    TraceCapture& operator=(const TraceCapture&) = delete;

    /// The lines of one level in module "NQGenTL", oldest first.
    static std::vector<std::string> At(unsigned long level)
    {
        const std::lock_guard lock(Mutex());
        std::vector<std::string> texts;
        for (const auto& line : Lines())
        {
            if (line.level == level && line.module == "NQGenTL")
            {
                texts.push_back(line.text);
            }
        }
        return texts;
    }

    /// Whether that line was traced at that level.
    static bool Has(unsigned long level, const std::string& text)
    {
        const std::vector<std::string> lines = At(level);
        return std::find(lines.begin(), lines.end(), text) != lines.end();
    }

  private:
    struct Line
    {
        std::string module;
        unsigned long level;
        std::string text;
    };

    static std::mutex& Mutex()
    {
        static std::mutex mutex;
        return mutex;
    }

    static std::vector<Line>& Lines()
    {
        static std::vector<Line> lines;
        return lines;
    }

    __attribute__((format(printf, 3, 0))) static void Take(const char* module, unsigned long level, const char* format,
                                                           va_list arguments)
    {
        char text[1024];
        std::vsnprintf(text, sizeof text, format, arguments);
        const std::lock_guard lock(Mutex());
        Lines().push_back({module, level, text});
    }
};

} // namespace nq::test
