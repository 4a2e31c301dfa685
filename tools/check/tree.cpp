// SPDX-License-Identifier: Apache-2.0
// The modules of a producer, opened as deep as a rule needs.
#include "tree.h"

#include <algorithm>
#include <fmt/format.h>
#include <thread>

namespace nq::check
{

namespace
{

constexpr size_t kLongestText = size_t{64} << 10;
constexpr uint64_t kUpdateMs[] = {100, 200, 500, 1000, 2000};

} // namespace

Tree::Tree(Context& context, Depth depth) : m_context(context)
{
    Context::Needs(context.gentl.GCInitLib(), "GCInitLib");
    try
    {
        void (Tree::*const steps[])() = {&Tree::OpenSystem, &Tree::OpenInterface, &Tree::OpenDevice, &Tree::OpenStream};
        for (int step = 0; step < static_cast<int>(depth); ++step)
        {
            void (Tree::*const open)() = steps[step];
            (this->*open)();
        }
    }
    catch (...)
    {
        context.gentl.GCCloseLib();
        throw;
    }
}

Tree::~Tree()
{
    m_context.gentl.GCCloseLib();
}

void Tree::OpenSystem()
{
    Context::Needs(m_context.gentl.TLOpen(&system), "TLOpen");
    Context::Needs(m_context.gentl.TLUpdateInterfaceList(system, nullptr, 1000), "TLUpdateInterfaceList");
}

void Tree::OpenInterface()
{
    interfaceId = m_context.target.interfaceId;
    if (interfaceId.empty())
    {
        const std::vector<std::string> ids = InterfaceIds(m_context, system);
        if (ids.empty())
        {
            Context::NotTried("the producer has no interface here");
        }
        interfaceId = ids.front();
    }
    Context::Needs(m_context.gentl.TLOpenInterface(system, interfaceId.c_str(), &interface), "TLOpenInterface");
}

void Tree::LookForCamera() const
{
    for (const uint64_t ms : kUpdateMs)
    {
        Context::Needs(m_context.gentl.IFUpdateDeviceList(interface, nullptr, ms), "IFUpdateDeviceList");
        const std::vector<std::string> ids = DeviceIds(m_context, interface);
        if (std::find(ids.begin(), ids.end(), m_context.target.deviceId) != ids.end())
        {
            return;
        }
    }
    Context::NotTried("the camera is no longer listed");
}

void Tree::OpenDevice()
{
    LookForCamera();
    const char* id = m_context.target.deviceId.c_str();
    const Producer& gentl = m_context.gentl;
    GenTL::GC_ERROR code = gentl.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device);
    if (code == GenTL::GC_ERR_NOT_IMPLEMENTED)
    {
        code = gentl.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_EXCLUSIVE, &device);
    }
    // A process that was ended leaves its camera taken until a heartbeat is missed.
    for (int tries = 0; tries < 40 && code == GenTL::GC_ERR_ACCESS_DENIED; ++tries)
    {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        code = gentl.IFOpenDevice(interface, id, GenTL::DEVICE_ACCESS_CONTROL, &device);
    }
    Context::Needs(code, "IFOpenDevice");
    Context::Needs(gentl.DevGetPort(device, &remote), "DevGetPort");
}

void Tree::OpenStream()
{
    uint32_t count = 0;
    const Producer& gentl = m_context.gentl;
    Context::Needs(gentl.DevGetNumDataStreams(device, &count), "DevGetNumDataStreams");
    if (count == 0)
    {
        Context::NotTried("the camera has no data stream");
    }
    GenTL::GC_ERROR code = 0;
    streamId = Id([&](char* text, size_t* size) { return gentl.DevGetDataStreamID(device, 0, text, size); }, code);
    Context::Needs(code, "DevGetDataStreamID");
    Context::Needs(gentl.DevOpenDataStream(device, streamId.c_str(), &stream), "DevOpenDataStream");
}

