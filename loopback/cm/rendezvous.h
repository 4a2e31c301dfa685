// SPDX-License-Identifier: Apache-2.0
// How processes find each other: sockets in one directory of the file system, visible from every network namespace.
#pragma once

#include "base/net_scope.h"
#include "base/settings.h"
#include "base/unique_fd.h"
#include "cm/cm_message.h"
#include "cm/folder.h"

#include <string>

namespace nq::loopback
{

/// A bound address as the directory shows it to all processes; gone with the object.
class BoundSocket
{
  public:
    /// Makes the socket of `address`. Throws EADDRINUSE when the address is bound in that network namespace already.
    BoundSocket(const Endpoint& address, const NetScope& scope);
    ~BoundSocket();
    /// Frees the address; the descriptor stays until the object goes.
    void Withdraw();
    BoundSocket(const BoundSocket&) = delete;
    BoundSocket& operator=(const BoundSocket&) = delete;

    int Fd() const { return m_fd.Get(); }

  private:
    UniqueFd m_fd;
    Folder m_folder;
    std::string m_name;
    int m_owner;
    bool m_withdrawn = false;
};

/// What became of the search for a listener.
struct FoundListener
{
    enum class Outcome
    {
        Taken,
        Refused,
        Unknown
    };
    Outcome outcome = Outcome::Unknown;
    UniqueFd control; ///< When taken.
};

/// Offers `request` with its two streams to those that are bound to its destination. Blocks until they have answered
/// or `end` has come.
FoundListener FindListener(const CmMessage& request, int data, int acknowledgements, Clock::time_point end);

} // namespace nq::loopback
