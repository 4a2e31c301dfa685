// SPDX-License-Identifier: Apache-2.0
// Rules: the features of the local modules' descriptions, and that they tell what the functions tell.
#include "description.h"
#include "families.h"

#include <algorithm>
#include <fmt/format.h>
#include <thread>

namespace nq::check
{

namespace
{

using namespace GenTL;

/// What the standard's features are of.
struct Feature
{
    const char* name;
    enum Kind
    {
        Text,
        Number,
        Command,
        Choice
    } kind;
};

/// A module with its description.
struct Module
{
    const char* name;
    PORT_HANDLE port;
    Description description;
};

bool Is(const Element& node, Feature::Kind kind)
{
    static const std::vector<std::string> kKinds[] = {
        {"String", "StringReg"},
        {"Integer", "IntReg", "MaskedIntReg", "IntSwissKnife", "IntConverter"},
        {"Command"},
        {"Enumeration"}};
    const std::vector<std::string>& kinds = kKinds[kind];
    return std::find(kinds.begin(), kinds.end(), node.name) != kinds.end();
}

std::vector<Module> LocalModules(Context& c, const Tree& tree)
{
    std::vector<Module> modules;
    const std::pair<const char*, PORT_HANDLE> ports[] = {
        {"system", tree.system}, {"interface", tree.interface}, {"device", tree.device}, {"stream", tree.stream}};
    for (const auto& [name, port] : ports)
    {
        modules.push_back({name, port, DescriptionOf(c, port)});
    }
    return modules;
}

void SfncFeatures(Context& c)
{
    const Tree tree(c, Depth::Stream);
    const std::vector<std::string> general[] = {{"Root", "TLPort"},
                                                {"Root", "InterfacePort", "InterfaceTLVersionMajor",
                                                 "InterfaceTLVersionMinor", "DeviceTLVersionMajor",
                                                 "DeviceTLVersionMinor"},
                                                {"Root", "DevicePort", "DeviceAccessStatus"},
                                                {"Root", "StreamPort", "StreamInformation"}};
    const std::vector<std::string> ofGigE[] = {
        {"GevInterfaceMACAddress", "GevInterfaceDefaultIPAddress", "GevInterfaceDefaultSubnetMask"},
        {"GevInterfaceMACAddress", "GevInterfaceSubnetSelector", "GevInterfaceSubnetIPAddress",
         "GevInterfaceSubnetMask", "GevInterfaceGatewaySelector", "GevInterfaceGateway", "GevDeviceIPAddress",
         "GevDeviceSubnetMask", "GevDeviceMACAddress"},
        {"GevDeviceMACAddress", "GevDeviceIPAddress", "GevDeviceSubnetMask", "GevDeviceGateway",
         "DeviceEndianessMechanism"},
        {}};
    const auto technology = TextInfo([&](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return c.gentl.IFGetInfo(tree.interface, INTERFACE_INFO_TLTYPE, type, buffer, size);
    });
    size_t index = 0;
    for (const Module& module : LocalModules(c, tree))
    {
        std::vector<std::string> names = general[index];
        if (technology == TLTypeGEVName)
        {
            names.insert(names.end(), ofGigE[index].begin(), ofGigE[index].end());
        }
        ++index;
        for (const std::string& name : names)
        {
            c.Expect(module.description.Find(name) != nullptr, fmt::format("the {} lacks {}", module.name, name));
        }
    }
}

void KindsOfFeatures(Context& c)
{
    const Tree tree(c, Depth::Stream);
    using F = Feature;
    const std::vector<Feature> features[] = {{{"TLID", F::Text},
                                              {"TLVendorName", F::Text},
                                              {"TLModelName", F::Text},
                                              {"TLVersion", F::Text},
                                              {"TLPath", F::Text},
                                              {"TLType", F::Choice},
                                              {"GenTLVersionMajor", F::Number},
                                              {"GenTLVersionMinor", F::Number},
                                              {"InterfaceUpdateList", F::Command},
                                              {"InterfaceSelector", F::Number},
                                              {"InterfaceID", F::Text}},
                                             {{"InterfaceID", F::Text},
                                              {"InterfaceType", F::Choice},
                                              {"DeviceUpdateList", F::Command},
                                              {"DeviceSelector", F::Number},
                                              {"DeviceID", F::Text},
                                              {"DeviceVendorName", F::Text},
                                              {"DeviceModelName", F::Text},
                                              {"DeviceAccessStatus", F::Choice}},
                                             {{"DeviceID", F::Text},
                                              {"DeviceVendorName", F::Text},
                                              {"DeviceModelName", F::Text},
                                              {"DeviceType", F::Choice},
                                              {"StreamSelector", F::Number},
                                              {"StreamID", F::Text}},
                                             {{"StreamID", F::Text},
                                              {"StreamType", F::Choice},
                                              {"StreamAnnouncedBufferCount", F::Number},
                                              {"StreamBufferHandlingMode", F::Choice},
                                              {"StreamAnnounceBufferMinimum", F::Number}}};
    size_t index = 0;
    for (const Module& module : LocalModules(c, tree))
    {
        for (const Feature& feature : features[index++])
        {
            const Element* node = module.description.Find(feature.name);
            c.Expect(node == nullptr || Is(*node, feature.kind),
                     fmt::format("{} of the {} is of the kind {}", feature.name, module.name,
                                 node == nullptr ? "" : node->name));
        }
    }
}

/// Compares features with the answers of functions.
class Comparison
{
  public:
    Comparison(Context& c, const Module& module) : m_context(c), m_module(module) {}

