// SPDX-License-Identifier: Apache-2.0
// A device module that offers a device's events and nothing else, and a consumer of such events.
#pragma once

#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_event.h"

#include <string>
#include <vector>

namespace nq::test
{

class FakeDevice : public GigERDMA::NQGenTLDevice
{
  public:
    /// With a `parent` it gives that one's answers.
    explicit FakeDevice(GigERDMA::NQGenTLModuleBase* parent = nullptr) : NQGenTLDevice(parent) {}

    using NQGenTLModuleBase::GetPortInfo;

    bool IsPortImplemented() override { return false; }
    bool IsEventImplemented(int id) override { return id == 4 || id == 5 || id == 4000; }
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override { return {}; }
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return {}; }
    int ReadPort(unsigned long, void*, unsigned long*) override { return -1003; }
    int WritePort(unsigned long, const void*, unsigned long*) override { return -1003; }
    std::string GetId() override { return "Fake"; }
    int DoOpen() override { return 0; }
    int DoClose() override { return 0; }
    int GetInfo(int, int*, void*, unsigned long*) override { return -1003; }
    int GetPort(void**) override { return -1003; }
    int GetNumDataStreams(unsigned int*) override { return -1003; }
    int GetDataStreamID(unsigned int, char*, unsigned long*) override { return -1003; }
    int OpenDataStream(const char*, void**) override { return -1003; }
};

/// One registered event of a module, read as a consumer reads it.
class RegisteredEvent
{
  public:
    RegisteredEvent(GigERDMA::NQGenTLModuleBase& module, int id)
    {
        void* handle = nullptr;
        module.RegisterEvent(id, &handle);
        m_event = static_cast<GigERDMA::NQGenTLEvent*>(handle);
    }

    /// The next record's bytes; empty when none came within `timeout` milliseconds.
    std::vector<unsigned char> Next(unsigned long timeout = 5000)
    {
        std::vector<unsigned char> record(1024, 0xEE);
        unsigned long size = record.size();
        if (m_event->GetData(record.data(), &size, timeout) != 0)
        {
            record.clear();
        }
        return record;
    }

    /// Number of records waiting.
    unsigned long Pending() { return m_event->GetNumInQueue(); }

  private:
    GigERDMA::NQGenTLEvent* m_event = nullptr;
};

} // namespace nq::test
