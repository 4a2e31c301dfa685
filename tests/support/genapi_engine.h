// SPDX-License-Identifier: Apache-2.0
// The ports of the library in the hands of a foreign GenApi engine, that of aravis. Only for tests that have its
// headers.
#pragma once

#include "support/ask_until.h"
#include "support/preload_loopback.h"
#include "support/producer.h"
#include "support/virtual_camera.h"

#include <arv.h>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <string>
#include <vector>

namespace nq::test
{

inline constexpr char kGenApiInterfaceId[] = "Linux Socket:02-00-00-00-00-01";
inline constexpr char kGenApiDeviceId[] = "NQ-GEV-Camera:02-00-0a-4d-00-02";

/// A port of the library and what became of the accesses to it. What a read leaves alone stays `fill`.
struct Port
{
    const Producer& gentl;
    void* handle;
    unsigned char fill = 0;
    int lastResult = 0;
    std::vector<std::uint64_t> reads = {};
    std::vector<std::uint64_t> writes = {};

    bool Read(std::uint64_t address, void* buffer, std::size_t size)
    {
        std::memset(buffer, fill, size);
        reads.push_back(address);
        lastResult = gentl.GCReadPort(handle, address, buffer, &size);
        return lastResult == 0;
    }

    bool Write(std::uint64_t address, const void* buffer, std::size_t size)
    {
        writes.push_back(address);
        lastResult = gentl.GCWritePort(handle, address, buffer, &size);
        return lastResult == 0;
    }
};

/// The engine's idea of a device, made of a port.
struct PortDevice
{
    ArvDevice parent;
    Port* port;
};

inline gboolean Outcome(const ArvDevice* device, bool success, GError** error)
{
    if (!success)
    {
        g_set_error(error, ARV_DEVICE_ERROR, ARV_DEVICE_ERROR_PROTOCOL_ERROR, "the port answers %d",
                    reinterpret_cast<const PortDevice*>(device)->port->lastResult);
    }
    return success ? TRUE : FALSE;
}

inline gboolean ReadMemory(ArvDevice* device, guint64 address, guint32 size, void* buffer, GError** error)
{
    return Outcome(device, reinterpret_cast<PortDevice*>(device)->port->Read(address, buffer, size), error);
}

/// What is written is `void` for older engines and `const void` for newer ones.
template <typename Data>
gboolean WriteMemory(ArvDevice* device, guint64 address, guint32 size, Data* buffer, GError** error)
{
    return Outcome(device, reinterpret_cast<PortDevice*>(device)->port->Write(address, buffer, size), error);
}

inline gboolean ReadRegister(ArvDevice* device, guint64 address, guint32* value, GError** error)
{
    return ReadMemory(device, address, sizeof *value, value, error);
}

inline gboolean WriteRegister(ArvDevice* device, guint64 address, guint32 value, GError** error)
{
    return WriteMemory(device, address, sizeof value, &value, error);
}

inline GType PortDeviceType()
{
    static const GType kType = g_type_register_static_simple(
        ARV_TYPE_DEVICE, "NqTestPortDevice", sizeof(ArvDeviceClass),
        [](void* made, void*) {
            auto* const device = static_cast<ArvDeviceClass*>(made);
            device->read_memory = ReadMemory;
            device->write_memory = WriteMemory;
            device->read_register = ReadRegister;
            device->write_register = WriteRegister;
        },
        sizeof(PortDevice), nullptr, GTypeFlags{});
    return kType;
}

/// The description that a port's URL names, read through the port.
inline std::string Description(const Producer& gentl, void* port)
{
    char url[256] = {};
    std::size_t size = sizeof url;
    EXPECT_EQ(gentl.GCGetPortURL(port, url, &size), 0);
    unsigned long address = 0;
    unsigned long length = 0;
    EXPECT_EQ(std::sscanf(url, "local:%*[^;];%lx;%lx", &address, &length), 2) << url;
    std::string text(length, '\0');
    EXPECT_EQ(gentl.GCReadPort(port, address, text.data(), &length), 0);
    return text;
}

/// One description loaded by the engine. Failures of the engine come out as the texts "(failed: CODE)", CODE being the
/// last result of the port.
class Engine
{
  public:
    Engine(const Producer& gentl, void* handle, ArvRegisterCachePolicy cache = ARV_REGISTER_CACHE_POLICY_DISABLE)
        : text(Description(gentl, handle)), port{gentl, handle}
    {
        m_device = static_cast<GObject*>(g_object_new(PortDeviceType(), nullptr));
        reinterpret_cast<PortDevice*>(m_device)->port = &port;
        m_gc = arv_gc_new(reinterpret_cast<ArvDevice*>(m_device), text.data(), text.size());
        EXPECT_NE(m_gc, nullptr);
        arv_gc_set_register_cache_policy(m_gc, cache);
    }

