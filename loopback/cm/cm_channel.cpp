// SPDX-License-Identifier: Apache-2.0
// The Unix socket between the connection managers of two processes: who is at its other end, and its messages.
#include "cm/cm_channel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <unistd.h>

namespace nq::loopback
{

bool PeerIsSameUser(int control)
{
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(control, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 && peer.uid == geteuid();
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
    const bool sound = count == static_cast<ssize_t>(sizeof message) && message.magic == CmMessage::kExpectedMagic;
    return sound ? Received::Message : Received::End;
}

} // namespace nq::loopback
