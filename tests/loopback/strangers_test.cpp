// SPDX-License-Identifier: Apache-2.0
// Other users and unfinished business in the folder of the software RDMA: who may take part, and what nobody sees.
#include "loopback/rendezvous_folder.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <linux/securebits.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace nq::test
{

namespace
{

constexpr uint16_t kPort = 4791;

/// Runs `work` in a child and returns its exit code, which is what `work` returns.
int InChild(const std::function<int()>& work)
{
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(work());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Another user, who nevertheless may open every file: what is left to tell him by is who he is.
void BecomeStranger()
{
    Require(prctl(PR_SET_SECUREBITS, SECBIT_NO_SETUID_FIXUP) == 0, "PR_SET_SECUREBITS");
    Require(setresuid(12345, 12345, 12345) == 0, "setresuid");
}

int PlainSocket()
{
    const int made = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    Require(made >= 0, "socket");
    return made;
}

sockaddr_un PathOf(const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int ConnectTo(const std::string& entry)
{
    const int made = PlainSocket();
    const sockaddr_un address = PathOf(entry);
    Require(connect(made, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "connect");
    return made;
}

/// Whether the other end closes the socket without having sent anything.
bool IsClosedSilently(int socket, int milliseconds)
{
    char byte = 0;
    pollfd poller{socket, POLLIN, 0};
    return poll(&poller, 1, milliseconds) == 1 && recv(socket, &byte, 1, MSG_DONTWAIT) == 0;
}

int BindError(uint16_t which = kPort)
{
    const Side side;
    sockaddr_in address = Address("127.0.0.1", which);
    return rdma_bind_addr(side.id, Raw(address)) == 0 ? 0 : errno;
}

void ExpectListenerWorks(Side& listener)
{
    Side active;
    active.Resolve(Address("127.0.0.1", kPort));
    active.MakeQueuePair();
    ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
    EXPECT_EQ(rdma_destroy_id(Expect(listener.channel, RDMA_CM_EVENT_CONNECT_REQUEST).id), 0);
}

/// Processor time of this process in milliseconds.
long ProcessorTime()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) * 1000 +
           (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1000;
}

} // namespace

TEST(LoopbackStrangers, FolderThatGivesOthersAnyRightIsRefused)
{
    const Folder folder;
    for (const mode_t mode : {0701U, 0702U, 0704U, 0710U, 0720U, 0740U, 0755U, 01777U})
    {
        ASSERT_EQ(chmod(folder.path.c_str(), mode), 0);
        EXPECT_EQ(BindError(), EACCES) << std::oct << mode;
    }
    ASSERT_EQ(chmod(folder.path.c_str(), 0700), 0);
    EXPECT_EQ(BindError(), 0);
}

TEST(LoopbackStrangers, FolderOfRootIsNotThatOfAnotherUser)
{
    const Folder folder;
    const int error = InChild([] {
        BecomeStranger();
        return BindError();
    });
    EXPECT_EQ(error, EACCES);
}

TEST(LoopbackStrangers, LinkToAFolderIsRefused)
{
    const Folder folder;
    const std::string link = folder.path + "/link";
    const std::string target = folder.path + "/target";
    ASSERT_EQ(mkdir(target.c_str(), 0700), 0);
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    for (const char* slashes : {"", "/", "//"})
    {
        const int error = InChild([&] {
            setenv("NQ_RDMA_LOOPBACK_DIR", (link + slashes).c_str(), 1);
            return BindError();
        });
        EXPECT_EQ(error, EACCES) << slashes;
    }
}

TEST(LoopbackStrangers, FolderThatIsMadeIsTheUsersAlone)
{
    const Folder folder;
    umask(0);
    const std::string made = folder.path + "/made";
    setenv("NQ_RDMA_LOOPBACK_DIR", made.c_str(), 1);
    EXPECT_EQ(BindError(), 0);
    struct stat status
    {
    };
    ASSERT_EQ(stat(made.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
}

TEST(LoopbackStrangers, OfferOfAnotherUserIsNotHeard)
{
    const Folder folder;
    Side listener;
    listener.Listen(Address("127.0.0.1", kPort));
    const std::string entry = folder.EntryOf(kPort);
    const int closed = InChild([&] {
        BecomeStranger();
        return IsClosedSilently(ConnectTo(entry), 10000) ? 0 : 1;
    });
    EXPECT_EQ(closed, 0);
    ExpectListenerWorks(listener);
}

TEST(LoopbackStrangers, ListenerOfAnotherUserIsOfferedNothing)
{
    GiveUpSoon();
    const Folder folder;
    struct stat scope
    {
    };
    ASSERT_EQ(stat("/proc/self/ns/net", &scope), 0);
    const std::string entry = folder.path + "/4791_" + std::to_string(scope.st_ino) + "_any_1_1";
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    std::thread connector([&] {
        char byte = 0;
        ASSERT_EQ(read(ends[0], &byte, 1), 1);
        Side active;
        active.Resolve(Address("127.0.0.1", kPort));
        active.MakeQueuePair();
        ASSERT_EQ(rdma_connect(active.id, nullptr), 0);
        EXPECT_EQ(NextEvent(active.channel).type, RDMA_CM_EVENT_REJECTED);
    });
    const int heard = InChild([&] {
        BecomeStranger();
        const int waiting = PlainSocket();
        const sockaddr_un address = PathOf(entry);
        Require(bind(waiting, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0, "bind");
        Require(listen(waiting, 1) == 0, "listen");
        Require(write(ends[1], "", 1) == 1, "write");
        return IsClosedSilently(accept(waiting, nullptr, nullptr), 10000) ? 0 : 1;
    });
    connector.join();
    EXPECT_EQ(heard, 0);
}

TEST(LoopbackStrangers, NameOfASocketIsSeenOnlyWhenItListens)
{
    const Folder folder;
    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, folder.path.c_str(), IN_CREATE | IN_MOVED_TO), 0);
    Side side;
    sockaddr_in address = Address("127.0.0.1", kPort);
    ASSERT_EQ(rdma_bind_addr(side.id, Raw(address)), 0);
    alignas(inotify_event) std::array<char, 4096> events{};
    const ssize_t length = read(watch, events.data(), events.size());
    ASSERT_GT(length, 0);
    std::string history;
    for (ssize_t at = 0; at < length;)
    {
        const auto& event = *reinterpret_cast<const inotify_event*>(events.data() + at);
        const bool visible = event.name[0] >= '0' && event.name[0] <= '9';
        history +=
            std::string((event.mask & IN_CREATE) != 0 ? "made " : "renamed ") + (visible ? "visible " : "hidden ");
        at += static_cast<ssize_t>(sizeof event + event.len);
    }
    EXPECT_EQ(history, "made hidden renamed visible ");
    close(watch);
}

TEST(LoopbackStrangers, BindWaitsForWhoeverChangesTheFolder)
{
    const Folder folder;
    const int holder = open(folder.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    std::atomic<bool> bound = false;
    std::thread binder([&] {
        EXPECT_EQ(BindError(), 0);
        bound = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(bound);
    EXPECT_EQ(folder.Entries(), 0U);
    ASSERT_EQ(flock(holder, LOCK_UN), 0);
    binder.join();
    close(holder);
}

TEST(LoopbackStrangers, BindGivesUpOnOneThatHoldsTheFolder)
{
    GiveUpSoon();
    const Folder folder;
    const int holder = open(folder.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    EXPECT_EQ(BindError(), ETIMEDOUT);
    close(holder);
    EXPECT_EQ(BindError(), 0);
}

TEST(LoopbackStrangers, BindThatWaitsLeavesTheProcessorToTheHolder)
{
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "500", 1);
    const Folder folder;
    const int holder = open(folder.path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(flock(holder, LOCK_EX), 0);
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_THREAD, &before);
    EXPECT_EQ(BindError(), ETIMEDOUT);
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 100) << "sleeps in half a second";
    close(holder);
}

TEST(LoopbackStrangers, OfManyThatBindOneAddressAtOnceOneGetsIt)
{
    const Folder folder;
    std::array<int, 2> gate{};
    ASSERT_EQ(pipe(gate.data()), 0);
    std::array<int, 2> results{};
    ASSERT_EQ(pipe(results.data()), 0);
    constexpr int kBinders = 12;
    std::vector<pid_t> children;
    for (int index = 0; index < kBinders; ++index)
    {
        children.push_back(fork());
        if (children.back() == 0)
        {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            Side side;
            close(gate[1]);
            char byte = 0;
            Require(read(gate[0], &byte, 1) == 0, "read");
            sockaddr_in address = Address("127.0.0.1", kPort);
            byte = rdma_bind_addr(side.id, Raw(address)) == 0 ? 'y' : 'n';
            Require(write(results[1], &byte, 1) == 1, "write");
            pause();
        }
    }
    close(gate[1]);
    int bound = 0;
    for (int index = 0; index < kBinders; ++index)
    {
        char byte = 0;
        ASSERT_EQ(read(results[0], &byte, 1), 1);
        bound += byte == 'y' ? 1 : 0;
    }
    EXPECT_EQ(bound, 1);
    for (const pid_t child : children)
    {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST(LoopbackStrangers, WhatAKilledProcessHadBegunIsClearedAway)
{
    const Folder folder;
    const int begun = PlainSocket();
    const sockaddr_un address = PathOf(folder.path + "/unfinished_4791_1_any_1_1");
    ASSERT_EQ(bind(begun, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(begun);
    EXPECT_EQ(BindError(), 0);
    EXPECT_EQ(folder.Entries(), 0U);
}

TEST(LoopbackStrangers, OfferThatNeverSpeaksIsClosed)
{
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "3000", 1); // which those that speak have too
    const Folder folder;
    Side listener;
    listener.Listen(Address("127.0.0.1", kPort));
    const int silent = ConnectTo(folder.EntryOf(kPort));
    EXPECT_TRUE(IsClosedSilently(silent, 10000));
    close(silent);
    ExpectListenerWorks(listener);
}

TEST(LoopbackStrangers, OffersBeyondTheDescriptorsOfTheProcessCostNoProcessorTime)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "UndefinedBehaviorSanitizer cannot look at an object without a pipe of its own";
#endif
    const Folder folder;
    Side listener;
    listener.Listen(Address("127.0.0.1", kPort));
    const std::string entry = folder.EntryOf(kPort);
    const pid_t child = fork();
    if (child == 0)
    {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (int offer = 0; offer < 40; ++offer)
        {
            ConnectTo(entry);
        }
        for (;;)
        {
            pause();
        }
    }
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit few{10, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const long start = ProcessorTime();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LT(ProcessorTime() - start, 200) << "ms of 2 s";
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    ExpectListenerWorks(listener);
}

} // namespace nq::test
