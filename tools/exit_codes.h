// SPDX-License-Identifier: Apache-2.0
// The exit codes of nq-gev and the failure that carries one.
#pragma once

#include <stdexcept>
#include <string>

namespace nq::tool
{

enum class ExitCode : int
{
    Success = 0,
    Failure = 1,      ///< anything without a code of its own
    Usage = 2,        ///< wrong arguments
    NoProducer = 3,   ///< no .cti found, or it could not be loaded
    NoCamera = 4,     ///< no camera, or none that fits --camera
    NoStream = 5,     ///< the camera's stream could not be started
    CameraLost = 6,   ///< frames stopped coming
    WrongPicture = 7, ///< frames were lost after the first, incomplete, wrong or refused
    CameraInUse = 8,  ///< another program controls the camera
};

/// A failure of a verb: the text for the user and the exit code of the program.
class ToolFailure : public std::runtime_error
{
  public:
    ToolFailure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}

    ExitCode Code() const { return m_code; }

  private:
    ExitCode m_code;
};

} // namespace nq::tool
