// SPDX-License-Identifier: Apache-2.0
// Receives, beside a socket that is bound to one address, what is broadcast to that socket's port.
#pragma once

#include "gige/nq_gev_socket_linux.h"

#include <string>

/// A second socket for the answers of cameras on other subnets: they send them to 255.255.255.255, and Linux hands such
/// a datagram to no socket that is bound to one address of the host. Bound to 255.255.255.255, at the port of the
/// first.
///
/// Without it, because it was never opened or could not be, everything works on the first socket alone. Open() is
/// reentrant and comes before all else; the rest is thread-safe, as NQGevSocket is.
class NQGevBroadcastReceiver
{
  public:
    /// Opens the receiver beside the bound socket `first`, for datagrams that come in through the adapter of this name
    /// (an alias label counts as its adapter). `bufferSize` in bytes. False, with nothing left open, when the system
    /// does not let it.
    bool Open(NQGevSocket& first, const std::string& adapter, int bufferSize);

    /// Gives the second socket back; a Receive() that waits there wakes up with false.
    void Close();

    /// Takes one datagram from `first` or from the receiver, whichever has the one that arrived earlier; else as
    /// NQGevSocket::Receive with a time limit in milliseconds.
    bool Receive(NQGevSocket& first, char* data, unsigned short size, unsigned int& received, int timeoutMs);

  private:
    bool BindTo(int descriptor, const std::string& adapter, unsigned short port);

    NQGevSocket m_socket;
    unsigned int m_adapter = 0; ///< Index of the adapter to take datagrams of; 0 when the socket itself is bound to it.
};
