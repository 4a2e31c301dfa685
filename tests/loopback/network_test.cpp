// SPDX-License-Identifier: Apache-2.0
// Who reaches whom over the software RDMA: addresses, network namespaces, processes and folders.
#include "loopback/rdma_side.h"
#include "loopback/rendezvous_folder.h"
#include "support/asleep.h"
#include "support/network.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace nq::test
{

namespace
{

/// A second host on a cable of its own: here 10.9.0.1, there 10.9.0.2.
struct Network
{
    Network() { there.Connect("here0", "10.9.0.1/24", "there0", "10.9.0.2/24"); }
    Host there;
};

/// A listener on that host.
class FarListener
{
  public:
    FarListener(const Host& host, sockaddr_in address)
    {
        host.Run([&] {
            side = std::make_unique<Side>();
            side->Listen(address);
        });
    }
    std::unique_ptr<Side> side;
};

// Connects and returns what comes back, an event of the active side.
Event Answer(Side& active, sockaddr_in address)
{
    active.Resolve(address);
    active.MakeQueuePair();
    Require(rdma_connect(active.id, nullptr) == 0, "rdma_connect");
    return NextEvent(active.channel);
}

// Connects and expects a request at `listener`.
void ExpectRequest(Side& active, sockaddr_in address, Side& listener)
{
    active.Resolve(address);
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    EXPECT_EQ(rdma_destroy_id(Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST).id), 0);
}

// Starts a child that listens on `address` and then waits to be killed.
pid_t StartListener(sockaddr_in address)
{
    std::array<int, 2> ends{};
    Require(pipe(ends.data()) == 0, "pipe");
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        Side listener;
        listener.Listen(address);
        Require(write(ends[1], "", 1) == 1, "write");
        for (;;)
        {
            pause();
        }
    }
    char byte = 0;
    Require(read(ends[0], &byte, 1) == 1, "read");
    close(ends[0]);
    close(ends[1]);
    return child;
}

} // namespace

TEST(LoopbackNetwork, ListenerInAnotherNamespaceIsReachedUnderItsAddress)
{
    const Folder folder;
    const Network network;
    const FarListener far(network.there, Address("10.9.0.2", 4791));
    Side active;
    active.Resolve(Address("10.9.0.2", 4791));
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    const Event request = Expect(far.side->channel, RDMA_CM_EVENT_CONNECT_REQUEST);
    const auto& peer = *reinterpret_cast<sockaddr_in*>(rdma_get_peer_addr(request.id));
    EXPECT_EQ(peer.sin_addr.s_addr, Address("10.9.0.1", 0).sin_addr.s_addr);
    EXPECT_EQ(rdma_destroy_id(request.id), 0);
}

TEST(LoopbackNetwork, AnyAddressIncludesOneThatWasAddedAfterTheListen)
{
    const Folder folder;
    const Network network;
    const FarListener far(network.there, Address("0.0.0.0", 4791));
    network.there.Shell("ip addr add 10.9.0.77/24 dev there0");
    Side active;
    ExpectRequest(active, Address("10.9.0.77", 4791), *far.side);
}

