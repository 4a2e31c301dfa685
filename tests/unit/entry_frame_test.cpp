// SPDX-License-Identifier: Apache-2.0
// The call frame of the exported functions on results and modules that the whole library does not bring about.
#include "entry/nq_gev_entry_frame.h"
#include "gentl/nq_gentl_device.h"
#include "gentl/nq_gentl_interface.h"
#include "gentl/nq_gentl_system.h"
#include "gev/nq_gev_controller.h"
#include "support/fake_data_stream.h"
#include "support/fake_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace GigERDMA;
using nq::test::FakeModule;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

/// What the four abstract classes leave open, for a base of that kind.
template <class Base>
class Bare : public Base
{
  public:
    using Base::Base;
    using Base::GetPortInfo;
    bool IsPortImplemented() override { return false; }
    bool IsEventImplemented(int) override { return false; }
    _NQ_GENTL_PORT_INFO GetPortInfo() override { return {}; }
    _NQ_GENTL_XML_INFO GetXMLInfo() override { return {}; }
    std::vector<std::string> GetURLList() override { return {}; }
    int ReadPort(unsigned long, void*, unsigned long*) override { return -1003; }
    int WritePort(unsigned long, const void*, unsigned long*) override { return -1003; }
    std::string GetId() override { return {}; }
    int DoOpen() override { return 0; }
    int DoClose() override { return 0; }
};

class Interface : public Bare<NQGenTLInterface>
{
  public:
    using Bare::Bare;
    int GetInfo(int, int*, void*, unsigned long*) override { return 0; }
    int GetNumDevices(unsigned int*) override { return 0; }
    int GetDeviceID(unsigned int, char*, unsigned long*) override { throw std::runtime_error("GetDeviceID"); }
    int UpdateDeviceList(bool*, unsigned long) override { return updateResult; }
    int GetDeviceInfo(const char*, int, int*, void*, unsigned long*) override { return 0; }
    int OpenDevice(const char*, int, void**) override { return 0; }
    int CloseDevice(void* handle) override
    {
        closed = handle;
        return -1010;
    }

    int updateResult = 0;
    void* closed = nullptr;
};

class System : public Bare<NQGenTLSystem>
{
  public:
    System() : Bare(nullptr) {}
    int GetInfo(int, int*, void*, unsigned long*) override { return 0; }
    int UpdateInterfaceList(bool*, unsigned long) override { return -1011; }
    int GetNumInterfaces(unsigned int*) override { return 0; }
    int GetInterfaceID(unsigned int, char*, unsigned long*) override { return 0; }
    int GetInterfaceInfo(const char*, int, int*, void*, unsigned long*) override { return 0; }
    int OpenInterface(const char*, void**) override { return 0; }
    int CloseInterface(void* handle) override
    {
        closed = handle;
        return 0;
    }

    void* closed = nullptr;
};

class Device : public Bare<NQGenTLDevice>
{
  public:
    using Bare::Bare;
    int GetInfo(int, int*, void*, unsigned long*) override { return 0; }
    int GetPort(void** port) override
    {
        *port = this;
        ++portQueries;
        return -1014;
    }
    int GetNumDataStreams(unsigned int*) override { return 0; }
    int GetDataStreamID(unsigned int, char*, unsigned long*) override { return 0; }
    int OpenDataStream(const char*, void**) override { return 0; }

    int portQueries = 0;
};

int LastError()
{
    int code = 1;
    unsigned long size = 0;
    EXPECT_EQ(g_Controller.GetLastError(&code, nullptr, &size), 0);
    return code;
}

class EntryFrame : public testing::Test
{
  protected:
    EntryFrame() { EXPECT_EQ(g_Controller.Init(), 0); }
    ~EntryFrame() override { g_Controller.Close(); }

    /// The handle of a module from now on.
    static void* Listed(NQGenTLModuleBase& module)
    {
        g_Controller.RegisterModule(&module);
        return &module;
    }
};

TEST_F(EntryFrame, ATimeoutOfTheInterfaceListOverwritesTheLastError)
{
    System system;
    void* const handle = Listed(system);
    g_Controller.SetLastError(-1006);
    TraceCapture trace;
    EXPECT_EQ(GenTL::TLUpdateInterfaceList(handle, nullptr, 1), -1011);
    EXPECT_EQ(LastError(), -1011);
    EXPECT_THAT(TraceCapture::At(8), ElementsAre("TLUpdateInterfaceList Failed! GC_ERR_TIMEOUT"));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
    EXPECT_EQ(TraceCapture::At(32).size(), 2U);
}

TEST_F(EntryFrame, ATimeoutOfTheDeviceListOverwritesTheLastError)
{
    Interface iface(nullptr);
    iface.updateResult = -1011;
    void* const handle = Listed(iface);
    TraceCapture trace;
    EXPECT_EQ(GenTL::IFUpdateDeviceList(handle, nullptr, 1), -1011);
    EXPECT_EQ(LastError(), -1011);
    EXPECT_THAT(TraceCapture::At(8), ElementsAre("IFUpdateDeviceList Failed! GC_ERR_TIMEOUT"));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
}

TEST_F(EntryFrame, AnyOtherFailureOfAListUpdateIsAFailure)
{
    Interface iface(nullptr);
    iface.updateResult = -1010;
    void* const handle = Listed(iface);
    TraceCapture trace;
    EXPECT_EQ(GenTL::IFUpdateDeviceList(handle, nullptr, 1), -1010);
    EXPECT_EQ(LastError(), -1010);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("IFUpdateDeviceList Failed:-1010"));
    EXPECT_THAT(TraceCapture::At(8), IsEmpty());
}

