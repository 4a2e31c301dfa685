// SPDX-License-Identifier: Apache-2.0
// One phase of the endurance run: repeats one kind of use and tells, between the rounds, what the process holds.
//
//     soak PHASE COUNT [SERIAL]
//
// prints "sample DONE THREADS DESCRIPTORS RESIDENT_KB" at least twice a second, and at the end "done" or, with exit
// code 1, "wrong: ..." with what was lost. Runs on the software RDMA, beside a camera of 64 x 64 pixels as fast as it
// can.
#include "support/producer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using nq::test::Producer;
using std::chrono::steady_clock;

constexpr std::size_t kFrameBytes = 4096;

void Require(bool good, const std::string& what)
{
    if (!good)
    {
        throw std::runtime_error(what);
    }
}

void Succeeds(GenTL::GC_ERROR result, const char* call)
{
    Require(result == 0, std::string(call) + " gave " + std::to_string(result));
}

long EntriesOf(const char* folder)
{
    using std::filesystem::directory_iterator;
    return std::distance(directory_iterator(folder), directory_iterator());
}

/// Prints a sample at each hundredth of the way, and when half a second has passed since the last one.
class Meter
{
  public:
    explicit Meter(std::uint64_t total) : m_total(total), m_step(std::max<std::uint64_t>(total / 100, 1)) {}

    std::uint64_t Total() const { return m_total; }

    void Done(std::uint64_t count)
    {
        const auto now = steady_clock::now();
        if (count < m_next && count != m_total && now - m_last < std::chrono::milliseconds(500))
        {
            return;
        }
        m_last = now;
        m_next = count + m_step;
        std::ifstream memory("/proc/self/statm");
        long size = 0;
        long resident = 0;
        memory >> size >> resident;
        std::printf("sample %llu %ld %ld %ld\n", static_cast<unsigned long long>(count), EntriesOf("/proc/self/task"),
                    EntriesOf("/proc/self/fd"), resident * sysconf(_SC_PAGESIZE) / 1024);
        std::fflush(stdout);
    }

  private:
    std::uint64_t m_total;
    std::uint64_t m_step;
    std::uint64_t m_next = 0;
    steady_clock::time_point m_last;
};

/// The library with the interface that leads to the cameras open.
class Session
{
  public:
    Session()
    {
        Succeeds(gentl.GCInitLib(), "GCInitLib");
        Succeeds(gentl.TLOpen(&system), "TLOpen");
        OpenInterfaceAt("10.77.0.1");
    }
    ~Session() { gentl.GCCloseLib(); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Updates the list until the camera with that serial number is in it. Its id.
    std::string Find(const std::string& serial)
    {
        for (int attempt = 0; attempt < 20; ++attempt)
        {
            Succeeds(gentl.IFUpdateDeviceList(interface, nullptr, 200), "IFUpdateDeviceList");
            std::uint32_t count = 0;
            Succeeds(gentl.IFGetNumDevices(interface, &count), "IFGetNumDevices");
            for (std::uint32_t index = 0; index < count; ++index)
            {
                const std::string id = DeviceId(index);
                std::array<char, 64> text{};
                std::size_t size = text.size();
                GenTL::INFO_DATATYPE type = 0;
                if (gentl.IFGetDeviceInfo(interface, id.c_str(), GenTL::DEVICE_INFO_SERIAL_NUMBER, &type, text.data(),
                                          &size) == 0 &&
                    serial == text.data())
                {
                    return id;
                }
            }
        }
        throw std::runtime_error("no camera " + serial);
    }

    /// Opens the camera for control. The probe before it can get lost on a machine under load.
    void Open(const std::string& id)
    {
        int result = GenTL::GC_ERR_ACCESS_DENIED;
        for (int attempt = 0; attempt < 20 && result == GenTL::GC_ERR_ACCESS_DENIED; ++attempt)
        {
            result = gentl.IFOpenDevice(interface, id.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &device);
        }
        Succeeds(result, "IFOpenDevice");
    }

    Producer gentl;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;

  private:
    void OpenInterfaceAt(const std::string& address)
    {
        Succeeds(gentl.TLUpdateInterfaceList(system, nullptr, 100), "TLUpdateInterfaceList");
        std::uint32_t count = 0;
        Succeeds(gentl.TLGetNumInterfaces(system, &count), "TLGetNumInterfaces");
        for (std::uint32_t index = 0; index < count; ++index)
        {
            std::array<char, 256> id{};
            std::size_t size = id.size();
            Succeeds(gentl.TLGetInterfaceID(system, index, id.data(), &size), "TLGetInterfaceID");
            if (std::strstr(id.data(), address.c_str()) != nullptr || index + 1 == count)
            {
                Succeeds(gentl.TLOpenInterface(system, id.data(), &interface), "TLOpenInterface");
                return;
            }
        }
        throw std::runtime_error("no interface");
    }

    std::string DeviceId(std::uint32_t index)
    {
        std::array<char, 256> id{};
        std::size_t size = id.size();
        Succeeds(gentl.IFGetDeviceID(interface, index, id.data(), &size), "IFGetDeviceID");
        return id.data();
    }
};

/// A session with a camera's stream open and eight buffers.
class Stream : public Session
{
  public:
    explicit Stream(const std::string& serial)
    {
        Open(Find(serial));
        std::array<char, 256> id{};
        std::size_t size = id.size();
        Succeeds(gentl.DevGetDataStreamID(device, 0, id.data(), &size), "DevGetDataStreamID");
        Succeeds(gentl.DevOpenDataStream(device, id.data(), &m_stream), "DevOpenDataStream");
        Succeeds(gentl.GCRegisterEvent(m_stream, GenTL::EVENT_NEW_BUFFER, &m_event), "GCRegisterEvent");
        for (int index = 0; index < 8; ++index)
        {
            void* buffer = nullptr;
            Succeeds(gentl.DSAllocAndAnnounceBuffer(m_stream, kFrameBytes, nullptr, &buffer),
                     "DSAllocAndAnnounceBuffer");
            m_buffers.push_back(buffer);
        }
    }

