// SPDX-License-Identifier: Apache-2.0
// Reads registers of a GigE Vision camera beside every producer: it opens no device and writes nothing.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace nq::tool
{

/// A UDP socket to one camera's control port. Used from one thread.
class GvcpReader
{
  public:
    /// `address` is dotted IPv4 text. Without a socket no register can be read.
    explicit GvcpReader(const std::string& address);
    ~GvcpReader();
    GvcpReader(const GvcpReader&) = delete;
    GvcpReader& operator=(const GvcpReader&) = delete;

    /// The value of a register; nothing when the camera refuses, or is silent for three times 200 ms.
    std::optional<uint32_t> Read(uint32_t registerAddress);

  private:
    enum class Answer
    {
        Value,
        Refused,
        None,
    };
    Answer Receive(uint32_t& value) const;

    int m_socket = -1;
    uint16_t m_request = 0;
};

} // namespace nq::tool
