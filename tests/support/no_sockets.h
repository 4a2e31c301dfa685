// SPDX-License-Identifier: Apache-2.0
// A thread to which the system gives no socket.
#pragma once

#include <cerrno>
#include <cstddef>
#include <functional>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <thread>

namespace nq::test
{

/// Runs `body` on a thread of its own on which socket() fails with EMFILE, as in a process out of descriptors, and
/// waits for it. Threads that the body starts fail likewise; the caller's do not. Throws std::runtime_error when the
/// kernel has no system call filter.
inline void WithoutSockets(const std::function<void()>& body)
{
    bool filtered = false;
    std::thread([&body, &filtered] {
        sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EMFILE),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        };
        const sock_fprog filter = {4, program};
        filtered =
            prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
        if (filtered)
        {
            body();
        }
    }).join();
    if (!filtered)
    {
        throw std::runtime_error("the kernel has no system call filter");
    }
}

} // namespace nq::test
