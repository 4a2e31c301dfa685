// SPDX-License-Identifier: Apache-2.0
// The endpoint facade: addresses, start, and the decoding of frames, well-formed or not.
#include "rdma/tld_RdmaTL.h"

#include "support/endpoint_access.h"
#include "support/fake_verbs_symbols.h"
#include "support/gendc_bytes.h"
#include "support/trace_capture.h"

#include <dlfcn.h>
#include <gmock/gmock.h>
#include <thread>

using nq::test::FakeVerbs;
using nq::test::FrameBytes;
using nq::test::GenDCFrame;
using nq::test::Put32;
using nq::test::Put64;
using testing::IsEmpty;

struct GevRdmaEndpointAccess
{
    static LvEndpoint& Endpoint(const GevRdmaEndpoint& facade) { return *facade.m_endpoint; }
    static bool HasEndpoint(const GevRdmaEndpoint& facade) { return facade.m_endpoint != nullptr; }
};

namespace
{

/// What the resolver answers while set.
addrinfo* g_answer = nullptr;

} // namespace

// The facade's resolver calls come here first.
extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result)
{
    using Resolver = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    if (g_answer != nullptr)
    {
        *result = g_answer;
        return 0;
    }
    return reinterpret_cast<Resolver>(dlsym(RTLD_NEXT, "getaddrinfo"))(node, service, hints, result);
}

extern "C" void freeaddrinfo(addrinfo* list)
{
    using Release = void (*)(addrinfo*);
    if (list != g_answer)
    {
        reinterpret_cast<Release>(dlsym(RTLD_NEXT, "freeaddrinfo"))(list);
    }
}

namespace
{

class RdmaEndpoint : public testing::Test
{
  protected:
    ~RdmaEndpoint() override
    {
        g_answer = nullptr;
        nq::test::AllowThreads();
        EXPECT_THAT(fake.Violations(), IsEmpty());
    }

    /// Streams with blocks for frames of 16 x 4 pixels: 240 bytes.
    void Stream(std::uint32_t buffers, std::uint64_t payload = 64)
    {
        ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
        gevrdmaBufferSettings settings{};
        settings.payloadSize = payload;
        settings.bufferCount = buffers;
        ASSERT_TRUE(facade->Start(settings, 0));
    }

    bool Decode(const FrameBytes& frame)
    {
        fake.DeliverFrame(frame);
        return facade->GetNextFrame(&info, &buffer);
    }

