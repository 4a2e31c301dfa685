// SPDX-License-Identifier: Apache-2.0
// A camera for tests that is nothing but a map of registers, a map of bytes, and a list of what was asked of them.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace nq::test
{

class Host;

/// Answers GVCP on UDP port 3956 (GigE Vision, GVCP: discovery, read and write of registers and memory) and records
/// each datagram. Registers and bytes that were never set read 0. It takes every write from everybody: it knows no
/// privilege and no heartbeat, so a test sees exactly what the library sends. All operations may be called from any
/// thread.
class RegisterCamera
{
  public:
    using Bytes = std::vector<unsigned char>;

    /// Answers on all addresses of the caller's namespace, or of `host`'s. Throws std::system_error when the port is
    /// taken.
    explicit RegisterCamera(const Host* host = nullptr);
    ~RegisterCamera();
    RegisterCamera(const RegisterCamera&) = delete;
    RegisterCamera& operator=(const RegisterCamera&) = delete;

    void SetRegister(std::uint32_t address, std::uint32_t value);
    std::uint32_t Register(std::uint32_t address);

    void SetMemory(std::uint32_t address, const Bytes& bytes);
    void SetMemory(std::uint32_t address, const std::string& text);
    Bytes Memory(std::uint32_t address, std::size_t size);

    /// Every further access to `address` is answered with this GVCP status and changes nothing. 0 ends it.
    void SetStatus(std::uint32_t address, std::uint16_t status);

    /// A silent camera records but does not answer.
    void SetSilent(bool silent) { m_silent = silent; }

    /// Body of the discovery acknowledge, 248 bytes; without one discoveries are not answered.
    void SetDiscovery(const Bytes& body);

    /// Called after each register write, on the camera's thread. It may call the camera.
    void OnWrite(std::function<void(std::uint32_t address, std::uint32_t value)> reaction);

    /// Sends a datagram from the control port.
    void Send(const std::string& address, std::uint16_t port, const Bytes& datagram) const;

    /// What was asked so far, in words, oldest first:
    ///
    ///     "read 0x0A00"                     "read memory 0x0200, 512 bytes"
    ///     "write 0x0A00 = 0x00000002"       "write memory 0x1000, 8 bytes"
    ///     "discovery"                       "other"
    std::vector<std::string> Accesses();

    /// The same without those that equal `left`.
    std::vector<std::string> AccessesBut(const std::string& left);

    /// How often it was asked.
    std::size_t Count(const std::string& access);

    /// True once it was asked at least `times` times.
    bool WaitFor(const std::string& access, std::size_t times = 1,
                 std::chrono::milliseconds timeout = std::chrono::seconds(5));

    /// The datagrams behind Accesses(), byte for byte.
    std::vector<Bytes> Datagrams();

    /// Forgets what was asked so far.
    void Forget();

  private:
    void Serve();
    Bytes Answer(const Bytes& datagram);
    Bytes AnswerRead(std::uint32_t address);
    std::uint16_t Write(std::uint32_t address, std::uint32_t value);
    Bytes AnswerReadMemory(std::uint32_t address, std::size_t count);
    std::uint16_t StatusOf(std::uint32_t address) const;

    int m_socket = -1;
    int m_stop = -1;
    std::atomic<bool> m_silent = false;
    std::mutex m_mutex;
    std::condition_variable m_asked;
    std::map<std::uint32_t, std::uint32_t> m_registers;
    std::map<std::uint32_t, unsigned char> m_memory;
    std::map<std::uint32_t, std::uint16_t> m_status;
    Bytes m_discovery;
    std::function<void(std::uint32_t, std::uint32_t)> m_reaction;
    std::vector<std::string> m_accesses;
    std::vector<Bytes> m_datagrams;
    std::thread m_thread;
};

} // namespace nq::test
