// SPDX-License-Identifier: Apache-2.0
// A data stream whose transport a test plays.
#pragma once

#include "gentl/nq_gentl_data_stream.h"
#include "gentl/nq_gentl_util.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace nq::test
{

class FakeDataStream : public GigERDMA::NQGenTLDataStream
{
  public:
    explicit FakeDataStream(unsigned int index = 0, NQGenTLModuleBase* parent = nullptr)
        : NQGenTLDataStream(index, parent)
    {
    }

    using NQGenTLDataStream::DropFrame;
    using NQGenTLDataStream::ForgetLastRun;
    using NQGenTLDataStream::SetFrameDetails;
    using NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override { return false; }
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override { return {}; }
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return {}; }
    int ReadPort(unsigned long, void*, unsigned long*) override { return -1003; }
    int WritePort(unsigned long, const void*, unsigned long*) override { return -1003; }
    std::string GetId() override { return "Fake"; }

    int DoStartAcquisition(unsigned int biggestSize, unsigned int count) override
    {
        calls.push_back("start " + std::to_string(biggestSize) + " " + std::to_string(count));
        if (onLateFrame)
        {
            onLateFrame();
        }
        ForgetLastRun(); // as a transport whose blocks are made anew
        m_registered = 0;
        return onStart ? onStart() : 0;
    }
    int DoStopAcquisition(int flags) override
    {
        calls.push_back("stop " + std::to_string(flags));
        return onStop ? onStop() : 0;
    }
    int DoRequeueBuffer(void* rdmaId) override
    {
        if (room == 0)
        {
            return -1001;
        }
        --room;
        requeued.push_back(rdmaId);
        return requeueResult;
    }
    std::shared_ptr<const void> DoHandOver(void* rdmaId, const GigERDMA::NQGenTLBuffer*) override
    {
        handedOver.push_back(rdmaId);
        if (onHandOver)
        {
            onHandOver();
        }
        return std::exchange(share, nullptr);
    }
    GigERDMA::NQBlockMemory DoMakeMemory(unsigned long size) override
    {
        return hasMemory ? NQGenTLDataStream::DoMakeMemory(size) : GigERDMA::NQBlockMemory{};
    }
    void* DoRegisterBuffer(GigERDMA::NQGenTLBuffer&) override
    {
        return m_registered < ids.size() ? ids[m_registered++] : nullptr;
    }
    void DoForgetBuffer(void* rdmaId) override { forgotten.push_back(rdmaId); }
    int DoGetPayloadsize(int* piType, void* pBuffer, unsigned long* piSize) override
    {
        return NQGenTLUtil::CopyInfoInt64(payloadSize, piType, pBuffer, piSize);
    }

    std::vector<std::string> calls;
    std::vector<void*> requeued;
    std::vector<void*> handedOver;
    std::vector<void*> ids; ///< Of the blocks of buffers that are registered in a run, in this order.
    std::vector<void*> forgotten;
    bool hasMemory = true;
    int room = -1;                     ///< For how many more blocks the transport has room; negative for any number.
    std::function<void()> onLateFrame; ///< At the start of the next run, while the last one is not over yet.
    std::function<int()> onStart;
    std::function<int()> onStop;
    std::function<void()> onHandOver;
    std::shared_ptr<const void> share; ///< In the block handed over next.
    int requeueResult = 0;
    long payloadSize = 0;

  private:
    std::size_t m_registered = 0;
};

} // namespace nq::test
