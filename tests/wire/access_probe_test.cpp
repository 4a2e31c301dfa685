// SPDX-License-Identifier: Apache-2.0
// Asking a camera who controls it, and the information about a device that is not open.
#include "support/interface_module.h"
#include "support/trace_capture.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <memory>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr char kEye[] = "Eye:02-0a-0b-01-02-03";

/// One camera in the list of an open interface.
class AccessProbe : public testing::Test
{
  protected:
    void SetUp() override
    {
        ASSERT_EQ(module.Open(), 0);
        List(Camera());
    }
    void TearDown() override { EXPECT_EQ(module.Close(), 0); }

    void List(const GvcpDiscovery& camera)
    {
        peer.SetDiscovery(camera);
        module.Scan();
        peer.Forget();
    }

    unsigned long Status()
    {
        const Info info = module.DeviceInfo(kEye, 5);
        EXPECT_EQ(info.result, 0);
        EXPECT_EQ(info.type, 5) << "a signed 32-bit number";
        EXPECT_EQ(info.size, 4u);
        return info.number;
    }

    /// Asks again when the answer came too late, as it may on a busy machine: the probe waits for 100 ms only.
    void ExpectStatus(unsigned long expected)
    {
        unsigned long status = Status();
        for (int attempt = 0; attempt < 20 && status != expected; ++attempt)
        {
            std::vector<_NQ_GEV_DEVICE_INFO> dropped;
            module._discoverDevices(dropped, 200); // takes the late answer
            status = Status();
        }
        EXPECT_EQ(status, expected);
    }

    CameraNetwork network;
    GvcpCamera peer{&network.host};
    InterfaceModule module;
};

unsigned int StatusOfNetworks(InterfaceModule& module, unsigned int interfaceIp, unsigned int interfaceMask,
                              unsigned int ip, unsigned int mask)
{
    sockaddr_in control{};
    control.sin_family = AF_INET;
    control.sin_port = htons(3956);
    control.sin_addr.s_addr = inet_addr("10.9.0.5");
    return module._getDeviceAccessStatus(&control, interfaceIp, interfaceMask, ip, mask);
}

} // namespace

TEST_F(AccessProbe, OneReadOfTheControlRegisterGoesOut)
{
    Status();
    ASSERT_TRUE(peer.WaitForCount(1));
    EXPECT_EQ(peer.ReceivedBytes()[0], (Bytes{0x42, 0x01, 0x00, 0x80, 0x00, 0x04, 0x00, 0x01, 0x00, 0x00, 0x0A, 0x00}));
    EXPECT_EQ(peer.Received()[0].senderAddress, "10.9.0.1");
}

TEST_F(AccessProbe, EachValueOfTheRegisterHasItsStatus)
{
    const std::pair<std::uint32_t, unsigned long> rows[] = {{0, 1}, {1, 3}, {2, 2}, {4, 0}, {0xFFFFFFFF, 0}};
    for (const auto& [value, status] : rows)
    {
        peer.SetRegister(0x0A00, value);
        SCOPED_TRACE(value);
        ExpectStatus(status);
    }
}

TEST_F(AccessProbe, ControlRegisterValue3GivesUnknown)
{
    peer.SetRegister(0x0A00, 3);
    EXPECT_EQ(Status(), 0u);
}

// Deliberate(StoredStatusIsUnknown)
TEST_F(AccessProbe, TheStatusRegisterReadsZeroForAFreeCameraWhileTheInfoGivesOne)
{
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6040C), 0u);
    ExpectStatus(1u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6040C), 0u) << "nothing stores it";
}

TEST_F(AccessProbe, ACameraThatIsListedButPoweredOffGivesZero)
{
    const TraceCapture trace;
    peer.Otherwise(gvcp::Silent());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Status(), 0u);
    EXPECT_THAT(trace.At(2), IsEmpty()) << "no answer is no wrong answer";
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(99));
    EXPECT_TRUE(peer.WaitForCount(1));
    EXPECT_EQ(peer.Received().size(), 1u) << "one attempt";
}

