// SPDX-License-Identifier: Apache-2.0
// What a reliable connection does with its messages, on any RDMA device.
#include "loopback/rdma_side.h"

#include <algorithm>
#include <fcntl.h>
#include <numeric>
#include <sys/mman.h>
#include <thread>

namespace nq::test
{

namespace
{

void FillWithPattern(std::vector<uint8_t>& bytes, unsigned seed)
{
    unsigned value = seed * 2654435761U + 1;
    for (uint8_t& byte : bytes)
    {
        value = value * 1664525U + 1013904223U;
        byte = static_cast<uint8_t>(value >> 24);
    }
}

// Soft-RoCE reports a work request that it cannot carry out as IBV_WC_LOC_QP_OP_ERR where network cards say more.
void ExpectLocalError(const Side& side, ibv_wc_status got, ibv_wc_status expected)
{
    EXPECT_TRUE(got == expected || (got == IBV_WC_LOC_QP_OP_ERR && IsSoftRoce(side.id->verbs))) << got;
}

// Posts until a post is refused, which must be with ENOMEM and not before the capacity is used up. Soft-RoCE has more
// room than it says.
template <typename Post>
void ExpectCapacity(const Side& side, uint32_t capacity, Post post)
{
    int result = 0;
    uint32_t posted = 0;
    while (posted < 64 * capacity && (result = post(posted)) == 0)
    {
        ++posted;
    }
    EXPECT_EQ(result, ENOMEM);
    EXPECT_TRUE(posted == capacity || (posted > capacity && IsSoftRoce(side.id->verbs))) << posted;
}

// Sends what `from` holds into a receive of the same size and checks the bytes.
void Carry(Side& sender, Side& receiver, size_t size)
{
    Memory& from = sender.Register(size);
    Memory& to = receiver.Register(size);
    FillWithPattern(from.bytes, static_cast<unsigned>(size));
    ASSERT_EQ(receiver.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(sender.PostSend(2, {from.Whole()}), 0);
    const ibv_wc received = receiver.Next();
    ASSERT_EQ(received.status, IBV_WC_SUCCESS);
    EXPECT_EQ(received.wr_id, 1U);
    EXPECT_EQ(received.opcode, IBV_WC_RECV);
    EXPECT_EQ(received.byte_len, size);
    const ibv_wc sent = sender.Next();
    ASSERT_EQ(sent.status, IBV_WC_SUCCESS);
    EXPECT_EQ(sent.wr_id, 2U);
    EXPECT_EQ(sent.opcode, IBV_WC_SEND);
    EXPECT_EQ(from.bytes, to.bytes);
}

} // namespace

TEST(Verbs, SendArrivesInAReceiveWithItsLengthAndBytes)
{
    Connected pair;
    Carry(pair.active, pair.passive, 60);
    Carry(pair.passive, pair.active, 4096);
}

TEST(Verbs, MessageOfManyMegabytesArrivesWhole)
{
    Connected pair;
    Carry(pair.passive, pair.active, 7'654'321);
}

TEST(Verbs, MessageShorterThanItsReceiveLeavesTheRestAsItWas)
{
    Connected pair;
    Memory& from = pair.active.Register(100);
    Memory& to = pair.passive.Register(200);
    from.bytes.assign(100, 0x11);
    to.bytes.assign(200, 0x22);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().byte_len, 100U);
    EXPECT_EQ(to.bytes[99], 0x11);
    EXPECT_EQ(to.bytes[100], 0x22);
}

TEST(Verbs, EmptyMessageUsesUpAReceive)
{
    Connected pair;
    Memory& to = pair.passive.Register(8);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {}), 0);
    const ibv_wc received = pair.passive.Next();
    EXPECT_EQ(received.status, IBV_WC_SUCCESS);
    EXPECT_EQ(received.byte_len, 0U);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
}

TEST(Verbs, MessagesArriveInTheOrderOfTheirPosts)
{
    Connected pair;
    Memory& from = pair.active.Register(16);
    Memory& to = pair.passive.Register(16);
    std::iota(from.bytes.begin(), from.bytes.end(), uint8_t{1});
    for (size_t index = 0; index < 16; ++index)
    {
        ASSERT_EQ(pair.passive.PostReceive(index, {to.Entry(index, 1)}), 0);
    }
    for (size_t index = 0; index < 16; ++index)
    {
        ASSERT_EQ(pair.active.PostSend(100 + index, {from.Entry(index, 1)}), 0);
    }
    for (size_t index = 0; index < 16; ++index)
    {
        EXPECT_EQ(pair.passive.Next().wr_id, index);
        EXPECT_EQ(pair.active.Next().wr_id, 100 + index);
    }
    EXPECT_EQ(from.bytes, to.bytes);
}

