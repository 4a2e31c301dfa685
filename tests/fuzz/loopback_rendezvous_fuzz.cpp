// SPDX-License-Identifier: Apache-2.0
// How processes on the software RDMA find and connect to each other, with strangers in the folder, hosts that offer
// what they like and listeners that answer what they like.
#include "base/faults.h"
#include "base/tally.h"
#include "cm/cm_channel.h"
#include "fuzz/fuzz_input.h"
#include "fuzz/loopback/turned_engine.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <infiniband/verbs.h>
#include <memory>
#include <rdma/rdma_cma.h>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace
{

using nq::fuzz::Bytes;
using nq::fuzz::FuzzInput;
using nq::fuzz::Require;
using nq::fuzz::TurnUntilRest;
using namespace nq::loopback;

constexpr std::uint16_t kOurPort = 4791;
constexpr std::uint16_t kTheirPort = 4792;

std::string g_folder; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables): made once for all runs

sockaddr_in AddressOf(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

sockaddr_un PathOf(const std::string& name)
{
    sockaddr_un path{};
    path.sun_family = AF_UNIX;
    (g_folder + "/" + name).copy(path.sun_path, sizeof path.sun_path - 1);
    return path;
}

/// A message of a connection manager with some fields of the fuzzer's choice.
CmMessage Message(FuzzInput& input)
{
    CmMessage message;
    message.kind = static_cast<CmKind>(input.Below(8) == 0 ? input.DWord() : input.Below(11));
    const sockaddr_in destination = AddressOf(kOurPort);
    message.destination = Endpoint(reinterpret_cast<const sockaddr*>(&destination));
    message.source = message.destination;
    if (input.Below(4) == 0)
    {
        const Bytes bytes = input.Take(input.Below(64));
        const std::size_t where = input.Word() % (sizeof message - bytes.size());
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<unsigned char*>(&message) + where);
    }
    return message;
}

/// Sends a message with two streams, one of them twice, or none, or sends bytes that are no message.
void Say(FuzzInput& input, int control, UniqueFd& data, UniqueFd& acknowledgements)
{
    const std::size_t how = input.Below(6);
    if (how == 0)
    {
        const Bytes raw = input.Take(input.Word() % 700);
        send(control, raw.data(), raw.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        return;
    }
    const CmMessage message = Message(input);
    if (how < 3)
    {
        SendMessage(control, message);
        return;
    }
    std::array<int, 4> ends{};
    Require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0 &&
                socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data() + 2) == 0,
            "socket pairs");
    data = UniqueFd(ends[0]);
    acknowledgements = UniqueFd(ends[2]);
    const UniqueFd first(ends[1]);
    const UniqueFd second(ends[3]);
    SendMessage(control, message, first.Get(), (how == 3 ? first : second).Get());
}

/// One end of a connection that is ours: an id and, once it has one, its queue pair.
struct Id
{
    explicit Id(rdma_cm_id* made) : id(made) {}
    ~Id()
    {
        if (id->qp != nullptr)
        {
            rdma_destroy_qp(id);
        }
        Require(rdma_destroy_id(id) == 0, "an id goes");
    }
    Id(const Id&) = delete;
    Id& operator=(const Id&) = delete;

    void MakeQueuePair() const
    {
        ibv_qp_init_attr attributes{};
        attributes.qp_type = IBV_QPT_RC;
        attributes.cap = {4, 4, 1, 1, 0};
        if (id->qp == nullptr && id->verbs != nullptr)
        {
            Require(rdma_create_qp(id, nullptr, &attributes) == 0, "a queue pair is made");
        }
    }

    rdma_cm_id* id;
};

/// The events that may come behind another: what the user of the connection manager relies on.
class History
{
  public:
    void Add(rdma_cm_event_type event)
    {
        const bool ended = m_seen.contains(RDMA_CM_EVENT_DISCONNECTED) || m_seen.contains(RDMA_CM_EVENT_REJECTED) ||
                           m_seen.contains(RDMA_CM_EVENT_UNREACHABLE);
        Require(m_seen.insert(event).second, "no event comes twice", event);
        if (event == RDMA_CM_EVENT_ESTABLISHED || event == RDMA_CM_EVENT_DISCONNECTED)
        {
            Require(!ended, "nothing but the end of the waiting period comes behind an end", event);
        }
        Require(event != RDMA_CM_EVENT_DISCONNECTED || m_seen.contains(RDMA_CM_EVENT_ESTABLISHED),
                "only what was established is disconnected");
    }

  private:
    std::set<int> m_seen;
};

/// A host that says what the fuzzer chose, and the streams that it holds.
struct Stranger
{
    UniqueFd control;
    UniqueFd data;
    UniqueFd acknowledgements;
};

