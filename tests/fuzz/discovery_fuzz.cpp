// SPDX-License-Identifier: Apache-2.0
// Discovery by an interface module and by the camera functions, with cameras that answer with anything: what is listed,
// and what lists, registers and queries then say.
#include "fuzz/fake_network.h"
#include "gev/nq_gev_interface.h"
#include "gige/nqgige.h"

#include <cstring>
#include <netinet/in.h>
#include <optional>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FakeNetwork;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

constexpr std::size_t kReceiveSize = 548;

/// One camera as a list has to show it.
struct Listed
{
    std::string id;
    std::string vendor;
    std::string model;
    std::uint64_t mac;
    std::uint32_t ip;
    std::uint32_t mask;
};

/// The text from `offset` to the first zero byte, or to the end of what can be received.
std::string TextAt(const Bytes& packet, std::size_t offset)
{
    std::string text;
    for (std::size_t i = offset; i < packet.size() && packet[i] != 0; ++i)
    {
        text += static_cast<char>(packet[i]);
    }
    return text;
}

std::uint32_t NumberAt(const Bytes& packet, std::size_t offset, std::size_t bytes)
{
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < bytes; ++i)
    {
        number = number << 8 | packet[offset + i];
    }
    return number;
}

/// What a scan makes of a datagram: nothing, or a camera.
std::optional<Listed> Understand(Bytes datagram)
{
    const std::size_t received = std::min(datagram.size(), kReceiveSize);
    datagram.resize(received);
    datagram.resize(kReceiveSize, 0);
    if (received < 256 || datagram[2] != 0 || datagram[3] != 3 || TextAt(datagram, 144) < "3.0.0")
    {
        return std::nullopt;
    }
    char mac[20];
    std::snprintf(mac, sizeof mac, ":%02x-%02x-%02x-%02x-%02x-%02x", datagram[18], datagram[19], datagram[20],
                  datagram[21], datagram[22], datagram[23]);
    Listed camera;
    camera.vendor = TextAt(datagram, 80);
    camera.model = TextAt(datagram, 112);
    camera.id = camera.model + mac;
    camera.mac = std::uint64_t{NumberAt(datagram, 18, 2)} << 32 | NumberAt(datagram, 20, 4);
    camera.ip = NumberAt(datagram, 44, 4);
    camera.mask = NumberAt(datagram, 60, 4);
    return camera;
}

/// The list after a scan that found `found`, by the rules of the merge. True when a camera came or went.
bool Merge(std::vector<Listed>& list, const std::vector<Listed>& found)
{
    const auto named = [](const std::string& id) { return [&id](const Listed& other) { return other.id == id; }; };
    bool changed = std::erase_if(list, [&](const Listed& listed) {
                       return std::none_of(found.begin(), found.end(), named(listed.id));
                   }) != 0;
    for (Listed& listed : list)
    {
        listed = *std::find_if(found.rbegin(), found.rend(), named(listed.id));
    }
    for (const Listed& camera : found)
    {
        if (std::none_of(list.begin(), list.end(), named(camera.id)))
        {
            list.push_back(camera);
            changed = true;
        }
    }
    return changed;
}

/// A discovery acknowledge: a good one in which the input replaces some bytes, or the input's own bytes.
Bytes Acknowledge(FuzzInput& input)
{
    const std::size_t kind = input.Below(4);
    if (kind == 0)
    {
        return input.Take(input.Word() % 600);
    }
    Bytes datagram(256, 0);
    datagram[3] = 3;
    datagram[5] = 248;
    std::memcpy(datagram.data() + 18, "\x02\x00\x00\x00\x00", 5);
    datagram[23] = input.Byte();
    std::memcpy(datagram.data() + 44, "\x0A\x09\x00\x02", 4);
    std::memcpy(datagram.data() + 60, "\xFF\xFF\xFF\x00", 4);
    std::memcpy(datagram.data() + 80, "Maker", 5);
    std::memcpy(datagram.data() + 112, "Model", 5);
    std::memcpy(datagram.data() + 144, "3.1.0", 5);
    for (std::size_t changes = input.Below(8); changes > 0; --changes)
    {
        const std::size_t offset = input.Byte();
        const Bytes bytes = input.Take(input.Below(64));
        datagram.resize(std::max(datagram.size(), offset + bytes.size()));
        std::copy(bytes.begin(), bytes.end(), datagram.begin() + static_cast<std::ptrdiff_t>(offset));
    }
    if (kind == 1)
    {
        datagram.resize(input.Word() % 700, input.Byte());
    }
    return datagram;
}

