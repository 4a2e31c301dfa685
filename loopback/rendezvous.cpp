// SPDX-License-Identifier: Apache-2.0
// How processes find each other: sockets in one directory of the file system, visible from every network namespace.
#include "rendezvous.h"

#include "error.h"
#include "log.h"
#include "settings.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace nq::loopback
{

namespace
{

constexpr const char* anyHost = "any";

/// What the name of a socket says: PORT_NETWORKNAMESPACE_ADDRESS_PROCESS_NUMBER.
struct Entry
{
    std::string name;
    unsigned port = 0;
    unsigned long long scope = 0;
    std::string host;
    int process = 0;
};

UniqueFd OpenDirectory()
{
    const std::string& path = Settings::Get().directory;
    if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST)
    {
        Throw(errno);
    }
    UniqueFd directory(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    struct stat status
    {
    };
    if (!directory || fstat(directory.Get(), &status) != 0)
    {
        Throw(errno);
    }
    // Somebody else's directory at a well-known place would let him take part.
    if (status.st_uid != geteuid() && status.st_uid != 0)
    {
        Throw(EACCES);
    }
    return directory;
}

// A socket's path has little room; the way through the open directory is always short.
sockaddr_un PathOf(int directory, const std::string& name)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const int length =
        std::snprintf(address.sun_path, sizeof address.sun_path, "/proc/self/fd/%d/%s", directory, name.c_str());
    if (length < 0 || static_cast<size_t>(length) >= sizeof address.sun_path)
    {
        Throw(ENAMETOOLONG);
    }
    return address;
}

std::optional<Entry> ParseName(const char* name)
{
    Entry entry;
    char host[64] = "";
    if (std::sscanf(name, "%u_%llu_%63[^_]_%d_", &entry.port, &entry.scope, host, &entry.process) != 4)
    {
        return std::nullopt;
    }
    entry.name = name;
    entry.host = host;
    return entry;
}

std::vector<Entry> ListEntries(int directory)
{
    std::vector<Entry> entries;
    const int copy = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(copy < 0 ? nullptr : fdopendir(copy), closedir);
    if (!stream)
    {
        Throw(errno);
    }
    while (const dirent* found = readdir(stream.get()))
    {
        if (std::optional<Entry> entry = ParseName(found->d_name))
        {
            entries.push_back(std::move(*entry));
        }
    }
    return entries;
}

// Connects to the owner of an entry; removes an entry whose owner has died.
UniqueFd Reach(int directory, const Entry& entry)
{
    UniqueFd control(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!control)
    {
        Throw(errno);
    }
    const sockaddr_un address = PathOf(directory, entry.name);
    if (connect(control.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    {
        return control;
    }
    if (errno == ECONNREFUSED)
    {
        Log("removing %s, whose process has ended", entry.name.c_str());
        unlinkat(directory, entry.name.c_str(), 0);
    }
    return UniqueFd();
}

// Waits until something can be read or `end` has come.
void AwaitAnswer(int control, Clock::time_point end)
{
    pollfd poller{control, POLLIN, 0};
    int ready = -1;
    do
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        ready = poll(&poller, 1, static_cast<int>(std::clamp<long long>(left, 0, INT_MAX)));
    } while (ready < 0 && errno == EINTR);
}

// The answer to `question`, or CmKind::NoAnswer when none has come by `end`.
CmKind Ask(int control, const CmMessage& question, int first, int second, Clock::time_point end)
{
    if (!SendMessage(control, question, first, second))
    {
        return CmKind::NoAnswer;
    }
    AwaitAnswer(control, end);
    CmMessage answer;
    UniqueFd unused[2];
    if (ReceiveMessage(control, answer, unused[0], unused[1]) != Received::Message)
    {
        return CmKind::NoAnswer;
    }
    return answer.kind;
}

bool MayOwn(const Entry& entry, const CmMessage& request)
{
    const bool sameScope = entry.scope == request.netScope;
    const bool sameHost = entry.host == anyHost || entry.host == request.destination.HostText();
    return sameHost && sameScope == request.destinationIsLocal;
}

std::string NewName(const Endpoint& address, const NetScope& scope)
{
    static std::atomic<unsigned> last{0};
    return std::to_string(address.Port()) + "_" + std::to_string(scope.Identity()) + "_" +
           (address.IsAny() ? anyHost : address.HostText()) + "_" + std::to_string(getpid()) + "_" +
           std::to_string(++last);
}

// Also clears the folder of what processes that were killed have left.
void RefuseDoubleUse(int directory, const Endpoint& address, const NetScope& scope)
{
    for (const Entry& entry : ListEntries(directory))
    {
        // What a process in another process namespace owns looks dead too; only the connection tells.
        if (kill(entry.process, 0) != 0 && errno == ESRCH)
        {
            Reach(directory, entry);
        }
        const bool overlaps = address.IsAny() || entry.host == anyHost || entry.host == address.HostText();
        if (entry.port == address.Port() && entry.scope == scope.Identity() && overlaps && Reach(directory, entry))
        {
            Throw(EADDRINUSE);
        }
    }
}

} // namespace

BoundSocket::BoundSocket(const Endpoint& address, const NetScope& scope)
    : m_fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), m_directory(OpenDirectory()),
      m_name(NewName(address, scope)), m_owner(getpid())
{
    if (!m_fd)
    {
        Throw(errno);
    }
    RefuseDoubleUse(m_directory.Get(), address, scope);
    const sockaddr_un path = PathOf(m_directory.Get(), m_name);
    if (bind(m_fd.Get(), reinterpret_cast<const sockaddr*>(&path), sizeof path) != 0 || listen(m_fd.Get(), 128) != 0)
    {
        Throw(errno);
    }
}