    ~Engine()
    {
        g_object_unref(m_gc);
        g_object_unref(m_device);
    }
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    /// The value of a feature or register as text: texts as they are, the names of entries, numbers in decimal.
    std::string Value(const std::string& name)
    {
        ArvGcNode* const node = Node(name);
        GError* error = nullptr;
        std::string value;
        if (ARV_IS_GC_ENUMERATION(node))
        {
            const char* const entry = arv_gc_enumeration_get_string_value(ARV_GC_ENUMERATION(node), &error);
            value = entry == nullptr ? "(none)" : entry;
        }
        else if (ARV_IS_GC_BOOLEAN(node))
        {
            value = arv_gc_boolean_get_value(ARV_GC_BOOLEAN(node), &error) != FALSE ? "true" : "false";
        }
        else if (ARV_IS_GC_INTEGER(node))
        {
            value = std::to_string(arv_gc_integer_get_value(ARV_GC_INTEGER(node), &error));
        }
        else
        {
            const char* const characters = arv_gc_string_get_value(ARV_GC_STRING(node), &error);
            // After a failure they are what the memory held before, without an end.
            value = characters == nullptr || error != nullptr ? "(null)" : characters;
        }
        return Failed(error) ? "(failed: " + std::to_string(port.lastResult) + ")" : value;
    }

    std::int64_t Number(const std::string& name) { return std::stoll(Value(name)); }

    std::int64_t Maximum(const std::string& name)
    {
        GError* error = nullptr;
        const std::int64_t maximum = arv_gc_integer_get_max(ARV_GC_INTEGER(Node(name)), &error);
        EXPECT_FALSE(Failed(error)) << name;
        return maximum;
    }

    bool Available(const std::string& name)
    {
        GError* error = nullptr;
        const bool available = arv_gc_feature_node_is_available(ARV_GC_FEATURE_NODE(Node(name)), &error) != FALSE;
        EXPECT_FALSE(Failed(error)) << name;
        return available;
    }

    bool Set(const std::string& name, std::int64_t value)
    {
        GError* error = nullptr;
        arv_gc_integer_set_value(ARV_GC_INTEGER(Node(name)), value, &error);
        return !Failed(error);
    }

    bool Set(const std::string& name, const char* value)
    {
        GError* error = nullptr;
        if (ARV_IS_GC_ENUMERATION(Node(name)))
        {
            arv_gc_enumeration_set_string_value(ARV_GC_ENUMERATION(Node(name)), value, &error);
        }
        else
        {
            arv_gc_string_set_value(ARV_GC_STRING(Node(name)), value, &error);
        }
        return !Failed(error);
    }

    bool Execute(const std::string& name)
    {
        GError* error = nullptr;
        arv_gc_command_execute(ARV_GC_COMMAND(Node(name)), &error);
        return !Failed(error);
    }

    /// The names of all nodes of these kinds, in the order of the text, comments left out.
    std::vector<std::string> Names(const std::string& kinds) const
    {
        const std::string live = std::regex_replace(text, std::regex("<!--[^]*?-->"), "");
        const std::regex node("<(?:" + kinds + ") Name=\"([^\"]*)\"");
        std::vector<std::string> names;
        for (std::sregex_iterator at(live.begin(), live.end(), node), end; at != end; ++at)
        {
            names.push_back((*at)[1]);
        }
        return names;
    }