class Attack
{
  public:
    Attack() : m_channel(rdma_create_event_channel())
    {
        Require(m_channel != nullptr, "a channel is made");
        fcntl(m_channel->fd, F_SETFL, fcntl(m_channel->fd, F_GETFL) | O_NONBLOCK);
        rdma_cm_id* id = nullptr;
        Require(rdma_create_id(m_channel, &id, nullptr, RDMA_PS_TCP) == 0, "an id is made");
        m_listener = std::make_unique<Id>(id);
        sockaddr_in address = AddressOf(kOurPort);
        Require(rdma_bind_addr(id, reinterpret_cast<sockaddr*>(&address)) == 0, "the address is free");
        Require(rdma_listen(id, 4) == 0, "it is listened on");
        m_entry = std::filesystem::directory_iterator(g_folder)->path().filename();
        Require(m_entry.starts_with("4791_"), "the folder names the address");
    }

    ~Attack()
    {
        m_ids.clear();
        m_listener.reset();
        rdma_destroy_event_channel(m_channel);
    }
    Attack(const Attack&) = delete;
    Attack& operator=(const Attack&) = delete;

    void Step(FuzzInput& input)
    {
        switch (input.Below(8))
        {
        case 0:
            Offer();
            break;
        case 1:
        case 2:
        case 3:
            SpeakAsStranger(input);
            break;
        case 4:
            EndStranger(input);
            break;
        case 5:
            UseId(input);
            break;
        case 6:
            ConnectToAStranger(input);
            break;
        default:
            PutIntoFolder(input);
        }
        TurnUntilRest();
        TakeEvents(input);
    }

