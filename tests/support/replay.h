// SPDX-License-Identifier: Apache-2.0
// Foreign consumers of the virtual camera, replayed by the order of their calls, in both modes.
#pragma once

#include "support/ask_until.h"
#include "support/both_modes.h"
#include "support/producer.h"
#include "support/stream_consumer.h"
#include "support/virtual_camera.h"

#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace nq::test
{

/// How a consumer looks for cameras and asks for texts.
struct Habits
{
    std::uint64_t systemMs;    ///< for a list of the interfaces
    std::uint64_t interfaceMs; ///< for a list of the cameras
    std::size_t textBytes;     ///< that it has for a text; 0 for one that asks for the size first
    std::string library = NQ_CTI_PATH;
    int binding = 0; ///< flags of dlopen; 0 for the usual ones
};

/// One consumer. What its replays have in common: how it comes to a stream, and how it asks.
class Replay : public BothModes
{
  protected:
    explicit Replay(const Habits& habits, const std::vector<std::string>& cameraArguments = {})
        : camera(SmallFrames(cameraArguments)), gentl(habits.library, habits.binding), m_habits(habits)
    {
        RdmaFolder();
    }

    /// Everything of an info call but type, buffer and size.
    using InfoCall = std::function<int(GenTL::INFO_DATATYPE*, void*, std::size_t*)>;

    template <typename Function, typename... Arguments>
    static InfoCall Bind(Function function, Arguments... arguments)
    {
        return [=](GenTL::INFO_DATATYPE* type, void* buffer, std::size_t* size) {
            return function(arguments..., type, buffer, size);
        };
    }

    /// A text that has to be there. Who asks for the size first leaves in it what was on the stack.
    std::string Text(const InfoCall& call) const
    {
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = m_habits.textBytes == 0 ? 0xDEADBEEF : m_habits.textBytes;
        if (m_habits.textBytes == 0)
        {
            EXPECT_EQ(call(&type, nullptr, &size), 0);
        }
        std::vector<char> text(std::min<std::size_t>(size, 65536), 'x');
        EXPECT_EQ(call(&type, text.data(), &size), 0);
        EXPECT_EQ(type, GenTL::INFO_DATATYPE_STRING);
        return {text.data(), strnlen(text.data(), text.size())};
    }

    /// A value, nothing when the call fails.
    template <typename Value>
    static std::optional<Value> Ask(const InfoCall& call)
    {
        Value value{};
        GenTL::INFO_DATATYPE type = 0;
        std::size_t size = sizeof value;
        return call(&type, &value, &size) == 0 ? std::optional(value) : std::nullopt;
    }

    template <typename Value>
    std::optional<Value> Ask(GenTL::BUFFER_HANDLE buffer, GenTL::BUFFER_INFO_CMD command) const
    {
        return Ask<Value>(Bind(gentl.DSGetBufferInfo, stream, buffer, command));
    }

    template <typename Value>
    std::optional<Value> AskStream(GenTL::STREAM_INFO_CMD command) const
    {
        return Ask<Value>(Bind(gentl.DSGetInfo, stream, command));
    }

    void OpenSystem()
    {
        ASSERT_EQ(gentl.GCInitLib(), 0);
        ASSERT_EQ(gentl.TLOpen(&system), 0);
    }

    /// Lists until the camera is there, for on a machine under load an answer may come too late, and leaves its
    /// interface open.
    void FindCamera()
    {
        ASSERT_EQ(AskUntil(1U, [this] { return CamerasOfFirstInterface(); }), 1U);
        deviceId = IdBy([&](char* id, std::size_t* size) { return gentl.IFGetDeviceID(interface, 0, id, size); });
    }

    void OpenCamera()
    {
        const auto open = [this] {
            return gentl.IFOpenDevice(interface, deviceId.c_str(), GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, open), 0);
        ASSERT_EQ(gentl.DevGetPort(device, &port), 0);
    }

    void OpenStream()
    {
        const std::string id =
            IdBy([&](char* text, std::size_t* size) { return gentl.DevGetDataStreamID(device, 0, text, size); });
        ASSERT_EQ(AskUntil(0, [&] { return gentl.DevOpenDataStream(device, id.c_str(), &stream); }), 0);
    }

    void Open()
    {
        OpenSystem();
        FindCamera();
        OpenCamera();
        OpenStream();
    }

    /// Announces memory of the consumer.
    void Announce(int count, std::size_t bytes = 1024)
    {
        for (int index = 0; index < count; ++index)
        {
            m_memory.push_back(std::make_unique<unsigned char[]>(bytes));
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(gentl.DSAnnounceBuffer(stream, m_memory.back().get(), bytes, nullptr, &buffer), 0);
            buffers.push_back(buffer);
        }
    }

    void QueueAll()
    {
        for (const GenTL::BUFFER_HANDLE buffer : buffers)
        {
            ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
    }

    /// The next buffer with a frame; null when none comes in that time.
    GenTL::BUFFER_HANDLE Next(std::uint64_t timeout = 5000)
    {
        GenTL::S_EVENT_NEW_BUFFER data{};
        std::size_t size = sizeof data;
        return gentl.EventGetData(event, &data, &size, timeout) == 0 ? data.BufferHandle : nullptr;
    }

    /// Whether these bytes are the first of what the camera draws for the frame.
    static bool ShowsFrame(const unsigned char* pixels, std::size_t count, std::uint64_t frame)
    {
        for (std::size_t pixel = 0; pixel < count; ++pixel)
        {
            if (pixels[pixel] != static_cast<unsigned char>(pixel % 64 + pixel / 64 + 7 * frame))
            {
                return false;
            }
        }
        return true;
    }

    /// Closes from the stream up, as tidy consumers do.
    void Close()
    {
        EXPECT_EQ(gentl.DSClose(stream), 0);
        EXPECT_EQ(gentl.DevClose(device), 0);
        EXPECT_EQ(gentl.IFClose(interface), 0);
        EXPECT_EQ(gentl.TLClose(system), 0);
        EXPECT_EQ(gentl.GCCloseLib(), 0);
    }

    const VirtualCamera camera;
    const Producer gentl;
    std::string deviceId;
    GenTL::TL_HANDLE system = nullptr;
    GenTL::IF_HANDLE interface = nullptr;
    GenTL::DEV_HANDLE device = nullptr;
    GenTL::PORT_HANDLE port = nullptr; ///< of the camera
    GenTL::DS_HANDLE stream = nullptr;
    GenTL::EVENT_HANDLE event = nullptr;
    std::vector<GenTL::BUFFER_HANDLE> buffers;

  private:
    std::string IdBy(const std::function<int(char*, std::size_t*)>& call) const
    {
        return Text([&](GenTL::INFO_DATATYPE* type, void* buffer, std::size_t* size) {
            *type = GenTL::INFO_DATATYPE_STRING;
            return call(static_cast<char*>(buffer), size);
        });
    }

    /// Those that answer on the first interface that has any, which stays open.
    std::uint32_t CamerasOfFirstInterface()
    {
        std::uint32_t cameras = 0;
        std::uint32_t interfaces = 0;
        EXPECT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, m_habits.systemMs), 0);
        EXPECT_EQ(gentl.TLGetNumInterfaces(system, &interfaces), 0);
        for (std::uint32_t index = 0; index < interfaces && cameras == 0; ++index)
        {
            LookOn(IdBy([&](char* id, std::size_t* size) { return gentl.TLGetInterfaceID(system, index, id, size); }),
                   cameras);
        }
        return cameras;
    }

    void LookOn(const std::string& interfaceId, std::uint32_t& cameras)
    {
        ASSERT_EQ(gentl.TLOpenInterface(system, interfaceId.c_str(), &interface), 0);
        ASSERT_EQ(gentl.IFUpdateDeviceList(interface, nullptr, m_habits.interfaceMs), 0);
        ASSERT_EQ(gentl.IFGetNumDevices(interface, &cameras), 0);
        if (cameras == 0)
        {
            ASSERT_EQ(gentl.IFClose(interface), 0);
        }
    }

    Habits m_habits;
    std::vector<std::unique_ptr<unsigned char[]>> m_memory;
};

} // namespace nq::test