    void Start()
    {
        Succeeds(gentl.DSFlushQueue(m_stream, GenTL::ACQ_QUEUE_ALL_DISCARD), "DSFlushQueue");
        for (void* const buffer : m_buffers)
        {
            gentl.DSQueueBuffer(m_stream, buffer);
        }
        Succeeds(gentl.DSStartAcquisition(m_stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE),
                 "DSStartAcquisition");
        m_lastId = 0;
    }

    void Stop() { Succeeds(gentl.DSStopAcquisition(m_stream, GenTL::ACQ_STOP_FLAGS_KILL), "DSStopAcquisition"); }

    /// The next frame: its number follows the last one's, and its picture is the one of that number.
    void TakeOne()
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        Succeeds(gentl.EventGetData(m_event, &data, &size, 20000), "EventGetData");
        const auto id = Info<std::uint64_t>(data.BufferHandle, GenTL::BUFFER_INFO_FRAMEID);
        ++m_lastId;
        Require(id == m_lastId, "frame " + std::to_string(id) + " in place of " + std::to_string(m_lastId));
        const auto* const pixels = Info<const unsigned char*>(data.BufferHandle, GenTL::BUFFER_INFO_BASE);
        for (std::size_t pixel = 0; pixel < kFrameBytes; pixel += 61)
        {
            Require(pixels[pixel] == static_cast<unsigned char>(pixel % 64 + pixel / 64 + 7 * id),
                    "wrong pixel in frame " + std::to_string(id));
        }
        Succeeds(gentl.DSQueueBuffer(m_stream, data.BufferHandle), "DSQueueBuffer");
    }

  private:
    template <typename Value>
    Value Info(void* buffer, GenTL::BUFFER_INFO_CMD command)
    {
        Value value{};
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        Succeeds(gentl.DSGetBufferInfo(m_stream, buffer, command, &type, &value, &size), "DSGetBufferInfo");
        return value;
    }

    void* m_stream = nullptr;
    void* m_event = nullptr;
    std::vector<void*> m_buffers;
    std::uint64_t m_lastId = 0;
};

void Frames(Meter& meter, const std::string& serial)
{
    Stream stream(serial);
    stream.Start();
    for (std::uint64_t frame = 1; frame <= meter.Total(); ++frame)
    {
        stream.TakeOne();
        if (frame % 1024 == 0 || frame == meter.Total())
        {
            meter.Done(frame);
        }
    }
    stream.Stop();
}

void Acquisitions(Meter& meter, const std::string& serial)
{
    Stream stream(serial);
    for (std::uint64_t round = 1; round <= meter.Total(); ++round)
    {
        stream.Start();
        for (int frame = 0; frame < 10; ++frame)
        {
            stream.TakeOne();
        }
        // Told while it runs: after a stop the acquisition thread takes its time to leave.
        meter.Done(round);
        stream.Stop();
    }
}

void Updates(Meter& meter, const std::string& serial)
{
    Session session;
    session.Find(serial);
    for (std::uint64_t round = 1; round <= meter.Total(); ++round)
    {
        Succeeds(session.gentl.TLUpdateInterfaceList(session.system, nullptr, 100), "TLUpdateInterfaceList");
        Succeeds(session.gentl.IFUpdateDeviceList(session.interface, nullptr, 1), "IFUpdateDeviceList");
        meter.Done(round);
    }
    session.Find(serial);
}

void Opens(Meter& meter, const std::string& serial)
{
    Session session;
    const std::string id = session.Find(serial);
    for (std::uint64_t round = 1; round <= meter.Total(); ++round)
    {
        session.Open(id);
        Succeeds(session.gentl.DevClose(session.device), "DevClose");
        meter.Done(round);
    }
}

void Loads(Meter& meter, const std::string&)
{
    for (std::uint64_t round = 1; round <= meter.Total(); ++round)
    {
        {
            const Producer gentl;
            void* system = nullptr;
            Succeeds(gentl.GCInitLib(), "GCInitLib");
            Succeeds(gentl.TLOpen(&system), "TLOpen");
            Succeeds(gentl.TLUpdateInterfaceList(system, nullptr, 100), "TLUpdateInterfaceList");
            Succeeds(gentl.GCCloseLib(), "GCCloseLib");
        }
        meter.Done(round);
    }
}

} // namespace

int main(int count, char** arguments)
{
    using Phase = std::function<void(Meter&, const std::string&)>;
    const std::map<std::string, Phase> phases = {
        {"frames", Frames}, {"acquisitions", Acquisitions}, {"updates", Updates}, {"opens", Opens}, {"loads", Loads}};
    if (count < 3 || !phases.contains(arguments[1]))
    {
        std::fprintf(stderr, "usage: soak frames|acquisitions|updates|opens|loads COUNT [SERIAL]\n");
        return 2;
    }
    try
    {
        Meter meter(std::stoull(arguments[2]));
        phases.at(arguments[1])(meter, count > 3 ? arguments[3] : "");
        std::puts("done");
        return 0;
    }
    catch (const std::exception& error)
    {
        std::printf("wrong: %s\n", error.what());
        return 1;
    }
}