BoundSocket::~BoundSocket()
{
    Withdraw();
}

void BoundSocket::Withdraw()
{
    // A forked child has a copy of the object but the address stays its parent's.
    if (getpid() == m_owner && !m_withdrawn)
    {
        unlinkat(m_directory.Get(), m_name.c_str(), 0);
        m_withdrawn = true;
    }
}

FoundListener FindListener(const CmMessage& request, int data, int acknowledgements, Clock::time_point end)
{
    const UniqueFd directory = OpenDirectory();
    FoundListener found;
    bool hostKnown = request.destinationIsLocal;
    bool silent = false; // Somebody may own the address but sleeps.
    const std::vector<Entry> entries = ListEntries(directory.Get());
    for (const Entry& entry : entries)
    {
        if (entry.port != request.destination.Port() || !MayOwn(entry, request))
        {
            continue;
        }
        UniqueFd control = Reach(directory.Get(), entry);
        const CmKind answer = control ? Ask(control.Get(), request, data, acknowledgements, end) : CmKind::NotHere;
        if (answer == CmKind::Taken)
        {
            found.outcome = FoundListener::Outcome::Taken;
            found.control = std::move(control);
            return found;
        }
        hostKnown = hostKnown || answer == CmKind::NotListening;
        silent = silent || answer == CmKind::NoAnswer;
    }
    CmMessage question = request;
    question.kind = CmKind::WhoHas;
    for (const Entry& entry : entries)
    {
        if (!hostKnown && entry.port != request.destination.Port() && MayOwn(entry, request))
        {
            const UniqueFd control = Reach(directory.Get(), entry);
            hostKnown = control && Ask(control.Get(), question, -1, -1, end) == CmKind::Taken;
        }
    }
    found.outcome = hostKnown && !silent ? FoundListener::Outcome::Refused : FoundListener::Outcome::Unknown;
    return found;
}

bool SendMessage(int control, const CmMessage& message, int first, int second)
{
    iovec vector{const_cast<CmMessage*>(&message), sizeof message};
    alignas(cmsghdr) char space[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    if (first >= 0)
    {
        header.msg_control = space;
        header.msg_controllen = sizeof space;
        cmsghdr* rights = CMSG_FIRSTHDR(&header);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(2 * sizeof(int));
        const int fds[2] = {first, second};
        std::memcpy(CMSG_DATA(rights), fds, sizeof fds);
    }
    return sendmsg(control, &header, MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(sizeof message);
}

namespace
{

void TakeDescriptors(msghdr& header, UniqueFd& first, UniqueFd& second)
{
    const cmsghdr* rights = CMSG_FIRSTHDR(&header);
    if (rights == nullptr || rights->cmsg_level != SOL_SOCKET || rights->cmsg_type != SCM_RIGHTS)
    {
        return;
    }
    int fds[2] = {-1, -1};
    std::memcpy(fds, CMSG_DATA(rights), std::min(sizeof fds, rights->cmsg_len - CMSG_LEN(0)));
    first = UniqueFd(fds[0]);
    second = UniqueFd(fds[1]);
}

} // namespace

Received ReceiveMessage(int control, CmMessage& message, UniqueFd& first, UniqueFd& second)
{
    iovec vector{&message, sizeof message};
    alignas(cmsghdr) char space[CMSG_SPACE(2 * sizeof(int))] = {};
    msghdr header{};
    header.msg_iov = &vector;
    header.msg_iovlen = 1;
    header.msg_control = space;
    header.msg_controllen = sizeof space;
    ssize_t count = -1;
    do
    {
        // A reset shows once, before what the peer had still sent.
        count = recvmsg(control, &header, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    } while (count < 0 && (errno == EINTR || errno == ECONNRESET));
    if (count < 0)
    {
        return errno == EAGAIN ? Received::Nothing : Received::End;
    }
    TakeDescriptors(header, first, second);
    const bool sound = count == static_cast<ssize_t>(sizeof message) && message.magic == CmMessage::expectedMagic;
    return sound ? Received::Message : Received::End;
}

} // namespace nq::loopback
