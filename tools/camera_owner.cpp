// SPDX-License-Identifier: Apache-2.0
// Who controls a camera, asked of the camera itself.
#include "camera_owner.h"

#include "gvcp_reader.h"
#include "shell_word.h"
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
constexpr uint32_t kOwnerPort = 0x0A04;
constexpr uint32_t kOwnerAddress = 0x0A14;

constexpr std::chrono::seconds kDoubt{2}; ///< for a refusal that the camera itself does not bear out
constexpr std::chrono::milliseconds kPause{250};

constexpr const char* kWaitAdvice = ". End that program; or give --wait SECONDS to wait until the camera is free";

std::string AnswerText(GenTL::GC_ERROR code)
{
    return fmt::format("{} ({})", ErrorName(code), code);
}

[[noreturn]] void ThrowInUse(const CameraEntry& camera, const CameraOwner& owner)
{
    const std::string gone =
        owner.heartbeatMs == 0 ? "" : fmt::format(", which it is {} ms after a crash", owner.heartbeatMs);
    throw ToolFailure(ExitCode::CameraInUse,
                      fmt::format("the camera {} is controlled by {}", camera.id, OwnerText(owner)),
                      fmt::format("{}{}.", kWaitAdvice, gone));
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

std::string SilentText(const CameraEntry& camera, GenTL::GC_ERROR code)
{
    const char* const answers =
        camera.address.empty() ? "the producer has listed it" : "it answered the search, but no read of a register";
    return SilentCamera(camera, fmt::format("{}, and cannot be opened: {}", answers, AnswerText(code))).what();
}

std::string TextOf(const CameraEntry& camera, GenTL::GC_ERROR code, RefusedOpen::Answer answer)
{
    switch (answer)
    {
    case RefusedOpen::Answer::Free:
        return fmt::format("the producer refuses to open the camera {}: {}, though nobody controls it: its answers may "
                           "come too late, `nq-gev doctor` measures them",
                           camera.id, AnswerText(code));
    case RefusedOpen::Answer::None:
        return SilentText(camera, code);
    case RefusedOpen::Answer::CannotBeAsked:
        break;
    }
    return fmt::format("the camera {} is controlled by another program, says the producer: {}", camera.id,
                       AnswerText(code));
}

/// A producer that cannot be asked beside it tells by no more knowing a camera that it has listed.
bool IsSilence(GenTL::GC_ERROR code, RefusedOpen::Answer answer)
{
    return answer == RefusedOpen::Answer::None ||
           (answer == RefusedOpen::Answer::CannotBeAsked && code == GenTL::GC_ERR_INVALID_ID);
}

std::string CameraAt(const CameraEntry& camera)
{
    return "the camera " + camera.id + (camera.address.empty() ? "" : " at " + camera.address);
}

std::string DoctorAdvice(const CameraEntry& camera)
{
    return fmt::format(". `nq-gev doctor --camera {}` tells more.",
                       ShellWord(camera.address.empty() ? camera.id : camera.address));
}

} // namespace

ToolFailure SilentCamera(const CameraEntry& camera, const std::string& why)
{
    return {ExitCode::CameraLost, fmt::format("{} is silent: {}", CameraAt(camera), why), DoctorAdvice(camera)};
}

ToolFailure WentSilent(const CameraEntry& camera, const std::string& what)
{
    return {ExitCode::CameraLost, fmt::format("{}: {} went silent", what, CameraAt(camera)), DoctorAdvice(camera)};
}

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
    : ToolFailure(CodeOf(answer), TextOf(camera, code, answer),
                  answer == Answer::CannotBeAsked ? fmt::format("{}.", kWaitAdvice) : ""),
      m_refusal(AnswerText(code))
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
    const RefusedOpen::Answer answer = AnswerOf(camera);
    const bool lostFromList = code == GenTL::GC_ERR_INVALID_ID && answer == RefusedOpen::Answer::Free;
    if (code == GenTL::GC_ERR_RESOURCE_IN_USE || code == GenTL::GC_ERR_ACCESS_DENIED || lostFromList)
    {
        throw RefusedOpen(camera, code, answer);
    }
    if (IsSilence(code, answer)) // waiting for a camera that is switched off is nobody's wish
    {
        throw ToolFailure(ExitCode::CameraLost, SilentText(camera, code));
    }
    GenTLLibrary::Check(code, "IFOpenDevice");
    throw ToolFailure(ExitCode::Failure, "IFOpenDevice gave no device");
}

} // namespace nq::tool
