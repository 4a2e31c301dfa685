// SPDX-License-Identifier: Apache-2.0
// NQGevTL against a scripted peer, with its trace lines.
#include "gige/gige_tl.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/gvcp_camera.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <sys/resource.h>

namespace
{

using nq::test::Bytes;
using nq::test::GvcpCamera;
using nq::test::TraceCapture;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace nq::test::gvcp;

constexpr unsigned int kLoopback = 0x7F000001;
constexpr unsigned long kUnknown = 12345;

class TransportLayer : public testing::Test
{
  protected:
    void Open() { ASSERT_TRUE(m_tl.CameraOpen(&m_handle, kLoopback, 3956)); }

    void TearDown() override { m_tl.CameraClose(m_handle); }

    TraceCapture m_trace;
    GvcpCamera m_peer;
    NQGevTL m_tl;
    unsigned long m_handle = 0;
    unsigned int m_value = 0x55555555;
    std::array<unsigned char, 4> m_data{1, 2, 3, 4};
};

TEST_F(TransportLayer, IdentityIsFixed)
{
    EXPECT_TRUE(m_tl.TLInit());
    EXPECT_EQ(m_tl.TLGetType(), 0);
    m_tl.TLClose();
    EXPECT_TRUE(m_tl.TLInit());
}

TEST_F(TransportLayer, OpenIgnoresThePortAndBindsNoLocalAddress)
{
    ASSERT_TRUE(m_tl.CameraOpen(&m_handle, kLoopback, 9999));
    EXPECT_EQ(m_handle, 0x7F000001UL + 3956UL);
    EXPECT_EQ(getCamera(m_handle)->getNetwork()->getRemotePort(), 3956U);
    EXPECT_EQ(getCamera(m_handle)->getLocalIP(), 0U);
    EXPECT_THAT(m_peer.ReceivedBytes(), IsEmpty());
}

TEST_F(TransportLayer, OpenWithoutALocalPortIsFalseAndTraced)
{
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_FALSE(m_tl.CameraOpen(&m_handle, kLoopback, 3956));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_NE(m_handle, 0U);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraOpen failed! openCamera -10"));
}

TEST_F(TransportLayer, CloseIsTrueForEveryHandleAndNotTraced)
{
    Open();
    EXPECT_TRUE(m_tl.CameraClose(m_handle));
    EXPECT_TRUE(m_tl.CameraClose(m_handle));
    EXPECT_TRUE(m_tl.CameraClose(kUnknown));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
    EXPECT_THAT(m_peer.ReceivedBytes(), SizeIs(1));
}

TEST_F(TransportLayer, ReadRegisterStoresTheValueOrItsReverse)
{
    Open();
    m_peer.SetRegister(0x0B00, 0x01020304);
    EXPECT_TRUE(m_tl.CameraReadRegister(m_handle, 0x0B00, &m_value, false));
    EXPECT_EQ(m_value, 0x01020304U);
    EXPECT_TRUE(m_tl.CameraReadRegister(m_handle, 0x0B00, &m_value, true));
    EXPECT_EQ(m_value, 0x04030201U);
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
}

TEST_F(TransportLayer, FailedReadRegisterLeavesTheValueAndIsTraced)
{
    Open();
    m_peer.Otherwise(Acknowledge({}, 0x8006));
    EXPECT_FALSE(m_tl.CameraReadRegister(m_handle, 0x0B00, &m_value, false));
    EXPECT_FALSE(m_tl.CameraReadRegister(kUnknown, 0x0B00, &m_value, true));
    EXPECT_EQ(m_value, 0x55555555U);
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraReadRegister failed! m_Camera_getGigECameraRegister 32774",
                                                 "CameraReadRegister failed! m_Camera_getGigECameraRegister -208"));
}

TEST_F(TransportLayer, WriteRegisterSendsTheValueOrItsReverse)
{
    Open();
    EXPECT_TRUE(m_tl.CameraWriteRegister(m_handle, 0x0B00, 0x01020304, false));
    EXPECT_EQ(m_peer.GetRegister(0x0B00), 0x01020304U);
    EXPECT_TRUE(m_tl.CameraWriteRegister(m_handle, 0x0B00, 0x01020304, true));
    EXPECT_EQ(m_peer.GetRegister(0x0B00), 0x04030201U);
}

TEST_F(TransportLayer, FailedWriteRegisterIsTraced)
{
    Open();
    m_peer.Otherwise(WrongId(Acknowledge()));
    EXPECT_FALSE(m_tl.CameraWriteRegister(m_handle, 0x0B00, 1, false));
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraWriteRegister failed! m_Camera_setGigECameraRegister -110"));
}

TEST_F(TransportLayer, MemoryIsReadAndWritten)
{
    Open();
    EXPECT_TRUE(m_tl.CameraWriteMemory(m_handle, 0x1000, m_data.data(), 4));
    EXPECT_THAT(m_peer.GetMemory(0x1000, 4), ElementsAre(1, 2, 3, 4));
    m_peer.SetMemory(0x1000, Bytes{9, 8, 7, 6});
    EXPECT_TRUE(m_tl.CameraReadMemory(m_handle, 0x1000, m_data.data(), 4));
    EXPECT_THAT(m_data, ElementsAre(9, 8, 7, 6));
    EXPECT_THAT(TraceCapture::At(2), IsEmpty());
}

TEST_F(TransportLayer, FailedMemoryAccessIsTraced)
{
    Open();
    EXPECT_FALSE(m_tl.CameraReadMemory(kUnknown, 0x1000, m_data.data(), 4));
    EXPECT_FALSE(m_tl.CameraWriteMemory(m_handle, 0x1000, m_data.data(), 521));
    EXPECT_FALSE(m_tl.CameraWriteMemory(m_handle, 0x1000, m_data.data(), -1));
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraReadMemory failed! m_Camera_readGigECameraMemory -208",
                                                 "CameraWriteMemory failed! m_Camera_writeGigECameraMemory -21",
                                                 "CameraWriteMemory failed! m_Camera_writeGigECameraMemory -21"));
}

TEST_F(TransportLayer, SilentCameraIsTracedAsATimeout)
{
    Open();
    m_peer.Otherwise(Silent());
    EXPECT_FALSE(m_tl.CameraReadMemory(m_handle, 0x1000, m_data.data(), 4));
    EXPECT_THAT(TraceCapture::At(2), ElementsAre("CameraReadMemory failed! m_Camera_readGigECameraMemory -212"));
    m_peer.Otherwise(Acknowledge());
}

} // namespace
