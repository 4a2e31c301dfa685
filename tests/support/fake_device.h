// SPDX-License-Identifier: Apache-2.0
// A device module that offers a device's events and nothing else.
#pragma once

#include "gentl/nq_gentl_device.h"

#include <string>
#include <vector>

namespace nq::test
{

class FakeDevice : public GigERDMA::NQGenTLDevice
{
  public:
    FakeDevice() : NQGenTLDevice(nullptr) {}

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

} // namespace nq::test
