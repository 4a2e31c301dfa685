// SPDX-License-Identifier: Apache-2.0
// A camera's message channel, whatever carries it: a receiver thread that turns messages into remote device events.
#pragma once

#include <memory>

namespace GigERDMA
{

class NQGenTLDevice;
class NQGenTLThreadMessageReceiver;

/// The owner starts it after the camera is open and stops it before the camera closes. Start and Stop are reentrant. It
/// must be stopped before it is destroyed: the receiver thread calls the subclass's operations.
class NQGenTLMessageStream
{
  public:
    /// `device` gets the events, is not owned and outlives this object.
    NQGenTLMessageStream(int channelId, NQGenTLDevice* device);
    virtual ~NQGenTLMessageStream();
    NQGenTLMessageStream(const NQGenTLMessageStream&) = delete;
    NQGenTLMessageStream& operator=(const NQGenTLMessageStream&) = delete;

    /// Sets the channel up; thread-bound to the thread that calls Start. The receiver thread runs whatever it returns.
    virtual bool OnInit() = 0;

    /// Tears the channel down. Thread-bound to the receiver thread.
    virtual void OnDestroy() = 0;

    /// Waits a short while for one message and handles it. Thread-bound to the receiver thread.
    virtual void OnGetMessage() = 0;

    /// The number that the constructor was given. Thread-safe.
    unsigned int GetChannelID() const { return m_channelId; }

    /// Makes and starts the receiver thread unless there is one.
    void Start();

    /// Ends and deletes the receiver thread, if there is one.
    void Stop();

    /// Signals the device's remote device event, if the consumer registered it and `data` is not null. `length` is in
    /// bytes, at most 540; more ends the process. The data are copied. Thread-safe.
    void TriggerRemoteDeviceEvent(unsigned int id, unsigned short length, void* data);

  private:
    const unsigned int m_channelId;
    NQGenTLDevice* const m_device;
    std::unique_ptr<NQGenTLThreadMessageReceiver> m_receiver;
};

} // namespace GigERDMA
