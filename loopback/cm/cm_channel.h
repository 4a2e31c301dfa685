// SPDX-License-Identifier: Apache-2.0
// The Unix socket between the connection managers of two processes: who is at its other end, and its messages.
#pragma once

#include "base/unique_fd.h"
#include "cm/cm_message.h"

namespace nq::loopback
{

/// Whether the process at the other end runs as the effective user of this one. False for what is no connected socket.
bool PeerIsSameUser(int control);

/// Sends one message with up to two descriptors; false when the peer is gone or its buffer is full.
bool SendMessage(int control, const CmMessage& message, int first = -1, int second = -1);

/// Result of one attempt to read a message.
enum class Received
{
    Message,
    Nothing,
    End
};

/// Reads one message without waiting; descriptors that came with it go to `first` and `second`.
Received ReceiveMessage(int control, CmMessage& message, UniqueFd& first, UniqueFd& second);

} // namespace nq::loopback
