// SPDX-License-Identifier: Apache-2.0
// Building and reading of one GVCP packet.
#include "gige/gige_command.h"

#include "gige/gvcp_wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <stdexcept>

namespace GigETL
{
namespace
{

using gvcp_wire::kHeaderSize;

/// The size of a packet with `length` body bytes, wrapped around as 32-bit numbers are.
int packetSize(int length)
{
    return static_cast<int>(static_cast<unsigned int>(length) + static_cast<unsigned int>(kHeaderSize));
}

std::size_t bufferSize(int size)
{
    if (size < 0)
    {
        throw std::length_error("cannot create std::vector larger than max_size()");
    }
    return static_cast<std::size_t>(size);
}

} // namespace

std::atomic<unsigned int> Command::mRequestID{0};

Command::Command(unsigned int command, int length, unsigned char flags)
    : mSize(packetSize(length)), mMaxSize(mSize), mBuffer(bufferSize(mSize))
{
    const unsigned int id = nextRequestID();
    const auto body = static_cast<unsigned int>(mSize - kHeaderSize);
    const auto upper = [](unsigned int word) { return static_cast<unsigned char>(word >> 8 & 0xFF); };
    const auto lower = [](unsigned int word) { return static_cast<unsigned char>(word & 0xFF); };
    const std::array<unsigned char, kHeaderSize> header{gvcp_wire::kKey, flags,       upper(command), lower(command),
                                                        upper(body),     lower(body), upper(id),      lower(id)};
    std::copy_n(header.begin(), std::min(header.size(), mBuffer.size()), mBuffer.begin());
}

Command::Command() : mSize(0), mMaxSize(kReceiveSize), mBuffer(kReceiveSize) {}

unsigned int Command::getRequestID()
{
    return mRequestID.load(std::memory_order_relaxed);
}

unsigned int Command::nextRequestID()
{
    // 0 is never sent. A discovery builds its command outside the lock of the register exchanges, so the step is
    // atomic.
    unsigned int last = mRequestID.load(std::memory_order_relaxed);
    unsigned int next = 0;
    do
    {
        next = last + 1 > gvcp_wire::kLastRequestId ? 1 : last + 1;
    } while (!mRequestID.compare_exchange_weak(last, next, std::memory_order_relaxed));
    return next;
}

unsigned char Command::getByte(int offset) const
{
    return mBuffer[static_cast<std::size_t>(offset)];
}

void Command::setByte(int offset, unsigned char value)
{
    mBuffer[static_cast<std::size_t>(offset)] = value;
}

void Command::setWord(int offset, unsigned short value)
{
    const unsigned short word = htons(value);
    writeMemory(offset, &word, sizeof word);
}

unsigned int Command::getDWord(int offset) const
{
    unsigned int word = 0;
    readMemory(offset, &word, sizeof word);
    return ntohl(word);
}

void Command::setDWord(int offset, unsigned int value)
{
    const unsigned int word = htonl(value);
    writeMemory(offset, &word, sizeof word);
}

void Command::readMemory(int offset, void* destination, unsigned int count) const
{
    std::copy_n(mBuffer.begin() + offset, count, static_cast<unsigned char*>(destination));
}

void Command::writeMemory(int offset, const void* source, unsigned int count)
{
    std::copy_n(static_cast<const unsigned char*>(source), count, mBuffer.begin() + offset);
}

int Command::getSize() const
{
    return mSize;
}

void Command::setSize(int size)
{
    mSize = size;
}

void Command::setReceivedSize(int size)
{
    mSize = size;
}

int Command::getMaxSize() const
{
    return mMaxSize;
}

} // namespace GigETL
