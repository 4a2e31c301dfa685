// SPDX-License-Identifier: Apache-2.0
// The connection manager's events, in their order and with their contents, on any RDMA device.
#include "loopback/rdma_side.h"

#include <csignal>
#include <fcntl.h>
#include <future>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace nq::test
{

namespace
{

/// A connect request, refused or accepted by the case itself.
struct Requested : Meeting
{
    explicit Requested(rdma_conn_param* parameters = nullptr) { Request(parameters); }
};

rdma_conn_param WithData(const std::vector<uint8_t>& data)
{
    rdma_conn_param parameters{};
    parameters.private_data = data.data();
    parameters.private_data_len = static_cast<uint8_t>(data.size());
    parameters.responder_resources = 1;
    parameters.initiator_depth = 3;
    parameters.retry_count = 7;
    parameters.rnr_retry_count = 7;
    return parameters;
}

std::vector<uint8_t> Head(const Event& event, size_t size)
{
    return {event.data.begin(), event.data.begin() + static_cast<std::ptrdiff_t>(std::min(size, event.data.size()))};
}

// A child process that listens, accepts one connection and then sleeps until it is killed. Tells its port by a pipe.
[[noreturn]] void AcceptAndSleep(int pipe)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Side listener;
    Side passive;
    listener.Listen(TestAddress(0));
    const uint16_t port = ntohs(rdma_get_src_port(listener.id));
    Require(write(pipe, &port, sizeof port) == static_cast<ssize_t>(sizeof port), "write");
    const Event request = Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
    rdma_destroy_id(passive.id);
    passive.id = request.id;
    passive.MakeQueuePair();
    Require(rdma_accept(passive.id, nullptr) == 0, "rdma_accept");
    for (;;)
    {
        pause();
    }
}

} // namespace

TEST(Connection, SetUpBringsTheEventsInTheirOrder)
{
    Meeting pair;
    EXPECT_EQ(pair.active.id->verbs, nullptr);
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    const Event resolved = Expect(pair.active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    EXPECT_EQ(resolved.status, 0);
    EXPECT_EQ(resolved.id, pair.active.id);
    EXPECT_NE(pair.active.id->verbs, nullptr);
    EXPECT_EQ(pair.active.id->port_num, 1);
    ASSERT_EQ(rdma_resolve_route(pair.active.id, 500), 0);
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_ROUTE_RESOLVED).id, pair.active.id);
    pair.active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    const Event request = Expect(pair.listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
    EXPECT_EQ(request.listener, pair.listener.id);
    EXPECT_NE(request.id, pair.listener.id);
    EXPECT_EQ(request.id->context, &pair.listener);
    EXPECT_NE(request.id->verbs, nullptr);
    EXPECT_EQ(request.id->channel, pair.listener.channel);
    rdma_destroy_id(pair.passive.id);
    pair.passive.id = request.id;
    pair.passive.MakeQueuePair();
    ASSERT_EQ(rdma_accept(pair.passive.id, nullptr), 0);
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_ESTABLISHED).id, pair.active.id);
    EXPECT_EQ(Expect(pair.listener.channel, RDMA_CM_EVENT_ESTABLISHED).id, pair.passive.id);
}

TEST(Connection, IdsShowTheAddressesOfBothSides)
{
    Connected pair;
    const auto& local = *reinterpret_cast<sockaddr_in*>(rdma_get_local_addr(pair.active.id));
    const auto& peer = *reinterpret_cast<sockaddr_in*>(rdma_get_peer_addr(pair.active.id));
    EXPECT_EQ(peer.sin_family, AF_INET);
    EXPECT_EQ(peer.sin_addr.s_addr, pair.address.sin_addr.s_addr);
    EXPECT_EQ(peer.sin_port, pair.address.sin_port);
    EXPECT_EQ(local.sin_addr.s_addr, pair.address.sin_addr.s_addr);
    EXPECT_NE(local.sin_port, 0);
    const auto& passiveLocal = *reinterpret_cast<sockaddr_in*>(rdma_get_local_addr(pair.passive.id));
    const auto& passivePeer = *reinterpret_cast<sockaddr_in*>(rdma_get_peer_addr(pair.passive.id));
    EXPECT_EQ(passiveLocal.sin_port, pair.address.sin_port);
    EXPECT_EQ(passivePeer.sin_addr.s_addr, local.sin_addr.s_addr);
    EXPECT_EQ(rdma_get_dst_port(pair.active.id), pair.address.sin_port);
    EXPECT_EQ(rdma_get_src_port(pair.passive.id), pair.address.sin_port);
}

