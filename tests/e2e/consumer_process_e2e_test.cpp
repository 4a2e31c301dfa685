// SPDX-License-Identifier: Apache-2.0
// How consumers find and open a camera, and what becomes of processes around it, in both modes: short lists, opening by
// id, node maps, many sessions that end half way, forks.
#include "support/forked.h"
#include "support/stream_in_both_modes.h"
#include "support/xml_tree.h"

#include <functional>
#include <gmock/gmock.h>
#include <malloc.h>
#include <memory>

namespace
{

using namespace nq::test;
using testing::HasSubstr;

class ProcessTraps : public BothModes
{
  protected:
    const VirtualCamera m_camera{SmallFrames()};
};

/// An initialised library with its system open.
struct OpenSystem
{
    OpenSystem()
    {
        EXPECT_EQ(gentl.GCInitLib(), 0);
        EXPECT_EQ(gentl.TLOpen(&system), 0);
    }
    ~OpenSystem()
    {
        EXPECT_EQ(gentl.TLClose(system), 0);
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }
    OpenSystem(const OpenSystem&) = delete;
    OpenSystem& operator=(const OpenSystem&) = delete;

    /// Lists the interfaces in 100 ms, and opens and closes each around a call of `use`.
    void ForEachInterface(const std::function<void(const std::string&, GenTL::IF_HANDLE)>& use) const
    {
        std::uint32_t interfaces = 0;
        ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
        ASSERT_EQ(gentl.TLGetNumInterfaces(system, &interfaces), 0);
        for (std::uint32_t index = 0; index < interfaces; ++index)
        {
            char id[256];
            std::size_t size = sizeof id;
            GenTL::IF_HANDLE interface = nullptr;
            ASSERT_EQ(gentl.TLGetInterfaceID(system, index, id, &size), 0);
            ASSERT_EQ(gentl.TLOpenInterface(system, id, &interface), 0);
            use(id, interface);
            ASSERT_EQ(gentl.IFClose(interface), 0);
        }
    }

