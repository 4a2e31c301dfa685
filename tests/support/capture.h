// SPDX-License-Identifier: Apache-2.0
// What passes on a cable, recorded by tcpdump and read by tshark's dissectors.
#pragma once

#include "support/child_process.h"

#include <map>
#include <string>
#include <vector>

namespace nq::test
{

/// Records the UDP packets of one adapter of the test's namespace from construction to Finish().
class Capture
{
  public:
    /// True when the two programs are installed. Nothing else here works without them.
    static bool Available();

    /// `neighbour` is an address behind the adapter; it gets the datagram that marks the end.
    Capture(const std::string& adapter, const std::string& neighbour);
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// Ends the recording once everything sent so far is in it. Path of the pcap file, which lives as long as the
    /// object.
    const std::string& Finish();

  private:
    void SendEndMark() const;
    bool HasEndMark() const;

    std::string m_neighbour;
    std::string m_path;
    ChildProcess m_recorder;
};

/// One packet: fields by name, as tshark prints them.
using Packet = std::map<std::string, std::string>;

/// The packets of a pcap file that match a display filter, each with these fields. What passes at `messagePort` is read
/// as GVCP too.
std::vector<Packet> Dissect(const std::string& path, const std::string& filter, const std::vector<std::string>& fields,
                            unsigned int messagePort = 3456);

} // namespace nq::test
