// SPDX-License-Identifier: Apache-2.0
// Reads and writes registers of a GigE Vision camera beside every producer: it opens no device.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>

namespace nq::tool
{

/// GigE Vision bootstrap register with bit 0 for exclusive access and bit 1 for control.
constexpr uint32_t kControlPrivilege = 0x0A00;
/// UDP port of every camera's end of the control channel.
constexpr uint16_t kControlPort = 3956;

/// A UDP socket to one camera's control port. Used from one thread.
class GvcpReader
{
  public:
    /// `address` is dotted IPv4 text. Without a socket no register can be read.
    explicit GvcpReader(const std::string& address);
    ~GvcpReader();
    GvcpReader(const GvcpReader&) = delete;
    GvcpReader& operator=(const GvcpReader&) = delete;

    /// The value of a register; nothing when the camera refuses, or is silent for three times 200 ms, and the time more
    /// that it asks for, up to 10 s.
    std::optional<uint32_t> Read(uint32_t registerAddress);

    /// False when the camera refuses or is silent as long. Most registers want control, which is by this socket too.
    bool Write(uint32_t registerAddress, uint32_t value);

    /// Whether nothing came to the last read or write; a refusal is an answer.
    bool IsSilent() const { return m_silent; }

  private:
    enum class Answer
    {
        Value,
        Refused,
        Nobody, ///< the host there says that no program has the port
        None,
    };
    /// The answer to a command of these words.
    Answer Ask(uint16_t code, std::initializer_list<uint32_t> words, uint32_t& value);
    Answer AskAgainAndAgain(uint16_t code, std::initializer_list<uint32_t> words, uint32_t& value);
    Answer Receive(uint16_t code, uint32_t& value) const;

    int m_socket = -1;
    uint16_t m_request = 0;
    bool m_silent = false;
};

} // namespace nq::tool
