// SPDX-License-Identifier: Apache-2.0
// What the linker puts in place of the library's system calls in a fuzz program.
#include "fuzz/fake_network.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <net/if.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

using nq::fuzz::Bytes;
using nq::fuzz::FakeNetwork;

extern "C"
{
int __real_close(int descriptor);
int __real_ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask);
int __real_clock_gettime(clockid_t clock, timespec* time);
int __real_nanosleep(const timespec* wanted, timespec* left);
int __real_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* deadline);
int __real_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex);
int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* deadline);
ssize_t __real_recvfrom(int socket, void* data, size_t size, int flags, sockaddr* from, socklen_t* length);
ssize_t __real_sendto(int socket, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length);
}

namespace
{

FakeNetwork& Network()
{
    return FakeNetwork::Instance();
}

sockaddr_in Internet(const sockaddr* address)
{
    sockaddr_in internet{};
    std::memcpy(&internet, address, sizeof internet);
    return internet;
}

void PutAddress(sockaddr& field, std::uint32_t address)
{
    sockaddr_in internet{};
    internet.sin_family = AF_INET;
    internet.sin_addr.s_addr = htonl(address);
    std::memcpy(&field, &internet, sizeof internet);
}

/// When a wait ends, whatever was asked for: at once on the main thread, else in a millisecond, which also keeps a
/// period of zero from taking a whole core.
timespec EndOfWait(clockid_t clock)
{
    timespec end{};
    if (FakeNetwork::OnMainThread())
    {
        return end;
    }
    __real_clock_gettime(clock, &end);
    end.tv_nsec += 1000000;
    if (end.tv_nsec >= 1000000000)
    {
        end.tv_nsec -= 1000000000;
        ++end.tv_sec;
    }
    return end;
}

int AdapterRequest(unsigned long what, void* argument)
{
    if (what == SIOCGIFCONF)
    {
        auto* const table = static_cast<ifconf*>(argument);
        ifreq entries[2] = {};
        std::strcpy(entries[0].ifr_name, "lo");
        PutAddress(entries[0].ifr_addr, INADDR_LOOPBACK);
        std::strcpy(entries[1].ifr_name, "eth0");
        PutAddress(entries[1].ifr_addr, FakeNetwork::kAdapter);
        table->ifc_len = sizeof entries;
        std::memcpy(table->ifc_req, entries, sizeof entries);
        return 0;
    }
    auto* const request = static_cast<ifreq*>(argument);
    if (std::strcmp(request->ifr_name, "eth0") != 0)
    {
        errno = ENODEV;
        return -1;
    }
    if (what == SIOCGIFHWADDR)
    {
        std::memcpy(request->ifr_hwaddr.sa_data, "\x02\x00\x00\x00\x00\x0A", 6);
        return 0;
    }
    PutAddress(request->ifr_addr, what == SIOCGIFNETMASK ? 0xFFFFFF00 : FakeNetwork::kAdapter);
    return 0;
}

} // namespace

extern "C"
{

int __wrap_socket(int, int, int)
{
    return Network().Open();
}

int __wrap_close(int descriptor)
{
    Network().Forget(descriptor);
    return __real_close(descriptor);
}

int __wrap_bind(int socket, const sockaddr* address, socklen_t)
{
    sockaddr_in internet = Internet(address);
    if (!Network().Knows(socket))
    {
        errno = EBADF;
        return -1;
    }
    errno = EADDRINUSE;
    return Network().Bind(socket, internet);
}

int __wrap_getsockname(int socket, sockaddr* address, socklen_t*)
{
    const sockaddr_in local = Network().LocalAddress(socket);
    std::memcpy(address, &local, sizeof local);
    return 0;
}

int __wrap_setsockopt(int socket, int, int option, const void* value, socklen_t)
{
    if (!Network().Knows(socket))
    {
        errno = EBADF;
        return -1;
    }
    if (option == SO_RCVTIMEO)
    {
        timeval time{};
        std::memcpy(&time, value, sizeof time);
        Network().SetReceiveTimeout(socket, static_cast<std::uint64_t>(time.tv_sec * 1000 + time.tv_usec / 1000));
    }
    return 0;
}

int __wrap_shutdown(int socket, int)
{
    if (Network().Knows(socket))
    {
        Network().Shut(socket);
    }
    return 0;
}

ssize_t __wrap_sendto(int socket, const void* data, size_t size, int flags, const sockaddr* to, socklen_t length)
{
    if (!Network().Knows(socket))
    {
        return __real_sendto(socket, data, size, flags, to, length);
    }
    const auto* const bytes = static_cast<const unsigned char*>(data);
    Network().Send(socket, Internet(to), Bytes(bytes, bytes + size));
    return static_cast<ssize_t>(size);
}

ssize_t __wrap_recvfrom(int socket, void* data, size_t size, int flags, sockaddr* from, socklen_t* length)
{
    if (!Network().Knows(socket))
    {
        return __real_recvfrom(socket, data, size, flags, from, length);
    }
    Bytes datagram;
    if (!Network().Receive(socket, datagram))
    {
        errno = EAGAIN;
        return -1;
    }
    const std::size_t taken = std::min(size, datagram.size());
    std::copy_n(datagram.begin(), taken, static_cast<unsigned char*>(data));
    if (from != nullptr)
    {
        PutAddress(*from, FakeNetwork::kCamera);
    }
    return static_cast<ssize_t>(taken);
}

int __wrap_ppoll(pollfd* entries, nfds_t count, const timespec* timeout, const sigset_t* mask)
{
    if (count != 1 || !Network().Knows(entries->fd))
    {
        return __real_ppoll(entries, count, timeout, mask);
    }
    const long wait = timeout == nullptr ? 1000000 : timeout->tv_sec * 1000 + timeout->tv_nsec / 1000000;
    const bool ready = Network().Wait(entries->fd, static_cast<std::uint64_t>(wait));
    entries->revents = ready ? POLLIN : 0;
    return ready ? 1 : 0;
}

int __wrap_ioctl(int, unsigned long what, ...)
{
    va_list arguments;
    va_start(arguments, what);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return AdapterRequest(what, argument);
}

int __wrap_clock_gettime(clockid_t clock, timespec* time)
{
    if (clock != CLOCK_MONOTONIC)
    {
        return __real_clock_gettime(clock, time);
    }
    const std::uint64_t now = Network().Nanoseconds();
    *time = {static_cast<time_t>(now / 1000000000), static_cast<long>(now % 1000000000)};
    return 0;
}

int __wrap_nanosleep(const timespec* wanted, timespec* left)
{
    return FakeNetwork::OnMainThread() ? 0 : __real_nanosleep(wanted, left);
}

int __wrap_pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec*)
{
    const timespec end = EndOfWait(CLOCK_REALTIME);
    return __real_pthread_cond_timedwait(condition, mutex, &end);
}

int __wrap_pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    if (FakeNetwork::OnMainThread())
    {
        return __wrap_pthread_cond_timedwait(condition, mutex, nullptr);
    }
    return __real_pthread_cond_wait(condition, mutex);
}

int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock, const timespec*)
{
    const timespec end = EndOfWait(clock);
    return __real_pthread_cond_clockwait(condition, mutex, clock, &end);
}

} // extern "C"
