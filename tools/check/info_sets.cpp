// SPDX-License-Identifier: Apache-2.0
// Every info command of every module that is open.
#include "info_sets.h"

#include <fmt/format.h>

namespace nq::check
{

using namespace GenTL;

namespace
{

using Row = std::pair<INFO_DATATYPE, bool>;

constexpr bool kMandatory = true;
constexpr bool kOptional = false;

std::vector<Row> Repeated(size_t count, Row row)
{
    std::vector<Row> rows(count, row);
    return rows;
}

std::vector<Row> operator+(std::vector<Row> rows, const std::vector<Row>& more)
{
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

std::vector<Row> SystemInfos()
{
    return Repeated(8, {INFO_DATATYPE_STRING, kMandatory}) + std::vector<Row>{{INFO_DATATYPE_INT32, kMandatory},
                                                                              {INFO_DATATYPE_UINT32, kMandatory},
                                                                              {INFO_DATATYPE_UINT32, kMandatory}};
}

std::vector<Row> DeviceInfos()
{
    return Repeated(5, {INFO_DATATYPE_STRING, kMandatory}) + std::vector<Row>{{INFO_DATATYPE_INT32, kOptional}} +
           Repeated(3, {INFO_DATATYPE_STRING, kOptional}) + std::vector<Row>{{INFO_DATATYPE_UINT64, kOptional}};
}

std::vector<Row> StreamInfos()
{
    return {{INFO_DATATYPE_STRING, kMandatory}, {INFO_DATATYPE_UINT64, kOptional},  {INFO_DATATYPE_UINT64, kOptional},
            {INFO_DATATYPE_SIZET, kOptional},   {INFO_DATATYPE_SIZET, kOptional},   {INFO_DATATYPE_SIZET, kOptional},
            {INFO_DATATYPE_UINT64, kOptional},  {INFO_DATATYPE_SIZET, kOptional},   {INFO_DATATYPE_BOOL8, kMandatory},
            {INFO_DATATYPE_BOOL8, kMandatory},  {INFO_DATATYPE_STRING, kMandatory}, {INFO_DATATYPE_SIZET, kOptional},
            {INFO_DATATYPE_SIZET, kMandatory},  {INFO_DATATYPE_SIZET, kOptional}};
}

std::vector<Row> PortInfos()
{
    return Repeated(5, {INFO_DATATYPE_STRING, kMandatory}) + Repeated(6, {INFO_DATATYPE_BOOL8, kMandatory}) +
           Repeated(2, {INFO_DATATYPE_STRING, kMandatory});
}

std::vector<Row> UrlInfos()
{
    return std::vector<Row>{{INFO_DATATYPE_STRING, kMandatory}} + Repeated(5, {INFO_DATATYPE_INT32, kOptional}) +
           std::vector<Row>{{INFO_DATATYPE_BUFFER, kOptional},
                            {INFO_DATATYPE_UINT64, kOptional},
                            {INFO_DATATYPE_UINT64, kOptional},
                            {INFO_DATATYPE_INT32, kOptional},
                            {INFO_DATATYPE_STRING, kOptional}};
}

std::vector<Row> EventInfos()
{
    return {{INFO_DATATYPE_INT32, kMandatory},
            {INFO_DATATYPE_SIZET, kMandatory},
            {INFO_DATATYPE_UINT64, kOptional},
            {INFO_DATATYPE_SIZET, kMandatory},
            {INFO_DATATYPE_SIZET, kMandatory}};
}

} // namespace

std::vector<Row> BufferInfos()
{
    const Row size{INFO_DATATYPE_SIZET, kOptional};
    const Row number{INFO_DATATYPE_UINT64, kOptional};
    const Row flag{INFO_DATATYPE_BOOL8, kMandatory};
    return std::vector<Row>{{INFO_DATATYPE_PTR, kMandatory},
                            {INFO_DATATYPE_SIZET, kMandatory},
                            {INFO_DATATYPE_PTR, kOptional},
                            number,
                            flag,
                            flag,
                            {INFO_DATATYPE_BOOL8, kOptional},
                            flag,
                            {INFO_DATATYPE_STRING, kMandatory}} +
           Repeated(7, size) +
           std::vector<Row>{{INFO_DATATYPE_UINT64, kMandatory},
                            flag,
                            size,
                            {INFO_DATATYPE_SIZET, kMandatory},
                            number,
                            number,
                            size,
                            size,
                            number,
                            {INFO_DATATYPE_STRING, kOptional},
                            {INFO_DATATYPE_INT32, kOptional},
                            size,
                            number,
                            {INFO_DATATYPE_BOOL8, kOptional},
                            flag};
}

InfoSets::InfoSets(Context& context)
{
    if (context.target.deviceId.empty())
    {
        m_tree = std::make_unique<Tree>(context, Depth::System);
        AddSystem(context);
        return;
    }
    auto stream = std::make_unique<Acquisition>(context, 1);
    m_stream = stream.get();
    m_tree = std::move(stream);
    AddSystem(context);
    AddDevice(context);
    AddStream(context);
    AddEvent(context);
    AddPorts(context);
}

void InfoSets::Add(const std::string& name, const std::vector<Row>& rows, decltype(InfoFunction::call) call)
{
    functions.push_back({name, call});
    for (size_t command = 0; command < rows.size(); ++command)
    {
        const auto bound = [call, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
            return call(static_cast<int32_t>(command), type, buffer, size);
        };
        commands.push_back(
            {fmt::format("{}, command {}", name, command), bound, rows[command].first, rows[command].second});
    }
}

void InfoSets::AddSystem(Context& context)
{
    const Producer& gentl = context.gentl;
    Add("GCGetInfo", SystemInfos(), [&gentl](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return gentl.GCGetInfo(command, type, buffer, size);
    });
    Add("TLGetInfo", SystemInfos(), [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.TLGetInfo(m_tree->system, command, type, buffer, size);
    });
}

void InfoSets::AddDevice(Context& context)
{
    const std::vector<Row> interfaceInfos = Repeated(3, {INFO_DATATYPE_STRING, kMandatory});
    Add("TLGetInterfaceInfo", interfaceInfos, [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.TLGetInterfaceInfo(m_tree->system, m_tree->interfaceId.c_str(), command, type, buffer,
                                                size);
    });
    Add("IFGetInfo", interfaceInfos, [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.IFGetInfo(m_tree->interface, command, type, buffer, size);
    });
    Add("IFGetDeviceInfo", DeviceInfos(), [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.IFGetDeviceInfo(m_tree->interface, context.target.deviceId.c_str(), command, type, buffer,
                                             size);
    });
    Add("DevGetInfo", DeviceInfos(), [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.DevGetInfo(m_tree->device, command, type, buffer, size);
    });
}

void InfoSets::AddStream(Context& context)
{
    Add("DSGetInfo", StreamInfos(), [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.DSGetInfo(m_tree->stream, command, type, buffer, size);
    });
    // Before a buffer was filled most of its infos may be missing, the mandatory ones as well.
    std::vector<Row> bufferInfos = BufferInfos();
    for (Row& row : bufferInfos)
    {
        row.second = false;
    }
    Add("DSGetBufferInfo", bufferInfos, [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.DSGetBufferInfo(m_tree->stream, m_stream->buffers[0].handle, command, type, buffer, size);
    });
}

/// The data is what the event gives for the announced buffer.
void InfoSets::AddEvent(Context& context)
{
    const NewBuffer data{m_stream->buffers[0].handle, m_stream->buffers[0].user};
    Add("EventGetDataInfo", {{INFO_DATATYPE_PTR, kMandatory}, {INFO_DATATYPE_PTR, kMandatory}},
        [&, data](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
            return context.gentl.EventGetDataInfo(m_stream->event, &data, sizeof data, command, type, buffer, size);
        });
    Add("EventGetInfo", EventInfos(), [&](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
        return context.gentl.EventGetInfo(m_stream->event, command, type, buffer, size);
    });
}

void InfoSets::AddPorts(Context& context)
{
    const std::pair<const char*, PORT_HANDLE> ports[] = {{"system", m_tree->system},
                                                         {"interface", m_tree->interface},
                                                         {"device", m_tree->device},
                                                         {"remote device", m_tree->remote},
                                                         {"stream", m_tree->stream}};
    for (const auto& [name, port] : ports)
    {
        const PORT_HANDLE handle = port;
        Add(fmt::format("GCGetPortInfo of the {}", name), PortInfos(),
            [&context, handle](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
                return context.gentl.GCGetPortInfo(handle, command, type, buffer, size);
            });
        Add(fmt::format("GCGetPortURLInfo of the {}", name), UrlInfos(),
            [&context, handle](int32_t command, INFO_DATATYPE* type, void* buffer, size_t* size) {
                return context.gentl.GCGetPortURLInfo(handle, 0, command, type, buffer, size);
            });
    }
}

} // namespace nq::check
