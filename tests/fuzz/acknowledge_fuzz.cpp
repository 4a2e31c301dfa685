// SPDX-License-Identifier: Apache-2.0
// Register and memory access to a camera that answers with anything: the whole exchange, from the command to the check
// of the acknowledge.
#include "fuzz/fake_network.h"
#include "gige/gige_camera.h"

#include <memory>
#include <netinet/in.h>
#include <utility>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FakeNetwork;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

/// Answers each command with what the input says, and remembers what has to come of it.
class Answerer
{
  public:
    explicit Answerer(FuzzInput& input) : m_input(input) {}

    void Answer(int socket, const Bytes& command)
    {
        ++sent;
        Require(command.size() >= 8 && command[0] == 0x42, "a command has a header with the key");
        Require(command.size() <= 548, "a command fits one datagram");
        Require(static_cast<std::size_t>(command[4] << 8 | command[5]) == command.size() - 8,
                "the length field is the length of the body");
        for (std::size_t count = m_input.Below(4); count > 0; --count)
        {
            Bytes datagram = Datagram(command);
            CountPending(datagram);
            FakeNetwork::Instance().Deliver(socket, std::move(datagram));
        }
    }

    int sent = 0;
    std::uint64_t pending = 0; ///< milliseconds asked for so far, which a late answer may still cost

  private:
    /// A pending acknowledge is known by its code alone; bytes that did not come count as zero.
    void CountPending(Bytes datagram)
    {
        datagram.resize(std::max<std::size_t>(datagram.size(), 12), 0);
        if (datagram[2] == 0x00 && datagram[3] == 0x89)
        {
            pending += static_cast<std::uint64_t>(datagram[10] << 8 | datagram[11]);
        }
    }

    Bytes Datagram(const Bytes& command)
    {
        const std::size_t kind = m_input.Below(8);
        if (kind == 0)
        {
            return m_input.Take(m_input.Byte());
        }
        if (kind == 1)
        {
            return {0, 0, 0, 0x89, 0, 4, command[6], command[7], 0, 0, m_input.Byte(), m_input.Byte()};
        }
        // An acknowledge of this command, right but for what the input changes.
        Bytes datagram{0, 0, command[2], static_cast<unsigned char>(command[3] + 1), 0, 0, command[6], command[7]};
        if (kind == 2)
        {
            const std::size_t where = m_input.Below(8);
            datagram[where] = m_input.Byte();
        }
        const Bytes body = m_input.Take(m_input.Word() % 700);
        datagram.insert(datagram.end(), body.begin(), body.end());
        datagram[4] = static_cast<unsigned char>(body.size() >> 8);
        datagram[5] = static_cast<unsigned char>(body.size());
        return datagram;
    }

    FuzzInput& m_input;
};

bool IsResult(int result)
{
    return (result >= 0 && result <= 0xFFFF) || result == -10 || result == -21 || result == -110 || result == -208 ||
           result == -212;
}

int Read(GigETL::Camera& camera, unsigned int address)
{
    unsigned int value = 0x12345678;
    const int result = camera.getGigECameraRegister(address, &value);
    Require(result == 0 || value == 0xFFFFFFFF, "a failed read stores all ones", value);
    return result;
}

int ReadMemory(GigETL::Camera& camera, unsigned int address, unsigned int count)
{
    // Exactly as large as asked for: the sanitizer sees what goes beyond.
    const std::unique_ptr<unsigned char[]> data(new unsigned char[count]);
    std::fill_n(data.get(), count, static_cast<unsigned char>(0xA5));
    const int result = camera.readCameraMemory(address, data.get(), count);
    Require(result != 0 || count <= 536, "no answer holds more than 536 bytes", count);
    if (result != 0)
    {
        const bool untouched =
            std::all_of(data.get(), data.get() + count, [](unsigned char byte) { return byte == 0xA5; });
        Require(untouched, "a failed read of memory leaves the caller's bytes alone", result);
    }
    return result;
}

int WriteMemory(GigETL::Camera& camera, unsigned int address, unsigned int count)
{
    const std::unique_ptr<unsigned char[]> data(new unsigned char[count]{});
    const int result = camera.writeCameraMemory(address, data.get(), count);
    Require(count <= 520 || result == -21, "a write of more than 520 bytes is refused", result);
    return result;
}

int Access(GigETL::Camera& camera, FuzzInput& input)
{
    const std::size_t kind = input.Below(5);
    const unsigned int address = input.DWord();
    switch (kind)
    {
    case 0:
        return Read(camera, address);
    case 1:
        return camera.setGigECameraRegister(address, input.DWord());
    case 2:
        return ReadMemory(camera, address, input.Word() % 1024);
    case 3:
        return WriteMemory(camera, address, input.Word() % 1024);
    default: {
        unsigned int first = 1;
        unsigned int second = 1;
        const int result = camera.getGigECameraRegister2(address, &first, address + 4, &second);
        Require(result == 0 || (first == 0 && second == 0), "a failed pair of reads stores zeros", result);
        return result;
    }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FakeNetwork& network = FakeNetwork::Instance();
    FuzzInput input(data, size);
    Answerer answerer(input);
    network.React([&](int socket, const sockaddr_in&, const Bytes& command) { answerer.Answer(socket, command); });
    {
        GigETL::Camera camera(FakeNetwork::kCamera, 3956, FakeNetwork::kAdapter, MULTICAST_OFF);
        while (!input.Empty())
        {
            const std::uint64_t start = network.Milliseconds();
            answerer.sent = 0;
            const int result = Access(camera, input);
            Require(IsResult(result), "every result is one of the camera layer's", result);
            // Two registers of four attempts of two commands each.
            Require(answerer.sent <= 16, "the attempts are counted", answerer.sent);
            // An attempt waits 200 ms, 400 ms and 1 ms at most, and what the camera asked for.
            const auto attempts = static_cast<std::uint64_t>(answerer.sent) + 1;
            Require(network.Milliseconds() - start <= attempts * 601 + answerer.pending + 1,
                    "no access lasts longer than its waits", static_cast<long>(network.Milliseconds() - start));
        }
    }
    network.React(nullptr);
    Require(network.OpenSockets() == 0, "every socket is closed");
    return 0;
}