    void Text(const char* feature, const InfoCall& call) const
    {
        const auto there = ReadText(m_context, m_module.port, m_module.description, feature);
        const auto told = TextInfo(call);
        m_context.Expect(!there || !told || *there == *told,
                         fmt::format("{} of the {} is \"{}\", the function tells \"{}\"", feature, m_module.name,
                                     there.value_or(""), told.value_or("")));
    }

    template <class Value>
    void Number(const char* feature, const InfoCall& call) const
    {
        const auto there = ReadFeature(m_context, m_module.port, m_module.description, feature);
        const auto told = Info<Value>(call);
        m_context.Expect(!there || !told || *there == *told,
                         fmt::format("{} of the {} is {}, the function tells {}", feature, m_module.name,
                                     there.value_or(0), told.value_or(0)));
    }

  private:
    Context& m_context;
    const Module& m_module;
};

/// An info call of a module, with handle and command bound.
template <class Function>
InfoCall Bound(const Function& function, void* handle, int32_t command)
{
    return [&function, handle, command](INFO_DATATYPE* type, void* buffer, size_t* size) {
        return function(handle, command, type, buffer, size);
    };
}

void ValuesAgree(Context& c)
{
    const Tree tree(c, Depth::Stream);
    const Producer& g = c.gentl;
    BUFFER_HANDLE buffer = nullptr;
    Context::Needs(g.DSAllocAndAnnounceBuffer(tree.stream, 4096, nullptr, &buffer), "DSAllocAndAnnounceBuffer");
    const std::vector<Module> modules = LocalModules(c, tree);
    const Comparison system(c, modules[0]);
    system.Text("TLID", Bound(g.TLGetInfo, tree.system, TL_INFO_ID));
    system.Text("TLVendorName", Bound(g.TLGetInfo, tree.system, TL_INFO_VENDOR));
    system.Text("TLModelName", Bound(g.TLGetInfo, tree.system, TL_INFO_MODEL));
    system.Text("TLVersion", Bound(g.TLGetInfo, tree.system, TL_INFO_VERSION));
    system.Text("TLPath", Bound(g.TLGetInfo, tree.system, TL_INFO_PATHNAME));
    system.Number<uint32_t>("GenTLVersionMajor", Bound(g.TLGetInfo, tree.system, TL_INFO_GENTL_VER_MAJOR));
    system.Number<uint32_t>("GenTLVersionMinor", Bound(g.TLGetInfo, tree.system, TL_INFO_GENTL_VER_MINOR));
    Comparison(c, modules[1]).Text("InterfaceID", Bound(g.IFGetInfo, tree.interface, INTERFACE_INFO_ID));
    const Comparison device(c, modules[2]);
    device.Text("DeviceID", Bound(g.DevGetInfo, tree.device, DEVICE_INFO_ID));
    device.Text("DeviceVendorName", Bound(g.DevGetInfo, tree.device, DEVICE_INFO_VENDOR));
    device.Text("DeviceModelName", Bound(g.DevGetInfo, tree.device, DEVICE_INFO_MODEL));
    const Comparison stream(c, modules[3]);
    stream.Text("StreamID", Bound(g.DSGetInfo, tree.stream, STREAM_INFO_ID));
    stream.Number<uint64_t>("StreamAnnouncedBufferCount", Bound(g.DSGetInfo, tree.stream, STREAM_INFO_NUM_ANNOUNCED));
    stream.Number<uint64_t>("StreamAnnounceBufferMinimum",
                            Bound(g.DSGetInfo, tree.stream, STREAM_INFO_BUF_ANNOUNCE_MIN));
}

void Selects(Context& c, const Module& module, const std::string& selector, const std::string& id,
             const std::vector<std::string>& ids)
{
    for (size_t index = 0; index < ids.size(); ++index)
    {
        const bool there = ReadFeature(c, module.port, module.description, selector) == index;
        c.Expect(there || WriteFeature(c, module.port, module.description, selector, index),
                 fmt::format("{} of the {} does not take {} of {}", selector, module.name, index, ids.size()));
        const auto selected = ReadText(c, module.port, module.description, id);
        c.Expect(selected == ids[index],
                 fmt::format("with {} {} the {} of the {} is \"{}\" instead of \"{}\"", selector, index, id,
                             module.name, selected.value_or(""), ids[index]));
    }
}

void SelectorsCountFromZero(Context& c)
{
    const Tree tree(c, Depth::Stream);
    const std::vector<Module> modules = LocalModules(c, tree);
    const std::tuple<const Module&, const char*, const char*, std::vector<std::string>> rows[] = {
        {modules[0], "InterfaceSelector", "InterfaceID", InterfaceIds(c, tree.system)},
        {modules[1], "DeviceSelector", "DeviceID", DeviceIds(c, tree.interface)},
        {modules[2], "StreamSelector", "StreamID", StreamIds(c, tree.device)}};
    size_t tried = 0;
    for (const auto& [module, selector, id, ids] : rows)
    {
        if (module.description.RegisterOf(selector) && module.description.TextRegisterOf(id))
        {
            Selects(c, module, selector, id, ids);
            ++tried;
        }
    }
    if (tried == 0)
    {
        Context::NotTried("no selector lies in a register of its own");
    }
}

/// The list of an interface that was just opened, which nobody has updated yet.
void UpdateCommand(Context& c)
{
    Tree tree(c, Depth::Interface);
    const Description description = DescriptionOf(c, tree.interface);
    const auto listed = [&] {
        const auto ids = DeviceIds(c, tree.interface);
        return std::find(ids.begin(), ids.end(), c.target.deviceId) != ids.end();
    };
    if (listed())
    {
        Context::NotTried("the camera is listed before an update");
    }
    for (int tries = 0; tries < 5 && !listed(); ++tries)
    {
        c.Expect(ExecuteCommand(c, tree.interface, description, "DeviceUpdateList"),
                 "DeviceUpdateList of the interface cannot be executed");
        std::this_thread::sleep_for(std::chrono::milliseconds(listed() ? 0 : 300));
    }
    c.Expect(listed(), "DeviceUpdateList of the interface does not update the list of IFGetNumDevices");
}

constexpr Rule kRules[] = {
    {"FT-001", "the modules have the features that the naming convention of GenTL asks for", "", Severity::Should,
     Needs::Camera, SfncFeatures, "no clause of the text; those of GigE Vision only where that is the technology"},
    {"FT-002", "the mandatory features are texts, numbers, commands and enumerations as they have to be", "7.1",
     Severity::Must, Needs::Camera, KindsOfFeatures},
    {"FT-003", "the features of the modules tell what the functions tell", "7.1", Severity::Must, Needs::Camera,
     ValuesAgree},
    {"FT-004", "selectors count from 0, in the order of the functions' lists", "7.1, 3.7", Severity::Must,
     Needs::Camera, SelectorsCountFromZero},
    {"FT-005", "the update command of a description updates the list of the functions", "7.1, 3.7", Severity::Must,
     Needs::Camera, UpdateCommand},
};

} // namespace

std::span<const Rule> FeatureRules()
{
    return kRules;
}

} // namespace nq::check
