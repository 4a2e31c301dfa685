// SPDX-License-Identifier: Apache-2.0
// Datagrams on the port of a message channel: what becomes an event of the device, and with which record.
#include "fuzz/fake_network.h"
#include "gev/nq_gev_message_stream.h"
#include "gev/nq_gev_remote_device.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/device_record.h"
#include "support/fake_device.h"

#include <cstring>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FakeNetwork;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

/// The record of event 4 that a datagram has to give: id, length 16, 540 bytes of data. Empty when it is dropped.
Bytes ExpectedRecord(const Bytes& datagram)
{
    if (datagram.size() < 24 || datagram[0] != 0x42 || datagram[2] != 0x00 || datagram[3] != 0xC0)
    {
        return {};
    }
    Bytes record(22, 0);
    record[0] = datagram[11];
    record[1] = datagram[10];
    record[4] = 16;
    std::copy_n(datagram.begin() + 8, 16, record.begin() + 6);
    return record;
}

/// An event packet that the input changes, or the input's own bytes.
Bytes Packet(FuzzInput& input)
{
    if (input.Below(3) == 0)
    {
        return input.Take(input.Word() % 1500);
    }
    Bytes datagram{0x42, 0x00, 0x00, 0xC0, 0x00, 0x10, 0x00, 0x01};
    const Bytes body = input.Take(input.Byte());
    datagram.insert(datagram.end(), body.begin(), body.end());
    if (input.Below(4) == 0)
    {
        const std::size_t where = input.Below(8);
        datagram[where] = input.Byte();
    }
    return datagram;
}

/// Acknowledges every register access.
void AnswerAccess(int socket, const Bytes& command)
{
    if (command.size() >= 12 && command[0] == 0x42)
    {
        FakeNetwork::Instance().Deliver(
            socket, {0, 0, 0, static_cast<unsigned char>(command[3] + 1), 0, 4, command[6], command[7], 0, 0, 0, 1});
    }
}

/// Fetches the next record and compares it with the datagram it came from.
void Fetch(nq::test::RegisteredEvent& event, const Bytes& expected)
{
    const Bytes record = event.Next(0);
    Require(record.size() == 1024, "an event packet gives a record");
    Require(std::equal(expected.begin(), expected.end(), record.begin()), "the record holds the packet's bytes");
    Require(record[546] == 0xEE, "a record has 546 bytes");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FakeNetwork& network = FakeNetwork::Instance();
    FuzzInput input(data, size);
    network.React([](int socket, const sockaddr_in&, const Bytes& command) { AnswerAccess(socket, command); });
    {
        NQGevTL tl;
        NQGevRemoteDevice remote(&tl, nq::test::LoopbackCamera(), 3, nullptr);
        Require(remote.Open() == 0, "a camera is opened");
        nq::test::FakeDevice device;
        nq::test::RegisteredEvent event(device, 4);
        NQGevMessageStream channel(0, &device, &remote);
        Require(channel.OnInit(), "the channel is set up");
        const int socket = network.SocketAt(3456);
        Require(socket != -1, "the channel takes the first port of its range");
        while (!input.Empty())
        {
            const Bytes datagram = Packet(input);
            network.Deliver(socket, datagram);
            channel.OnGetMessage();
            const Bytes expected = ExpectedRecord(datagram);
            Require(event.Pending() == (expected.empty() ? 0U : 1U), "a datagram is an event or is dropped");
            if (!expected.empty())
            {
                Fetch(event, expected);
            }
        }
        channel.OnDestroy();
    }
    network.React(nullptr);
    Require(network.OpenSockets() == 0, "every socket is closed");
    return 0;
}