  private:
    void Offer()
    {
        Stranger stranger{UniqueFd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)), UniqueFd(), UniqueFd()};
        const sockaddr_un path = PathOf(m_entry);
        Require(connect(stranger.control.Get(), reinterpret_cast<const sockaddr*>(&path), sizeof path) == 0,
                "the listener is there");
        m_strangers.push_back(std::move(stranger));
    }

    void SpeakAsStranger(FuzzInput& input)
    {
        if (!m_strangers.empty())
        {
            Stranger& stranger = m_strangers[input.Byte() % m_strangers.size()];
            Say(input, stranger.control.Get(), stranger.data, stranger.acknowledgements);
        }
    }

    void EndStranger(FuzzInput& input)
    {
        if (!m_strangers.empty())
        {
            Stranger& stranger = m_strangers[input.Byte() % m_strangers.size()];
            std::array<UniqueFd*, 3> ends{&stranger.control, &stranger.data, &stranger.acknowledgements};
            ends.at(input.Below(3))->Reset();
        }
    }

    void UseId(FuzzInput& input)
    {
        if (m_ids.empty())
        {
            return;
        }
        const std::size_t which = input.Byte() % m_ids.size();
        Id& used = *m_ids[which];
        switch (input.Below(5))
        {
        case 0:
            rdma_disconnect(used.id);
            break;
        case 1:
            m_histories.erase(used.id);
            m_ids.erase(m_ids.begin() + static_cast<std::ptrdiff_t>(which));
            break;
        case 2:
            rdma_reject(used.id, nullptr, 0);
            break;
        case 3:
            SetLink(input.Flag());
            break;
        default:
            used.MakeQueuePair();
            rdma_accept(used.id, nullptr);
        }
    }

    // Looks for a listener and finds one of another make, which accepts, speaks and keeps the connection.
    void ConnectToAStranger(FuzzInput& input)
    {
        struct stat scope
        {
        };
        Require(stat("/proc/self/ns/net", &scope) == 0, "the network namespace has a number");
        const std::string name = "4792_" + std::to_string(scope.st_ino) + "_any_1_1";
        const UniqueFd waiting(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        const sockaddr_un path = PathOf(name);
        std::filesystem::remove(g_folder + "/" + name);
        Require(bind(waiting.Get(), reinterpret_cast<const sockaddr*>(&path), sizeof path) == 0 &&
                    listen(waiting.Get(), 1) == 0,
                "a stranger listens");
        Stranger stranger;
        std::thread host([&] {
            stranger.control = UniqueFd(accept4(waiting.Get(), nullptr, nullptr, SOCK_CLOEXEC));
            for (std::size_t words = input.Below(4); words > 0 && stranger.control; --words)
            {
                Say(input, stranger.control.Get(), stranger.data, stranger.acknowledgements);
            }
        });
        Connect();
        shutdown(waiting.Get(), SHUT_RDWR); // Ends the wait of a host that nobody has come to.
        host.join();
        m_strangers.push_back(std::move(stranger));
        std::filesystem::remove(g_folder + "/" + name);
    }

    void Connect()
    {
        rdma_cm_id* id = nullptr;
        Require(rdma_create_id(m_channel, &id, nullptr, RDMA_PS_TCP) == 0, "an id is made");
        m_ids.push_back(std::make_unique<Id>(id));
        sockaddr_in address = AddressOf(kTheirPort);
        Require(rdma_resolve_addr(id, nullptr, reinterpret_cast<sockaddr*>(&address), 1) == 0, "it is resolved");
        ReadEvents(RDMA_CM_EVENT_ADDR_RESOLVED, id);
        Require(rdma_resolve_route(id, 1) == 0, "it has a route");
        ReadEvents(RDMA_CM_EVENT_ROUTE_RESOLVED, id);
        m_ids.back()->MakeQueuePair();
        Require(rdma_connect(id, nullptr) == 0, "a connect may begin");
    }

    // Reads events until that one of `id` has come.
    void ReadEvents(rdma_cm_event_type last, const rdma_cm_id* id)
    {
        for (;;)
        {
            rdma_cm_event* event = nullptr;
            Require(rdma_get_cm_event(m_channel, &event) == 0, "the event comes");
            const bool found = event->id == id && event->event == last;
            Note(event);
            if (found)
            {
                return;
            }
        }
    }

    void Note(rdma_cm_event* event)
    {
        rdma_cm_id* const id = event->id;
        const bool request = event->event == RDMA_CM_EVENT_CONNECT_REQUEST;
        m_histories[id].Add(event->event);
        rdma_ack_cm_event(event);
        if (request)
        {
            m_ids.push_back(std::make_unique<Id>(id));
        }
    }

    void TakeEvents(FuzzInput& input)
    {
        rdma_cm_event* event = nullptr;
        while (rdma_get_cm_event(m_channel, &event) == 0)
        {
            const bool request = event->event == RDMA_CM_EVENT_CONNECT_REQUEST;
            Note(event);
            if (request && input.Flag())
            {
                m_ids.back()->MakeQueuePair();
                rdma_accept(m_ids.back()->id, nullptr);
            }
            TurnUntilRest();
        }
    }

    static void PutIntoFolder(FuzzInput& input)
    {
        std::string name = input.Text(input.Below(60));
        std::erase_if(name, [](char letter) { return letter == '/' || letter == '\0'; });
        if (name.empty() || name == "." || name == ".." || name.starts_with("4791_"))
        {
            return;
        }
        const std::string path = g_folder + "/" + name;
        if (input.Flag())
        {
            const UniqueFd file(open(path.c_str(), O_CREAT | O_CLOEXEC | O_WRONLY, 0600));
        }
        else
        {
            const UniqueFd dead(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
            const sockaddr_un address = PathOf(name);
            static_cast<void>(bind(dead.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address));
        }
    }

    rdma_event_channel* m_channel;
    std::unique_ptr<Id> m_listener;
    std::string m_entry;
    std::vector<Stranger> m_strangers;
    std::vector<std::unique_ptr<Id>> m_ids;
    std::map<const rdma_cm_id*, History> m_histories;
};

// Not those of libFuzzer, which are pipes and files.
long OpenSockets()
{
    return std::count_if(std::filesystem::directory_iterator("/proc/self/fd"), {}, [](const auto& entry) {
        std::error_code gone;
        return std::filesystem::read_symlink(entry, gone).string().starts_with("socket:");
    });
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    char name[] = "/tmp/nq-fuzz-XXXXXX";
    Require(mkdtemp(name) != nullptr, "a folder is made");
    g_folder = name;
    setenv("NQ_RDMA_LOOPBACK_DIR", name, 1);
    setenv("NQ_RDMA_LOOPBACK_TIMEOUT_MS", "1", 1);
    setenv("NQ_RDMA_LOOPBACK_RETRY_MS", "0", 1);
    setenv("NQ_RDMA_LOOPBACK_TIMEWAIT_MS", "0", 1);
    std::atexit([] { std::filesystem::remove_all(g_folder); });
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    SetLink(true);
    {
        Attack attack;
        for (int step = 0; step < 60 && !input.Empty(); ++step)
        {
            attack.Step(input);
        }
    }
    TurnUntilRest();
    for (const Kind kind : {Kind::CmId, Kind::CmEvent, Kind::EventChannel, Kind::QueuePair, Kind::CompletionQueue})
    {
        Require(Tally::Instance().Of(kind) == 0, "nothing is left", static_cast<long>(kind));
    }
    for (const auto& entry : std::filesystem::directory_iterator(g_folder))
    {
        std::filesystem::remove_all(entry);
    }
    Require(OpenSockets() == 0, "no socket is left", OpenSockets());
    return 0;
}
