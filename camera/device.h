// SPDX-License-Identifier: Apache-2.0
// The camera as its registers show it.
#pragma once

#include "acquisition.h"
#include "camera_options.h"
#include "camera_state.h"
#include "control_privilege.h"
#include "device_clock.h"
#include "fault_plan.h"
#include "feature_table.h"
#include "message_channel.h"
#include "register_map.h"
#include "stream_channel.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace nq::camera
{

/// Reads and writes of the camera's registers, with all that they cause: control privilege and heartbeat, stream,
/// acquisition, events, test packets. It sees no packets of the control channel. Any thread may call any operation.
class Device
{
  public:
    using Clock = ControlPrivilege::Clock;

    /// What a write has led to.
    struct WriteResult
    {
        GvcpStatus status = GvcpStatus::Success;
        /// The camera takes this long before it acknowledges.
        std::chrono::milliseconds busy{0};
        /// The camera restarts once it has acknowledged.
        bool reset = false;
        /// The writer has control of the camera by it.
        bool tookControl = false;
    };

    /// `dropConnection` is called when the stream's connection is to end; it must not call back.
    Device(const CameraOptions& options, DeviceClock& clock, Acquisition& acquisition, MessageChannel& messages,
           StreamChannel& stream, FaultPlan& faults, std::function<void()> dropConnection);

    /// Reads one register for `from`.
    GvcpStatus ReadRegister(const Endpoint& from, std::uint32_t address, std::uint32_t& value);
    GvcpStatus ReadMemory(const Endpoint& from, std::uint32_t address, std::span<std::uint8_t> bytes);
    /// Writes one register, or four bytes of a longer memory write.
    WriteResult Write(const Endpoint& from, std::uint32_t address, std::uint32_t value);
    /// Whether a packet of `from` counts as coming from the holder of control.
    bool MayWrite(const Endpoint& from);
    /// Whether the holder of control has this address.
    bool IsControlledFrom(std::uint32_t address);

    /// The 248 bytes that a discovery acknowledge carries.
    std::vector<std::uint8_t> DiscoveryBody();

    /// Notes that `from` has sent a command, or gets the answer to one `later`: a host that waits for it is not quiet.
    void Heartbeat(const Endpoint& from, std::chrono::milliseconds later = {});
    /// Gives up the privilege of a holder that has been quiet for too long. The time of the next check, if any.
    std::optional<Clock::time_point> CheckHeartbeat();
    /// Whether the host understands pending acknowledges, and the time in milliseconds from which one is due.
    bool PendingAckEnabled();

    /// Notes how bright a picture came out, from 0 to 1; exposure and gain follow when they are automatic.
    void Measured(double brightness);

    /// Where the camera goes for a FORCEIP command: nowhere when it is meant for another camera, when an application
    /// has control, or when the address is none. Address 0 asks for what the configuration says.
    std::optional<LocalInterface> ForceIp(std::uint64_t mac, std::uint32_t address, std::uint32_t netmask,
                                          std::uint32_t gateway);
    /// The address that the configuration gives the camera when it is switched on.
    LocalInterface ConfiguredNetwork();
    /// Shows the address that the camera has.
    void SetNetwork(const LocalInterface& network);

    /// What TriggerSoftware does, whoever executes it.
    void Trigger();

    /// Switches off and on: all registers at their defaults, no privilege, no stream.
    void PowerCycle();
    /// Gives control to an application that never speaks.
    void TakePrivilege(std::uint32_t value);
    /// Ends what TakePrivilege began; without it nothing happens.
    void ReleasePrivilege();

    /// What the privilege register reads.
    std::uint32_t Privilege();

  private:
    LocalInterface NetworkAtStart() const;
    void KeepIpConfiguration();
    void AddIdentity();
    void AddChannels();
    void AddFeatures();
    void AddFeature(const Feature& feature);
    void AddDescription();
    void EndControl();
    GvcpStatus Check(std::uint32_t address, std::uint32_t value) const;
    bool IsLocked(const Feature& feature) const;
    double Minimum(const Feature& feature) const;
    double Maximum(const Feature& feature) const;
    double Step(const Feature& feature) const;
    bool FitsPixelFormat(std::uint32_t code) const;
    bool IsInRange(const Feature& feature, std::uint32_t value) const;
    void Apply(std::uint32_t address, std::uint32_t value);
    void ApplyBootstrap(std::uint32_t address, std::uint32_t value);
    void ApplyFeature(std::uint32_t address);
    void TriggerSelected();
    void ApplySettings();
    /// Makes size and offset show the same part of the sensor after its binning or decimation has changed.
    void FitSize();
    void FitDirection(std::uint32_t maximum, std::uint32_t size, std::uint32_t offset, std::uint32_t most,
                      std::uint32_t step);
    void RefreshBeforeRead(std::uint32_t address, std::size_t size);
    void RefreshFeatures();
    void RefreshLimit(const Feature& feature);
    bool IsAvailable(const Feature& feature) const;
    /// The features that user sets hold, as they stand.
    FeatureValues PresentValues() const;
    /// Sets them, as far as they fit the camera.
    void TakeValues(const FeatureValues& values);
    void LoadUserSet(std::uint32_t set);
    void SaveUserSet(std::uint32_t set);
    void KeepState();
    /// Microseconds of the next exposure.
    double Exposure() const;
    /// Pictures per second that DeviceLinkThroughputLimit leaves.
    double ThroughputRate() const;
    bool LineTimesExposure() const;
    /// Whether the width of the line's pulses takes the place of ExposureTime.
    bool TakesTriggerWidth() const;
    LineWave CurrentWave() const;
    TriggerSettings CurrentTrigger(std::uint32_t which) const;
    void RefreshLines();
    void RefreshTimer(Clock::time_point start, Clock::time_point now);
    /// What Counter0 has counted since it was reset or full.
    std::int64_t Counted(Clock::time_point now) const;
    /// Lets the counter go on from where it is when what it counts has changed.
    void FollowCounter();
    void ResetCounter();
    /// Without its look-up table.
    PictureSettings CurrentPicture() const;
    std::vector<std::uint8_t> LookUpTable() const;
    AcquisitionSettings CurrentSettings() const;
    bool Streaming() const;

    const CameraOptions m_options;
    DeviceClock& m_clock;
    Acquisition& m_acquisition;
    MessageChannel& m_messages;
    StreamChannel& m_stream;
    FaultPlan& m_faults;
    const std::function<void()> m_dropConnection;
    /// For GenICam, as text and in a ZIP archive.
    const std::string m_description;
    const std::string m_descriptionName;
    const std::vector<std::uint8_t> m_zippedDescription;

    std::mutex m_mutex;
    /// The address that the camera has.
    LocalInterface m_network;
    RegisterMap m_registers;
    ControlPrivilege m_privilege;
    EdgeCounter m_counter;
    /// The wave that `m_counter` is about.
    LineWave m_countedWave;
    /// The user set Default.
    FeatureValues m_defaults;
    CameraState m_state;
    /// False when the state file could not be written last.
    bool m_stateKept = true;
};

} // namespace nq::camera
