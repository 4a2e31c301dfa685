// SPDX-License-Identifier: Apache-2.0
// The virtual camera's control channel: datagrams of three hosts, faults, heartbeats and frames in any order.
#include "camera/acquisition.h"
#include "camera/byte_order.h"
#include "camera/device.h"
#include "camera/feature_table.h"
#include "camera/frame_faults.h"
#include "camera/gendc_frame.h"
#include "camera/gvcp_service.h"
#include "camera/message_channel.h"
#include "camera/picture_painter.h"
#include "camera/stream_channel.h"
#include "fuzz/fuzz_input.h"
#include "support/network.h"

#include <array>
#include <chrono>
#include <memory>
#include <vector>

namespace
{

using namespace nq::camera;
using nq::fuzz::Bytes;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;

constexpr std::array<Endpoint, 3> kHosts{{{0x7F000001, 40001}, {0x7F000001, 40002}, {0x0A000001, 40001}}};
constexpr std::uint32_t kPrivilege = 0x0A00;

/// Where something happens: registers of every GigE Vision camera and those of all features. Besides them the fuzzer
/// names addresses of its own.
std::vector<std::uint32_t> KnownAddresses()
{
    std::vector<std::uint32_t> addresses{0x0A00, 0x0000, 0x00E8, 0x0200, 0x0938, 0x0944, 0x0954, 0x0A04, 0x0A14,
                                         0x0B00, 0x0B10, 0x0D00, 0x0D04, 0x0D18, 0xE030, 0xE034, 0xE600, 0xE620};
    for (const FeatureCategory& category : FeatureTable())
    {
        for (const Feature& feature : category.features)
        {
            if (feature.eventId == 0)
            {
                addresses.push_back(feature.address);
            }
        }
    }
    return addresses;
}

constexpr std::array<std::uint16_t, 7> kCodes{0x0002, 0x0080, 0x0082, 0x0084, 0x0086, 0x0040, 0x00C0};
constexpr std::array<Fault, 4> kAckFaults{Fault::LostAck, Fault::LateAck, Fault::WrongAckId, Fault::PendingAck};

CameraOptions SmallCamera()
{
    CameraOptions options;
    options.network = {"lo", 1, 0x7F000001, 0xFF000000};
    options.width = 64;
    options.height = 48;
    return options;
}

/// The parts of a camera that see no socket of the control channel. Its test packets and events go into a network of
/// their own, where nobody is.
class Camera
{
  public:
    void Restart()
    {
        m_faults.ClearAll();
        m_device.PowerCycle();
        m_service = std::make_unique<GvcpService>(m_device, m_faults);
        m_last.fill({});
    }

    void Step(FuzzInput& input)
    {
        switch (input.Below(8))
        {
        case 0:
            Handle(input.Below(3), input.Take(input.Word() % 2048));
            break;
        case 1:
            Handle(input.Below(3), Command(input, kCodes[input.Below(kCodes.size())], input.Take(input.Word() % 600)));
            break;
        case 2:
            WriteRegisters(input);
            break;
        case 3:
            ReadSomething(input);
            break;
        case 4:
            Repeat(input.Below(3));
            break;
        case 5:
            Arm(input);
            break;
        case 6:
            Tend(input);
            break;
        default:
            TakeFrame(input.Flag());
            break;
        }
    }

    void CheckState()
    {
        std::uint32_t payload = 0;
        m_device.ReleasePrivilege();
        for (const Endpoint& host : kHosts)
        {
            if (m_device.ReadRegister(host, 0x10014, payload) == GvcpStatus::Success)
            {
                Require(payload > 0 && payload <= 64 * 48 * 3, "the payload is that of a picture of the sensor",
                        payload);
                return;
            }
        }
        Require(false, "somebody may read");
    }

  private:
    static std::uint32_t Address(FuzzInput& input)
    {
        static const std::vector<std::uint32_t> kAddresses = KnownAddresses();
        const std::size_t choice = input.Below(kAddresses.size() + 4);
        return choice < kAddresses.size() ? kAddresses[choice] : input.DWord();
    }