template <typename Number>
Number ReadNumber(NQGevInterface& interface, unsigned long address)
{
    Number number{};
    unsigned long size = sizeof number;
    Require(interface.ReadPort(address, &number, &size) == 0 && size == sizeof number, "a register is read",
            static_cast<long>(address));
    return number;
}

std::string ReadText(NQGevInterface& interface, unsigned long address)
{
    unsigned long size = 0;
    char none = 0;
    Require(interface.ReadPort(address, &none, &size) == -1016, "a text tells how much space it needs",
            static_cast<long>(address));
    std::vector<char> text(size);
    Require(interface.ReadPort(address, text.data(), &size) == 0 && size == text.size(),
            "a text fits what it asked for", static_cast<long>(address));
    Require(text.back() == 0, "a text is terminated");
    return text.data();
}

void CheckList(NQGevInterface& interface, const std::vector<Listed>& list)
{
    unsigned int count = 0;
    Require(interface.GetNumDevices(&count) == 0 && count == list.size(), "as many cameras are listed as answered",
            count);
    for (unsigned int index = 0; index <= count; ++index)
    {
        unsigned long size = 4;
        Require(interface.WritePort(0x60108, &index, &size) == 0, "the selector takes any value");
        const Listed expected = index < count ? list[index] : Listed{};
        Require(ReadText(interface, 0x6010C) == expected.id, "the selected id");
        Require(ReadText(interface, 0x6020C) == expected.vendor, "the selected vendor");
        Require(ReadText(interface, 0x6030C) == expected.model, "the selected model");
        Require(ReadNumber<std::uint32_t>(interface, 0x6043C) == expected.ip, "the selected address");
        Require(ReadNumber<std::uint32_t>(interface, 0x60440) == expected.mask, "the selected mask");
        Require(ReadNumber<std::uint64_t>(interface, 0x60444) == expected.mac, "the selected MAC address");
        char id[kReceiveSize + 20];
        size = sizeof id;
        const int result = interface.GetDeviceID(index, id, &size);
        Require(index < count ? result == 0 && expected.id == id : result == -1017, "an id by its index", result);
    }
}

void QueryInfo(NQGevInterface& interface, const Listed& camera, FuzzInput& input)
{
    static constexpr int kCommands[] = {0,      1,      2,      3,      4,      5,      6,      7, 8,
                                        0xB000, 0xB001, 0xB002, 0xB003, 0xB004, 0xB005, 0xB006, 9, -1};
    const int command = kCommands[input.Below(std::size(kCommands))];
    const std::size_t space = input.Byte();
    const std::vector<char> buffer(space);
    int type = 0;
    unsigned long size = space;
    const int result =
        interface.GetDeviceInfo(camera.id.c_str(), command, &type, const_cast<char*>(buffer.data()), &size);
    const bool known = command >= 0 && command != 9 && command != 0xB006;
    Require(known ? result == 0 || (result == -1016 && size > space) : result == -1003, "an info command's answer",
            result);
}