    const std::string text;
    Port port;

  private:
    ArvGcNode* Node(const std::string& name)
    {
        ArvGcNode* const node = arv_gc_get_node(m_gc, name.c_str());
        EXPECT_NE(node, nullptr) << name;
        return node;
    }

    static bool Failed(GError* error)
    {
        const bool failed = error != nullptr;
        g_clear_error(&error);
        return failed;
    }

    GObject* m_device;
    ArvGc* m_gc;
};

using Values = std::map<std::string, std::string>;

/// Every feature of the engine's text that has a value, which must be those of `expected` and no others.
inline void ExpectFeatures(Engine& engine, const Values& expected)
{
    Values actual;
    for (const std::string& name : engine.Names("String|Integer|Boolean|Enumeration"))
    {
        actual[name] = engine.Value(name);
    }
    EXPECT_EQ(actual, expected);
}

/// Every register of the engine's text, each at its own address and length.
inline void ExpectRegisters(Engine& engine, const Values& expected)
{
    Values actual;
    for (const std::string& name : engine.Names("IntReg|StringReg"))
    {
        actual[name] = engine.Value(name);
    }
    EXPECT_EQ(actual, expected);
}

/// The library with an open system and the virtual camera behind its one adapter.
class GenApi : public testing::Test
{
  protected:
    void SetUp() override
    {
        nq::test::RdmaFolder();
        Shell("ip link set dev host0 address 02:00:00:00:00:01");
        ASSERT_EQ(gentl.GCInitLib(), 0);
        ASSERT_EQ(gentl.TLOpen(&system), 0);
    }

    void TearDown() override { EXPECT_EQ(gentl.GCCloseLib(), 0); }

    void OpenInterface()
    {
        ASSERT_EQ(gentl.TLUpdateInterfaceList(system, nullptr, 100), 0);
        ASSERT_EQ(gentl.TLOpenInterface(system, kGenApiInterfaceId, &interface), 0);
    }

    void OpenDevice()
    {
        OpenInterface();
        const auto open = [this] {
            return gentl.IFOpenDevice(interface, kGenApiDeviceId, GenTL::DEVICE_ACCESS_CONTROL, &device);
        };
        ASSERT_EQ(AskUntil(0, open), 0);
    }

    void OpenStream()
    {
        OpenDevice();
        ASSERT_EQ(AskUntil(0, [this] { return gentl.DevOpenDataStream(device, "Stream:0", &stream); }), 0);
        for (int index = 0; index < 3; ++index)
        {
            GenTL::BUFFER_HANDLE buffer = nullptr;
            ASSERT_EQ(gentl.DSAllocAndAnnounceBuffer(stream, 64, nullptr, &buffer), 0);
            ASSERT_EQ(gentl.DSQueueBuffer(stream, buffer), 0);
        }
    }

    /// Runs an acquisition until `frames` frames were taken.
    void Acquire(int frames)
    {
        GenTL::EVENT_HANDLE event = nullptr;
        ASSERT_EQ(gentl.GCRegisterEvent(stream, GenTL::EVENT_NEW_BUFFER, &event), 0);
        ASSERT_EQ(gentl.DSStartAcquisition(stream, GenTL::ACQ_START_FLAGS_DEFAULT, GENTL_INFINITE), 0);
        for (int frame = 0; frame < frames; ++frame)
        {
            GenTL::S_EVENT_NEW_BUFFER data{};
            std::size_t size = sizeof data;
            ASSERT_EQ(gentl.EventGetData(event, &data, &size, 20000), 0);
            ASSERT_EQ(gentl.DSQueueBuffer(stream, data.BufferHandle), 0);
        }
        ASSERT_EQ(gentl.DSStopAcquisition(stream, GenTL::ACQ_STOP_FLAGS_KILL), 0);
    }

    const VirtualCamera camera{{"--width", "64", "--height", "16", "--fps", "100"}};
    Producer gentl;
    void* system = nullptr;
    void* interface = nullptr;
    void* device = nullptr;
    void* stream = nullptr;
};

} // namespace nq::test