TEST(Verbs, ListsOfEntriesAreGatheredAndScattered)
{
    Connected pair;
    Memory& from = pair.active.Register(30);
    Memory& to = pair.passive.Register(40);
    std::iota(from.bytes.begin(), from.bytes.end(), uint8_t{0});
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Entry(30, 5), to.Entry(0, 0), to.Entry(0, 25)}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Entry(20, 10), from.Entry(0, 10), from.Entry(10, 5)}), 0);
    EXPECT_EQ(pair.passive.Next().byte_len, 25U);
    EXPECT_EQ(to.bytes[30], 20);
    EXPECT_EQ(to.bytes[34], 24);
    EXPECT_EQ(to.bytes[0], 25);
    EXPECT_EQ(to.bytes[5], 0);
    EXPECT_EQ(to.bytes[19], 14);
}

TEST(Verbs, MessageFallsIntoTwoRegionsAtOddAddresses)
{
    Connected pair;
    for (const size_t size : {0U, 1U, 175U, 176U, 177U, 9000U, 10176U})
    {
        Memory& from = pair.active.Register(10177);
        Memory& headers = pair.passive.Register(179);
        Memory& pixels = pair.passive.Register(10013);
        FillWithPattern(from.bytes, static_cast<unsigned>(size));
        std::vector<uint8_t> expectedHeaders(headers.bytes);
        std::vector<uint8_t> expectedPixels(pixels.bytes);
        const auto first = from.bytes.begin() + 1;
        const auto before = static_cast<std::ptrdiff_t>(std::min<size_t>(size, 176));
        std::copy(first, first + before, expectedHeaders.begin() + 3);
        std::copy(first + before, first + static_cast<std::ptrdiff_t>(size), expectedPixels.begin() + 7);
        ASSERT_EQ(pair.passive.PostReceive(1, {headers.Entry(3, 176), pixels.Entry(7, 10000)}), 0);
        ASSERT_EQ(pair.active.PostSend(2, {from.Entry(1, size)}), 0);
        const ibv_wc received = pair.passive.Next();
        EXPECT_EQ(received.status, IBV_WC_SUCCESS);
        EXPECT_EQ(received.byte_len, size);
        EXPECT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
        EXPECT_EQ(headers.bytes, expectedHeaders) << size;
        EXPECT_EQ(pixels.bytes, expectedPixels) << size;
    }
}