void Scan(NQGevInterface& interface, std::vector<Listed>& list, FuzzInput& input)
{
    std::vector<Bytes> answers(input.Below(12));
    for (Bytes& answer : answers)
    {
        answer = Acknowledge(input);
    }
    FakeNetwork::Instance().React([&](int socket, const sockaddr_in& to, const Bytes& command) {
        Require(ntohl(to.sin_addr.s_addr) == 0xFFFFFFFF && ntohs(to.sin_port) == 3956, "a discovery is broadcast");
        Require(command == Bytes({0x42, 0x11, 0, 2, 0, 0, 0, 1}), "the discovery command");
        for (const Bytes& answer : answers)
        {
            FakeNetwork::Instance().Deliver(socket, answer);
        }
    });
    bool changed = false;
    Require(interface.UpdateDeviceList(&changed, 300) == 0, "a scan always succeeds");
    FakeNetwork::Instance().React(nullptr);
    std::vector<Listed> found;
    for (const Bytes& answer : answers)
    {
        // An empty datagram counts as nothing received.
        if (const std::optional<Listed> camera = Understand(answer))
        {
            found.push_back(*camera);
        }
    }
    Require(changed == Merge(list, found), "a change is reported as such");
    CheckList(interface, list);
}

/// The access probe, answered with anything.
void Probe(NQGevInterface& interface, const Listed& camera, FuzzInput& input)
{
    const Bytes answer = input.Take(input.Byte());
    FakeNetwork::Instance().React(
        [&](int socket, const sockaddr_in&, const Bytes&) { FakeNetwork::Instance().Deliver(socket, answer); });
    std::int32_t status = -1;
    int type = 0;
    unsigned long size = sizeof status;
    Require(interface.GetDeviceInfo(camera.id.c_str(), 5, &type, &status, &size) == 0,
            "the access status is asked for");
    Require(status >= 0 && status <= 3, "an access status", status);
}

NQGigE_RETURN CountCamera(NQGigE_SIGNAL* signal, void* context)
{
    Require(signal->type == 14 && signal->size == 280, "the signal of a found camera");
    const auto* const camera = static_cast<const NQGigE_CAMERA*>(signal->data);
    Require(strnlen(camera->ipAddressText, 16) < 16 && strnlen(camera->macText, 18) < 18, "terminated addresses");
    ++*static_cast<int*>(context);
    return NQGigE_SUCCESS;
}

void DiscoverByFunction(FuzzInput& input)
{
    FakeNetwork::Instance().React([&](int socket, const sockaddr_in&, const Bytes& command) {
        for (std::size_t count = input.Below(6); count > 0; --count)
        {
            Bytes answer = Acknowledge(input);
            if (answer.size() >= 8 && input.Flag())
            {
                answer[6] = command[6];
                answer[7] = command[7];
            }
            FakeNetwork::Instance().Deliver(socket, answer);
        }
    });
    shutdownCameras();
    int found = 0;
    const NQGigE_RETURN result = discoverCameras(FakeNetwork::kAdapter, 300, CountCamera, &found);
    Require(found > 0 ? result == 0 : result == -212, "a discovery without an answer times out", result);
    shutdownCameras();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FakeNetwork& network = FakeNetwork::Instance();
    FuzzInput input(data, size);
    {
        _NQ_GEV_INTERFACE_INFO adapter;
        adapter.id = "Linux Socket:02-00-00-00-00-0a";
        adapter.adapterName = "eth0";
        adapter.ipAddress = "10.9.0.1";
        adapter.subnetMask = "255.255.255.0";
        NQGevInterface interface(adapter, nullptr);
        Require(interface.Open() == 0, "an interface is opened");
        std::vector<Listed> list;
        while (!input.Empty())
        {
            Scan(interface, list, input);
            if (!list.empty())
            {
                QueryInfo(interface, list.front(), input);
                Probe(interface, list.back(), input);
            }
            if (input.Flag())
            {
                DiscoverByFunction(input);
            }
        }
        network.React(nullptr);
        interface.Close();
    }
    Require(network.OpenSockets() == 0, "every socket is closed");
    return 0;
}
