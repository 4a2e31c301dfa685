// SPDX-License-Identifier: Apache-2.0
// This program once more, beside a rule, with the same producer and camera: what two processes do to each other.
#pragma once

#include "context.h"

#include <sys/types.h>

namespace nq::check
{

/// Opens the camera in a process of its own. The end of the object closes it there and ends the process.
class OtherProcess
{
  public:
    /// Returns when the process has tried to open the camera. The rule ends as not tried where there is no process.
    explicit OtherProcess(const Target& target);
    ~OtherProcess();
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    /// What the open gave there.
    GenTL::GC_ERROR Opened() const { return m_opened; }

  private:
    void End() const;

    pid_t m_process = -1;
    int m_input = -1;
    GenTL::GC_ERROR m_opened = GenTL::GC_ERR_ERROR;
};

/// The other process: opens the camera, writes the result to standard output, and closes when its input ends. The exit
/// code of the program.
int HoldCamera(const Target& target);

} // namespace nq::check