TEST(Verbs, SendWithoutAReceiveWaitsForOne)
{
    Connected pair;
    Memory& from = pair.active.Register(3'000'000);
    Memory& to = pair.passive.Register(3'000'000);
    FillWithPattern(from.bytes, 5);
    ASSERT_EQ(pair.active.PostSend(1, {from.Whole()}), 0);
    ibv_req_notify_cq(pair.active.queue, 0);
    EXPECT_FALSE(Readable(pair.active.completions->fd, 200));
    ASSERT_EQ(pair.passive.PostReceive(2, {to.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    pair.active.TakeEvent();
    EXPECT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
    EXPECT_EQ(from.bytes, to.bytes);
}

TEST(Verbs, MessagesPassTheOtherWayWhileASendWaitsForItsReceive)
{
    Connected pair;
    Memory& waiting = pair.active.Register(3'000'000);
    ASSERT_EQ(pair.active.PostSend(1, {waiting.Whole()}), 0);
    Memory& from = pair.passive.Register(50);
    Memory& to = pair.active.Register(50);
    ASSERT_EQ(pair.active.PostReceive(2, {to.Whole()}), 0);
    ASSERT_EQ(pair.passive.PostSend(3, {from.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().wr_id, 3U);
    EXPECT_EQ(pair.active.Next().wr_id, 2U);
}

TEST(Verbs, SendLongerThanItsReceiveFailsOnBothSides)
{
    Connected pair;
    Memory& from = pair.active.Register(101);
    Memory& to = pair.passive.Register(100);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.passive.PostReceive(2, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(3, {from.Whole()}), 0);
    const ibv_wc received = pair.passive.Next();
    ExpectLocalError(pair.passive, received.status, IBV_WC_LOC_LEN_ERR);
    EXPECT_EQ(received.wr_id, 1U);
    const ibv_wc flushed = pair.passive.Next();
    EXPECT_EQ(flushed.status, IBV_WC_WR_FLUSH_ERR);
    EXPECT_EQ(flushed.wr_id, 2U);
    const ibv_wc sent = pair.active.Next();
    EXPECT_TRUE(sent.status == IBV_WC_REM_INV_REQ_ERR || sent.status == IBV_WC_REM_OP_ERR) << sent.status;
    EXPECT_EQ(sent.wr_id, 3U);
    EXPECT_EQ(pair.passive.State(), IBV_QPS_ERR);
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(Verbs, SendFromOutsideItsRegionFails)
{
    Connected pair;
    Memory& from = pair.active.Register(4096);
    ibv_sge beyond = from.Entry(4000, 97);
    ASSERT_EQ(pair.active.PostSend(1, {beyond}), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_LOC_PROT_ERR);
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(Verbs, SendFromBeforeItsRegionFails)
{
    Connected pair;
    Memory& from = pair.active.Register(4096);
    ibv_sge before = from.Whole();
    before.addr -= 1;
    before.length = 10;
    ASSERT_EQ(pair.active.PostSend(1, {before}), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_LOC_PROT_ERR);
}

TEST(Verbs, SendWithAKeyOfNoRegionFails)
{
    Connected pair;
    Memory& from = pair.active.Register(4096);
    ibv_sge wrong = from.Whole();
    wrong.lkey ^= 0x00F00000;
    ASSERT_EQ(pair.active.PostSend(1, {wrong}), 0);
    ExpectLocalError(pair.active, pair.active.Next().status, IBV_WC_LOC_PROT_ERR);
}

TEST(Verbs, SendFromARegionOfAnotherProtectionDomainFails)
{
    Connected pair;
    Memory& foreign = pair.passive.Register(64);
    ASSERT_EQ(pair.active.PostSend(1, {foreign.Whole()}), 0);
    ExpectLocalError(pair.active, pair.active.Next().status, IBV_WC_LOC_PROT_ERR);
}

TEST(Verbs, SendsBeforeAFailingOneComplete)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ibv_sge wrong = from.Whole();
    wrong.length = 65;
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    ASSERT_EQ(pair.passive.Next().status, IBV_WC_SUCCESS);
    ASSERT_EQ(pair.active.Next().status, IBV_WC_SUCCESS);
    ASSERT_EQ(pair.active.PostSend(3, {wrong}), 0);
    const ibv_wc failed = pair.active.Next();
    EXPECT_EQ(failed.wr_id, 3U);
    EXPECT_EQ(failed.status, IBV_WC_LOC_PROT_ERR);
}

TEST(Verbs, ReceiveIntoARegionThatMayNotBeWrittenFailsOnBothSides)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64, 0);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    ExpectLocalError(pair.passive, pair.passive.Next().status, IBV_WC_LOC_PROT_ERR);
    EXPECT_NE(pair.active.Next().status, IBV_WC_SUCCESS);
    EXPECT_EQ(pair.passive.State(), IBV_QPS_ERR);
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(Verbs, ReceiveQueueTakesItsCapacityAndRefusesOneMore)
{
    Connected pair;
    Memory& to = pair.passive.Register(64);
    ExpectCapacity(pair.passive, pair.passive.capacity.max_recv_wr,
                   [&](uint32_t number) { return pair.passive.PostReceive(number, {to.Whole()}); });
}

TEST(Verbs, SendQueueTakesItsCapacityAndRefusesOneMore)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    ExpectCapacity(pair.active, pair.active.capacity.max_send_wr,
                   [&](uint32_t number) { return pair.active.PostSend(number, {from.Whole()}); });
}

TEST(Verbs, MoreEntriesThanTheQueueHasAreRefused)
{
    Connected pair;
    Memory& memory = pair.active.Register(64);
    const std::vector<ibv_sge> many(pair.active.capacity.max_send_sge + 1, memory.Whole());
    EXPECT_NE(pair.active.PostSend(1, many), 0);
    const std::vector<ibv_sge> manyToo(pair.active.capacity.max_recv_sge + 1, memory.Whole());
    EXPECT_NE(pair.active.PostReceive(1, manyToo), 0);
}

TEST(Verbs, SendBeforeTheConnectionIsRefused)
{
    Meeting pair;
    pair.Request();
    Memory& from = pair.active.Register(64);
    EXPECT_EQ(pair.active.PostSend(1, {from.Whole()}), EINVAL);
}

TEST(Verbs, ReceivePostedBeforeTheConnectionIsUsed)
{
    Meeting pair;
    pair.Request();
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(7, {to.Whole()}), 0);
    pair.Accept();
    ASSERT_EQ(pair.active.PostSend(1, {from.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().wr_id, 7U);
}

TEST(Verbs, UnsignalledSendRaisesNoCompletion)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.passive.PostReceive(2, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(3, {from.Whole()}, 0), 0);
    ASSERT_EQ(pair.active.PostSend(4, {from.Whole()}), 0);
    EXPECT_EQ(pair.active.Next().wr_id, 4U);
}

TEST(Verbs, EverySendIsSignalledWhenTheQueuePairSaysSo)
{
    Connected pair({.signalAll = true});
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(3, {from.Whole()}, 0), 0);
    EXPECT_EQ(pair.active.Next().wr_id, 3U);
}

TEST(Verbs, ImmediateDataComesWithTheMessage)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}, IBV_SEND_SIGNALED, 0x01020304), 0);
    const ibv_wc received = pair.passive.Next();
    EXPECT_NE(received.wc_flags & IBV_WC_WITH_IMM, 0U);
    EXPECT_EQ(ntohl(received.imm_data), 0x01020304U);
}

