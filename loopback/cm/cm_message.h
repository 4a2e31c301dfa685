// SPDX-License-Identifier: Apache-2.0
// What the connection managers of two processes say to each other.
#pragma once

#include "base/net_scope.h"

#include <cstdint>
#include <type_traits>

namespace nq::loopback
{

enum class CmKind : uint32_t
{
    Request,      ///< Carries the peer's ends of the data and the acknowledgement stream.
    WhoHas,       ///< Asks whether the destination is an address of the listener's host.
    Taken,        ///< The request has found its listener; or the answer yes to WhoHas.
    NotHere,      ///< The destination is no address of this listener's host.
    NoAnswer,     ///< Never sent: stands for silence.
    NotListening, ///< The address is right but nobody listens.
    Reply,        ///< Accepted.
    ReadyToUse,   ///< The reply has arrived.
    Reject,       ///< Refused, given up or too late; `status` says why.
    DisconnectRequest,
    DisconnectReply
};

/// Reasons of a rejection, from the InfiniBand specification's communication management.
enum RejectReason : uint32_t
{
    rejectTimeout = 4,
    rejectInvalidService = 8,
    rejectByConsumer = 28
};

/// Private data that fits into each message with the IP addressing of the connection manager in use.
constexpr uint8_t kRequestPrivateData = 56;
constexpr uint8_t kReplyPrivateData = 196;
constexpr uint8_t kRejectPrivateData = 148;

/// Both ends run on one machine and mostly from one build: the layout is that of the compiler, the version tells
/// others.
struct CmMessage
{
    static constexpr uint32_t kExpectedMagic = 0x4E514C33;

    uint32_t magic = kExpectedMagic;
    CmKind kind = CmKind::Request;
    uint32_t status = 0;
    uint32_t queuePairNumber = 0;
    uint64_t netScope = 0;
    bool destinationIsLocal = false;
    uint8_t responderResources = 0;
    uint8_t initiatorDepth = 0;
    uint8_t flowControl = 0;
    uint8_t retryCount = 7;
    uint8_t rnrRetryCount = 7;
    uint8_t sharedReceiveQueue = 0;
    uint8_t privateData[256] = {};
    Endpoint source;
    Endpoint destination;
};
static_assert(std::is_trivially_copyable_v<CmMessage>);

} // namespace nq::loopback
