// SPDX-License-Identifier: Apache-2.0
// What a failed completion shows: the fields that verbs promises, and in all others nothing that could be taken for
// true.
#include "loopback/rdma_side.h"

namespace nq::test
{

namespace
{

void ExpectPoisoned(const ibv_wc& completion)
{
    EXPECT_EQ(completion.byte_len, 0xA5A5A5A5U);
    EXPECT_EQ(completion.imm_data, 0xA5A5A5A5U);
    EXPECT_EQ(completion.src_qp, 0xA5A5A5A5U);
    EXPECT_EQ(completion.wc_flags, 0xA5A5A5A5U);
    EXPECT_EQ(completion.pkey_index, 0xA5A5);
    EXPECT_EQ(completion.slid, 0xA5A5);
    EXPECT_EQ(completion.sl, 0xA5);
    EXPECT_EQ(completion.dlid_path_bits, 0xA5);
    EXPECT_EQ(completion.vendor_err, 0U);
}

} // namespace

TEST(LoopbackFailedCompletion, OfAReceiveShowsOnlyItsRequestItsStatusAndItsQueuePair)
{
    Connected pair;
    Memory& memory = pair.active.Register(8);
    ASSERT_EQ(pair.active.PostReceive(77, {memory.Whole()}), 0);
    const uint32_t number = pair.active.id->qp->qp_num;
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    const ibv_wc flushed = pair.active.Next();
    EXPECT_EQ(flushed.wr_id, 77U);
    EXPECT_EQ(flushed.status, IBV_WC_WR_FLUSH_ERR);
    EXPECT_EQ(flushed.qp_num, number);
    EXPECT_NE(flushed.opcode, IBV_WC_RECV);
    ExpectPoisoned(flushed);
}

TEST(LoopbackFailedCompletion, OfASendShowsOnlyItsRequestItsStatusAndItsQueuePair)
{
    Connected pair;
    Memory& memory = pair.active.Register(8);
    ibv_sge wrong = memory.Whole();
    wrong.length = 9;
    ASSERT_EQ(pair.active.PostSend(78, {wrong}), 0);
    const ibv_wc failed = pair.active.Next();
    EXPECT_EQ(failed.wr_id, 78U);
    EXPECT_EQ(failed.status, IBV_WC_LOC_PROT_ERR);
    EXPECT_EQ(failed.qp_num, pair.active.id->qp->qp_num);
    EXPECT_NE(failed.opcode, IBV_WC_SEND);
    ExpectPoisoned(failed);
}

TEST(LoopbackFailedCompletion, OfAMessageThatDoesNotFitTellsNoLength)
{
    Connected pair;
    Memory& from = pair.active.Register(101);
    Memory& to = pair.passive.Register(100);
    ASSERT_EQ(pair.passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(pair.active.PostSend(2, {from.Whole()}), 0);
    const ibv_wc received = pair.passive.Next();
    EXPECT_EQ(received.wr_id, 1U);
    EXPECT_EQ(received.status, IBV_WC_LOC_LEN_ERR);
    ExpectPoisoned(received);
    const ibv_wc sent = pair.active.Next();
    EXPECT_EQ(sent.wr_id, 2U);
    EXPECT_EQ(sent.status, IBV_WC_REM_INV_REQ_ERR);
    ExpectPoisoned(sent);
}

} // namespace nq::test
