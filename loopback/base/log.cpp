// SPDX-License-Identifier: Apache-2.0
// The log file of the loopback; nothing is ever written anywhere else.
#include "base/log.h"

#include "base/settings.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace nq::loopback
{

namespace
{

int LogFile()
{
    static const int kFile = Settings::Get().logFile.empty() ? -1
                                                             : open(Settings::Get().logFile.c_str(),
                                                                    O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    return kFile;
}

} // namespace

void Log(const char* format, ...)
{
    const int file = LogFile();
    if (file < 0)
    {
        return;
    }
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    char line[512];
    const int head = std::snprintf(line, sizeof line, "%lld.%06ld %d ", static_cast<long long>(now.tv_sec),
                                   now.tv_nsec / 1000, static_cast<int>(getpid()));
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not follow va_start here.
    const int body = std::vsnprintf(line + head, sizeof line - static_cast<size_t>(head) - 1, format, arguments);
    va_end(arguments);
    const size_t length = std::min(static_cast<size_t>(head + std::max(body, 0)), sizeof line - 2);
    line[length] = '\n';
    // One write per line keeps the lines of several processes apart.
    [[maybe_unused]] const ssize_t written = write(file, line, length + 1);
}

} // namespace nq::loopback
