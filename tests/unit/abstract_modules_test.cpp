// SPDX-License-Identifier: Apache-2.0
// The fixed words by which handles are told apart.
#include "gentl/nq_gentl_buffer.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_remote_device.h"
#include "gentl/nq_gentl_system.h"
#include "support/fake_data_stream.h"
#include "support/fake_device.h"

#include <gmock/gmock.h>

namespace
{

/// Supplies the operations that a kind of module leaves to its transport and that do not matter here.
template <typename Base>
class Plain : public Base
{
  public:
    Plain() : Base(nullptr) {}
    bool IsPortImplemented() override { return false; }
    bool IsEventImplemented(int) override { return false; }
    GigERDMA::_NQ_GENTL_PORT_INFO GetPortInfo() override { return {}; }
    GigERDMA::_NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return {}; }
    int ReadPort(unsigned long, void*, unsigned long*) override { return 0; }
    int WritePort(unsigned long, const void*, unsigned long*) override { return 0; }
    std::string GetId() override { return ""; }
    int DoOpen() override { return 0; }
    int DoClose() override { return 0; }
};

struct System : Plain<GigERDMA::NQGenTLSystem>
{
    MOCK_METHOD(int, GetInfo, (int, int*, void*, unsigned long*), (override));
    MOCK_METHOD(int, UpdateInterfaceList, (bool*, unsigned long), (override));
    MOCK_METHOD(int, GetNumInterfaces, (unsigned int*), (override));
    MOCK_METHOD(int, GetInterfaceID, (unsigned int, char*, unsigned long*), (override));
    MOCK_METHOD(int, GetInterfaceInfo, (const char*, int, int*, void*, unsigned long*), (override));
    MOCK_METHOD(int, OpenInterface, (const char*, void**), (override));
    MOCK_METHOD(int, CloseInterface, (void*), (override));
};

struct Interface : Plain<GigERDMA::NQGenTLInterface>
{
    MOCK_METHOD(int, GetInfo, (int, int*, void*, unsigned long*), (override));
    MOCK_METHOD(int, GetNumDevices, (unsigned int*), (override));
    MOCK_METHOD(int, GetDeviceID, (unsigned int, char*, unsigned long*), (override));
    MOCK_METHOD(int, UpdateDeviceList, (bool*, unsigned long), (override));
    MOCK_METHOD(int, GetDeviceInfo, (const char*, int, int*, void*, unsigned long*), (override));
    MOCK_METHOD(int, OpenDevice, (const char*, int, void**), (override));
    MOCK_METHOD(int, CloseDevice, (void*), (override));
};

struct RemoteDevice : Plain<GigERDMA::NQGenTLRemoteDevice>
{
    MOCK_METHOD(unsigned int, GetStreamChannelCount, (), (override));
    MOCK_METHOD(unsigned int, GetMessageChannelCount, (), (override));
    MOCK_METHOD(bool, EnableStream, (bool), (override));
};

} // namespace

TEST(AbstractModules, EachKindHasItsFixedWord)
{
    EXPECT_EQ(System().GetName(), "TLSystem");
    EXPECT_EQ(Interface().GetName(), "TLInterface");
    EXPECT_EQ(nq::test::FakeDevice().GetName(), "TLDevice");
    EXPECT_EQ(RemoteDevice().GetName(), "Device");
    EXPECT_EQ(nq::test::FakeDataStream().GetName(), "TLDataStream");
    EXPECT_EQ(GigERDMA::NQGenTLBuffer(nullptr, 0, false, nullptr, nullptr).GetName(), "TLBuffer");
}
