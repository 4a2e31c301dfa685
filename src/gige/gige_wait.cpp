// SPDX-License-Identifier: Apache-2.0
// Waiting for a readable socket by ppoll(), with the time left written back.
#include "gige/gige_wait.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>

namespace GigETL
{
namespace
{

constexpr long kMicrosecondsPerSecond = 1000000;
constexpr long kNanosecondsPerMicrosecond = 1000;
constexpr long kNanosecondsPerSecond = 1000000000;

/// `wait` less the time since `start`, never below zero.
timespec remaining(const timespec& wait, const timespec& start)
{
    const timespec end = waitClock();
    timespec left{wait.tv_sec - (end.tv_sec - start.tv_sec), wait.tv_nsec - (end.tv_nsec - start.tv_nsec)};
    while (left.tv_nsec < 0)
    {
        left.tv_nsec += kNanosecondsPerSecond;
        --left.tv_sec;
    }
    if (left.tv_nsec >= kNanosecondsPerSecond)
    {
        left.tv_nsec -= kNanosecondsPerSecond;
        ++left.tv_sec;
    }
    return left.tv_sec < 0 ? timespec{0, 0} : left;
}

timeval wholeMicroseconds(const timespec& time)
{
    return {time.tv_sec, time.tv_nsec / kNanosecondsPerMicrosecond};
}

/// The time as ppoll() takes it; false when it is no waiting time. Microseconds above a second are carried over.
bool toTimespec(const timeval& time, timespec& result)
{
    if (time.tv_sec < 0 || time.tv_usec < 0)
    {
        return false;
    }
    const long carried = time.tv_usec / kMicrosecondsPerSecond;
    const bool endless = time.tv_sec > std::numeric_limits<long>::max() - carried;
    result.tv_sec = endless ? std::numeric_limits<long>::max() : time.tv_sec + carried;
    result.tv_nsec = time.tv_usec % kMicrosecondsPerSecond * kNanosecondsPerMicrosecond;
    return true;
}

} // namespace

timeval timevalFromMs(long milliseconds)
{
    return {milliseconds / 1000, milliseconds % 1000 * 1000};
}

timespec waitClock()
{
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time;
}

timeval timeLeft(const timeval& wait, const timespec& start)
{
    timespec whole{};
    return toTimespec(wait, whole) ? wholeMicroseconds(remaining(whole, start)) : timeval{0, 0};
}

int waitReadable(int descriptor, timeval* timeout)
{
    pollfd entry{std::max(descriptor, -1), POLLIN, 0};
    return waitReadable(&entry, 1, timeout);
}

int waitReadable(pollfd* entries, nfds_t count, timeval* timeout)
{
    timespec wait{};
    if (timeout != nullptr && !toTimespec(*timeout, wait))
    {
        errno = EINVAL;
        return -1;
    }
    const timespec start = waitClock();
    timespec left = wait;
    int result = 0;
    while ((result = ppoll(entries, count, timeout != nullptr ? &left : nullptr, nullptr)) == -1 && errno == EINTR)
    {
        left = remaining(wait, start);
    }
    if (timeout != nullptr)
    {
        const int error = errno;
        *timeout = result == 0 ? timeval{0, 0} : wholeMicroseconds(remaining(wait, start));
        errno = error;
    }
    if (result > 0 &&
        std::any_of(entries, entries + count, [](const pollfd& entry) { return (entry.revents & POLLNVAL) != 0; }))
    {
        errno = EBADF;
        return -1;
    }
    return result;
}

} // namespace GigETL