    static Bytes Command(FuzzInput& input, std::uint16_t code, const Bytes& body)
    {
        Bytes command(8);
        command[0] = 0x42;
        command[1] = input.Byte();
        PutBig(&command[2], code);
        PutBig(&command[4], static_cast<std::uint16_t>(body.size()));
        PutBig(&command[6], static_cast<std::uint16_t>(input.Word() | 1));
        command.insert(command.end(), body.begin(), body.end());
        return command;
    }

    static std::uint16_t CodeOf(const Bytes& datagram) { return GetBig<std::uint16_t>(&datagram[2]); }

    /// A command with a good header.
    static bool IsWhole(const Bytes& datagram)
    {
        return datagram.size() >= 8 && datagram[0] == 0x42 &&
               GetBig<std::uint16_t>(&datagram[4]) == datagram.size() - 8 && (datagram[6] | datagram[7]) != 0;
    }

    void WriteRegisters(FuzzInput& input)
    {
        const std::size_t host = input.Below(3);
        Bytes body(8 * (1 + input.Below(4)));
        for (std::size_t at = 0; at < body.size(); at += 8)
        {
            PutBig(&body[at], Address(input));
            PutBig(&body[at + 4], input.Flag() ? input.DWord() : std::uint32_t{input.Byte()});
        }
        Handle(host, Command(input, 0x0082, body));
    }

    void ReadSomething(FuzzInput& input)
    {
        const std::size_t host = input.Below(3);
        Bytes body(input.Flag() ? 8 : 4);
        PutBig(&body[0], Address(input));
        if (body.size() == 8)
        {
            PutBig(&body[4], std::uint32_t{input.Word()});
        }
        Handle(host, Command(input, body.size() == 8 ? 0x0084 : 0x0080, body));
    }

    void Repeat(std::size_t host)
    {
        const Last last = m_last[host];
        if (last.command.empty())
        {
            return;
        }
        const bool holds = m_device.MayWrite(kHosts[host]);
        const std::uint64_t events = m_messages.SentCount();
        const Bytes answer = Handle(host, last.command);
        if (last.write && last.heldBefore && last.heldAfter && holds && !m_faulty && !last.faulty)
        {
            Require(answer == last.answer, "a repeated write is acknowledged as before");
            Require(m_messages.SentCount() == events, "a repeated write does nothing");
        }
    }

    void Arm(FuzzInput& input)
    {
        const auto fault = static_cast<Fault>(input.Below(kFaultCount));
        try
        {
            m_faults.Arm(fault, input.Quad() >> input.Below(64), input.Below(4));
        }
        catch (const std::invalid_argument&)
        {
            Require(kFaults[static_cast<std::size_t>(fault)].isTime, "only times are bounded");
        }
    }

    void Tend(FuzzInput& input)
    {
        switch (input.Below(4))
        {
        case 0:
            m_device.CheckHeartbeat();
            break;
        case 1:
            m_device.TakePrivilege(input.DWord());
            break;
        case 2:
            m_device.ReleasePrivilege();
            break;
        default:
            m_messages.Send(input.Word(), input.Quad());
            break;
        }
    }

    /// As the stream's thread does it.
    void TakeFrame(bool canSend)
    {
        m_now += std::chrono::milliseconds(20);
        const auto decision = m_acquisition.Next(canSend, m_now);
        const auto* found = std::get_if<FrameTicket>(&decision);
        if (found == nullptr)
        {
            return;
        }
        FrameTicket ticket = *found;
        const std::int64_t shift = FrameIdFault(m_faults);
        m_acquisition.ShiftId(shift);
        ticket.id += static_cast<std::uint64_t>(shift);
        m_messages.Notify(EventKind::ExposureEnd, ticket.id);
        std::vector<std::uint8_t> block(gendc::kDescriptorSize + ticket.picture.Payload());
        const std::span bytes(block);
        WriteGenDcDescriptor(ticket, bytes.first<gendc::kDescriptorSize>());
        PicturePainter(ticket.picture).Draw(ticket.id, bytes.subspan(gendc::kDescriptorSize));
        Require(ApplyFrameFaults(m_faults, block) <= block.size(), "no more is sent than was drawn");
    }

