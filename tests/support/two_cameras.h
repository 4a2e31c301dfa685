// SPDX-License-Identifier: Apache-2.0
// Two virtual cameras on one host.
#pragma once

#include "support/tool.h"
#include "support/virtual_camera.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace nq::test
{

/// "SN-1" at 10.77.0.2, and "SN-2" at 10.77.0.3 with the MAC address 02:00:0a:0b:0c:0d. Both have the user-defined name
/// "left".
class TwoCameras
{
  public:
    /// `arguments` are for both.
    explicit TwoCameras(std::vector<std::string> arguments = {})
        : m_first(With(arguments, {"--serial", "SN-1", "--user-name", "left"}))
    {
        m_first.Machine().Shell("ip addr add 10.77.0.3/24 dev cam0");
        m_second = std::make_unique<ChildProcess>(
            With(arguments, {NQ_CAMERA_PATH, "--address", "10.77.0.3", "--serial", "SN-2", "--user-name", "left",
                             "--mac", "02:00:0a:0b:0c:0d"}),
            m_first.Environment(), &m_first.Machine());
        if (!m_second->WaitForOutput("ready", kLongTime))
        {
            throw std::runtime_error(m_second->Output());
        }
    }

    std::vector<std::string> Environment() const { return m_first.Environment(); }
    VirtualCamera& First() { return m_first; }
    ChildProcess& Second() { return *m_second; }

  private:
    static std::vector<std::string> With(const std::vector<std::string>& more, std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }

    VirtualCamera m_first;
    std::unique_ptr<ChildProcess> m_second;
};

} // namespace nq::test