void FindCamera(Context& context)
{
    Tree tree(context, Depth::System);
    const auto wanted = [](const std::string& option, const std::string& id) { return option.empty() || option == id; };
    const std::vector<std::string> interfaces = InterfaceIds(context, tree.system);
    for (const uint64_t ms : kUpdateMs)
    {
        for (const std::string& interfaceId : interfaces)
        {
            GenTL::IF_HANDLE interface = nullptr;
            if (!wanted(context.target.interfaceId, interfaceId) ||
                context.gentl.TLOpenInterface(tree.system, interfaceId.c_str(), &interface) != GenTL::GC_ERR_SUCCESS)
            {
                continue;
            }
            context.gentl.IFUpdateDeviceList(interface, nullptr, ms);
            for (const std::string& deviceId : DeviceIds(context, interface))
            {
                if (wanted(context.target.deviceId, deviceId))
                {
                    throw RuleEnded{Outcome::Passed, fmt::format("{}\n{}", interfaceId, deviceId)};
                }
            }
            context.gentl.IFClose(interface);
        }
    }
    Context::NotTried(fmt::format("none was found on {} interfaces", interfaces.size()));
}

std::optional<std::string> TextInfo(const InfoCall& call)
{
    GenTL::INFO_DATATYPE type = GenTL::INFO_DATATYPE_UNKNOWN;
    std::vector<char> text(kLongestText + 1, '\0'); // ends, whether the producer ends it or not
    size_t size = kLongestText;
    if (call(&type, text.data(), &size) != GenTL::GC_ERR_SUCCESS)
    {
        return std::nullopt;
    }
    return text.data();
}

std::string Id(const IdCall& call, GenTL::GC_ERROR& code)
{
    std::vector<char> text(kLongestText + 1, '\0');
    size_t size = kLongestText;
    code = call(text.data(), &size);
    return text.data();
}

namespace
{

/// The ids of a list from its two functions; the rule ends as not tried where they fail.
std::vector<std::string> IdsOf(const std::function<GenTL::GC_ERROR(uint32_t*)>& number,
                               const std::function<GenTL::GC_ERROR(uint32_t, char*, size_t*)>& id)
{
    uint32_t count = 0;
    Context::Needs(number(&count), "the number of a list");
    std::vector<std::string> ids;
    for (uint32_t index = 0; index < count; ++index)
    {
        GenTL::GC_ERROR code = 0;
        ids.push_back(Id([&](char* text, size_t* size) { return id(index, text, size); }, code));
        Context::Needs(code, "an id of a list");
    }
    return ids;
}

} // namespace

std::vector<std::string> InterfaceIds(Context& context, GenTL::TL_HANDLE system)
{
    const Producer& gentl = context.gentl;
    return IdsOf(
        [&](uint32_t* count) { return gentl.TLGetNumInterfaces(system, count); },
        [&](uint32_t index, char* text, size_t* size) { return gentl.TLGetInterfaceID(system, index, text, size); });
}

std::vector<std::string> DeviceIds(Context& context, GenTL::IF_HANDLE interface)
{
    const Producer& gentl = context.gentl;
    return IdsOf(
        [&](uint32_t* count) { return gentl.IFGetNumDevices(interface, count); },
        [&](uint32_t index, char* text, size_t* size) { return gentl.IFGetDeviceID(interface, index, text, size); });
}

std::vector<std::string> StreamIds(Context& context, GenTL::DEV_HANDLE device)
{
    const Producer& gentl = context.gentl;
    return IdsOf(
        [&](uint32_t* count) { return gentl.DevGetNumDataStreams(device, count); },
        [&](uint32_t index, char* text, size_t* size) { return gentl.DevGetDataStreamID(device, index, text, size); });
}

std::optional<uint64_t> StreamNumber(Context& context, GenTL::DS_HANDLE stream, GenTL::STREAM_INFO_CMD command)
{
    return Info<uint64_t>([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.DSGetInfo(stream, command, type, buffer, size);
    });
}

std::optional<bool> StreamFlag(Context& context, GenTL::DS_HANDLE stream, GenTL::STREAM_INFO_CMD command)
{
    const auto value = Info<uint8_t>([&](GenTL::INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.DSGetInfo(stream, command, type, buffer, size);
    });
    return value ? std::optional<bool>(*value != 0) : std::nullopt;
}

} // namespace nq::check