TEST(Verbs, InlineDataIsTakenAtThePostAndNeedsNoRegion)
{
    Connected pair;
    Memory& to = pair.passive.Register(64);
    std::array<uint8_t, 20> bytes{};
    bytes.fill(0x77);
    ASSERT_EQ(pair.active.PostSend(2, {{reinterpret_cast<uint64_t>(bytes.data()), 20, 0}},
                                   IBV_SEND_SIGNALED | IBV_SEND_INLINE),
              0);
    bytes.fill(0);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    EXPECT_EQ(pair.passive.Next().byte_len, 20U);
    EXPECT_EQ(to.bytes[19], 0x77);
}

TEST(Verbs, CompletionNamesTheQueuePairsOfBothSides)
{
    Connected pair;
    Memory& from = pair.active.Register(64);
    Memory& to = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    const ibv_wc received = pair.passive.Next();
    EXPECT_EQ(received.qp_num, pair.passive.id->qp->qp_num);
    // The standard gives the sender's number only to datagrams; network cards fill it in for connections too.
    EXPECT_TRUE(received.src_qp == pair.active.id->qp->qp_num || IsSoftRoce(pair.passive.id->verbs));
    EXPECT_EQ(pair.active.Next().qp_num, pair.active.id->qp->qp_num);
}