    FakeVerbs fake;
    std::unique_ptr<GevRdmaEndpoint> facade = std::make_unique<GevRdmaEndpoint>();
    FrameInfo info{};
    gevrdmaBuffer buffer{};
};

// ---- connect and start

TEST_F(RdmaEndpoint, ConnectsToTheAddressAndPortGiven)
{
    EXPECT_TRUE(facade->Connect("10.9.0.2", "4791"));
    EXPECT_EQ(fake.resolvedAddress.sin_family, AF_INET);
    EXPECT_EQ(fake.resolvedAddress.sin_addr.s_addr, htonl(0x0A090002));
    EXPECT_EQ(fake.resolvedAddress.sin_port, htons(4791));
}

TEST_F(RdmaEndpoint, OfAHostNameWithSeveralAddressesOnlyTheFirstIsUsed)
{
    sockaddr_in addresses[2] = {nq::test::CameraAddress(), nq::test::CameraAddress()};
    addresses[0].sin_addr.s_addr = htonl(0x0A090003);
    addrinfo second{};
    second.ai_family = AF_INET;
    second.ai_addr = reinterpret_cast<sockaddr*>(&addresses[1]);
    addrinfo first = second;
    first.ai_addr = reinterpret_cast<sockaddr*>(&addresses[0]);
    first.ai_next = &second;
    g_answer = &first;
    fake.connectAnswer = RDMA_CM_EVENT_REJECTED;
    EXPECT_FALSE(facade->Connect("camera.example", "4791"));
    EXPECT_EQ(fake.resolvedAddress.sin_addr.s_addr, htonl(0x0A090003));
    EXPECT_EQ(fake.Count("rdma_resolve_addr"), 1);
}

TEST_F(RdmaEndpoint, ASecondConnectReturnsFalseWithoutTouchingTheNetwork)
{
    ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
    fake.ForgetCalls();
    EXPECT_FALSE(facade->Connect("10.9.0.2", "4791"));
    EXPECT_EQ(fake.Count("rdma_resolve_addr"), 0);
    EXPECT_TRUE(LvEndpointAccess::Connected(GevRdmaEndpointAccess::Endpoint(*facade)));
}

TEST_F(RdmaEndpoint, AnAddressOfZeroIsNoCamera)
{
    EXPECT_FALSE(facade->Connect("0.0.0.0", "4791"));
    EXPECT_THAT(fake.Calls(), IsEmpty());
    EXPECT_FALSE(GevRdmaEndpointAccess::HasEndpoint(*facade));
}

TEST_F(RdmaEndpoint, AnAddressThatIsNotIPv4IsNoCamera)
{
    EXPECT_FALSE(facade->Connect("fd00::2", "4791"));
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(RdmaEndpoint, AHostThatCannotBeResolvedIsNoCamera)
{
    EXPECT_FALSE(facade->Connect("10.9.0.2", "no such service"));
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(RdmaEndpoint, AFailedConnectKeepsTheEndpointUntilTheFacadeGoes)
{
    fake.connectAnswer = RDMA_CM_EVENT_REJECTED;
    EXPECT_FALSE(facade->Connect("10.9.0.2", "4791"));
    EXPECT_TRUE(GevRdmaEndpointAccess::HasEndpoint(*facade));
    EXPECT_FALSE(facade->Connect("10.9.0.2", "4791"));
    facade.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(RdmaEndpoint, APayloadTooLargeForABlockMakesStartFailDisconnected)
{
    ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
    gevrdmaBufferSettings settings{};
    settings.payloadSize = 0xFFFFFFFFFFFFFFFF;
    settings.bufferCount = 1;
    EXPECT_FALSE(facade->Start(settings, 0));
    EXPECT_FALSE(LvEndpointAccess::Connected(GevRdmaEndpointAccess::Endpoint(*facade)));
    facade.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(RdmaEndpoint, ARefusedWorkerThreadMakesStartFailDisconnected)
{
    ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
    nq::test::RefuseThreads();
    gevrdmaBufferSettings settings{};
    settings.payloadSize = 64;
    settings.bufferCount = 2;
    EXPECT_FALSE(facade->Start(settings, 0));
    EXPECT_FALSE(LvEndpointAccess::Connected(GevRdmaEndpointAccess::Endpoint(*facade)));
    facade.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(RdmaEndpoint, WithoutAConnectionEveryCallIsHarmless)
{
    gevrdmaBufferSettings settings{};
    EXPECT_FALSE(facade->Start(settings, 0));
    EXPECT_EQ(facade->GetBuffer().id, nullptr);
    EXPECT_FALSE(facade->GetNextFrame(&info, &buffer));
    EXPECT_FALSE(facade->RequeueBuffer(buffer));
    EXPECT_FALSE(facade->RequeueBufferByID(&buffer));
    EXPECT_EQ(facade->HandOver(&buffer), nullptr);
    facade->EndShow(&buffer, this);
    facade->Disconnect();
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(RdmaEndpoint, ADisconnectOnAnotherThreadEndsAConnectThatWaitsForTheCamera)
{
    fake.answers = 2;
    bool connected = true;
    std::thread start([&] { connected = facade->Connect("10.9.0.2", "4791"); });
    fake.WaitForCalls("rdma_connect", 1);
    facade->Disconnect();
    start.join();
    EXPECT_FALSE(connected);
    gevrdmaBufferSettings settings{};
    settings.bufferCount = 1;
    EXPECT_FALSE(facade->Start(settings, 0));
    facade.reset();
    EXPECT_THAT(fake.LiveObjects(), IsEmpty());
}

TEST_F(RdmaEndpoint, ADisconnectBeforeTheConnectKeepsItFromTheNetwork)
{
    facade->Disconnect();
    EXPECT_FALSE(facade->Connect("10.9.0.2", "4791"));
    EXPECT_THAT(fake.Calls(), IsEmpty());
}

TEST_F(RdmaEndpoint, ADisconnectBetweenConnectAndStartMakesStartFail)
{
    ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
    facade->Disconnect();
    gevrdmaBufferSettings settings{};
    settings.bufferCount = 2;
    EXPECT_FALSE(facade->Start(settings, 0));
    EXPECT_EQ(fake.Count("ibv_reg_mr"), 0);
}

TEST_F(RdmaEndpoint, ADisconnectBetweenConnectAndStartLeavesNoPortToAsk)
{
    ASSERT_TRUE(facade->Connect("10.9.0.2", "4791"));
    facade->Disconnect();
    EXPECT_TRUE(facade->CanReceive(1024)) << "the start, which then fails, is no matter of the frames' length";
    EXPECT_EQ(fake.Count("ibv_query_port"), 0);
}

TEST_F(RdmaEndpoint, AfterADisconnectGetBufferGivesTheZeroRecordAndRequeuesFail)
{
    Stream(1);
    ASSERT_TRUE(Decode(GenDCFrame(1, 16, 4)));
    facade->Disconnect();
    const gevrdmaBuffer none = facade->GetBuffer();
    EXPECT_EQ(none.id, nullptr);
    EXPECT_EQ(none.data, nullptr);
    EXPECT_EQ(none.size, 0U);
    EXPECT_EQ(none.received, 0U);
    EXPECT_FALSE(facade->RequeueBuffer(buffer));
    EXPECT_FALSE(facade->RequeueBufferByID(buffer.id));
}

// ---- decoding

TEST_F(RdmaEndpoint, AFrameIsDecodedFromItsContainer)
{
    Stream(1);
    ASSERT_TRUE(Decode(GenDCFrame(0x1122334455667788, 16, 4)));
    EXPECT_EQ(info.frameId, 0x1122334455667788U);
    EXPECT_EQ(info.timestamp, 0x1122334455667788U + 1000000);
    EXPECT_EQ(info.headerType, 0x4200);
    EXPECT_EQ(info.headerFlags, 5);
    EXPECT_EQ(info.headerSize, 56U);
    EXPECT_EQ(info.pixelFormat, 0x01080001U);
    EXPECT_EQ(info.flowInfo, 0x11223344U);
    EXPECT_EQ(info.flowOffset, 0x5566778899AABBCCU);
    EXPECT_EQ(info.dataSize, 64U);
    EXPECT_EQ(info.dataOffset, 176U);
    EXPECT_EQ(info.width, 16U);
    EXPECT_EQ(info.height, 4U);
    EXPECT_EQ(info.padding, 0x0102030405060708U);
    EXPECT_EQ(info.data, buffer.data + 176);
    EXPECT_EQ(info.data[63], 63);
    EXPECT_EQ(buffer.size, 240U);
    EXPECT_EQ(buffer.received, 240U);
    EXPECT_TRUE(facade->RequeueBuffer(buffer));
    EXPECT_TRUE(facade->RequeueBufferByID(buffer.id));
}

TEST_F(RdmaEndpoint, OnlyTheLow32BitsOfTheDataOffsetAreUsed)
{
    Stream(1);
    FrameBytes frame = GenDCFrame(1, 16, 4);
    Put64(frame, 152, 0xFFFFFFFF000000B0);
    ASSERT_TRUE(Decode(frame));
    EXPECT_EQ(info.data, buffer.data + 176);
    EXPECT_EQ(info.dataOffset, 0xFFFFFFFF000000B0U);
}

TEST_F(RdmaEndpoint, APartHeaderElsewhereInTheBlockIsFollowed)
{
    Stream(1);
    FrameBytes frame = GenDCFrame(1, 16, 4);
    std::memcpy(frame.data() + 184, frame.data() + 120, 56);
    Put32(frame, 112, 184);
    Put64(frame, 184 + 24, 8);
    Put32(frame, 184 + 40, 8);
    ASSERT_TRUE(Decode(frame));
    EXPECT_EQ(info.width, 8U);
    EXPECT_EQ(info.dataSize, 8U);
}

/// A frame of 240 bytes with one field changed.
struct WildField
{
    const char* name;
    std::size_t offset;
    std::uint64_t value;
    int width;
    bool accepted;
};

std::ostream& operator<<(std::ostream& out, const WildField& field)
{
    return out << field.name;
}

class RdmaEndpointBounds : public RdmaEndpoint, public testing::WithParamInterface<WildField>
{
};

TEST_P(RdmaEndpointBounds, EveryDeliveredByteLiesInTheBlock)
{
    Stream(1);
    const WildField& field = GetParam();
    FrameBytes frame = GenDCFrame(77, 16, 4);
    std::memcpy(frame.data() + field.offset, &field.value, static_cast<std::size_t>(field.width));
    EXPECT_EQ(Decode(frame), field.accepted);
    EXPECT_EQ(info.frameId, 77U) << "the frame id is written even if the frame is rejected";
    if (field.accepted)
    {
        EXPECT_GE(info.data, buffer.data);
        EXPECT_LE(info.dataSize, static_cast<std::uint64_t>(buffer.data + 240 - info.data));
    }
    else
    {
        EXPECT_EQ(info.data, nullptr);
        EXPECT_EQ(info.timestamp, 0U);
        EXPECT_EQ(buffer.id, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Fields, RdmaEndpointBounds,
    testing::Values(WildField{"ComponentNotAt64", 56, 65, 4, false}, WildField{"ComponentAt0", 56, 0, 4, false},
                    WildField{"PartAtTheLastFit", 112, 184, 4, false},
                    WildField{"PartOneByteTooFar", 112, 185, 4, false},
                    WildField{"PartFarOutside", 112, 0xFFFFFFFF, 4, false},
                    WildField{"PartWrapsIn32Bits", 112, 0xFFFFFFF0, 4, false},
                    WildField{"DataAtTheEndAndTooLong", 152, 240, 4, false},
                    WildField{"DataOffsetOneTooFar", 152, 177, 4, false},
                    WildField{"DataOffsetFarOutside", 152, 0xFFFFFFFF, 4, false},
                    WildField{"DataFromTheStart", 152, 0, 4, true}, WildField{"DataSizeOneTooMany", 144, 65, 8, false},
                    WildField{"DataSizeHuge", 144, 0xFFFFFFFFFFFFFFFF, 8, false},
                    WildField{"DataSizeWrapsWithTheOffset", 144, 0xFFFFFFFFFFFFFF50, 8, false},
                    WildField{"DataSizeZero", 144, 0, 8, true}, WildField{"DataSizeExact", 144, 64, 8, true}),
    [](const auto& field) { return std::string(field.param.name); });

// Deliberate(UndecodedBlockStays)
TEST_F(RdmaEndpoint, AFrameWhoseComponentIsNotAt64IsDroppedAndTheEndpointRunsWithOneReceiveFewer)
{
    Stream(2);
    fake.WaitForCalls("ibv_post_send", 2);
    FrameBytes wrong = GenDCFrame(1, 16, 4);
    Put32(wrong, 56, 128);
    EXPECT_FALSE(Decode(wrong));
    for (std::uint64_t frame = 2; frame < 5; ++frame)
    {
        ASSERT_TRUE(Decode(GenDCFrame(frame, 16, 4)));
        EXPECT_EQ(buffer.id, LvEndpointAccess::Receive(GevRdmaEndpointAccess::Endpoint(*facade), 1));
        ASSERT_TRUE(facade->RequeueBuffer(buffer));
    }
}

TEST_F(RdmaEndpoint, TheBlockOfADroppedFrameIsGivenBackByABufferThatIsBoundToIt)
{
    Stream(1);
    fake.WaitForCalls("ibv_post_send", 1);
    FrameBytes wrong = GenDCFrame(1, 16, 4);
    Put32(wrong, 56, 128);
    EXPECT_FALSE(Decode(wrong));
    void* const block = LvEndpointAccess::Receive(GevRdmaEndpointAccess::Endpoint(*facade), 0);
    EXPECT_TRUE(facade->RequeueBufferByID(block));
    EXPECT_TRUE(Decode(GenDCFrame(2, 16, 4)));
    EXPECT_EQ(buffer.id, block);
}

TEST_F(RdmaEndpoint, TheBlockOfAFrameOnItsWayIsGivenBackOnlyOnceItWasHandedOver)
{
    Stream(2);
    fake.WaitForCalls("ibv_post_send", 2);
    ASSERT_TRUE(Decode(GenDCFrame(1, 16, 4)));
    void* const first = buffer.id;
    EXPECT_TRUE(facade->RequeueBufferByID(first));
    ASSERT_TRUE(Decode(GenDCFrame(2, 16, 4)));
    EXPECT_NE(buffer.id, first);
    facade->HandOver(first);
    EXPECT_TRUE(facade->RequeueBufferByID(first));
    ASSERT_TRUE(Decode(GenDCFrame(3, 16, 4)));
    EXPECT_EQ(buffer.id, first);
}

// Deliberate(EmptyFrameIsAStop)
TEST_F(RdmaEndpoint, AZeroLengthFrameLooksExactlyLikeAStop)
{
    Stream(1);
    EXPECT_FALSE(Decode({}));
    EXPECT_EQ(info.frameId, 0U);
    EXPECT_EQ(buffer.id, nullptr);
    EXPECT_FALSE(LvEndpointAccess::Stopped(GevRdmaEndpointAccess::Endpoint(*facade)));
}

/// How many of the 240 bytes of a frame arrive.
class RdmaEndpointLength : public RdmaEndpoint, public testing::WithParamInterface<std::size_t>
{
};

TEST_P(RdmaEndpointLength, AFrameWithFewerBytesThanItsBlockIsDecodedFromWhateverArrived)
{
    Stream(1);
    FrameBytes frame = GenDCFrame(5, 16, 4);
    frame.resize(GetParam());
    ASSERT_TRUE(Decode(frame));
    EXPECT_EQ(info.frameId, 5U);
    EXPECT_EQ(info.dataSize, 64U);
    EXPECT_EQ(info.data, buffer.data + 176);
    EXPECT_EQ(buffer.size, 240U);
    EXPECT_EQ(buffer.received, GetParam());
}

INSTANTIATE_TEST_SUITE_P(Received, RdmaEndpointLength, testing::Values(176, 177, 200, 239, 240));

TEST_F(RdmaEndpoint, AFrameWithoutPayloadInABlockWithoutPayloadIsDelivered)
{
    Stream(1, 0);
    ASSERT_TRUE(Decode(GenDCFrame(5, 0, 0)));
    EXPECT_EQ(info.dataSize, 0U);
    EXPECT_EQ(info.data, buffer.data + 176);
    EXPECT_EQ(buffer.size, 176U);
    EXPECT_EQ(buffer.received, 176U);
}

TEST_F(RdmaEndpoint, AFrameLongerThanItsBlockLooksLikeAStopAndIsNeverDelivered)
{
    Stream(1);
    auto* const receive = LvEndpointAccess::Receive(GevRdmaEndpointAccess::Endpoint(*facade), 0);
    fake.RaiseCompletion(reinterpret_cast<std::uint64_t>(receive), IBV_WC_LOC_LEN_ERR, IBV_WC_RECV, 241);
    EXPECT_FALSE(facade->GetNextFrame(&info, &buffer));
    EXPECT_EQ(info.frameId, 0U);
    EXPECT_EQ(buffer.id, nullptr);
    EXPECT_TRUE(LvEndpointAccess::Stopped(GevRdmaEndpointAccess::Endpoint(*facade)));
}

TEST_F(RdmaEndpoint, AFrameOfOneByteIsDecodedFromTheZeroesBehindItAndDropped)
{
    Stream(1);
    EXPECT_FALSE(Decode({1}));
    EXPECT_EQ(info.frameId, 0U);
}

} // namespace
