// SPDX-License-Identifier: Apache-2.0
// Who controls a camera, asked of the camera itself.
#include "camera_owner.h"

#include "gvcp_reader.h"
#include "stop_signals.h"

#include <algorithm>
#include <fmt/format.h>
#include <thread>
#include <utility>

namespace nq::tool
{

namespace
{

// Registers that every GigE Vision camera has.
constexpr uint32_t kHeartbeatTimeout = 0x0938;
constexpr uint32_t kControlPrivilege = 0x0A00; // bit 0: exclusive, bit 1: control
constexpr uint32_t kOwnerPort = 0x0A04;
constexpr uint32_t kOwnerAddress = 0x0A14;

constexpr std::chrono::seconds kDoubt{2}; ///< for a refusal that the camera itself does not bear out
constexpr std::chrono::milliseconds kPause{250};

std::string AnswerText(GenTL::GC_ERROR code)
{
    return fmt::format("{} ({})", ErrorName(code), code);
}

[[noreturn]] void ThrowInUse(const CameraEntry& camera, const CameraOwner& owner)
{
    const std::string gone =
        owner.heartbeatMs == 0 ? "" : fmt::format(", which it is {} ms after a crash", owner.heartbeatMs);
    throw ToolFailure(ExitCode::CameraInUse,
                      fmt::format("the camera {} is controlled by {}. End that program; or give --wait SECONDS to wait "
                                  "until the camera is free{}.",
                                  camera.id, OwnerText(owner), gone));
}

RefusedOpen::Answer AnswerOf(const CameraEntry& camera)
{
    return camera.address.empty()                               ? RefusedOpen::Answer::CannotBeAsked
           : GvcpReader(camera.address).Read(kControlPrivilege) ? RefusedOpen::Answer::Free
                                                                : RefusedOpen::Answer::None;
}

ExitCode CodeOf(RefusedOpen::Answer answer)
{
    return answer == RefusedOpen::Answer::CannotBeAsked ? ExitCode::CameraInUse
           : answer == RefusedOpen::Answer::Free        ? ExitCode::Failure
                                                        : ExitCode::CameraLost;
}

std::string TextOf(const CameraEntry& camera, GenTL::GC_ERROR code, RefusedOpen::Answer answer)
{
    const std::string refused =
        fmt::format("the producer refuses to open the camera {}: {}", camera.id, AnswerText(code));
    switch (answer)
    {
    case RefusedOpen::Answer::Free:
        return refused + ", though nobody controls it: its answers may come too late, `nq-gev doctor` measures them";
    case RefusedOpen::Answer::None:
        return fmt::format("{}, and at {} it answers no read of a register: `nq-gev doctor` tells more", refused,
                           camera.address);
    case RefusedOpen::Answer::CannotBeAsked:
        break;
    }
    return fmt::format("the camera {} is controlled by another program, says the producer: {}. End that program; or "
                       "give --wait SECONDS to wait until the camera is free.",
                       camera.id, AnswerText(code));
}

} // namespace

std::optional<CameraOwner> AskForOwner(const CameraEntry& camera)
{
    if (camera.address.empty())
    {
        return std::nullopt;
    }
    GvcpReader reader(camera.address);
    const std::optional<uint32_t> privilege = reader.Read(kControlPrivilege);
    if (!privilege || (*privilege & 3) == 0)
    {
        return std::nullopt;
    }
    CameraOwner owner;
    owner.exclusive = (*privilege & 1) != 0;
    owner.port = static_cast<uint16_t>(reader.Read(kOwnerPort).value_or(0));
    const uint32_t address = reader.Read(kOwnerAddress).value_or(0);
    owner.address = address == 0 ? "" : DottedAddress(address);
    owner.heartbeatMs = reader.Read(kHeartbeatTimeout).value_or(0);
    return owner;
}

std::string OwnerText(const CameraOwner& owner)
{
    return fmt::format("{}{}{}", owner.address.empty() ? "a program that it does not tell" : owner.address,
                       owner.port == 0 ? "" : fmt::format(", UDP port {}", owner.port),
                       owner.exclusive ? ", exclusively" : "");
}

void AwaitFreeCamera(const CameraEntry& camera, std::chrono::steady_clock::time_point end,
                     const std::function<void(const std::string&)>& tell)
{
    for (bool told = false;;)
    {
        EndIfStopAsked("stopped while another program controls the camera");
        const std::optional<CameraOwner> owner = AskForOwner(camera);
        if (!owner)
        {
            return;
        }
        if (std::chrono::steady_clock::now() >= end)
        {
            ThrowInUse(camera, *owner);
        }
        if (!told)
        {
            tell(fmt::format("waiting for the camera, which {} controls", OwnerText(*owner)));
            told = true;
        }
        std::this_thread::sleep_for(kPause);
    }
}

void OnceFree(const CameraEntry& camera, uint32_t waitSeconds, const std::function<void(const std::string&)>& tell,
              const std::function<void()>& open)
{
    const auto start = std::chrono::steady_clock::now();
    const auto end = start + std::chrono::seconds(waitSeconds);
    const auto endOfRefusals = camera.address.empty() ? end : std::max(end, start + kDoubt);
    for (bool told = false;;)
    {
        AwaitFreeCamera(camera, end, tell);
        try
        {
            open();
            return;
        }
        catch (const RefusedOpen& refused)
        {
            if (std::chrono::steady_clock::now() >= endOfRefusals)
            {
                throw;
            }
            if (!std::exchange(told, true))
            {
                tell("waiting for the camera, which the producer refuses to open: " + refused.Refusal());
            }
            std::this_thread::sleep_for(kPause);
        }
        catch (const ToolFailure& failure)
        {
            if (failure.Code() != ExitCode::CameraInUse || std::chrono::steady_clock::now() >= end)
            {
                throw;
            }
        }
    }
}

void ConfirmControl(GenTLLibrary& library, GenTL::PORT_HANDLE remote, const CameraEntry& camera)
{
    // Our producer opens a camera also when another program takes the control at that moment. The camera itself tells
    // by refusing to give what this program should have. An answer that is late is no refusal.
    const auto end = std::chrono::steady_clock::now() + kDoubt;
    for (;;)
    {
        const uint8_t control[4] = {0, 0, 0, 2};
        size_t size = sizeof control;
        const GenTL::GC_ERROR code = library.GCWritePort(remote, kControlPrivilege, control, &size);
        if (code == GenTL::GC_ERR_SUCCESS)
        {
            return;
        }
        if (code == GenTL::GC_ERR_ACCESS_DENIED || std::chrono::steady_clock::now() >= end)
        {
            ThrowRefusedOpen(camera, code);
        }
    }
}

RefusedOpen::RefusedOpen(const CameraEntry& camera, GenTL::GC_ERROR code, Answer answer)
    : ToolFailure(CodeOf(answer), TextOf(camera, code, answer)), m_refusal(AnswerText(code))
{
}

void ThrowRefusedOpen(const CameraEntry& camera, GenTL::GC_ERROR code)
{
    if (const std::optional<CameraOwner> owner = AskForOwner(camera))
    {
        ThrowInUse(camera, *owner);
    }
    if (!camera.address.empty() && camera.accessStatus == GenTL::DEVICE_ACCESS_STATUS_NOACCESS)
    {
        throw ToolFailure(ExitCode::Failure,
                          fmt::format("the camera {} at {} is {}", camera.id, camera.address, kOutOfReach));
    }
    if (code == GenTL::GC_ERR_RESOURCE_IN_USE || code == GenTL::GC_ERR_ACCESS_DENIED)
    {
        throw RefusedOpen(camera, code, AnswerOf(camera));
    }
    GenTLLibrary::Check(code, "IFOpenDevice");
    throw ToolFailure(ExitCode::Failure, "IFOpenDevice gave no device");
}

} // namespace nq::tool
