// SPDX-License-Identifier: Apache-2.0
// The camera as its registers show it.
#include "device.h"

#include "bootstrap.h"
#include "byte_order.h"
#include "feature_registers.h"
#include "genicam_description.h"

#include <algorithm>

namespace nq::camera
{

using namespace bootstrap;

namespace
{

/// Hosts may not ask for a shorter heartbeat timeout.
constexpr std::uint32_t kShortestHeartbeat = 500;
constexpr std::uint32_t kSmallestPacket = 576;
constexpr std::uint32_t kLargestPacket = 9000;

} // namespace

Device::Device(const CameraOptions& options, DeviceClock& clock, Acquisition& acquisition, MessageChannel& messages,
               StreamChannel& stream, FaultPlan& faults, std::function<void()> dropConnection)
    : m_options(options), m_clock(clock), m_acquisition(acquisition), m_messages(messages), m_stream(stream),
      m_faults(faults), m_dropConnection(std::move(dropConnection)), m_description(MakeGenicamXml(options)),
      m_descriptionName(DescriptionName(m_description)),
      m_zippedDescription(ZipOneFile(m_descriptionName + ".xml", m_description)), m_network(options.network),
      m_state{.userName = options.userName,
              .ip = {kIpConfigLinkLocal | kIpConfigPersistent, options.network.address, options.network.netmask}}
{
    m_state = m_options.stateFile.empty() ? m_state : ReadState(m_options.stateFile, m_state);
    PowerCycle();
}

void Device::PowerCycle()
{
    const std::lock_guard lock(m_mutex);
    m_registers = RegisterMap();
    AddIdentity();
    AddChannels();
    AddFeatures();
    AddDescription();
    m_clock.Reset();
    m_counter = {};
    m_defaults = PresentValues();
    if (m_state.sets.contains(m_state.defaultSet))
    {
        TakeValues(m_state.sets[m_state.defaultSet]);
    }
    EndControl();
    ApplySettings();
}

GvcpStatus Device::ReadRegister(const Endpoint& from, std::uint32_t address, std::uint32_t& value)
{
    const std::lock_guard lock(m_mutex);
    if (address != kControlPrivilege && !m_privilege.MayRead(from))
    {
        return GvcpStatus::AccessDenied;
    }
    RefreshBeforeRead(address, 4);
    return m_registers.ReadWord(address, value);
}

GvcpStatus Device::ReadMemory(const Endpoint& from, std::uint32_t address, std::span<std::uint8_t> bytes)
{
    const std::lock_guard lock(m_mutex);
    if (!m_privilege.MayRead(from))
    {
        return GvcpStatus::AccessDenied;
    }
    RefreshBeforeRead(address, bytes.size());
    return m_registers.ReadMemory(address, bytes);
}

void Device::RefreshBeforeRead(std::uint32_t address, std::size_t size)
{
    const auto covers = [&](std::uint32_t wanted) { return wanted >= address && wanted - address < size; };
    if (covers(kControlPrivilege))
    {
        m_registers.Set(kControlPrivilege, m_privilege.Value());
    }
    if (covers(kPrimaryPort) || covers(kPrimaryAddress))
    {
        const Endpoint holder = m_privilege.Holder().value_or(Endpoint{});
        m_registers.Set(kPrimaryPort, holder.port);
        m_registers.Set(kPrimaryAddress, holder.address);
    }
    if (covers(kRdmaEnable))
    {
        m_registers.Set(kRdmaEnable, Streaming() ? kRdmaEnableOn : 0);
    }
    if (address >= feature::kFirstFeature && address < feature::kXmlAddress)
    {
        RefreshFeatures();
    }
    if (covers(kRdmaSettings + kRdmaPayloadOffset))
    {
        const std::uint64_t payload = CurrentSettings().picture.Payload();
        const std::uint64_t claimed = m_faults.Strike(Fault::HugePayloadSize).value_or(payload);
        PutLittle(m_registers.Bytes(kRdmaSettings + kRdmaPayloadOffset).data(), claimed);
    }
}

bool Device::MayWrite(const Endpoint& from)
{
    const std::lock_guard lock(m_mutex);
    return m_privilege.MayWrite(from);
}

bool Device::IsControlledFrom(std::uint32_t address)
{
    const std::lock_guard lock(m_mutex);
    const auto holder = m_privilege.Holder();
    return holder && !m_privilege.IsTakenAway() && holder->address == address;
}

Device::WriteResult Device::Write(const Endpoint& from, std::uint32_t address, std::uint32_t value)
{
    const std::lock_guard lock(m_mutex);
    if (address == kControlPrivilege)
    {
        const bool held = m_privilege.MayWrite(from);
        const GvcpStatus status = m_privilege.Request(from, value, Clock::now());
        if (status == GvcpStatus::Success && value == 0 && held)
        {
            EndControl();
        }
        return {.status = status, .tookControl = status == GvcpStatus::Success && value != 0};
    }
    if (!m_privilege.MayWrite(from))
    {
        return {.status = GvcpStatus::AccessDenied};
    }
    if (address == feature::kAcquisitionFrameRate && value == 0)
    {
        address = feature::kAcquisitionFrameRateEnable; // rate 0 stands for none
    }
    GvcpStatus status = m_registers.CheckWrite(address);
    if (status == GvcpStatus::Success)
    {
        status = Check(address, value);
    }
    if (status != GvcpStatus::Success)
    {
        return {.status = status};
    }
    m_registers.Set(address, value);
    m_stateKept = true;
    Apply(address, value);
    return {.status = m_stateKept ? status : GvcpStatus::Error,
            .busy = std::chrono::milliseconds(address == feature::kTestPendingAck ? value : 0),
            .reset = address == feature::kDeviceReset};
}

void Device::Apply(std::uint32_t address, std::uint32_t value)
{
    if (address < feature::kWidth)
    {
        ApplyBootstrap(address, value);
    }
    else
    {
        ApplyFeature(address);
    }
}

void Device::ApplyBootstrap(std::uint32_t address, std::uint32_t value)
{
    switch (address)
    {
    case kHeartbeatTimeout:
        m_registers.Set(address, std::max(value, kShortestHeartbeat));
        break;
    case kTimestampControl:
        m_registers.Set(address, 0);
        if ((value & kTimestampReset) != 0)
        {
            m_clock.Reset();
        }
        if ((value & kTimestampLatch) != 0)
        {
            const std::uint64_t now = m_clock.Now();
            m_registers.Set(kTimestampHigh, static_cast<std::uint32_t>(now >> 32));
            m_registers.Set(kTimestampLow, static_cast<std::uint32_t>(now));
        }
        break;
    case kMessagePort:
    case kMessageAddress:
        m_messages.SetDestination(
            {m_registers.Get(kMessageAddress), static_cast<std::uint16_t>(m_registers.Get(kMessagePort))});
        break;
    case kStreamPacketSize: {
        const std::uint32_t size = std::clamp(value & kPacketSizeMask & ~3U, kSmallestPacket, kLargestPacket);
        m_registers.Set(address, size | (value & kPacketDoNotFragment));
        if ((value & kPacketFireTest) != 0)
        {
            m_stream.FireTestPacket(
                {m_registers.Get(kStreamAddress), static_cast<std::uint16_t>(m_registers.Get(kStreamPort))}, size,
                (value & kPacketDoNotFragment) != 0);
        }
        break;
    }
    case kRdmaEnable:
        m_acquisition.EnableStream((value & kRdmaEnableOn) != 0);
        break;
    case kIpConfigCurrent:
    case kPersistentIp:
    case kPersistentMask:
    case kPersistentGateway:
        KeepIpConfiguration();
        break;
    default:
        if (address >= kUserName && address < kUserName + kUserNameSize)
        {
            KeepState();
        }
        break;
    }
}

void Device::ApplyFeature(std::uint32_t address)
{
    using namespace feature;
    switch (address)
    {
    case kAcquisitionStart:
        m_acquisition.Start();
        break;
    case kAcquisitionStop:
        m_acquisition.Stop();
        break;
    case kBinningHorizontal:
    case kBinningVertical:
    case kDecimationHorizontal:
    case kDecimationVertical:
        FitSize();
        ApplySettings();
        break;
    case kDeviceLinkHeartbeatTimeout:
        m_registers.Set(kHeartbeatTimeout, static_cast<std::uint32_t>(m_registers.GetFloat(address) / 1000));
        break;
    case kAcquisitionAbort:
        m_acquisition.Abort();
        break;
    case kCounterReset:
    case kCounterEventSource:
        ResetCounter();
        break;
    case kTriggerSoftware:
        TriggerSelected();
        break;
    case kTestEventGenerate:
        m_messages.Notify(EventKind::Test, 0);
        break;
    case kUserSetLoad:
        LoadUserSet(m_registers.Get(kUserSetSelector));
        break;
    case kAcquisitionFrameRate:
        m_registers.Set(kAcquisitionFrameRateEnable, 1);
        ApplySettings();
        break;
    case kUserSetDefault:
        KeepState();
        break;
    case kUserSetSave:
        SaveUserSet(m_registers.Get(kUserSetSelector));
        break;
    default:
        ApplySettings();
        break;
    }
}

void Device::Trigger()
{
    const std::lock_guard lock(m_mutex);
    TriggerSelected();
}

void Device::TriggerSelected()
{
    if (m_registers.Get(feature::kTriggerSelector) == 0)
    {
        m_acquisition.Trigger();
    }
    else
    {
        m_acquisition.TriggerBurst();
    }
}

void Device::ApplySettings()
{
    using namespace feature;
    FollowCounter();
    const Feature& rate = *FeatureAt(kAcquisitionFrameRate);
    m_registers.SetFloat(kAcquisitionFrameRate,
                         std::min(m_registers.GetFloat(kAcquisitionFrameRate), static_cast<float>(Maximum(rate))));
    const AcquisitionSettings settings = CurrentSettings();
    const PixelFormat& format = settings.picture.format;
    m_registers.Set(kPixelSize, format.bitsPerPixel);
    m_registers.Set(kPixelColorFilter, format.layout == PixelLayout::Bayer ? 1 : 0);
    m_registers.Set(kPixelDynamicRangeMax, format.levels - 1);
    m_registers.Set(kPayloadSize, static_cast<std::uint32_t>(settings.picture.Payload()));
    m_acquisition.Configure(settings);
    for (std::uint32_t i = 0; i < kEvents.size(); ++i)
    {
        m_messages.SetNotification(static_cast<EventKind>(i), m_registers.Get(kEventNotification + 4 * i) != 0);
    }
}

bool Device::Streaming() const
{
    return m_acquisition.Count().streamEnabled;
}

std::vector<std::uint8_t> Device::DiscoveryBody()
{
    constexpr std::size_t kDiscoveryBodySize = 248;
    const std::lock_guard lock(m_mutex);
    // The discovery record is the beginning of the bootstrap registers as it stands.
    std::vector<std::uint8_t> body(kDiscoveryBodySize);
    m_registers.ReadMemory(kVersion, body);
    return body;
}

void Device::Heartbeat(const Endpoint& from, std::chrono::milliseconds later)
{
    const std::lock_guard lock(m_mutex);
    m_privilege.Refresh(from, Clock::now() + later);
}

std::optional<Device::Clock::time_point> Device::CheckHeartbeat()
{
    const std::lock_guard lock(m_mutex);
    if ((m_registers.Get(kGvcpConfiguration) & kConfigHeartbeatDisable) != 0)
    {
        return std::nullopt;
    }
    const std::chrono::milliseconds timeout(m_registers.Get(kHeartbeatTimeout));
    if (m_privilege.Expire(timeout, Clock::now()))
    {
        EndControl();
    }
    return m_privilege.Deadline(timeout);
}

bool Device::PendingAckEnabled()
{
    const std::lock_guard lock(m_mutex);
    return (m_registers.Get(kGvcpConfiguration) & kConfigPendingAckEnable) != 0;
}

void Device::EndControl()
{
    m_privilege.Release();
    for (const std::uint32_t address : {kMessagePort, kStreamPort, kRdmaEnable, kGvcpConfiguration})
    {
        m_registers.Set(address, 0);
    }
    m_messages.SetDestination({});
    m_acquisition.EnableStream(false);
    m_acquisition.Stop();
    m_dropConnection();
}

void Device::TakePrivilege(std::uint32_t value)
{
    const std::lock_guard lock(m_mutex);
    EndControl();
    m_privilege.TakeAway(value, Clock::now());
}

void Device::ReleasePrivilege()
{
    const std::lock_guard lock(m_mutex);
    if (m_privilege.IsTakenAway())
    {
        EndControl();
    }
}

std::uint32_t Device::Privilege()
{
    const std::lock_guard lock(m_mutex);
    return m_privilege.Value();
}

} // namespace nq::camera
