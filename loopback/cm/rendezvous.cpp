// SPDX-License-Identifier: Apache-2.0
// How processes find each other: sockets in one directory of the file system, visible from every network namespace.
#include "cm/rendezvous.h"

#include "base/error.h"
#include "cm/cm_channel.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::loopback
{

namespace
{

// Connects to the owner of an entry; removes an entry whose owner has died.
UniqueFd ReachOrRemove(const Folder& folder, const FolderEntry& entry)
{
    UniqueFd control = folder.Reach(entry);
    if (!control)
    {
        const Folder::Lock lock(folder);
        folder.RemoveIfDead(entry.name, lock);
    }
    return control;
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

bool MayOwn(const FolderEntry& entry, const CmMessage& request)
{
    const bool sameScope = entry.scope == request.netScope;
    const bool sameHost = entry.host == FolderEntry::kAnyHost || entry.host == request.destination.HostText();
    return sameHost && sameScope == request.destinationIsLocal;
}

void RefuseDoubleUse(const Folder& folder, const Endpoint& address, const NetScope& scope)
{
    for (const FolderEntry& entry : folder.Entries())
    {
        const bool overlaps =
            address.IsAny() || entry.host == FolderEntry::kAnyHost || entry.host == address.HostText();
        if (entry.port == address.Port() && entry.scope == scope.Identity() && overlaps && folder.Reach(entry))
        {
            Throw(EADDRINUSE);
        }
    }
}

} // namespace

BoundSocket::BoundSocket(const Endpoint& address, const NetScope& scope)
    : m_fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      m_name(FolderEntry::NewName(address, scope)), m_owner(getpid())
{
    if (!m_fd)
    {
        Throw(errno);
    }
    const Folder::Lock lock(m_folder);
    m_folder.RemoveDead(lock);
    RefuseDoubleUse(m_folder, address, scope);
    m_folder.Publish(m_fd.Get(), m_name, lock);
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
        m_folder.Remove(m_name);
        m_withdrawn = true;
    }
}

FoundListener FindListener(const CmMessage& request, int data, int acknowledgements, Clock::time_point end)
{
    const Folder folder;
    FoundListener found;
    bool hostKnown = request.destinationIsLocal;
    bool silent = false; // Somebody may own the address but sleeps.
    const std::vector<FolderEntry> entries = folder.Entries();
    for (const FolderEntry& entry : entries)
    {
        if (entry.port != request.destination.Port() || !MayOwn(entry, request))
        {
            continue;
        }
        UniqueFd control = ReachOrRemove(folder, entry);
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
    for (const FolderEntry& entry : entries)
    {
        if (!hostKnown && entry.port != request.destination.Port() && MayOwn(entry, request))
        {
            const UniqueFd control = ReachOrRemove(folder, entry);
            hostKnown = control && Ask(control.Get(), question, -1, -1, end) == CmKind::Taken;
        }
    }
    found.outcome = hostKnown && !silent ? FoundListener::Outcome::Refused : FoundListener::Outcome::Unknown;
    return found;
}

} // namespace nq::loopback
