// SPDX-License-Identifier: Apache-2.0
// One GVCP packet: a command being built, or the buffer into which an acknowledge is received.
#pragma once

#include "gige/gvcp_wire.h"

#include <atomic>
#include <vector>

namespace GigETL
{

/// A GVCP packet as it stands on the wire; every multi-byte field is big-endian (GigE Vision, GVCP headers).
///
/// A command takes its request id when it is built, so sending the object again repeats the id. An acknowledge is
/// matched against the newest id of the process: from building a command to checking its answer nobody else may build
/// one, which the lock of the camera layer sees to.
///
/// The accessors take byte offsets and do no range checks. Reentrant, but for getRequestID, which is thread-safe.
class Command
{
  public:
    /// Bytes of a receive buffer: a header and 540 bytes of body.
    static constexpr int kReceiveSize = gvcp_wire::kLargestPacket;

    /// Builds the command `command` (lower 16 bits) with `length` zero body bytes and the next request id. Throws
    /// std::length_error when `length` and the header together are a negative number of bytes in 32 bits.
    Command(unsigned int command, int length, unsigned char flags);

    /// Makes an empty receive buffer: size 0, kReceiveSize zero bytes.
    Command();

    /// The newest request id of the process, not the one inside this packet.
    static unsigned int getRequestID();

    unsigned char getByte(int offset) const;
    void setByte(int offset, unsigned char value);
    void setWord(int offset, unsigned short value);
    unsigned int getDWord(int offset) const;
    void setDWord(int offset, unsigned int value);

    /// Plain copies of `count` bytes, in the order they stand in.
    void readMemory(int offset, void* destination, unsigned int count) const;
    void writeMemory(int offset, const void* source, unsigned int count);

    /// Size in bytes of what is to be sent or was received.
    int getSize() const;
    void setSize(int size);

    /// Stores the length of a received packet; the buffer and its maximum size stay.
    void setReceivedSize(int size);

    /// Size in bytes of the buffer as it was made.
    int getMaxSize() const;

  private:
    friend class Network;

    static unsigned int nextRequestID();

    int mSize;
    int mMaxSize;
    std::vector<unsigned char> mBuffer;

    static std::atomic<unsigned int> mRequestID;
};

} // namespace GigETL
