// SPDX-License-Identifier: Apache-2.0
// Who controls a camera, asked of the camera itself.
#pragma once

#include "camera_tree.h"
#include "exit_codes.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace nq::tool
{

/// The program that controls a camera, as far as the camera tells.
struct CameraOwner
{
    bool exclusive = false;   ///< nobody else may even read
    std::string address;      ///< dotted IPv4 text of its host; empty when not told
    uint16_t port = 0;        ///< its UDP port; 0 when not told
    uint32_t heartbeatMs = 0; ///< silence after which the camera takes it for gone; 0 when not told
};

/// Nothing when nobody controls the camera, when it does not answer, or when its address is not known.
std::optional<CameraOwner> AskForOwner(const CameraEntry& camera);

/// For example "10.77.0.1, UDP port 40000, exclusively".
std::string OwnerText(const CameraOwner& owner);

/// Returns once nobody controls the camera; has `tell` told that it waits. Throws ToolFailure(CameraInUse), with who
/// does and what to do, when that is not so until `end`, and ToolFailure(StopCode()) after a signal.
void AwaitFreeCamera(const CameraEntry& camera, std::chrono::steady_clock::time_point end,
                     const std::function<void(const std::string&)>& tell);

/// A producer refuses to open a camera that names no program which controls it.
class RefusedOpen : public ToolFailure
{
  public:
    /// What the camera itself says; only one that cannot be asked may be in use.
    enum class Answer
    {
        CannotBeAsked,
        Free,
        None
    };
    RefusedOpen(const CameraEntry& camera, GenTL::GC_ERROR code, Answer answer);

    /// For example "GC_ERR_ACCESS_DENIED (-1005)".
    const std::string& Refusal() const { return m_refusal; }

  private:
    std::string m_refusal;
};

/// Runs `open` once nobody controls the camera, and again when another program that waits as well was faster. A
/// producer may refuse what nobody controls, for it waits but a moment for the camera's word on that: a camera that can
/// be asked beside it is tried for longer. Throws what AwaitFreeCamera() and `open` throw; a ToolFailure(CameraInUse)
/// only when `waitSeconds` are over.
void OnceFree(const CameraEntry& camera, uint32_t waitSeconds, const std::function<void(const std::string&)>& tell,
              const std::function<void()>& open);

/// Makes sure that the camera, opened for control by our producer, is controlled by this program, which takes two
/// seconds at most when its answers are late. Throws what ThrowRefusedOpen() does.
void ConfirmControl(GenTLLibrary& library, GenTL::PORT_HANDLE remote, const CameraEntry& camera);

/// Throws why the producer refused with `code` to open the camera: ToolFailure, or RefusedOpen for what may pass.
[[noreturn]] void ThrowRefusedOpen(const CameraEntry& camera, GenTL::GC_ERROR code);

/// The failure of whatever wanted a camera that has answered, and does not now: which one, where, `why` it is known,
/// and what to do.
ToolFailure SilentCamera(const CameraEntry& camera, const std::string& why);

/// The same for a camera that was open, behind `what` was tried.
ToolFailure WentSilent(const CameraEntry& camera, const std::string& what);

/// For a camera that the interface cannot reach though nobody controls it.
constexpr const char* kOutOfReach = "out of reach: its subnet is not the one of the interface (`ip addr`)";

} // namespace nq::tool
