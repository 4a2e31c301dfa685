// SPDX-License-Identifier: Apache-2.0
// Reliable register and memory access to one camera, and the discovery of cameras by broadcast.
#pragma once

#include "gige/gige_network.h"
#include "gige/nqgige_types.h"

#include <memory>

namespace GigETL
{

class CameraImpl;

/// One opened camera. A request that stays unanswered is repeated once: 200 ms of waiting, the same packet again, 400
/// ms of waiting. A register request whose answer does not match is made anew, with a new id, up to four times in all.
///
/// A camera answers both copies of a repeated command, and answers late where a wrong answer was taken for its own.
/// What is still to come of an exchange is awaited and dropped at the start of this camera's next one, for 400 ms from
/// the last send at most, so that it is not taken for the next answer.
///
/// Thread-safe, but for getLocalIP and getLocalPort, which are reentrant: every exchange is one critical section under
/// GigETL::lock, across all cameras. A silent camera holds up the others for 600 ms, one whose answer is owed for 400
/// ms more, and either longer while the camera asks for more time. Failures are NQGigE_RETURN codes, of which each
/// exchange can give NQGigE_NO_CONNECTION, NQGigE_TIMEOUT, NQGigE_SOCKET_ERROR, NQGigE_BAD_ACK and the camera's own
/// status; only running out of memory throws.
class Camera
{
  public:
    /// `ip`, `port` and `localIP` in host order; the local port is the system's choice. An `ip` of 0 gives a camera in
    /// broadcast state, which refuses every exchange with NQGigE_NO_CONNECTION.
    Camera(unsigned int ip, unsigned int port, unsigned int localIP, MULTICAST_MODE mode);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    /// Writes one register.
    NQGigE_RETURN setGigECameraRegister(unsigned int address, unsigned int value);

    /// Writes the first register and, if that succeeds, the second. The first failure.
    NQGigE_RETURN setGigECameraRegister(unsigned int address1, unsigned int value1, unsigned int address2,
                                        unsigned int value2);

    /// Reads one register; `*value` is 0xFFFFFFFF on every failure.
    NQGigE_RETURN getGigECameraRegister(unsigned int address, unsigned int* value);

    /// Reads two registers; both values are 0 unless both reads succeed. The first failure.
    NQGigE_RETURN getGigECameraRegister2(unsigned int address1, unsigned int* value1, unsigned int address2,
                                         unsigned int* value2);

    /// Writes `count` bytes in one exchange without a new attempt on a wrong answer. NQGigE_WRONG_SIZE above 520 bytes.
    NQGigE_RETURN writeCameraMemory(unsigned int address, unsigned char* data, unsigned int count);

    /// Reads `count` bytes in one exchange. NQGigE_WRONG_SIZE when the answer holds fewer; no answer holds more than
    /// 536.
    NQGigE_RETURN readCameraMemory(unsigned int address, unsigned char* data, unsigned int count);

    /// Broadcasts one discovery from `localIP`, calls `callback` for each camera that answers within `timeoutMs`
    /// milliseconds in all, and keeps a record of each. NQGigE_SUCCESS as soon as any camera is known, an earlier
    /// discovery's included; else why the wait ended, NQGigE_TIMEOUT mostly. NQGigE_NO_LOCAL_PORT without a port to
    /// receive at. Takes no lock: a register exchange on another thread makes it skip answers.
    static NQGigE_RETURN discoverCameras(unsigned int port, unsigned int localIP, unsigned long timeoutMs,
                                         NQGigE_CALLBACK callback, void* context);

    /// Forgets every discovered camera. Always NQGigE_SUCCESS.
    static NQGigE_RETURN shutdownCameras();

    /// Closes the camera's stream channel: 0 to its port and, if that succeeds, to its destination address.
    NQGigE_RETURN processUnlink();

    /// The status of the acknowledge when its id and code are the expected ones. Else NQGigE_BAD_ACK, after taking at
    /// most one further datagram that was waiting, unseen, from the network. Reentrant.
    static NQGigE_RETURN validateAck(Network& network, const Command& ack, unsigned int id, unsigned int code);

    /// The discovered camera with this camera's address, or null. Valid until the next discovery or shutdownCameras().
    const NQGigE_CAMERA* findByIP_FromCameraNetworkParameter() const;

    /// 32-bit sum of address and port: the same for every opening of one camera.
    unsigned long handle() const;

    /// The camera's network, owned by it.
    Network* getNetwork() const;
    Network* getControlConnection() const;

    /// Addresses and port in host order; the local ones 0 when unknown.
    unsigned int getIP() const;
    unsigned int getLocalIP() const;
    unsigned int getLocalPort() const;

    /// Always false.
    bool isConnected() const;

    // Always 0.

    int isNetworkInterfaceValid() const;
    int isNetworkInterfaceValid2() const;
    unsigned int getInterfaceIP() const;
    unsigned int getInterfaceSubnetMask() const;
    int checkBuildNumber(int build) const;

  private:
    std::unique_ptr<CameraImpl> mImpl;
    [[maybe_unused]] unsigned int mReserved = 0;
    [[maybe_unused]] unsigned short mReserved2 = 0;
};

// Reentrant.

/// Value of one hexadecimal digit of either case; 0 for any other character.
unsigned char atohex(char digit);

/// Value of the first four hexadecimal digits; 0 for a text shorter than four.
unsigned short hexstringtovalue(const char* text);

/// Value of the first two hexadecimal digits.
unsigned char hextoc(const char* text);

} // namespace GigETL