TEST_F(EntryFrame, AnInterfaceWithoutAParentDoesNotClose)
{
    Interface iface(nullptr);
    void* const handle = Listed(iface);
    TraceCapture trace;
    EXPECT_EQ(GenTL::IFClose(handle), -1001);
    EXPECT_EQ(LastError(), -1001);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("IFClose Failed: GC_ERR_ERROR"));
    EXPECT_EQ(TraceCapture::At(32).size(), 1U);
}

TEST_F(EntryFrame, AnInterfaceIsClosedByItsParent)
{
    System system;
    Interface iface(&system);
    void* const handle = Listed(iface);
    EXPECT_EQ(GenTL::IFClose(handle), 0);
    EXPECT_EQ(system.closed, handle);
}

TEST_F(EntryFrame, ADeviceWithoutAParentDoesNotCloseAndIsNotAskedForItsPort)
{
    Device device(nullptr);
    void* const handle = Listed(device);
    TraceCapture trace;
    EXPECT_EQ(GenTL::DevClose(handle), -1001);
    EXPECT_EQ(LastError(), -1001);
    EXPECT_EQ(device.portQueries, 0);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("DevClose Failed: GC_ERR_ERROR"));
}

// Deliberate(PortAskedBeforeTheClose)
TEST_F(EntryFrame, ADeviceIsAskedForItsPortBeforeItsParentClosesItAndTheAnswerIsDropped)
{
    Interface iface(nullptr);
    Device device(&iface);
    void* const handle = Listed(device);
    EXPECT_EQ(GenTL::DevClose(handle), -1010);
    EXPECT_EQ(device.portQueries, 1);
    EXPECT_EQ(iface.closed, handle);
    EXPECT_EQ(LastError(), -1010);
}

TEST_F(EntryFrame, AModuleOfTheRightNameButAnotherClassIsAnInvalidHandle)
{
    FakeModule system("", "TLSystem");
    FakeModule iface("", "TLInterface");
    FakeModule device("", "TLDevice");
    FakeModule stream("", "TLDataStream");
    EXPECT_EQ(GenTL::TLGetNumInterfaces(Listed(system), nullptr), -1006);
    EXPECT_EQ(GenTL::IFGetNumDevices(Listed(iface), nullptr), -1006);
    EXPECT_EQ(GenTL::DevGetNumDataStreams(Listed(device), nullptr), -1006);
    EXPECT_EQ(GenTL::DSClose(Listed(stream)), -1006);
    EXPECT_EQ(LastError(), -1006);
}

TEST_F(EntryFrame, AParentQueryOfAModuleWithoutAParentGivesNull)
{
    Interface iface(nullptr);
    void* const handle = Listed(iface);
    void* parent = &iface;
    TraceCapture trace;
    EXPECT_EQ(GenTL::IFGetParentTL(handle, &parent), 0);
    EXPECT_EQ(parent, nullptr);
    EXPECT_THAT(TraceCapture::At(32), ElementsAre("IFGetParentTL Entry"));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
}

TEST_F(EntryFrame, AnExceptionPassesUnchanged)
{
    Interface iface(nullptr);
    void* const handle = Listed(iface);
    EXPECT_THROW(GenTL::IFGetDeviceID(handle, 0, nullptr, nullptr), std::runtime_error);
}

TEST_F(EntryFrame, AStartAndAStopThatSucceedHaveNoExitLine)
{
    nq::test::FakeDataStream stream;
    void* const handle = Listed(stream);
    char shown[16];
    std::snprintf(shown, sizeof shown, "%x", Low32(handle));
    TraceCapture trace;
    EXPECT_EQ(GenTL::DSStartAcquisition(handle, 3, 0x123456789), 0);
    EXPECT_EQ(GenTL::DSStopAcquisition(handle, 1), 0);
    EXPECT_THAT(TraceCapture::At(32), ElementsAre("DSStartAcquisition Entry hDataStream:0x" + std::string(shown) +
                                                      " iStartFlags:3 iNumToAcquire:4886718345",
                                                  "DSStopAcquisition Entry"));
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("StopAcquisition GC_ERR_NOT_IMPLEMENTED Enter:1"));
    EXPECT_EQ(LastError(), 0);
}

TEST_F(EntryFrame, AFailingOperationOfTheTransportIsTracedByTheStreamAndByTheFrame)
{
    nq::test::FakeDataStream stream;
    stream.onStart = [] { return -1010; };
    void* const handle = Listed(stream);
    TraceCapture trace;
    EXPECT_EQ(GenTL::DSStartAcquisition(handle, 0, 1), -1010);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("StartAcquisition DoStartAcquisition Failed! ret:-1010",
                                                 "DSStartAcquisition Failed:-1010"));
    EXPECT_EQ(TraceCapture::At(32).size(), 1U);
    EXPECT_EQ(LastError(), -1010);
}

TEST_F(EntryFrame, APositiveResultIsAFailureToo)
{
    TraceCapture trace;
    NQGevEntryFrame frame("Name");
    frame.Finish(7);
    EXPECT_EQ(frame.TraceExit("%s Exit ret:%d"), 7);
    EXPECT_EQ(LastError(), 7);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("Name Failed:7"));
    EXPECT_THAT(TraceCapture::At(32), ElementsAre("Name Exit ret:7"));
}

} // namespace
