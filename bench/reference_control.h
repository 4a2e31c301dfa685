// SPDX-License-Identifier: Apache-2.0
// Control of a camera over one plain UDP socket, for the references of the benchmarks: no code of the library is in it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace nq::bench
{

/// One GVCP exchange at a time: a send and a receive on a connected socket, nothing else. Numbers of registers are as
/// the GigE Vision bootstrap registers have them. Throws std::system_error where the socket fails, and
/// std::runtime_error where the camera refuses or is silent for a second. Used from one thread.
class ReferenceControl
{
  public:
    /// `camera` is a dotted IPv4 address.
    explicit ReferenceControl(const std::string& camera);
    /// Gives up the control that it has.
    ~ReferenceControl();
    ReferenceControl(const ReferenceControl&) = delete;
    ReferenceControl& operator=(const ReferenceControl&) = delete;

    /// Waits up to ten seconds for whoever still has control. Then the camera keeps this host for ten minutes without a
    /// heartbeat: a thread that sends some would be measured too.
    void TakeControl();

    std::uint32_t ReadRegister(std::uint32_t address);
    void WriteRegister(std::uint32_t address, std::uint32_t value);
    /// `size` is a multiple of 4, at most 536.
    void ReadMemory(std::uint32_t address, void* out, std::uint16_t size);

    /// Bytes of a frame behind its headers.
    std::uint64_t PayloadSize();
    void EnableStream(bool on);

  private:
    static constexpr std::size_t kLongestPacket = 548;
    using Packet = std::array<std::uint8_t, kLongestPacket>;

    /// Sends what `m_command` holds, `size` bytes with the header, and receives the acknowledge. Its status.
    std::uint16_t Exchange(std::uint16_t code, std::size_t size);
    std::uint16_t TryWrite(std::uint32_t address, std::uint32_t value);

    int m_socket;
    std::uint16_t m_id = 0;
    std::uint32_t m_heartbeat = 0; ///< What the camera had before; 0 without control.
    Packet m_command{};
    Packet m_answer{};
};

} // namespace nq::bench
