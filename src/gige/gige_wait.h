// SPDX-License-Identifier: Apache-2.0
// Waiting until a socket is readable, with the time accounting of select() and no limit on the descriptor's number. All
// of it is reentrant.
#pragma once

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/time.h>
#include <sys/types.h>

namespace GigETL
{

/// A waiting time of `milliseconds`; a negative number gives a time that no wait accepts.
timeval timevalFromMs(long milliseconds);

/// Now, on the clock that the waits are counted by. Nobody sets it.
timespec waitClock();

/// What is left of `wait`, begun at `start`: whole microseconds, never below zero.
timeval timeLeft(const timeval& wait, const timespec& start);

/// Waits until `descriptor` is readable or the time is over, and counts `timeout` down by the time spent, to zero when
/// it is over. A negative descriptor is never readable: the wait lasts its full time. A null `timeout` has no end. A
/// signal handler that runs meanwhile does not end the wait. 1 when readable, 0 when the time is over, -1 with errno
/// set on a failure, an invalid time among them.
int waitReadable(int descriptor, timeval* timeout);

/// The same for several entries, of which those with a negative descriptor are left alone; `revents` says which are
/// readable.
int waitReadable(pollfd* entries, nfds_t count, timeval* timeout);

/// Makes a transfer again as long as a signal handler breaks it off before anything was moved.
template <typename Transfer>
ssize_t uninterrupted(Transfer transfer)
{
    ssize_t result = 0;
    do
    {
        result = transfer();
    } while (result == -1 && errno == EINTR);
    return result;
}

} // namespace GigETL
