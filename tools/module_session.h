// SPDX-License-Identifier: Apache-2.0
// One module opened for its port: a camera, or what the producer has on the way to it.
#pragma once

#include "port_access.h"
#include "producer_tree.h"
#include "verbs.h"

#include <optional>
#include <string>

namespace nq::tool
{

/// Which module the user means.
struct ModuleOptions
{
    std::string module = "remote";
    std::string camera;
    uint32_t waitSeconds = 0;
};

/// Adds --camera, and --wait for a verb that needs control.
void AddCameraOptions(CLI::App& verb, ModuleOptions& options, bool control);

/// The same with --module ahead of them.
void AddModuleOptions(CLI::App& verb, ModuleOptions& options, bool control);

enum class ModuleUse
{
    Read,
    Control,
    ControlIfFree, ///< reads what it can while another program has control
};

/// Opened by the constructor and closed by the destructor, with everything above it. Used from one thread.
class ModuleSession
{
  public:
    /// Throws ToolFailure: NoCamera, CameraInUse, Usage when it is not clear which module is meant. One that has
    /// control of a camera catches the signals that ask to stop, which the caller has to look for.
    ModuleSession(const CommonOptions& common, const ModuleOptions& options, ModuleUse use);
    ~ModuleSession();
    ModuleSession(const ModuleSession&) = delete;
    ModuleSession& operator=(const ModuleSession&) = delete;

    PortAccess& Port() { return *m_port; }

    /// Opens the stream of a camera too, where it has one that can be opened.
    void OpenStreamIfAny();

    GenTLLibrary& Library() const { return *m_library; }
    const CameraEntry& Camera() const { return m_found.camera; }
    bool IsOurs() const { return m_system->IsOurs(); }

    /// The open modules; null for those that are not. Theirs until the object goes.
    GenTL::TL_HANDLE SystemHandle() const { return m_system->Handle(); }
    GenTL::IF_HANDLE InterfaceHandle() const { return m_interface == nullptr ? nullptr : m_interface->Handle(); }
    GenTL::DEV_HANDLE DeviceHandle() const { return m_device; }
    GenTL::DS_HANDLE StreamHandle() const { return m_stream; }
    GenTL::PORT_HANDLE RemotePort() const { return m_remote; }

    /// Whether the camera may be changed.
    bool HasControl() const { return m_control || m_device == nullptr; }

  private:
    void OpenSystem(const CommonOptions& common, const std::string& camera);
    void OpenInterface(const CommonOptions& common, const std::string& camera);
    void OpenCamera(const CommonOptions& common, const ModuleOptions& options, ModuleUse use);
    void OpenDevice(GenTL::DEVICE_ACCESS_FLAGS access);
    void OpenControlled(uint32_t waitSeconds);
    void OpenStream();
    void Close();

    ProducerTree m_tree;
    FoundCamera m_found;
    GenTLLibrary* m_library = nullptr;
    const System* m_system = nullptr;
    Interface* m_interface = nullptr;
    GenTL::DEV_HANDLE m_device = nullptr;
    GenTL::PORT_HANDLE m_remote = nullptr;
    GenTL::DS_HANDLE m_stream = nullptr;
    bool m_control = false;
    std::optional<PortAccess> m_port;
};

} // namespace nq::tool
