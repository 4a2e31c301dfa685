// SPDX-License-Identifier: Apache-2.0
// The two streams of a reliable connection of the software RDMA, from a peer that writes what it likes: the completions
// keep the rules of verbs and no memory is touched but that of posted receives.
#include "base/error.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/loopback/turned_engine.h"
#include "verbs/queue_pair.h"

#include <array>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <sys/socket.h>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;
using nq::fuzz::TurnUntilRest;
using namespace nq::loopback;

constexpr std::uint32_t kMostWork = 8;
constexpr std::size_t kRoomSize = 2048;
/// As a plain number: ibv_reg_mr is a macro that combines it with another enumeration.
constexpr int kLocalWrite = IBV_ACCESS_LOCAL_WRITE;
constexpr std::uint64_t kSendMark = 1ULL << 32;

/// The queue pair under attack and the peer's ends of its streams.
class Attack
{
  public:
    Attack()
        : m_context(&Context::Shared()), m_domain(ibv_alloc_pd(m_context)),
          m_queue(ibv_create_cq(m_context, 256, nullptr, nullptr, 0)),
          m_region(ibv_reg_mr(m_domain, m_memory.data() + kRoomSize, kRoomSize, kLocalWrite))
    {
        m_memory.fill(0xEE);
        ibv_qp_init_attr attributes{};
        attributes.send_cq = m_queue;
        attributes.recv_cq = m_queue;
        attributes.qp_type = IBV_QPT_RC;
        attributes.sq_sig_all = 1;
        attributes.cap = {kMostWork, kMostWork, 2, 2, 64};
        m_pair = ibv_create_qp(m_domain, &attributes);
        Require(m_region != nullptr && m_pair != nullptr, "the objects are made");
        ibv_qp_attr step{};
        step.qp_state = IBV_QPS_INIT;
        Require(ibv_modify_qp(m_pair, &step, IBV_QP_STATE) == 0, "the queue pair may receive");
        UniqueFd data = Pair(SOCK_STREAM, m_data);
        UniqueFd acknowledgements = Pair(SOCK_SEQPACKET, m_acknowledgements);
        QueuePair::From(m_pair).Transport()->Attach(std::move(data), std::move(acknowledgements), 7);
    }

    ~Attack()
    {
        Require(ibv_destroy_qp(m_pair) == 0, "the queue pair goes");
        Require(ibv_dereg_mr(m_region) == 0 && ibv_destroy_cq(m_queue) == 0 && ibv_dealloc_pd(m_domain) == 0,
                "all else goes");
    }
    Attack(const Attack&) = delete;
    Attack& operator=(const Attack&) = delete;