    const Producer gentl;
    GenTL::TL_HANDLE system = nullptr;
};

TEST_P(ProcessTraps, AListTakesAHundredMilliseconds)
{
    const OpenSystem open;
    const auto list = [&] {
        std::uint32_t cameras = 0;
        open.ForEachInterface([&](const std::string&, GenTL::IF_HANDLE interface) {
            std::uint32_t count = 0;
            EXPECT_EQ(open.gentl.IFUpdateDeviceList(interface, nullptr, 100), 0);
            EXPECT_EQ(open.gentl.IFGetNumDevices(interface, &count), 0);
            cameras += count;
        });
        return cameras;
    };
    EXPECT_EQ(AskUntil(1U, list), 1U);
}

/// What a consumer keeps of a camera to open it the next time.
struct KnownIds
{
    std::string interface;
    std::string device;
};

/// The ids of all cameras, once `wanted` of them have answered.
std::vector<KnownIds> IdsOfAll(std::size_t wanted)
{
    std::vector<KnownIds> ids;
    const OpenSystem open;
    for (int attempt = 0; attempt < 10 && ids.size() < wanted; ++attempt)
    {
        ids.clear();
        open.ForEachInterface([&](const std::string& interfaceId, GenTL::IF_HANDLE interface) {
            std::uint32_t count = 0;
            EXPECT_EQ(open.gentl.IFUpdateDeviceList(interface, nullptr, 500), 0);
            EXPECT_EQ(open.gentl.IFGetNumDevices(interface, &count), 0);
            for (std::uint32_t index = 0; index < count; ++index)
            {
                char id[256];
                std::size_t size = sizeof id;
                EXPECT_EQ(open.gentl.IFGetDeviceID(interface, index, id, &size), 0);
                ids.push_back({interfaceId, id});
            }
        });
    }
    return ids;
}

TEST_P(ProcessTraps, AKnownCameraOpensByItsIdOnFreshHandles)
{
    const std::vector<KnownIds> ids = IdsOfAll(1);
    ASSERT_EQ(ids.size(), 1U);
    for (int session = 0; session < 2; ++session)
    {
        const OpenSystem open;
        GenTL::IF_HANDLE interface = nullptr;
        GenTL::DEV_HANDLE device = nullptr;
        GenTL::DS_HANDLE stream = nullptr;
        ASSERT_EQ(open.gentl.TLOpenInterface(open.system, ids[0].interface.c_str(), &interface), 0);
        const auto openCamera = [&] {
            return open.gentl.IFOpenDevice(interface, ids[0].device.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, openCamera), 0);
        ASSERT_EQ(open.gentl.DevOpenDataStream(device, "Stream:0", &stream), 0);
    }
}

/// The description that the first URL of a port names, read by one call; a zipped one as it is.
std::string DescriptionOf(const Producer& gentl, void* port)
{
    std::uint32_t count = 0;
    char url[1024] = "";
    GenTL::INFO_DATATYPE type = 0;
    std::size_t size = sizeof url;
    EXPECT_EQ(gentl.GCGetNumPortURLs(port, &count), 0);
    EXPECT_GE(count, 1U);
    EXPECT_EQ(gentl.GCGetPortURLInfo(port, 0, GenTL::URL_INFO_URL, &type, url, &size), 0);
    const std::string text = url;
    std::string scheme = text.substr(0, 6);
    std::transform(scheme.begin(), scheme.end(), scheme.begin(), [](unsigned char c) { return std::tolower(c); });
    EXPECT_EQ(scheme, "local:") << text;
    const std::size_t address = text.find(';');
    const std::size_t length = text.find(';', address + 1);
    std::string bytes(std::stoull(text.substr(length + 1), nullptr, 16), '\0');
    size = bytes.size();
    EXPECT_EQ(gentl.GCReadPort(port, std::stoull(text.substr(address + 1), nullptr, 16), bytes.data(), &size), 0);
    EXPECT_EQ(size, bytes.size()) << text;
    return bytes;
}

std::string PortName(const Producer& gentl, void* port)
{
    char name[256] = "";
    GenTL::INFO_DATATYPE type = 0;
    std::size_t size = sizeof name;
    EXPECT_EQ(gentl.GCGetPortInfo(port, GenTL::PORT_INFO_PORTNAME, &type, name, &size), 0);
    return name;
}

TEST_P(ProcessTraps, FiveNodeMapsComeFromTheirUrls)
{
    Consumer c;
    GenTL::PORT_HANDLE camera = nullptr;
    ASSERT_EQ(c.gentl.DevGetPort(c.device, &camera), 0);
    for (void* port : {c.system, c.interface, c.device, c.stream, camera})
    {
        const std::string name = PortName(c.gentl, port);
        const std::string text = DescriptionOf(c.gentl, port);
        EXPECT_THAT(text, HasSubstr("<Port Name=\"" + name + "\"")) << "a description knows its port by that name";
        EXPECT_EQ(ParseXml(text.substr(0, text.rfind('>') + 1)).name, "RegisterDescription") << name;
    }
}

/// What a process holds between two sessions.
struct Held
{
    long threads;
    long descriptors;
    std::size_t bytes; ///< allocated and not given back; 0 with a sanitizer's allocator

    static Held Now()
    {
        const struct mallinfo2 heap = mallinfo2();
        return {LivingThreads(), Descriptors(), heap.uordblks + heap.hblkhd};
    }
};

// A stream takes up to 800 ms to close, so ten processes have twenty sessions each, with a camera each.
constexpr unsigned kProcesses = 10;
constexpr unsigned kCameras = kProcesses + 1;

/// One session that streams and ends half way: after a close of the library alone, or of one module before, or of
/// nothing at all before the library is given back.
void LiveHalf(const KnownIds& ids, int round)
{
    Producer gentl;
    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    GenTL::DS_HANDLE stream = nullptr;
    GenTL::EVENT_HANDLE event = nullptr;
    ASSERT_EQ(gentl.GCInitLib(), 0);
    ASSERT_EQ(gentl.TLOpen(&system), 0);
    ASSERT_EQ(gentl.TLOpenInterface(system, ids.interface.c_str(), &interface), 0);
    ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, 100), 0);
    // By the library's own answers the question who controls the camera goes by the socket of the scan, and what
    // answers the scan late is taken for its answer; in both modes the answer may itself be later than the 100 ms that
    // it has.
    const auto open = [&] {
        return gentl.IFOpenDevice(interface, ids.device.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &device);
    };
    ASSERT_EQ(AskUntil(0, open), 0);
    const auto openStream = [&] { return gentl.DevOpenDataStream(device, "Stream:0", &stream); };
    ASSERT_EQ(AskUntil(0, openStream), 0);
    ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
    static unsigned char memory[2][1024]; // frames may come until the library is closed
    for (unsigned char* one : {memory[0], memory[1]})
    {
        GenTL::BUFFER_HANDLE buffer = nullptr;
        ASSERT_EQ(gentl.DSAnnounceBuffer(stream, one, 1024, nullptr, &buffer), 0);
        ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
    }
    const auto start = [&] { return gentl.DSStartAcquisition(stream, 0, GENTL_INFINITE); };
    ASSERT_EQ(AskUntil(0, start), 0);
    GenTL::S_EVENT_NEW_BUFFER data{};
    std::size_t size = sizeof data;
    EXPECT_EQ(gentl.EventGetData(event, &data, &size, 60000), 0);
    switch (round % 5)
    {
    case 0:
        return; // the next session finds it open
    case 1:
        EXPECT_EQ(gentl.DSClose(stream), 0);
        break;
    case 2:
        EXPECT_EQ(gentl.DevClose(device), 0);
        break;
    case 3:
        EXPECT_EQ(gentl.TLClose(system), 0);
        break;
    default:
        break;
    }
    EXPECT_EQ(gentl.GCCloseLib(), 0);
}

