// SPDX-License-Identifier: Apache-2.0
// A whole GenTL producer in memory, for gentl-check: one interface, one camera, one stream that makes its frames up in
// a thread. It keeps the standard, and breaks it where NQ_FAULTS says so, by names with commas between.
#pragma once

#include "GenTL/GenTL.h"

#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace nq::faulty
{

/// Whether a fault is switched on.
bool Fault(const char* name);

enum class Kind
{
    None,
    System,
    Interface,
    Device,
    Remote,
    Stream,
    Buffer,
    Event
};

enum class Place
{
    Unqueued,
    Input,
    Filling,
    Output
};

struct Frame
{
    uint64_t id = 0;
    uint64_t timestamp = 0;
    bool fresh = false;
    bool incomplete = false;
    bool larger = false;
    size_t filled = 0;
};

struct Buffer
{
    void* handle = nullptr;
    char* base = nullptr;
    size_t size = 0;
    void* user = nullptr;
    std::unique_ptr<char[]> own; ///< memory of the producer
    Place place = Place::Unqueued;
    Frame frame;
};

struct Event
{
    void* handle = nullptr;
    void* module = nullptr;
    GenTL::EVENT_TYPE type = 0;
    std::deque<std::vector<char>> queue; ///< of all types but the new buffer, whose queue is the stream's output
    uint64_t fired = 0;
    uint64_t kills = 0;
    int waiting = 0;
    bool ended = false;
};

/// All there is. Guarded by `mutex`; `changed` tells of new data, kills and ends.
struct State
{
    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    GenTL::DEVICE_ACCESS_FLAGS access = 0;
    void* remote = nullptr;
    void* stream = nullptr;
    bool interfacesListed = false;
    bool devicesListed = false;
    int interfaceUpdates = 0;
    int deviceUpdates = 0;
    std::map<void*, std::shared_ptr<Event>> events;
    std::map<void*, std::vector<char>> memory; ///< of the ports, by module
    std::vector<std::unique_ptr<Buffer>> buffers;
    std::deque<Buffer*> input;
    std::deque<Buffer*> output;
    Buffer* filling = nullptr;
    bool running = false;
    bool stopDue = false;
    uint64_t left = 0; ///< frames until the stream stops by itself
    uint64_t delivered = 0;
    uint64_t underruns = 0;
    uint64_t started = 0;
    bool cameraSends = false;
    uint64_t frameId = 0;
    bool engineEnds = false;
    std::thread engine;
    int sessions = 0;        ///< since the library was loaded
    int counted = 0;         ///< calls for the number of devices in this session
    bool closedOnce = false; ///< the system, in this session
    int flushes = 0;
    int creditsLost = 0;        ///< since the start
    int asked = 0;              ///< for an info that changes
    void* lastStream = nullptr; ///< the handle of the stream that was closed last
    int claim = -1;             ///< a socket whose name other processes cannot take, while the device is open
    int allKills = 0;
};

State& The();

constexpr size_t kPayload = 64 * 48;
constexpr uint64_t kFrequency = 1000000000;
constexpr const char* kInterfaceId = "made-up-interface";
constexpr const char* kDeviceId = "made-up-camera";
constexpr const char* kStreamId = "made-up-stream";

/// A handle that was never used before.
void* NewHandle();

/// What a handle stands for, with the lock held.
Kind KindOf(void* handle);
Buffer* BufferOf(void* handle);

/// The result of a call, kept as the last error of the thread where it is one.
GenTL::GC_ERROR Result(GenTL::GC_ERROR code);

/// With the lock held: the code for a handle that has to be of a kind.
GenTL::GC_ERROR CheckHandle(void* handle, Kind kind);

/// Answers an info call by `bytes`.
GenTL::GC_ERROR Answer(GenTL::INFO_DATATYPE type, std::string_view bytes, GenTL::INFO_DATATYPE* piType, void* pBuffer,
                       size_t* piSize);
GenTL::GC_ERROR AnswerText(const std::string& text, GenTL::INFO_DATATYPE* piType, void* pBuffer, size_t* piSize);

template <class Value>
GenTL::GC_ERROR AnswerValue(GenTL::INFO_DATATYPE type, Value value, GenTL::INFO_DATATYPE* piType, void* pBuffer,
                            size_t* piSize)
{
    return Answer(type, {reinterpret_cast<const char*>(&value), sizeof value}, piType, pBuffer, piSize);
}

/// Answers an id call.
GenTL::GC_ERROR AnswerId(const char* id, char* text, size_t* size);

/// With the lock held.
void EndEvents(void* module);
void CloseStream(std::unique_lock<std::mutex>& lock);
void CloseDevice(std::unique_lock<std::mutex>& lock);
void CloseInterface(std::unique_lock<std::mutex>& lock);
void CloseSystem(std::unique_lock<std::mutex>& lock);
void StartEngine();
void Flush(GenTL::ACQ_QUEUE_TYPE operation);
void Requeue(Buffer* buffer);
void Remove(std::deque<Buffer*>& queue, const Buffer* buffer);
void FillPort(void* module, Kind kind);
std::string PortModule(Kind kind);
std::string OwnPath();
uint32_t Interfaces();
uint32_t Devices();
std::string OtherInterfaceId();

/// Takes the camera for this process. False when another one of the same check has it.
bool ClaimCamera();
void ReleaseCamera();
bool CameraIsTaken();

/// Lets the one who has the camera know of an open that was refused; and whether somebody has.
void DisturbOwner();
bool OwnerIsDisturbed();

} // namespace nq::faulty