    void Step(FuzzInput& input)
    {
        switch (input.Below(12))
        {
        case 0:
        case 1:
            PostReceive(input);
            break;
        case 2:
            PostSend(input);
            break;
        case 3:
            Write(input.Take(input.Byte()));
            break;
        case 4:
        case 5:
            WriteMessage(input);
            break;
        case 6:
            WriteAcknowledgement(input);
            break;
        case 7: {
            const Bytes raw = input.Take(input.Below(40));
            send(m_acknowledgements.Get(), raw.data(), raw.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
            break;
        }
        case 8:
            Drain();
            break;
        case 9:
            (input.Flag() ? m_data : m_acknowledgements).Reset();
            break;
        case 10:
            SetLink(input.Flag());
            break;
        default:
            EndIt(input);
        }
        TurnUntilRest();
        TakeCompletions();
    }

    void ExpectGuardsWhole() const
    {
        for (std::size_t index = 0; index < kRoomSize; ++index)
        {
            Require(m_memory[index] == 0xEE && m_memory[2 * kRoomSize + index] == 0xEE,
                    "no byte is written outside the region");
        }
    }

  private:
    static UniqueFd Pair(int type, UniqueFd& there)
    {
        std::array<int, 2> ends{};
        Require(socketpair(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0, "a socket pair");
        there = UniqueFd(ends[1]);
        return UniqueFd(ends[0]);
    }

    std::array<ibv_sge, 2> Entries(FuzzInput& input) const
    {
        std::array<ibv_sge, 2> entries{};
        for (ibv_sge& entry : entries)
        {
            entry.addr = reinterpret_cast<std::uint64_t>(m_memory.data() + kRoomSize) + input.Word() % (kRoomSize + 64);
            entry.length = input.Word() % (kRoomSize + 64);
            entry.lkey = input.Below(16) == 0 ? input.DWord() : m_region->lkey;
        }
        return entries;
    }

    void PostReceive(FuzzInput& input)
    {
        std::array<ibv_sge, 2> entries = Entries(input);
        ibv_recv_wr work{};
        work.wr_id = m_lastReceive + 1;
        work.sg_list = entries.data();
        work.num_sge = static_cast<int>(input.Below(3));
        ibv_recv_wr* bad = nullptr;
        const int result = ibv_post_recv(m_pair, &work, &bad);
        Require(result == 0 || (result == ENOMEM && m_receives.size() >= kMostWork), "a full queue alone refuses");
        if (result == 0)
        {
            std::uint64_t room = 0;
            for (int index = 0; index < work.num_sge; ++index)
            {
                room += entries[static_cast<std::size_t>(index)].length;
            }
            m_receives.push_back({++m_lastReceive, room});
        }
    }

    void PostSend(FuzzInput& input)
    {
        std::array<ibv_sge, 2> entries = Entries(input);
        ibv_send_wr work{};
        work.wr_id = kSendMark | (m_lastSend + 1);
        work.sg_list = entries.data();
        work.num_sge = static_cast<int>(input.Below(3));
        work.opcode = input.Flag() ? IBV_WR_SEND : IBV_WR_SEND_WITH_IMM;
        ibv_send_wr* bad = nullptr;
        const int result = ibv_post_send(m_pair, &work, &bad);
        Require(result == 0 || (result == ENOMEM && m_sends.size() >= kMostWork), "a full queue alone refuses");
        if (result == 0)
        {
            m_sends.push_back({kSendMark | ++m_lastSend, 0});
        }
    }

    void Write(const Bytes& bytes)
    {
        if (m_data)
        {
            send(m_data.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        }
    }

    // A header as the stream has it, with or without the bytes that it promises.
    void WriteMessage(FuzzInput& input)
    {
        struct
        {
            std::uint32_t magic;
            std::uint32_t flags;
            std::uint64_t sequence;
            std::uint64_t length;
            std::uint32_t immediate;
            std::uint32_t reserved;
        } header{};
        header.magic = input.Below(32) == 0 ? input.DWord() : 0x4E51524D;
        header.flags = input.Byte();
        header.sequence = input.Below(8) == 0 ? input.Quad() : ++m_sequence;
        header.length = input.Below(8) == 0 ? input.Quad() : input.Word() % (kRoomSize + 64);
        Bytes message(sizeof header);
        std::memcpy(message.data(), &header, sizeof header);
        if (input.Below(4) != 0)
        {
            message.resize(sizeof header + std::min<std::uint64_t>(header.length, 2 * kRoomSize), 0xAB);
        }
        Write(message);
    }

    void WriteAcknowledgement(FuzzInput& input)
    {
        struct
        {
            std::uint32_t kind;
            std::uint32_t status;
            std::uint64_t sequence;
        } record{};
        record.kind = input.Below(8) == 0 ? input.DWord() : static_cast<std::uint32_t>(input.Below(6));
        record.status = input.Below(8) == 0 ? input.DWord() : input.Byte() % 24;
        record.sequence = input.Below(8) == 0 ? input.Quad() : input.Below(12);
        send(m_acknowledgements.Get(), &record, sizeof record, MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    void Drain() const
    {
        std::array<char, 4096> bytes{};
        while (recv(m_data.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0)
        {
        }
        while (recv(m_acknowledgements.Get(), bytes.data(), bytes.size(), MSG_DONTWAIT) > 0)
        {
        }
    }

    void EndIt(FuzzInput& input)
    {
        if (input.Below(4) == 0)
        {
            BreakLink();
        }
        else if (input.Below(4) == 0)
        {
            ibv_qp_attr attributes{};
            attributes.qp_state = IBV_QPS_ERR;
            Require(ibv_modify_qp(m_pair, &attributes, IBV_QP_STATE) == 0, "a user may end his queue pair");
        }
    }

    struct Posted
    {
        std::uint64_t id;
        std::uint64_t room;
    };

    void TakeCompletions()
    {
        ibv_wc completion{};
        while (ibv_poll_cq(m_queue, 1, &completion) == 1)
        {
            const bool isSend = (completion.wr_id & kSendMark) != 0;
            std::deque<Posted>& posted = isSend ? m_sends : m_receives;
            Require(!posted.empty() && posted.front().id == completion.wr_id, "requests complete once and in order");
            Require(completion.qp_num == m_pair->qp_num, "a completion names its queue pair");
            if (completion.status == IBV_WC_SUCCESS)
            {
                Require(!m_failed, "nothing succeeds after a failure");
                Require(completion.opcode == (isSend ? IBV_WC_SEND : IBV_WC_RECV), "a success names its kind");
                Require(isSend || completion.byte_len <= posted.front().room, "a message fits its receive");
            }
            else
            {
                m_failed = true;
                Require(completion.status <= IBV_WC_GENERAL_ERR, "a failure has a status that there is");
            }
            posted.pop_front();
        }
    }

    std::array<unsigned char, 3 * kRoomSize> m_memory{};
    ibv_context* m_context;
    ibv_pd* m_domain;
    ibv_cq* m_queue;
    ibv_mr* m_region;
    ibv_qp* m_pair = nullptr;
    UniqueFd m_data;
    UniqueFd m_acknowledgements;
    std::uint64_t m_lastReceive = 0;
    std::uint64_t m_lastSend = 0;
    std::uint64_t m_sequence = 0;
    std::deque<Posted> m_receives;
    std::deque<Posted> m_sends;
    bool m_failed = false;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "0", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    SetLink(true);
    {
        Attack attack;
        for (int step = 0; step < 100 && !input.Empty(); ++step)
        {
            attack.Step(input);
        }
        attack.ExpectGuardsWhole();
    }
    TurnUntilRest();
    Require(Tally::Instance().Of(Kind::QueuePair) == 0 && Tally::Instance().Of(Kind::MemoryRegion) == 0,
            "nothing is left");
    return 0;
}
