// SPDX-License-Identifier: Apache-2.0
// The loop of a message receiver thread.
#include "gentl/nq_gentl_thread_message_receiver.h"

#include "gentl/nq_gentl_message_stream.h"

namespace GigERDMA
{

namespace
{

constexpr unsigned int kRunningBit = 1;

} // namespace

NQGenTLThreadMessageReceiver::NQGenTLThreadMessageReceiver(NQGenTLMessageStream* stream)
    : m_signal(kRunningBit), m_stream(stream)
{
}

NQGenTLThreadMessageReceiver::~NQGenTLThreadMessageReceiver()
{
    RequestExit();
    WaitUntilEnded();
}

bool NQGenTLThreadMessageReceiver::Start()
{
    if (IsRunning())
    {
        return false;
    }
    m_stream->OnInit();
    m_signal.SetEvent(kRunningBit);
    return NQGenTLThreadBase::Start();
}

void NQGenTLThreadMessageReceiver::Run()
{
    // The running bit is never cleared, so the wait is only the test for a kill; OnGetMessage paces the loop.
    while (m_signal.WaitForEvent(-1) <= ~NQEventHandler::kKillBits)
    {
        m_stream->OnGetMessage();
    }
    m_stream->OnDestroy();
}

void NQGenTLThreadMessageReceiver::RequestExit()
{
    m_signal.Kill();
}

void NQGenTLThreadMessageReceiver::WaitForExit()
{
    Wait();
}

} // namespace GigERDMA
