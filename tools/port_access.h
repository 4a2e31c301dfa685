// SPDX-License-Identifier: Apache-2.0
// The registers and the description of one port.
#pragma once

#include "camera_tree.h"
#include "exit_codes.h"
#include "gentl_library.h"

#include <optional>
#include <string>

namespace nq::tool
{

/// A file that a port's URL names, as it lies there: an XML text or a zip.
struct DescriptionFile
{
    std::string name;
    std::string bytes;
};

/// A port and how the last access to it ended. Used from one thread.
class PortAccess
{
  public:
    /// `who` is the module for messages, for example "the camera X".
    PortAccess(GenTLLibrary& library, GenTL::PORT_HANDLE port, std::string who)
        : m_library(library), m_port(port), m_who(std::move(who))
    {
    }

    /// The port of a camera itself.
    PortAccess(GenTLLibrary& library, GenTL::PORT_HANDLE port, const CameraEntry& camera)
        : m_library(library), m_port(port), m_who("the camera " + camera.id), m_camera(camera)
    {
    }

    /// Another port of the same module.
    PortAccess Other(GenTL::PORT_HANDLE port) const
    {
        PortAccess other = *this;
        other.m_port = port;
        other.ForgetFailure();
        return other;
    }

    /// Whether all `size` bytes were moved.
    bool Read(uint64_t address, void* data, size_t size);
    bool Write(uint64_t address, const void* data, size_t size);

    /// The code of the first access that failed since ForgetFailure(); GC_ERR_SUCCESS when none did.
    GenTL::GC_ERROR Failure() const { return m_failure; }
    void ForgetFailure()
    {
        m_failure = GenTL::GC_ERR_SUCCESS;
        m_writeFailed = false;
    }

    /// Why the failed access failed, behind `what` was tried: CameraLost when the camera answers nothing any more,
    /// CameraInUse when it obeys this program no more.
    ToolFailure Explained(const std::string& what);

    /// Throws ToolFailure when no URL of the port names a file that this program can get, and StopCode() when the user
    /// asked to stop before it was there.
    DescriptionFile Description();

    const std::string& Who() const { return m_who; }

    /// Whether it is the port of a camera of GigE Vision itself.
    bool IsGigECamera();

  private:
    enum class Control
    {
        Kept, ///< or this is no camera that could tell
        Lost,
        Silent,
    };

    bool Note(GenTL::GC_ERROR code, bool whole);
    std::string Url(uint32_t index);
    std::string LocalFile(uint64_t address, size_t size);
    std::string Text(GenTL::PORT_INFO_CMD command);
    Control AskForControl();

    GenTLLibrary& m_library;
    GenTL::PORT_HANDLE m_port;
    std::string m_who;
    std::optional<CameraEntry> m_camera; ///< of a module of the host none
    GenTL::GC_ERROR m_failure = GenTL::GC_ERR_SUCCESS;
    bool m_writeFailed = false; ///< since ForgetFailure()
};

} // namespace nq::tool