TEST_F(AccessProbe, TheListAnswersWhileACameraIsAsked)
{
    // A query that had to wait for the probe would hold back the answer until nobody listens.
    peer.Otherwise([this](const Bytes& command) {
        EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60410), 1u);
        return gvcp::Value(2)(command);
    });
    ExpectStatus(2u);
}

TEST_F(AccessProbe, AFailedSendGivesZeroAndTakesNoAnswer)
{
    peer.Otherwise(gvcp::Silent());
    EXPECT_EQ(Status(), 0u);
    ASSERT_TRUE(peer.WaitForCount(1));
    peer.Send({0, 0, 0, 0x81, 0, 4, 0, 1, 0, 0, 0, 2}, "10.9.0.1", peer.Received()[0].senderPort);
    peer.AwaitPath("10.9.0.1");
    Shell("ip link del cam0");
    EXPECT_EQ(Status(), 0u);
}

TEST_F(AccessProbe, AWrongAcknowledgeGivesZeroAndIsTraced)
{
    const TraceCapture trace;
    peer.Otherwise(gvcp::WithCode(0x0003, gvcp::Value(0)));
    for (int attempt = 0; attempt < 20 && trace.At(2).empty(); ++attempt) // an answer may come too late
    {
        EXPECT_EQ(Status(), 0u);
    }
    EXPECT_THAT(trace.At(2), ElementsAre("_getDeviceAccessStatus failed! WRONG ACK"));
}

TEST_F(AccessProbe, StatusLengthAndIdAreNotLookedAt)
{
    peer.Otherwise(gvcp::Literal({0x80, 0x06, 0x00, 0x81, 0xFF, 0xFF, 0x12, 0x34, 0, 0, 0, 2}));
    ExpectStatus(2u);
}

TEST_F(AccessProbe, AShortAcknowledgeReadsAsZeros)
{
    peer.Otherwise(gvcp::Literal({0x00, 0x00, 0x00, 0x81}));
    ExpectStatus(1u);
    peer.Otherwise(gvcp::Literal({0x00}));
    EXPECT_EQ(Status(), 0u) << "no acknowledge code at all";
}

TEST_F(AccessProbe, TheAnswerOfAnotherSenderDoesNotMoveTheCamera)
{
    network.host.Shell("ip addr add 10.9.0.99/24 dev eth0");
    const auto stranger = std::make_shared<GvcpCamera>(&network.host, "10.9.0.99", std::uint16_t{4000});
    peer.Otherwise([this, stranger](const Bytes&) -> std::vector<GvcpReply> {
        stranger->Send({0, 0, 0, 0x81, 0, 4, 0, 1, 0, 0, 0, 2}, "10.9.0.1", peer.Received().back().senderPort);
        return {};
    });
    ExpectStatus(2u);
    EXPECT_EQ(module.Devices()[0].controlAddress.sin_addr.s_addr, inet_addr("10.9.0.5"));
}

TEST_F(AccessProbe, ACameraOnAnotherSubnetIsListedReadsNoAccessAndIsNotAsked)
{
    GvcpDiscovery elsewhere = Camera();
    elsewhere.ipAddress = 0xC0A80105;
    List(elsewhere);
    ASSERT_THAT(module.Ids(), ElementsAre(kEye));
    EXPECT_EQ(Status(), 3u);
    EXPECT_THAT(peer.Received(), IsEmpty());
}

