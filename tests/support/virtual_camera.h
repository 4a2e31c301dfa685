// SPDX-License-Identifier: Apache-2.0
// The virtual camera on a host of its own, one virtual cable away from the test.
#pragma once

#include "support/child_process.h"
#include "support/network.h"

#include <memory>
#include <string>
#include <vector>

namespace nq::test
{

/// Starts nq-gev-camera at 10.77.0.2/24 in a namespace of its own, with the software RDMA, and waits until it is ready.
/// The test itself gets 10.77.0.1/24. One object per test.
class VirtualCamera
{
  public:
    /// `arguments` follow --address and --control on the command line. Throws std::runtime_error when the camera does
    /// not become ready.
    explicit VirtualCamera(const std::vector<std::string>& arguments = {});
    ~VirtualCamera();
    VirtualCamera(const VirtualCamera&) = delete;
    VirtualCamera& operator=(const VirtualCamera&) = delete;

    /// Sends one line of JSON to the camera's control socket and returns its answer line.
    std::string Control(const std::string& line) const;

    /// Path of the control socket, for other programs.
    std::string ControlPath() const { return m_folder + "/control"; }

    /// Switches a fault on at run time, as --fault does at the start.
    void Fault(const std::string& name) const;

    /// Whether the camera has used up a fault that it was given.
    bool HasStruck(const std::string& fault) const;

    /// Ends the camera without a farewell, as a power cut does.
    void Kill();

    /// Starts the camera again, on the same host and with the same arguments.
    void Start();

    /// Environment for further programs of the test that speak to this camera by software RDMA.
    std::vector<std::string> Environment() const;

    ChildProcess& Process() { return *m_process; }
    const Host& Machine() const { return m_host; }

    static constexpr const char* kAddress = "10.77.0.2";

  private:
    std::string m_folder;
    std::vector<std::string> m_command;
    Host m_host;
    std::unique_ptr<ChildProcess> m_process;
};

/// A folder under /tmp that belongs to this test process; made on first use, shared by all software RDMA of the test.
std::string RdmaFolder();

} // namespace nq::test