    Bytes Handle(std::size_t host, const Bytes& datagram)
    {
        const Endpoint& from = kHosts[host];
        m_faulty = false;
        for (const Fault fault : kAckFaults)
        {
            m_faulty = m_faulty || m_faults.Armed(fault).has_value();
        }
        const bool held = m_device.MayWrite(from);
        const GvcpReply reply = m_service->Handle(from, datagram);
        const Bytes answer = reply.now.empty() || !reply.later.empty() ? reply.later : reply.now;
        Require(reply.now.size() <= 548 && reply.later.size() <= 548, "an answer fits its packet");
        Require(reply.delay <= std::chrono::hours(24) || !m_faulty, "a late answer is at most a day late");
        // Who has lost control since is told again that he wrote.
        CheckAnswer(datagram, answer, held || m_last[host].command == datagram);
        if (IsWhole(datagram) && datagram.size() <= 548 && CodeOf(datagram) != 0x0002)
        {
            const bool write = CodeOf(datagram) == 0x0082 || CodeOf(datagram) == 0x0086;
            m_last[host] = {datagram, answer, write, held, m_device.MayWrite(from), m_faulty};
        }
        if (reply.reset)
        {
            m_device.PowerCycle();
        }
        return answer;
    }

    void CheckAnswer(const Bytes& datagram, const Bytes& answer, bool mayWrite) const
    {
        const bool command = datagram.size() >= 8 && datagram[0] == 0x42;
        // A discovery is answered even if it does not ask for it.
        const bool discovery = command && datagram[2] == 0 && datagram[3] == 2;
        if (!command || ((datagram[1] & 1) == 0 && !discovery))
        {
            Require(answer.empty(), "what is no command, or wants no answer, gets none");
            return;
        }
        if ((datagram[1] & 1) == 0 && answer.empty())
        {
            return; // a discovery whose header is bad
        }
        if (m_faulty)
        {
            return;
        }
        Require(answer.size() >= 8, "a command that wants an answer gets one");
        const auto status = GetBig<std::uint16_t>(&answer[0]);
        const std::uint16_t code = CodeOf(datagram);
        Require(GetBig<std::uint16_t>(&answer[2]) == static_cast<std::uint16_t>(code + 1),
                "the answer names the command");
        Require(GetBig<std::uint16_t>(&answer[4]) == answer.size() - 8, "the answer tells its length");
        Require(answer[6] == datagram[6] && answer[7] == datagram[7], "the answer has the command's id");
        const bool whole = IsWhole(datagram);
        Require(whole || status == 0x800E, "a command of another length has a bad header", status);
        Require(!whole || datagram.size() <= 548 || status == 0x8002, "a command that is too long is refused", status);
        const bool writes = whole && datagram.size() > 8 + 4 && (code == 0x0082 || code == 0x0086);
        Require(!writes || mayWrite || status != 0 || GetBig<std::uint32_t>(&datagram[8]) == kPrivilege,
                "only the holder writes", status);
    }

    /// The latest whole command of a host but for discoveries, and what became of it.
    struct Last
    {
        Bytes command;
        Bytes answer;
        bool write = false;
        bool heldBefore = false;
        bool heldAfter = false;
        bool faulty = false;
    };

    const CameraOptions m_options = SmallCamera();
    DeviceClock m_clock;
    FaultPlan m_faults;
    Acquisition m_acquisition{m_clock, true, 0};
    MessageChannel m_messages{0x7F000001, m_clock, m_faults};
    StreamChannel m_testPackets{0x7F000001};
    Device m_device{m_options, m_clock, m_acquisition, m_messages, m_testPackets, m_faults, [] {}};
    std::unique_ptr<GvcpService> m_service;
    Acquisition::Clock::time_point m_now;
    std::array<Last, kHosts.size()> m_last;
    bool m_faulty = false;
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    nq::test::EnterPrivateNetwork();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Camera camera;
    camera.Restart();
    FuzzInput input(data, size);
    for (int step = 0; step < 64 && !input.Empty(); ++step)
    {
        camera.Step(input);
    }
    camera.CheckState();
    return 0;
}
