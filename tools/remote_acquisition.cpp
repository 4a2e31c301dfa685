// SPDX-License-Identifier: Apache-2.0
// The camera's own part of an acquisition, by the features that its description has for it.
#include "remote_acquisition.h"

#include <cmath>
#include <exception>
#include <fmt/format.h>
#include <mutex>

namespace nq::tool
{

namespace
{

constexpr const char* kParamsLocked = "TLParamsLocked";
constexpr const char* kMode = "AcquisitionMode";
constexpr const char* kRate = "AcquisitionFrameRate";
constexpr const char* kRateEnable = "AcquisitionFrameRateEnable";

/// The engine's libraries have tables of the process, and each camera of a grab has a thread of its own.
std::mutex& EngineMutex()
{
    static std::mutex mutex;
    return mutex;
}

} // namespace

RemoteAcquisition::RemoteAcquisition(const PortAccess& port, const std::vector<std::string>& settings)
{
    const std::lock_guard lock(EngineMutex());
    try
    {
        NeedFeatureEngine();
        m_features = std::make_unique<Features>(port);
    }
    catch (const std::exception& failure)
    {
        if (!settings.empty())
        {
            throw;
        }
        m_problem = m_noFeatures = failure.what();
        return;
    }
    if (!settings.empty())
    {
        m_features->SetAll(settings);
    }
}

RemoteAcquisition::~RemoteAcquisition()
{
    const std::lock_guard lock(EngineMutex());
    m_features.reset();
}

void RemoteAcquisition::LockPayload(bool locked)
{
    const std::lock_guard lock(EngineMutex());
    if (locked == m_locked || !m_features || !m_features->Has(kParamsLocked))
    {
        return;
    }
    m_locked = locked;
    try
    {
        m_features->Set({kParamsLocked, locked ? "1" : "0"});
    }
    catch (const std::exception&) // it keeps hosts from mistakes that this one does not make
    {
    }
}

void RemoteAcquisition::Start()
{
    m_started = Execute("AcquisitionStart");
}

void RemoteAcquisition::Stop()
{
    if (m_started)
    {
        m_started = false;
        Execute("AcquisitionStop");
    }
}

bool RemoteAcquisition::Execute(const char* command)
{
    const std::lock_guard lock(EngineMutex());
    if (!m_features || !m_features->Has(command))
    {
        return false;
    }
    try
    {
        m_features->Execute(command);
        return true;
    }
    catch (const std::exception& failure)
    {
        m_problem = failure.what();
        return false;
    }
}

void RemoteAcquisition::WithFeatures(const std::function<void(Features&)>& work)
{
    const std::lock_guard lock(EngineMutex());
    if (!m_features)
    {
        throw ToolFailure(ExitCode::Failure, m_noFeatures);
    }
    work(*m_features);
}

std::optional<double> RemoteAcquisition::FrameRate()
{
    const std::lock_guard lock(EngineMutex());
    if (!m_features || !m_features->Has(kRate))
    {
        return std::nullopt;
    }
    try
    {
        if (m_features->Has(kRateEnable) && m_features->Read(kRateEnable).value == FeatureValue(false))
        {
            return std::nullopt;
        }
        const Reading rate = m_features->Read(kRate);
        const auto* const number = std::get_if<double>(&rate.value);
        return number != nullptr && std::isfinite(*number) && *number > 0 ? std::optional(*number) : std::nullopt;
    }
    catch (const std::exception&)
    {
        return std::nullopt;
    }
}

std::string RemoteAcquisition::Remark(bool anyFrame)
{
    if (!anyFrame)
    {
        return m_problem.empty() ? "" : fmt::format("; AcquisitionStart was not executed: {}", m_problem);
    }
    const std::lock_guard lock(EngineMutex());
    if (!m_features || !m_features->Has(kMode))
    {
        return "";
    }
    try
    {
        const Reading mode = m_features->Read(kMode);
        const auto* const text = std::get_if<std::string>(&mode.value);
        return text == nullptr || *text == "Continuous"
                   ? ""
                   : fmt::format("; its AcquisitionMode is {}, which ends by itself: set AcquisitionMode=Continuous",
                                 *text);
    }
    catch (const std::exception&)
    {
        return "";
    }
}

} // namespace nq::tool