TEST(LoopbackNetwork, LoopbackAddressReachesOnlyTheOwnNamespace)
{
    const Folder folder;
    const Network network;
    const FarListener far(network.there, Address("127.0.0.1", 4791));
    Side active;
    const Event event = Answer(active, Address("127.0.0.1", 4791));
    EXPECT_EQ(event.type, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(event.status, 8);
}

TEST(LoopbackNetwork, PortBoundInOneNamespaceIsFreeInAnother)
{
    const Folder folder;
    const Network network;
    const FarListener far(network.there, Address("0.0.0.0", 4791));
    Side near;
    sockaddr_in any = Address("0.0.0.0", 4791);
    EXPECT_EQ(rdma_bind_addr(near.id, Raw(any)), 0);
}

TEST(LoopbackNetwork, HostWithoutAListenerOnThePortRejects)
{
    const Folder folder;
    const Network network;
    const FarListener far(network.there, Address("10.9.0.2", 4791));
    Side active;
    const Event event = Answer(active, Address("10.9.0.2", 4792));
    EXPECT_EQ(event.type, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(event.status, 8);
}

TEST(LoopbackNetwork, HostThatNobodyKnowsIsUnreachable)
{
    GiveUpSoon();
    const Folder folder;
    const Network network;
    Side active;
    const Event event = Answer(active, Address("10.9.0.55", 4791));
    EXPECT_EQ(event.type, RDMA_CM_EVENT_UNREACHABLE);
    EXPECT_EQ(event.status, -ETIMEDOUT);
}

TEST(LoopbackNetwork, StoppedProcessIsUnreachable)
{
    GiveUpSoon();
    const Folder folder;
    const pid_t child = StartListener(Address("127.0.0.1", 4791));
    kill(child, SIGSTOP);
    ASSERT_EQ(waitpid(child, nullptr, WUNTRACED), child);
    Side active;
    const Event event = Answer(active, Address("127.0.0.1", 4791));
    EXPECT_EQ(event.type, RDMA_CM_EVENT_UNREACHABLE);
    EXPECT_EQ(event.status, -ETIMEDOUT);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST(LoopbackNetwork, LateListenerIsNotUnreachable)
{
    const Folder folder;
    const pid_t child = StartListener(Address("127.0.0.1", 4791));
    kill(child, SIGSTOP);
    ASSERT_EQ(waitpid(child, nullptr, WUNTRACED), child);
    Side active;
    active.Resolve(Address("127.0.0.1", 4791));
    active.MakeQueuePair();
    std::thread waker([child] {
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
        kill(child, SIGCONT);
    });
    EXPECT_EQ(rdma_connect(active.id, nullptr), 0);
    waker.join();
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const Event event = NextEvent(active.channel);
    EXPECT_EQ(event.type, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(event.status, 28);
}

TEST(LoopbackNetwork, ListenerOfAKilledProcessIsForgotten)
{
    const Folder folder;
    const pid_t child = StartListener(Address("127.0.0.1", 4791));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(folder.Entries(), 1U);
    Side active;
    const Event event = Answer(active, Address("127.0.0.1", 4791));
    EXPECT_EQ(event.type, RDMA_CM_EVENT_REJECTED);
    EXPECT_EQ(folder.Entries(), 0U);
    Side again;
    sockaddr_in address = Address("127.0.0.1", 4791);
    EXPECT_EQ(rdma_bind_addr(again.id, Raw(address)), 0);
}

TEST(LoopbackNetwork, LaterListenerClearsAwayWhatKilledProcessesLeft)
{
    const Folder folder;
    const pid_t child = StartListener(Address("127.0.0.1", 4791));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    Side later;
    later.Listen(Address("127.0.0.1", 4792));
    EXPECT_EQ(folder.Entries(), 1U);
}

TEST(LoopbackNetwork, ListenerLeavesNoTraceInTheFolder)
{
    const Folder folder;
    {
        Side listener;
        listener.Listen(Address("127.0.0.1", 4791));
        EXPECT_EQ(folder.Entries(), 1U);
    }
    EXPECT_EQ(folder.Entries(), 0U);
}

TEST(LoopbackNetwork, ProcessesWithDifferentFoldersDoNotMeet)
{
    const Folder theirs;
    const pid_t child = StartListener(Address("127.0.0.1", 4791));
    const Folder ours;
    Side active;
    EXPECT_EQ(Answer(active, Address("127.0.0.1", 4791)).type, RDMA_CM_EVENT_REJECTED);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

TEST(LoopbackNetwork, FolderMayHaveALongPath)
{
    const Folder folder("/" + std::string(200, 'x'));
    Side listener;
    Side active;
    listener.Listen(Address("127.0.0.1", 4791));
    ExpectRequest(active, Address("127.0.0.1", 4791), listener);
}

TEST(LoopbackNetwork, FolderOfSomebodyElseIsRefused)
{
    const Folder folder;
    ASSERT_EQ(chown(folder.path.c_str(), 12345, 12345), 0);
    Side listener;
    sockaddr_in address = Address("127.0.0.1", 4791);
    EXPECT_EQ(rdma_bind_addr(listener.id, Raw(address)), -1);
    EXPECT_EQ(errno, EACCES);
}

TEST(LoopbackNetwork, StrangeFileInTheFolderIsIgnored)
{
    const Folder folder;
    close(creat((folder.path + "/4791_1_any_1_1").c_str(), 0600));
    close(creat((folder.path + "/notes.txt").c_str(), 0600));
    Side listener;
    Side active;
    listener.Listen(Address("127.0.0.1", 4791));
    ExpectRequest(active, Address("127.0.0.1", 4791), listener);
}

TEST(LoopbackNetwork, SixthVersionOfTheProtocolWorksToo)
{
    const Folder folder;
    Side listener;
    Side active;
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(4791);
    address.sin6_addr = in6addr_loopback;
    auto* raw = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(rdma_bind_addr(listener.id, raw), 0);
    ASSERT_EQ(rdma_listen(listener.id, 1), 0);
    ASSERT_EQ(rdma_resolve_addr(active.id, nullptr, raw, 500), 0);
    Expect(active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    ASSERT_EQ(rdma_resolve_route(active.id, 500), 0);
    Expect(active.channel, RDMA_CM_EVENT_ROUTE_RESOLVED);
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    EXPECT_EQ(rdma_destroy_id(Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST).id), 0);
}

TEST(LoopbackNetwork, SourceAddressThatWasAskedForIsUsed)
{
    const Folder folder;
    Shell("ip addr add 10.8.0.1/24 dev lo");
    Side listener;
    Side active;
    listener.Listen(Address("127.0.0.1", 4791));
    sockaddr_in source = Address("10.8.0.1", 0);
    sockaddr_in target = Address("127.0.0.1", 4791);
    ASSERT_EQ(rdma_resolve_addr(active.id, Raw(source), Raw(target), 500), 0);
    Expect(active.channel, RDMA_CM_EVENT_ADDR_RESOLVED);
    const auto& local = *reinterpret_cast<sockaddr_in*>(rdma_get_local_addr(active.id));
    EXPECT_EQ(local.sin_addr.s_addr, source.sin_addr.s_addr);
    EXPECT_NE(local.sin_port, 0);
}

TEST(LoopbackNetwork, ForkedChildMayMakeObjectsOfItsOwn)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer lets no child of a process with threads start threads";
#endif
    const Folder folder;
    Meeting ours;
    AwaitOthersAsleep();
    const pid_t child = fork();
    if (child == 0)
    {
        Connected pair;
        _exit(pair.active.State() == IBV_QPS_RTS ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ours.Request();
    ours.Accept();
}

TEST(LoopbackNetwork, ForkDuringTrafficGivesAChildThatCanConnect)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator may be in use by another thread at the fork";
#endif
    const Folder folder;
    Connected ours;
    std::atomic<bool> stop = false;
    std::thread traffic([&] {
        Memory& from = ours.active.Register(64);
        Memory& into = ours.passive.Register(64);
        while (!stop)
        {
            ASSERT_EQ(ours.passive.PostReceive(1, {into.Whole()}), 0);
            ASSERT_EQ(ours.active.PostSend(2, {from.Whole()}), 0);
            ASSERT_EQ(ours.active.Next().status, IBV_WC_SUCCESS);
            ASSERT_EQ(ours.passive.Next().status, IBV_WC_SUCCESS);
        }
    });
    for (int round = 0; round < 100; ++round)
    {
        const pid_t child = fork();
        if (child == 0)
        {
            Connected pair;
            pair.active.Register(64);
            _exit(pair.active.State() == IBV_QPS_RTS ? 0 : 1);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    stop = true;
    traffic.join();
}

} // namespace nq::test
