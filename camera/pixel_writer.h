// SPDX-License-Identifier: Apache-2.0
// Puts samples one behind the other as a pixel format wants them.
#pragma once

#include "byte_order.h"
#include "pixel_format.h"

#include <cstdint>
#include <span>

namespace nq::camera
{

/// Samples of two bytes lie with the low byte first; packed ones fill each byte from its lowest bit on. The bytes must
/// be enough for all samples that are put.
class PixelWriter
{
  public:
    PixelWriter(const PixelFormat& format, std::span<std::uint8_t> bytes)
        : m_bits(format.SampleBits()), m_at(bytes.data())
    {
    }

    void Put(std::uint32_t sample)
    {
        if (m_bits == 8)
        {
            *m_at++ = static_cast<std::uint8_t>(sample);
        }
        else if (m_bits == 16)
        {
            PutLittle(m_at, static_cast<std::uint16_t>(sample));
            m_at += 2;
        }
        else
        {
            PutPacked(sample);
        }
    }

    /// Writes the bits of the last byte.
    void Finish()
    {
        if (m_waitingBits > 0)
        {
            *m_at = static_cast<std::uint8_t>(m_waiting);
        }
    }

  private:
    void PutPacked(std::uint32_t sample)
    {
        m_waiting |= sample << m_waitingBits;
        for (m_waitingBits += m_bits; m_waitingBits >= 8; m_waitingBits -= 8)
        {
            *m_at++ = static_cast<std::uint8_t>(m_waiting);
            m_waiting >>= 8;
        }
    }

    std::uint32_t m_bits;
    std::uint8_t* m_at;
    std::uint32_t m_waiting = 0;
    std::uint32_t m_waitingBits = 0;
};

} // namespace nq::camera
