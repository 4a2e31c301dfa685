// SPDX-License-Identifier: Apache-2.0
// The message that allows a camera one more frame, and the longest receive that a frame can come into.
#pragma once

#include "rdma/gendc_wire.h"

#include <cstdint>
#include <memory>

/// Some network cards take a receive entry of 2^31 bytes or more for one of another kind.
inline constexpr std::uint32_t kLongestReceive = 0x7FFFFFFF;

/// The bytes of a ready message. Throws std::bad_alloc.
inline std::unique_ptr<unsigned char[]> MakeReadyMessage()
{
    auto message = std::make_unique<unsigned char[]>(gendc_wire::kReadySize);
    message[gendc_wire::kReadyFirst] = gendc_wire::kReadyMark;
    message[gendc_wire::kReadySecond] = gendc_wire::kReadyMark;
    return message;
}