/// So many sessions, one after the other. What the process holds after the first few it holds after the last.
void LiveHalfOften(const KnownIds& ids, int rounds)
{
    Held before{};
    for (int round = 1; round <= rounds && !testing::Test::HasFailure(); ++round)
    {
        LiveHalf(ids, round);
        if (round % 5 == 0)
        {
            const Producer again;
            EXPECT_EQ(again.GCInitLib(), -1004) << "given back open";
            EXPECT_EQ(again.GCCloseLib(), 0);
        }
        before = round == 5 ? Held::Now() : before;
    }
    // A thread of the fifth session may have been on its way out when it was counted.
    EXPECT_LE(ThreadsDownTo(before.threads), before.threads);
    EXPECT_LE(Descriptors(), before.descriptors);
    EXPECT_LT(Held::Now().bytes, before.bytes + 20480) << "a kilobyte for each session is too much";
}

TEST_P(ProcessTraps, TwoHundredSessionsThatEndHalfWayLeaveNothingBehind)
{
    if (!Forked::kMayStartThreads)
    {
        GTEST_SKIP() << "ThreadSanitizer lets no forked child start a thread";
    }
    m_camera.Machine().Shell("for last in $(seq 3 12); do ip addr add 10.77.0.$last/24 brd + dev cam0; done");
    ChildProcess cameras({NQ_CAMERA_PATH, "--address", "10.77.0.3", "--count", "10", "--width", "64", "--height", "16",
                          "--fps", "0", "--heartbeat", "60000"},
                         m_camera.Environment(), &m_camera.Machine());
    ASSERT_TRUE(cameras.WaitForOutput("ready", std::chrono::seconds(60))) << cameras.Output();
    const std::vector<KnownIds> ids = IdsOfAll(kCameras);
    ASSERT_EQ(ids.size(), kCameras);
    std::vector<std::unique_ptr<Forked>> children;
    for (unsigned child = 0; child < kProcesses; ++child)
    {
        children.push_back(std::make_unique<Forked>([&, child] { LiveHalfOften(ids[child], 20); }, 280));
    }
}

NQ_IN_BOTH_MODES(ProcessTraps);

class StreamBesideProcesses : public StreamInBothModes
{
  protected:
    void SetUp() override
    {
        AnnounceAndQueue();
        ASSERT_EQ(c.Start(), 0);
        EXPECT_EQ(c.Take(10), Ids(1, 10));
    }
};

TEST_P(StreamBesideProcesses, GoesOnWhileAForkedChildClosesAll)
{
#if NQ_SANITIZED
    GTEST_SKIP() << "a sanitizer's allocator may be in use by another thread at the fork";
#endif
    Forked child([&] {
        EXPECT_EQ(c.gentl.DSStopAcquisition(c.stream, 0), 0);
        EXPECT_EQ(c.gentl.DSClose(c.stream), 0);
        EXPECT_EQ(c.gentl.GCCloseLib(), 0);
    });
    EXPECT_EQ(c.Take(20), Ids(11, 30));
    child.Join();
    EXPECT_EQ(c.Take(20), Ids(31, 50));
    EXPECT_EQ(c.Stop(), 0);
}

NQ_IN_BOTH_MODES(StreamBesideProcesses);

} // namespace
