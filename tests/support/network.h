// SPDX-License-Identifier: Apache-2.0
// Network namespaces for tests: no packet of a test ever leaves the process tree that made it.
#pragma once

#include <functional>
#include <string>

namespace nq::test
{

/// Moves the calling thread, and every thread and process it starts later, into a new network namespace whose loopback
/// interface is up. Throws std::system_error when the kernel refuses.
void EnterPrivateNetwork();

/// Runs a shell command and throws std::runtime_error with its text when it fails.
void Shell(const std::string& command);

/// One further host: a network namespace that lives as long as the object. Its loopback interface is up.
class Host
{
  public:
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Path by which `ip link set ... netns PATH` and setns() reach this namespace from this process.
    std::string Path() const;

    /// Runs `body` on a thread of its own inside the namespace and waits for it. An exception of the body comes out
    /// here.
    void Run(const std::function<void()>& body) const;

    /// Runs a shell command inside the namespace.
    void Shell(const std::string& command) const;

    /// Joins the caller's namespace and this one by a veth pair. Addresses are written with their prefix length, for
    /// example "10.9.0.1/24"; both ends are up when the call returns.
    void Connect(const std::string& nameHere, const std::string& addressHere, const std::string& nameThere,
                 const std::string& addressThere) const;

  private:
    int m_fd = -1;
};

/// Lets both ends of a cable take packets from addresses that they have no route to: in the caller's namespace and on
/// the host the kernel's check of source addresses is switched off.
void AcceptEverySource(const Host& host);

} // namespace nq::test