TEST(Connection, PrivateDataReachesBothSides)
{
    Meeting pair;
    const std::vector<uint8_t> question{1, 2, 3, 4, 5};
    const std::vector<uint8_t> answer{9, 8, 7};
    rdma_conn_param asking = WithData(question);
    rdma_conn_param answering = WithData(answer);
    pair.Request(&asking);
    EXPECT_EQ(Head(pair.request, 5), question);
    EXPECT_EQ(pair.request.parameters.private_data_len, 56);
    EXPECT_EQ(pair.request.data[5], 0);
    pair.Accept(&answering);
    EXPECT_EQ(Head(pair.reply, 3), answer);
    EXPECT_EQ(pair.reply.parameters.private_data_len, 196);
}

TEST(Connection, RequestShowsThePeersDepthsFromTheOtherSide)
{
    Meeting pair;
    const std::vector<uint8_t> none;
    rdma_conn_param asking = WithData(none);
    pair.Request(&asking);
    EXPECT_EQ(pair.request.parameters.responder_resources, 3);
    EXPECT_EQ(pair.request.parameters.initiator_depth, 1);
    EXPECT_EQ(pair.request.parameters.rnr_retry_count, 7);
    EXPECT_EQ(pair.request.parameters.qp_num, pair.active.id->qp->qp_num);
}

TEST(Connection, ConnectWithoutParametersSendsNoPrivateData)
{
    const Requested pair;
    EXPECT_EQ(pair.request.data, std::vector<uint8_t>(56, 0));
}

TEST(Connection, PrivateDataThatDoesNotFitIsRefused)
{
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    const std::vector<uint8_t> tooLong(57);
    rdma_conn_param parameters = WithData(tooLong);
    EXPECT_EQ(rdma_connect(pair.active.id, &parameters), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Connection, PortThatNobodyListensOnRejectsForItsServiceId)
{
    Meeting pair;
    rdma_destroy_id(pair.listener.id);
    pair.listener.id = nullptr;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED).status, 8);
}

TEST(Connection, BoundPortWithoutListenRejectsForItsServiceId)
{
    Side bound;
    Side active;
    sockaddr_in address = TestAddress(0);
    ASSERT_EQ(rdma_bind_addr(bound.id, Raw(address)), 0);
    active.Resolve(TestAddress(ntohs(rdma_get_src_port(bound.id))));
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    EXPECT_EQ(Expect(active.channel, RDMA_CM_EVENT_REJECTED).status, 8);
}

TEST(Connection, RefusalReachesTheActiveSideWithItsData)
{
    Requested pair;
    const std::array<uint8_t, 4> reason{0xDE, 0xAD, 0xBE, 0xEF};
    ASSERT_EQ(rdma_reject(pair.passive.id, reason.data(), 4), 0);
    const Event event = Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(event.status, 28);
    EXPECT_EQ(event.data.size(), 148U);
    EXPECT_EQ(Head(event, 4), (std::vector<uint8_t>{0xDE, 0xAD, 0xBE, 0xEF}));
}

TEST(Connection, RefusalMovesTheQueuePairToError)
{
    Requested pair;
    Memory& memory = pair.active.Register(8);
    ASSERT_EQ(pair.active.PostReceive(1, {memory.Whole()}), 0);
    ASSERT_EQ(rdma_reject(pair.passive.id, nullptr, 0), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(pair.active.Next().status, IBV_WC_WR_FLUSH_ERR);
}

TEST(Connection, RequestWhoseIdIsDestroyedIsRefused)
{
    Requested pair;
    pair.passive.DropQueuePair();
    ASSERT_EQ(rdma_destroy_id(pair.passive.id), 0);
    pair.passive.id = nullptr;
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED).status, 28);
}

