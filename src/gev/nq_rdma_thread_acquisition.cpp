// SPDX-License-Identifier: Apache-2.0
// The acquisition loop.
#include "gev/nq_rdma_thread_acquisition.h"

#include "gev/nq_gev_data_stream.h"

#include <chrono>
#include <thread>

namespace
{

/// Once the endpoint has stopped by itself, as when the camera disconnected, every fetch fails at once until the
/// consumer stops the acquisition. The pause keeps that from taking a core; it changes no result.
constexpr std::chrono::milliseconds kPauseOnceStopped{2};

/// How often the thread looks whether the start that made it is over.
constexpr std::chrono::milliseconds kStartPoll{1};

} // namespace

NQRMAXThreadAcquisition::NQRMAXThreadAcquisition(NQGevDataStream* stream) : m_stream(stream) {}

NQRMAXThreadAcquisition::~NQRMAXThreadAcquisition()
{
    WaitForEnd();
}

void NQRMAXThreadAcquisition::Run()
{
    // A frame that were delivered before the start ends would not count.
    while (m_stream->IsStarting() && !MustStop())
    {
        std::this_thread::sleep_for(kStartPoll);
    }
    while (!MustStop())
    {
        if (m_stream->AcquireImage() != 0 && !m_stream->IsFlowing())
        {
            if (!MustStop())
            {
                m_stream->CameraLost();
            }
            std::this_thread::sleep_for(kPauseOnceStopped);
        }
    }
}

void NQRMAXThreadAcquisition::Stop()
{
    m_stop = true;
}

void NQRMAXThreadAcquisition::WaitForEnd()
{
    Stop();
    WaitUntilEnded();
}

void NQRMAXThreadAcquisition::StartAcquisition(unsigned long value)
{
    const GigERDMA::NQGenTLLock lock(m_threadLock);
    if (!IsRunning())
    {
        m_value = value;
        m_stop = false;
        Start();
    }
}
