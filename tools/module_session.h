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

/// Adds --module and --camera, and --wait for a verb that needs control.
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
    /// Throws ToolFailure: NoCamera, CameraInUse, Usage when it is not clear which module is meant.
    ModuleSession(const CommonOptions& common, const ModuleOptions& options, ModuleUse use);
    ~ModuleSession();
    ModuleSession(const ModuleSession&) = delete;
    ModuleSession& operator=(const ModuleSession&) = delete;

    PortAccess& Port() { return *m_port; }

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
