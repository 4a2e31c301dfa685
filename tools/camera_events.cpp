// SPDX-License-Identifier: Apache-2.0
// One event that a camera sends beside its frames.
#include "camera_events.h"

#include "info_value.h"

#include <algorithm>
#include <fmt/format.h>

namespace nq::tool
{

namespace
{

constexpr size_t kRecordBytes = 65536; // a packet is shorter

} // namespace

CameraEvents::CameraEvents(GenTLLibrary& library, GenTL::DEV_HANDLE device, RemoteAcquisition& camera, std::string name)
    : m_library(library), m_device(device), m_camera(camera), m_name(std::move(name)), m_record(kRecordBytes, '\0')
{
    const GenTL::GC_ERROR code = m_library.GCRegisterEvent(device, GenTL::EVENT_REMOTE_DEVICE, &m_event);
    if (code != GenTL::GC_ERR_SUCCESS)
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("this producer tells no events of cameras: {} ({})", ErrorName(code), code));
    }
    try
    {
        m_camera.WithFeatures(
            [this](Features& features) { features.SetAll({"EventNotification[" + m_name + "]=On"}); });
    }
    catch (...)
    {
        m_library.GCUnregisterEvent(m_device, GenTL::EVENT_REMOTE_DEVICE);
        throw;
    }
}

CameraEvents::~CameraEvents()
{
    m_library.GCUnregisterEvent(m_device, GenTL::EVENT_REMOTE_DEVICE);
}

bool CameraEvents::Came()
{
    bool came = false;
    size_t size = m_record.size();
    while (m_library.EventGetData(m_event, m_record.data(), &size, 0) == GenTL::GC_ERR_SUCCESS)
    {
        const std::string_view record(m_record.data(), std::min(size, m_record.size()));
        const std::optional<int64_t> id = EventNumber(m_library, m_event, record);
        came = (id && IsIt(static_cast<uint64_t>(*id))) || came;
        size = m_record.size();
    }
    return came;
}

bool CameraEvents::IsIt(uint64_t id)
{
    const auto known = m_known.find(id);
    if (known != m_known.end())
    {
        return known->second;
    }
    bool is = false;
    m_camera.WithFeatures([&](Features& features) { is = features.EventName(id) == m_name; });
    m_known.emplace(id, is);
    return is;
}

} // namespace nq::tool