TEST(Connection, UnreadRequestIsRefusedWhenItsListenerGoes)
{
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    ASSERT_TRUE(Readable(pair.listener.channel->fd, kPatience));
    ASSERT_EQ(rdma_destroy_id(pair.listener.id), 0);
    pair.listener.id = nullptr;
    EXPECT_EQ(Expect(pair.active.channel, RDMA_CM_EVENT_REJECTED).status, 28);
}

TEST(Connection, AcceptOfARequestThatWasTakenBackFails)
{
    Requested pair;
    pair.active.DropQueuePair();
    ASSERT_EQ(rdma_destroy_id(pair.active.id), 0);
    pair.active.id = nullptr;
    if (IsSoftRoce(pair.passive.id->verbs))
    {
        GTEST_SKIP()
            << "over Soft-RoCE the passive side hears nothing for more than a minute, not even after its accept";
    }
    EXPECT_EQ(Expect(pair.passive.channel, RDMA_CM_EVENT_REJECTED).status, 4);
    EXPECT_EQ(rdma_accept(pair.passive.id, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Connection, PassiveSideIsEstablishedWhenTheActiveSideReadsTheReply)
{
    Requested pair;
    ASSERT_EQ(rdma_accept(pair.passive.id, nullptr), 0);
    ASSERT_TRUE(Readable(pair.active.channel->fd, kPatience));
    EXPECT_FALSE(Readable(pair.passive.channel->fd, 100));
    Expect(pair.active.channel, RDMA_CM_EVENT_ESTABLISHED);
    Expect(pair.passive.channel, RDMA_CM_EVENT_ESTABLISHED);
}

TEST(Connection, AddressWithoutRouteFailsAtOnce)
{
    if (OnRealDevice())
    {
        GTEST_SKIP() << "the routes of a given network are not known";
    }
    Side active;
    sockaddr_in address = TestAddress(4791);
    inet_pton(AF_INET, "198.51.100.1", &address.sin_addr);
    EXPECT_EQ(rdma_resolve_addr(active.id, nullptr, Raw(address), 500), -1);
    EXPECT_EQ(errno, ENETUNREACH);
}

TEST(Connection, StepsOutOfTheirOrderAreRefused)
{
    Meeting pair;
    EXPECT_EQ(rdma_connect(pair.active.id, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    EXPECT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rdma_connect(pair.active.id, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Connection, StepsThatNeedADeviceAreRefusedWithoutOne)
{
    if (OnRealDevice())
    {
        GTEST_SKIP() << "librdmacm reads through the null pointer of an id without a device";
    }
    Side side;
    ibv_qp_init_attr attributes = side.Attributes();
    EXPECT_EQ(rdma_resolve_route(side.id, 100), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rdma_create_qp(side.id, nullptr, &attributes), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rdma_accept(side.id, nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(rdma_disconnect(side.id), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Connection, QueuePairComesOnce)
{
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    ibv_qp_init_attr attributes = pair.active.Attributes();
    EXPECT_EQ(rdma_create_qp(pair.active.id, pair.active.domain, &attributes), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST(Connection, ActiveSideLearnsOfItsDisconnectWhenThePeerAnswers)
{
    Connected pair;
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_FALSE(Readable(pair.active.channel->fd, 100));
    ASSERT_EQ(rdma_disconnect(pair.passive.id), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_DISCONNECTED);
    Expect(pair.active.channel, RDMA_CM_EVENT_TIMEWAIT_EXIT);
    Expect(pair.passive.channel, RDMA_CM_EVENT_TIMEWAIT_EXIT);
}

TEST(Connection, PassiveSideDisconnectsJustTheSame)
{
    Connected pair;
    ASSERT_EQ(rdma_disconnect(pair.passive.id), 0);
    Expect(pair.active.channel, RDMA_CM_EVENT_DISCONNECTED);
    ASSERT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(Connection, SecondDisconnectDoesNothing)
{
    Connected pair;
    EXPECT_EQ(rdma_disconnect(pair.active.id), 0);
    EXPECT_EQ(rdma_disconnect(pair.active.id), 0);
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
    EXPECT_FALSE(Readable(pair.passive.channel->fd, 100));
}

TEST(Connection, DestroyedIdDisconnectsItsPeer)
{
    Connected pair;
    pair.active.DropQueuePair();
    ASSERT_EQ(rdma_destroy_id(pair.active.id), 0);
    pair.active.id = nullptr;
    Expect(pair.passive.channel, RDMA_CM_EVENT_DISCONNECTED);
}

TEST(Connection, KilledPeerCountsAsDisconnected)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const pid_t child = fork();
    if (child == 0)
    {
        AcceptAndSleep(ends[1]);
    }
    uint16_t port = 0;
    ASSERT_EQ(read(ends[0], &port, sizeof port), static_cast<ssize_t>(sizeof port));
    Side active;
    active.Resolve(TestAddress(port));
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    Expect(active.channel, RDMA_CM_EVENT_ESTABLISHED);
    kill(child, SIGKILL);
    Expect(active.channel, RDMA_CM_EVENT_DISCONNECTED);
    Memory& memory = active.Register(8);
    ASSERT_EQ(active.PostSend(1, {memory.Whole()}), 0);
    if (!IsSoftRoce(active.id->verbs)) // which never gives up
    {
        EXPECT_EQ(active.Next().status, IBV_WC_RETRY_EXC_ERR);
    }
    EXPECT_EQ(rdma_disconnect(active.id), 0);
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
}

TEST(Events, NonBlockingChannelWithoutEventGivesEagain)
{
    Side side;
    const int fd = side.channel->fd;
    ASSERT_EQ(fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK), 0);
    rdma_cm_event* event = nullptr;
    EXPECT_EQ(rdma_get_cm_event(side.channel, &event), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST(Events, NonBlockingChannelGivesTheEventThatPollTellsOf)
{
    Meeting pair;
    const int fd = pair.active.channel->fd;
    ASSERT_EQ(fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK), 0);
    EXPECT_FALSE(Readable(fd, 0));
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    ASSERT_TRUE(Readable(fd, kPatience));
    Expect(pair.active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    EXPECT_FALSE(Readable(fd, 0));
}

TEST(Events, BlockingReadWakesWithTheEvent)
{
    Meeting pair;
    auto read = std::async(std::launch::async, [&] {
        rdma_cm_event* event = nullptr;
        const int result = rdma_get_cm_event(pair.active.channel, &event);
        rdma_ack_cm_event(event);
        return result;
    });
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    EXPECT_EQ(read.get(), 0);
}

TEST(Events, DestroyingAnIdWaitsForTheAcknowledgementOfItsEvents)
{
    Meeting pair;
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    rdma_cm_event* event = nullptr;
    ASSERT_EQ(rdma_get_cm_event(pair.active.channel, &event), 0);
    rdma_cm_id* id = std::exchange(pair.active.id, nullptr);
    auto destroyed = std::async(std::launch::async, [id] { return rdma_destroy_id(id); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(rdma_ack_cm_event(event), 0);
    EXPECT_EQ(destroyed.get(), 0);
}

TEST(Events, UnacknowledgedRequestHoldsUpItsListenerAndNotItsOwnId)
{
    Meeting pair;
    pair.active.Resolve(pair.address);
    pair.active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(pair.active.id, nullptr), 0);
    rdma_cm_event* event = nullptr;
    ASSERT_EQ(rdma_get_cm_event(pair.listener.channel, &event), 0);
    EXPECT_EQ(rdma_destroy_id(event->id), 0);
    rdma_cm_id* id = std::exchange(pair.listener.id, nullptr);
    auto destroyed = std::async(std::launch::async, [id] { return rdma_destroy_id(id); });
    EXPECT_EQ(destroyed.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(rdma_ack_cm_event(event), 0);
    EXPECT_EQ(destroyed.get(), 0);
}

TEST(Events, UnreadEventGoesWithItsId)
{
    Meeting pair;
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    ASSERT_TRUE(Readable(pair.active.channel->fd, kPatience));
    ASSERT_EQ(rdma_destroy_id(pair.active.id), 0);
    pair.active.id = nullptr;
    EXPECT_FALSE(Readable(pair.active.channel->fd, 0));
}

TEST(Events, UnreadEventMovesWithItsId)
{
    Meeting pair;
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    ASSERT_TRUE(Readable(pair.active.channel->fd, kPatience));
    ASSERT_EQ(rdma_migrate_id(pair.active.id, pair.passive.channel), 0);
    EXPECT_FALSE(Readable(pair.active.channel->fd, 0));
    EXPECT_EQ(Expect(pair.passive.channel, RDMA_CM_EVENT_ADDR_RESOLVED).id, pair.active.id);
    EXPECT_EQ(pair.active.id->channel, pair.passive.channel);
    ASSERT_EQ(rdma_migrate_id(pair.active.id, pair.active.channel), 0);
}

TEST(Events, MovingAnIdWaitsForTheAcknowledgementOfItsEvents)
{
    Meeting pair;
    ASSERT_EQ(rdma_resolve_addr(pair.active.id, nullptr, Raw(pair.address), 500), 0);
    rdma_cm_event* event = nullptr;
    ASSERT_EQ(rdma_get_cm_event(pair.active.channel, &event), 0);
    auto moved = std::async(std::launch::async, [&] { return rdma_migrate_id(pair.active.id, pair.listener.channel); });
    EXPECT_EQ(moved.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    EXPECT_EQ(rdma_ack_cm_event(event), 0);
    EXPECT_EQ(moved.get(), 0);
}

TEST(Listening, BoundPortIsTakenUntilItsIdGoes)
{
    Meeting pair;
    Side second;
    EXPECT_EQ(rdma_bind_addr(second.id, Raw(pair.address)), -1);
    EXPECT_EQ(errno, EADDRINUSE);
    ASSERT_EQ(rdma_destroy_id(pair.listener.id), 0);
    pair.listener.id = nullptr;
    Side third;
    EXPECT_EQ(rdma_bind_addr(third.id, Raw(pair.address)), 0);
}

TEST(Listening, AddressOfAnotherMachineCannotBeBound)
{
    Side side;
    sockaddr_in address = TestAddress(4791);
    inet_pton(AF_INET, "198.51.100.1", &address.sin_addr);
    EXPECT_EQ(rdma_bind_addr(side.id, Raw(address)), -1);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST(Listening, AnyAddressIsReachedUnderEachOfThem)
{
    Side listener;
    Side active;
    sockaddr_in any = TestAddress(0);
    any.sin_addr.s_addr = INADDR_ANY;
    listener.Listen(any);
    active.Resolve(TestAddress(ntohs(rdma_get_src_port(listener.id))));
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    const Event request = Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
    const auto& local = *reinterpret_cast<sockaddr_in*>(rdma_get_local_addr(request.id));
    EXPECT_EQ(local.sin_addr.s_addr, TestAddress(0).sin_addr.s_addr);
    EXPECT_EQ(rdma_destroy_id(request.id), 0);
}

TEST(Listening, OneListenerTakesSeveralConnections)
{
    Meeting first;
    first.Request();
    first.Accept();
    Side active;
    active.Resolve(first.address);
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    const Event request = Expect(first.listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST);
    Side passive;
    rdma_destroy_id(passive.id);
    passive.id = request.id;
    passive.MakeQueuePair();
    ASSERT_EQ(rdma_accept(passive.id, nullptr), 0);
    Expect(active.channel, RDMA_CM_EVENT_ESTABLISHED);
    Memory& from = active.Register(8);
    Memory& to = passive.Register(8);
    ASSERT_EQ(passive.PostReceive(1, {to.Whole()}), 0);
    ASSERT_EQ(active.PostSend(2, {from.Whole()}), 0);
    EXPECT_EQ(passive.Next().status, IBV_WC_SUCCESS);
}

TEST(Listening, RequestsBeyondTheBacklogWaitUntilOneIsRead)
{
    Side listener;
    listener.Listen(TestAddress(0), 1);
    const sockaddr_in address = TestAddress(ntohs(rdma_get_src_port(listener.id)));
    Side first;
    Side second;
    for (Side* side : {&first, &second})
    {
        side->Resolve(address);
        side->MakeQueuePair();
        ASSERT_EQ(rdma_connect(side->id, nullptr), 0);
    }
    EXPECT_EQ(rdma_destroy_id(Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST).id), 0);
    EXPECT_EQ(rdma_destroy_id(Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST).id), 0);
}

} // namespace nq::test
