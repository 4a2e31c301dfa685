// SPDX-License-Identifier: Apache-2.0
// Network namespaces for tests, through unshare(2), setns(2) and the ip command.
#include "support/network.h"

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <sched.h>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace nq::test
{

namespace
{

[[noreturn]] void Fail(const char* what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void RunOnThread(const std::function<void()>& body)
{
    std::exception_ptr failure;
    std::thread([&] {
        try
        {
            body();
        }
        catch (...)
        {
            failure = std::current_exception();
        }
    }).join();
    if (failure)
    {
        std::rethrow_exception(failure);
    }
}

} // namespace

void Shell(const std::string& command)
{
    if (std::system(command.c_str()) != 0)
    {
        throw std::runtime_error("failed: " + command);
    }
}

namespace
{

/// A command that waits until the interface carries packets: a frame sent before the kernel reports it up is lost.
std::string AwaitLink(const std::string& name)
{
    return "timeout 60 sh -c 'until ip -o link show dev " + name + " | grep -q \"state UP\"; do sleep 0.01; done'";
}

} // namespace

void EnterPrivateNetwork()
{
    if (unshare(CLONE_NEWNET) != 0)
    {
        Fail("unshare(CLONE_NEWNET)");
    }
    Shell("ip link set lo up");
}

Host::Host()
{
    RunOnThread([this] {
        EnterPrivateNetwork();
        m_fd = open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC);
        if (m_fd < 0)
        {
            Fail("open(/proc/thread-self/ns/net)");
        }
    });
}

Host::~Host()
{
    close(m_fd);
}

std::string Host::Path() const
{
    return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(m_fd);
}

void Host::Run(const std::function<void()>& body) const
{
    RunOnThread([&] {
        if (setns(m_fd, CLONE_NEWNET) != 0)
        {
            Fail("setns");
        }
        body();
    });
}

void Host::Shell(const std::string& command) const
{
    Run([&] { test::Shell(command); });
}

void Host::Connect(const std::string& nameHere, const std::string& addressHere, const std::string& nameThere,
                   const std::string& addressThere) const
{
    test::Shell("ip link add " + nameHere + " type veth peer name " + nameThere);
    test::Shell("ip link set " + nameThere + " netns " + Path());
    test::Shell("ip addr add " + addressHere + " brd + dev " + nameHere + " && ip link set " + nameHere + " up");
    Shell("ip addr add " + addressThere + " brd + dev " + nameThere + " && ip link set " + nameThere + " up");
    test::Shell(AwaitLink(nameHere));
    Shell(AwaitLink(nameThere));
}

void AcceptEverySource(const Host& host)
{
    const std::string command = "for file in /proc/sys/net/ipv4/conf/*/rp_filter; do echo 0 >$file; done";
    Shell(command);
    host.Shell(command);
}

} // namespace nq::test
