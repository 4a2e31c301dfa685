// SPDX-License-Identifier: Apache-2.0
// The exit codes of nq-gev and the failure that carries one.
#pragma once

#include <cstddef>
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
    /// `advice` is a sentence on what to do, for the end of the text.
    ToolFailure(ExitCode code, const std::string& text, const std::string& advice = "")
        : std::runtime_error(text + advice), m_code(code), m_adviceSize(advice.size())
    {
    }

    ExitCode Code() const { return m_code; }

    /// The text without the advice.
    std::string Bare() const
    {
        const std::string all = what();
        return all.substr(0, all.size() - m_adviceSize);
    }

    /// The same failure with `more` told, ahead of the advice.
    ToolFailure With(const std::string& more) const
    {
        const std::string bare = Bare();
        return {m_code, bare + more, std::string(what()).substr(bare.size())};
    }

  private:
    ExitCode m_code;
    std::size_t m_adviceSize;
};

[[noreturn]] inline void Fail(const std::string& text)
{
    throw ToolFailure(ExitCode::Failure, text);
}

} // namespace nq::tool
