// SPDX-License-Identifier: Apache-2.0
// One module opened for its port: a camera, or what the producer has on the way to it.
#include "module_session.h"

#include <CLI/CLI.hpp>

#include "camera_choice.h"
#include "camera_owner.h"
#include "printable.h"
#include "stop_signals.h"
#include "whole_number.h"
#include "words.h"

#include <chrono>
#include <fmt/format.h>

namespace nq::tool
{

void AddModuleOptions(CLI::App& verb, ModuleOptions& options, bool control)
{
    verb.add_option("--module", options.module, "Whose: remote (the camera), device, stream, interface or system")
        ->check(
            OneOf({"remote", "device", "stream", "interface", "system"}, "remote, device, stream, interface or system"))
        ->capture_default_str();
    AddCameraOptions(verb, options, control);
}

void AddCameraOptions(CLI::App& verb, ModuleOptions& options, bool control)
{
    verb.add_option("--camera", options.camera,
                    "Id, serial number, user-defined name, MAC or IP address (default: the only one)");
    if (control)
    {
        verb.add_option("--wait", options.waitSeconds, "Seconds to wait for a camera that another program controls")
            ->check(WholeNumber(0, kMostMs / 1000, "seconds"))
            ->capture_default_str();
    }
}

ModuleSession::ModuleSession(const CommonOptions& common, const ModuleOptions& options, ModuleUse use)
{
    try
    {
        if (options.module == "system")
        {
            OpenSystem(common, options.camera);
            m_port.emplace(*m_library, m_system->Handle(), "the system " + m_library->Path());
        }
        else if (options.module == "interface")
        {
            OpenInterface(common, options.camera);
            m_port.emplace(*m_library, m_interface->Handle(), "the interface " + m_interface->Id());
        }
        else
        {
            OpenCamera(common, options, use);
            if (options.module == "remote")
            {
                m_port.emplace(*m_library, m_remote, m_found.camera);
            }
            else if (options.module == "stream")
            {
                OpenStream();
                m_port.emplace(*m_library, m_stream, "the stream of " + m_found.camera.id);
            }
            else
            {
                m_port.emplace(*m_library, m_device, "the device " + m_found.camera.id);
            }
        }
    }
    catch (...)
    {
        Close();
        throw;
    }
}

ModuleSession::~ModuleSession()
{
    Close();
}

void ModuleSession::Close()
{
    if (m_stream != nullptr)
    {
        m_library->DSClose(m_stream);
    }
    if (m_device != nullptr)
    {
        m_library->DevClose(m_device);
    }
}

void ModuleSession::OpenSystem(const CommonOptions& common, const std::string& camera)
{
    std::string producer;
    if (!camera.empty())
    {
        producer = ChooseCameras(common, {camera}).front().producer;
    }
    else
    {
        const std::vector<std::string> producers = FindProducers(common.producer);
        if (producers.size() > 1)
        {
            throw ToolFailure(ExitCode::Usage,
                              fmt::format("there are {} producers: choose one by --producer PATH", producers.size()));
        }
        producer = producers.front();
    }
    m_system = &m_tree.SystemOf(producer);
    m_library = &m_system->Library();
}

void ModuleSession::OpenInterface(const CommonOptions& common, const std::string& camera)
{
    if (camera.empty() && FindProducers(common.producer).size() == 1)
    {
        OpenSystem(common, "");
        const std::vector<std::string> ids = m_system->InterfaceIds();
        m_found.producer = ids.size() == 1 ? m_library->Path() : "";
        m_found.camera.interfaceId = ids.size() == 1 ? ids.front() : "";
    }
    if (m_found.producer.empty())
    {
        const std::vector<std::string> wanted = camera.empty() ? std::vector<std::string>() : std::vector{camera};
        m_found = ChooseCameras(common, wanted).front();
    }
    m_interface = &m_tree.InterfaceOf(m_found);
    m_system = &m_interface->Parent();
    m_library = &m_system->Library();
    m_interface->Scan(std::min<uint64_t>(common.timeoutMs, 300)); // so that its list of cameras is filled
}

void ModuleSession::OpenCamera(const CommonOptions& common, const ModuleOptions& options, ModuleUse use)
{
    const std::vector<std::string> wanted =
        options.camera.empty() ? std::vector<std::string>() : std::vector{options.camera};
    m_found = ChooseCameras(common, wanted).front();
    m_interface = &m_tree.InterfaceOf(m_found);
    m_system = &m_interface->Parent();
    m_library = &m_system->Library();
    if (use == ModuleUse::Read)
    {
        OpenDevice(GenTL::DEVICE_ACCESS_READONLY);
        return;
    }
    try
    {
        OpenControlled(options.waitSeconds);
    }
    catch (const ToolFailure& failure)
    {
        const bool refused =
            failure.Code() == ExitCode::CameraInUse || dynamic_cast<const RefusedOpen*>(&failure) != nullptr;
        if (use != ModuleUse::ControlIfFree || !refused)
        {
            throw;
        }
        OpenDevice(GenTL::DEVICE_ACCESS_READONLY);
    }
}

void ModuleSession::OpenControlled(uint32_t waitSeconds)
{
    const auto tell = [](const std::string& text) { fmt::print(stderr, "nq-gev: {}\n", Printable(text)); };
    OnceFree(m_found.camera, waitSeconds, tell, [this] {
        OpenDevice(GenTL::DEVICE_ACCESS_CONTROL);
        m_control = true;
    });
}

void ModuleSession::OpenDevice(GenTL::DEVICE_ACCESS_FLAGS access)
{
    if (access == GenTL::DEVICE_ACCESS_CONTROL)
    {
        CatchStopSignals(); // from here on the camera is held and its selectors may be moved: both are given back
    }
    const GenTL::GC_ERROR opened = m_interface->OpenCamera(m_found.camera.id, &m_device, access);
    if (opened != GenTL::GC_ERR_SUCCESS)
    {
        m_device = nullptr;
        ThrowRefusedOpen(m_found.camera, opened);
    }
    GenTLLibrary::Check(m_library->DevGetPort(m_device, &m_remote), "DevGetPort");
    if (access == GenTL::DEVICE_ACCESS_CONTROL && m_system->IsOurs())
    {
        try
        {
            ConfirmControl(*m_library, m_remote, m_found.camera);
        }
        catch (...)
        {
            m_library->DevClose(m_device);
            m_device = nullptr;
            throw;
        }
    }
}

void ModuleSession::OpenStreamIfAny()
{
    try
    {
        OpenStream();
    }
    catch (const GenTLError&)
    {
        m_stream = nullptr; // a camera without one, or one that is taken
    }
}

void ModuleSession::OpenStream()
{
    const std::string id = GenTLLibrary::Id(
        [this](char* text, size_t* size) { return m_library->DevGetDataStreamID(m_device, 0, text, size); },
        "DevGetDataStreamID");
    GenTLLibrary::Check(m_library->DevOpenDataStream(m_device, id.c_str(), &m_stream), "DevOpenDataStream");
}

} // namespace nq::tool