// Deliberate(EachSideHasItsMask)
TEST_F(AccessProbe, DeliberateEachSideIsMaskedWithItsOwnMask)
{
    EXPECT_NE(StatusOfNetworks(module, 0x0A000001, 0xFF000000, 0x0A000002, 0xFFFFFF00), 3u);
    EXPECT_TRUE(peer.WaitForCount(1)) << "it is asked";
    peer.Forget();
    EXPECT_EQ(StatusOfNetworks(module, 0x0A010001, 0xFF000000, 0x0A010002, 0xFFFFFF00), 3u);
    EXPECT_EQ(StatusOfNetworks(module, 0xC0A80201, 0xFFFFFF00, 0xC0A80105, 0xFFFFFF00), 3u);
    EXPECT_THAT(peer.Received(), IsEmpty());
}

TEST_F(AccessProbe, EachInfoCommandGivesItsValueAndType)
{
    GvcpDiscovery camera = Camera();
    camera.serialNumber = "SN-42";
    camera.userDefinedName = "left";
    camera.ipConfigOptions = 0x80000007;
    camera.ipConfigCurrent = 0x00000005;
    List(camera);
    const std::pair<int, std::string> texts[] = {{0, kEye},  {1, "Nerquil"}, {2, "Eye"},   {3, "GEV"},
                                                 {4, "Eye"}, {6, "left"},    {7, "SN-42"}, {8, "3.1.0"}};
    for (const auto& [command, text] : texts)
    {
        const Info info = module.DeviceInfo(kEye, command);
        EXPECT_EQ(info.result, 0) << command;
        EXPECT_EQ(info.type, 1) << command;
        EXPECT_EQ(info.text, text) << command;
    }
    const std::tuple<int, int, unsigned long, unsigned long> numbers[] = {
        {0xB000, 8, 8, 0x020A0B010203}, {0xB001, 6, 4, 0x0A090005}, {0xB002, 6, 4, 0xFFFFFF00},
        {0xB003, 6, 4, 0x0A0900FE},     {0xB004, 6, 4, 0x00000005}, {0xB005, 6, 4, 0x80000007}};
    for (const auto& [command, type, size, number] : numbers)
    {
        const Info info = module.DeviceInfo(kEye, command);
        EXPECT_EQ(info.result, 0) << command;
        EXPECT_EQ(info.type, type) << command;
        EXPECT_EQ(info.size, size) << command;
        EXPECT_EQ(info.number, number) << command;
    }
    EXPECT_THAT(peer.Received(), IsEmpty()) << "only the status costs a packet";
}

TEST_F(AccessProbe, OtherInfoCommandsAreNotImplemented)
{
    const TraceCapture trace;
    for (const int command : {9, -1, 0xB006, 0xB009, 1000})
    {
        EXPECT_EQ(module.DeviceInfo(kEye, command).result, -1003) << command;
    }
    EXPECT_THAT(trace.At(2),
                ElementsAre("_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :9", "_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :-1",
                            "_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :45062",
                            "_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :45065",
                            "_getDeviceInfo GC_ERR_NOT_IMPLEMENTED :1000"));
}

TEST_F(AccessProbe, DeviceInfoChecksIdAndSizeThenTheListThenTheType)
{
    const TraceCapture trace;
    unsigned long size = 0;
    EXPECT_EQ(module.GetDeviceInfo(nullptr, 0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(module.GetDeviceInfo("unknown", 0, nullptr, nullptr, nullptr), -1009);
    EXPECT_EQ(module.GetDeviceInfo("unknown", 0, nullptr, nullptr, &size), -1007);
    EXPECT_EQ(module.GetDeviceInfo(kEye, 0, nullptr, nullptr, &size), -1009);
    int type = 0;
    EXPECT_EQ(module._getDeviceInfo(kEye, 0, &type, nullptr, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("GetDeviceInfo GC_ERR_INVALID_PARAMETER", "GetDeviceInfo GC_ERR_INVALID_PARAMETER",
                            "_getDeviceInfo GC_ERR_INVALID_ID", "_getDeviceInfo GC_ERR_INVALID_PARAMETER",
                            "_getDeviceInfo GC_ERR_INVALID_PARAMETER"));
}