TEST(Verbs, DisconnectFlushesBothQueues)
{
    Connected pair;
    Memory& memory = pair.active.Register(64);
    ASSERT_EQ(pair.active.PostReceive(1, {memory.Whole()}), 0);
    ASSERT_EQ(pair.active.PostReceive(2, {memory.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(3, {memory.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(4, {memory.Whole()}, 0), 0);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    std::vector<uint64_t> flushed;
    for (int count = 0; count < 4; ++count)
    {
        const ibv_wc completion = pair.active.Next();
        EXPECT_EQ(completion.status, IBV_WC_WR_FLUSH_ERR);
        flushed.push_back(completion.wr_id);
    }
    std::sort(flushed.begin(), flushed.end());
    EXPECT_EQ(flushed, (std::vector<uint64_t>{1, 2, 3, 4}));
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(Verbs, PostAfterTheDisconnectCompletesFlushedAtOnce)
{
    Connected pair;
    Memory& memory = pair.active.Register(64);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    ASSERT_EQ(pair.active.PostSend(6, {memory.Whole()}), 0);
    const ibv_wc sent = pair.active.Next();
    EXPECT_EQ(sent.status, IBV_WC_WR_FLUSH_ERR);
    EXPECT_EQ(sent.wr_id, 6U);
    if (IsSoftRoce(pair.active.id->verbs))
    {
        GTEST_SKIP() << "Soft-RoCE leaves a receive that is posted after the disconnect where it is";
    }
    ASSERT_EQ(pair.active.PostReceive(5, {memory.Whole()}), 0);
    const ibv_wc received = pair.active.Next();
    EXPECT_EQ(received.status, IBV_WC_WR_FLUSH_ERR);
    EXPECT_EQ(received.wr_id, 5U);
}

TEST(Verbs, PeersDisconnectLeavesTheOwnReceivesPosted)
{
    Connected pair;
    Memory& memory = pair.passive.Register(64);
    ASSERT_EQ(pair.passive.PostReceive(1, {memory.Whole()}), 0);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
    ibv_wc completion{};
    EXPECT_EQ(ibv_poll_cq(pair.passive.queue, 1, &completion), 0);
    EXPECT_EQ(pair.passive.State(), IBV_QPS_RTS);
    ASSERT_EQ(rdma_disconnect(pair.passive.id), 0);
    EXPECT_EQ(pair.passive.Next().status, IBV_WC_WR_FLUSH_ERR);
}

TEST(Verbs, SendToAPeerThatHasGoneFailsAfterItsRetries)
{
    Connected pair;
    if (IsSoftRoce(pair.active.id->verbs))
    {
        GTEST_SKIP() << "Soft-RoCE takes seven retries, the connection manager's standard, for endless ones";
    }
    pair.passive.DropQueuePair();
    Memory& from = pair.active.Register(64);
    ASSERT_EQ(pair.active.PostSend(1, {from.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    const ibv_wc first = pair.active.Next();
    EXPECT_EQ(first.wr_id, 1U);
    EXPECT_EQ(first.status, IBV_WC_RETRY_EXC_ERR);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_WR_FLUSH_ERR);
    EXPECT_EQ(pair.active.State(), IBV_QPS_ERR);
}

TEST(Verbs, QueuePairMovedToErrorByItsUserFlushes)
{
    Connected pair;
    Memory& memory = pair.active.Register(64);
    ASSERT_EQ(pair.active.PostReceive(1, {memory.Whole()}), 0);
    ibv_qp_attr attributes{};
    attributes.qp_state = IBV_QPS_ERR;
    ASSERT_EQ(ibv_modify_qp(pair.active.id->qp, &attributes, IBV_QP_STATE), 0);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_WR_FLUSH_ERR);
}

TEST(Verbs, ManyMessagesInBothDirectionsAtOnceArriveWhole)
{
    Connected pair;
    constexpr size_t kSize = 200'000;
    constexpr uint64_t kRounds = 100;
    // Two receives lie ahead of the sends: a real device waits two thirds of a second where it finds none.
    const auto postReceive = [](Side& side, Memory& to, uint64_t round) {
        const size_t offset = round % 4 * kSize;
        EXPECT_EQ(side.PostReceive(offset, {to.Entry(offset, kSize)}), 0);
    };
    const auto run = [&](Side& side, Memory& from, Memory& to) {
        uint64_t posted = 0;
        uint64_t sent = 0;
        uint64_t received = 0;
        const auto postBoth = [&] {
            const size_t offset = posted % 4 * kSize;
            postReceive(side, to, posted + 2);
            EXPECT_EQ(side.PostSend(offset, {from.Entry(offset, kSize)}), 0);
            ++posted;
        };
        postBoth();
        while (sent < kRounds || received < kRounds)
        {
            const ibv_wc completion = side.Next();
            ASSERT_EQ(completion.status, IBV_WC_SUCCESS);
            (completion.opcode == IBV_WC_RECV ? received : sent) += 1;
            if (posted < kRounds && posted == std::min(sent, received))
            {
                postBoth();
            }
        }
    };
    Memory& activeFrom = pair.active.Register(4 * kSize);
    Memory& activeTo = pair.active.Register(4 * kSize);
    Memory& passiveFrom = pair.passive.Register(4 * kSize);
    Memory& passiveTo = pair.passive.Register(4 * kSize);
    FillWithPattern(activeFrom.bytes, 1);
    FillWithPattern(passiveFrom.bytes, 2);
    for (const uint64_t round : {0U, 1U})
    {
        postReceive(pair.active, activeTo, round);
        postReceive(pair.passive, passiveTo, round);
    }
    std::thread other([&] { run(pair.passive, passiveFrom, passiveTo); });
    run(pair.active, activeFrom, activeTo);
    other.join();
    EXPECT_EQ(activeFrom.bytes, passiveTo.bytes);
    EXPECT_EQ(passiveFrom.bytes, activeTo.bytes);
}

} // namespace nq::test
