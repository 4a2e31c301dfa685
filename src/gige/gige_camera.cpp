// SPDX-License-Identifier: Apache-2.0
// The request and acknowledge exchange with one camera.
#include "gige/gige_camera.h"

#include "gige/gige_camera_impl.h"
#include "gige/gige_camera_map.h"
#include "gige/gige_mutex.h"
#include "gige/gvcp_wire.h"

#include <array>
#include <cstring>
#include <string_view>

namespace GigETL
{
namespace
{

constexpr long kFirstWaitMicroseconds = 200000;
constexpr long kSecondWaitMicroseconds = 400000;
constexpr long kDrainMicroseconds = 1000;
constexpr int kAttempts = 4;

/// Which outcomes of the first wait lead to a second sending.
enum class Resend
{
    AfterTimeout,
    AfterAnyFailure,
};

/// Sends the command and waits for a datagram, with one repetition of the same packet.
NQGigE_RETURN exchange(Network& network, Command& command, Command& ack, Resend resend) NQ_REQUIRES(GigETL::lock)
{
    NQGigE_RETURN result = network.sendCommand(command);
    if (result != NQGigE_SUCCESS)
    {
        return result;
    }
    timeval wait{0, kFirstWaitMicroseconds};
    result = network.receiveCommand(ack, &wait, nullptr, nullptr);
    if (result == NQGigE_SUCCESS || (resend == Resend::AfterTimeout && result != NQGigE_TIMEOUT))
    {
        return result;
    }
    command.setByte(gvcp_wire::kFlagsOffset, gvcp_wire::kAckRequired);
    result = network.sendCommand(command);
    if (result != NQGigE_SUCCESS)
    {
        return result;
    }
    wait = {0, kSecondWaitMicroseconds};
    return network.receiveCommand(ack, &wait, nullptr, nullptr);
}

/// One register exchange: a command made by `make` per attempt, a new one as long as the answers do not match.
template <typename Make>
NQGigE_RETURN registerExchange(Network& network, Command& ack, unsigned int ackCode, Make make)
    NQ_REQUIRES(GigETL::lock)
{
    network.dropOwedAnswers();
    NQGigE_RETURN result = NQGigE_BAD_ACK;
    for (int attempts = kAttempts; attempts > 0 && result == NQGigE_BAD_ACK; --attempts)
    {
        Command command = make();
        result = exchange(network, command, ack, Resend::AfterTimeout);
        if (result == NQGigE_SUCCESS)
        {
            result = Camera::validateAck(network, ack, Command::getRequestID(), ackCode);
        }
    }
    return result;
}

} // namespace

Camera::Camera(unsigned int ip, unsigned int port, unsigned int localIP, MULTICAST_MODE mode)
    : mImpl(std::make_unique<CameraImpl>(ip, port, localIP, mode))
{
}

Camera::~Camera() = default;

NQGigE_RETURN Camera::setGigECameraRegister(unsigned int address, unsigned int value)
{
    const NQLock guard(GigETL::lock);
    Network& network = *mImpl->mNetwork;
    if (network.isBroadcasting())
    {
        return NQGigE_NO_CONNECTION;
    }
    Command ack;
    return registerExchange(network, ack, gvcp_wire::kWriteRegisterAck, [&] {
        Command command(gvcp_wire::kWriteRegister, gvcp_wire::kWriteRegisterBody, gvcp_wire::kAckRequired);
        command.setDWord(gvcp_wire::kAddressOffset, address);
        command.setDWord(gvcp_wire::kWrittenValueOffset, value);
        return command;
    });
}

NQGigE_RETURN Camera::setGigECameraRegister(unsigned int address1, unsigned int value1, unsigned int address2,
                                            unsigned int value2)
{
    const NQGigE_RETURN result = setGigECameraRegister(address1, value1);
    return result == NQGigE_SUCCESS ? setGigECameraRegister(address2, value2) : result;
}

NQGigE_RETURN Camera::getGigECameraRegister(unsigned int address, unsigned int* value)
{
    const NQLock guard(GigETL::lock);
    *value = 0xFFFFFFFF;
    Network& network = *mImpl->mNetwork;
    if (network.isBroadcasting())
    {
        return NQGigE_NO_CONNECTION;
    }
    Command ack;
    const NQGigE_RETURN result = registerExchange(network, ack, gvcp_wire::kReadRegisterAck, [&] {
        Command command(gvcp_wire::kReadRegister, gvcp_wire::kReadRegisterBody, gvcp_wire::kAckRequired);
        command.setDWord(gvcp_wire::kAddressOffset, address);
        return command;
    });
    if (result == NQGigE_SUCCESS)
    {
        *value = ack.getDWord(gvcp_wire::kReadValueOffset);
    }
    return result;
}

NQGigE_RETURN Camera::getGigECameraRegister2(unsigned int address1, unsigned int* value1, unsigned int address2,
                                             unsigned int* value2)
{
    *value1 = 0;
    *value2 = 0;
    unsigned int first = 0;
    unsigned int second = 0;
    NQGigE_RETURN result = getGigECameraRegister(address1, &first);
    if (result == NQGigE_SUCCESS)
    {
        result = getGigECameraRegister(address2, &second);
    }
    if (result == NQGigE_SUCCESS)
    {
        *value1 = first;
        *value2 = second;
    }
    return result;
}

NQGigE_RETURN Camera::writeCameraMemory(unsigned int address, unsigned char* data, unsigned int count)
{
    Command ack;
    if (count > gvcp_wire::kLargestWrite)
    {
        return NQGigE_WRONG_SIZE;
    }
    const NQLock guard(GigETL::lock);
    Network& network = *mImpl->mNetwork;
    network.dropOwedAnswers();
    // The address and the data, padded to whole words by the zeros of the new packet.
    const unsigned int body = (gvcp_wire::kAddressSize + count + 3) & ~3U;
    Command command(gvcp_wire::kWriteMemory, static_cast<int>(body), gvcp_wire::kAckRequired);
    if (network.isBroadcasting())
    {
        return NQGigE_NO_CONNECTION;
    }
    command.setDWord(gvcp_wire::kAddressOffset, address);
    command.writeMemory(gvcp_wire::kDataOffset, data, count);
    const NQGigE_RETURN result = exchange(network, command, ack, Resend::AfterTimeout);
    return result == NQGigE_SUCCESS ? validateAck(network, ack, Command::getRequestID(), gvcp_wire::kWriteMemoryAck)
                                    : result;
}

NQGigE_RETURN Camera::readCameraMemory(unsigned int address, unsigned char* data, unsigned int count)
{
    Command ack;
    const NQLock guard(GigETL::lock);
    Network& network = *mImpl->mNetwork;
    network.dropOwedAnswers();
    Command command(gvcp_wire::kReadMemory, gvcp_wire::kReadMemoryBody, gvcp_wire::kAckRequired);
    if (network.isBroadcasting())
    {
        return NQGigE_NO_CONNECTION;
    }
    command.setDWord(gvcp_wire::kAddressOffset, address);
    command.setWord(gvcp_wire::kReadCountOffset, static_cast<unsigned short>(count & 0xFFFF));
    NQGigE_RETURN result = exchange(network, command, ack, Resend::AfterAnyFailure);
    if (result == NQGigE_SUCCESS)
    {
        result = validateAck(network, ack, Command::getRequestID(), gvcp_wire::kReadMemoryAck);
    }
    if (result != NQGigE_SUCCESS)
    {
        return result;
    }
    if (static_cast<long>(ack.getSize()) - gvcp_wire::kDataOffset < static_cast<long>(count))
    {
        return NQGigE_WRONG_SIZE;
    }
    ack.readMemory(gvcp_wire::kDataOffset, data, count);
    return NQGigE_SUCCESS;
}

NQGigE_RETURN Camera::processUnlink()
{
    return setGigECameraRegister(gvcp_wire::kRegStreamPort, 0, gvcp_wire::kRegStreamAddress, 0);
}

NQGigE_RETURN Camera::validateAck(Network& network, const Command& ack, unsigned int id, unsigned int code)
{
    const unsigned int statusAndCode = ack.getDWord(gvcp_wire::kStatusOffset);
    const unsigned int lengthAndId = ack.getDWord(gvcp_wire::kLengthOffset);
    if ((lengthAndId & 0xFFFF) == id && (statusAndCode & 0xFFFF) == code)
    {
        return static_cast<NQGigE_RETURN>(statusAndCode >> 16);
    }
    // A wrong answer is mostly a late one, and then the right one may be close behind it.
    timeval wait{0, kDrainMicroseconds};
    Command scratch;
    network.receiveCommand(scratch, &wait, nullptr, nullptr);
    return NQGigE_BAD_ACK;
}

const NQGigE_CAMERA* Camera::findByIP_FromCameraNetworkParameter() const
{
    return cameras.find(getIP());
}

unsigned long Camera::handle() const
{
    return mImpl->mHandle;
}

Network* Camera::getNetwork() const
{
    return mImpl->mNetwork.get();
}

Network* Camera::getControlConnection() const
{
    return mImpl->mNetwork.get();
}

unsigned int Camera::getIP() const
{
    return mImpl->mNetwork ? mImpl->mNetwork->getRemoteIP() : 0;
}

unsigned int Camera::getLocalIP() const
{
    return mImpl->mNetwork ? mImpl->mNetwork->getLocalIP() : 0;
}

unsigned int Camera::getLocalPort() const
{
    return mImpl->mNetwork ? mImpl->mNetwork->getLocalPort() : 0;
}

bool Camera::isConnected() const
{
    return mImpl->mConnected;
}

int Camera::isNetworkInterfaceValid() const
{
    return 0;
}

int Camera::isNetworkInterfaceValid2() const
{
    return 0;
}

unsigned int Camera::getInterfaceIP() const
{
    return 0;
}

unsigned int Camera::getInterfaceSubnetMask() const
{
    return 0;
}

int Camera::checkBuildNumber(int) const
{
    return 0;
}

unsigned char atohex(char digit)
{
    if (digit >= '0' && digit <= '9')
    {
        return static_cast<unsigned char>(digit - '0');
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? static_cast<unsigned char>(lower - 'a' + 10) : static_cast<unsigned char>(0);
}

unsigned short hexstringtovalue(const char* text)
{
    if (std::string_view(text).size() < 4)
    {
        return 0;
    }
    return static_cast<unsigned short>(hextoc(text) << 8 | hextoc(text + 2));
}

unsigned char hextoc(const char* text)
{
    if (text[0] == '\0')
    {
        return 0;
    }
    return static_cast<unsigned char>(atohex(text[0]) << 4 | atohex(text[1]));
}

} // namespace GigETL
