// SPDX-License-Identifier: Apache-2.0
// The modules with a port, each opened and ready to be asked, and what each of them answers.
#pragma once

#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_device.h"
#include "support/data_stream_fixture.h"
#include "support/interface_module.h"
#include "support/register_map_rows.h"
#include "support/system_module.h"

#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <variant>
#include <vector>

namespace nq::test
{

/// A module that is ready to be asked; whatever it needs lives as long as this.
struct OpenModule
{
    virtual ~OpenModule() = default;
    virtual GigERDMA::NQGenTLModuleBase& Module() = 0;
    virtual std::vector<std::string> CameraAccesses() { return {}; }
};

struct OpenSystem : OpenModule
{
    OpenSystem() { system.Merge({Entry("one", "10.1.2.3"), Entry("two", "10.4.5.6")}); }
    GigERDMA::NQGenTLModuleBase& Module() override { return system; }

    SystemModule system;
};

struct OpenInterface : OpenModule
{
    OpenInterface() { interface.Merge({Device("one"), Device("two", "Nerquil")}); }
    GigERDMA::NQGenTLModuleBase& Module() override { return interface; }

    InterfaceModule interface;
};

struct OpenDevice : OpenModule
{
    OpenDevice()
    {
        camera.SetRegister(0x0938, 60000);
        camera.SetRegister(0x0904, 1);
        EXPECT_EQ(device.Open(), 0);
        camera.Forget();
    }
    ~OpenDevice() override { device.Close(); }
    GigERDMA::NQGenTLModuleBase& Module() override { return device; }
    std::vector<std::string> CameraAccesses() override { return camera.Accesses(); }

    GvcpCamera camera;
    NQGevDevice device{g_Controller.GetTL(), LoopbackCamera(), 3, nullptr};
};

struct OpenStream : OpenModule, DataStreamFixture
{
    OpenStream() { Announce(3); }
    void TestBody() override {}
    GigERDMA::NQGenTLModuleBase& Module() override { return *stream; }
    std::vector<std::string> CameraAccesses() override { return camera.Accesses(); }

    using DataStreamFixture::Read32;
    using DataStreamFixture::Read64;
    using DataStreamFixture::stream;
    using DataStreamFixture::Write;
};

struct OpenRemoteDevice : OpenModule
{
    OpenRemoteDevice()
    {
        camera.SetRegister(0x0938, 60000);
        EXPECT_EQ(device.Open(), 0);
        camera.Forget();
    }
    GigERDMA::NQGenTLModuleBase& Module() override { return device; }
    std::vector<std::string> CameraAccesses() override { return camera.Accesses(); }

    GvcpCamera camera;
    NQGevTL tl;
    NQGevRemoteDevice device{&tl, LoopbackCamera(), 3, nullptr};
};

/// What registers read, by their addresses.
using PortValues = std::map<unsigned long, std::variant<unsigned long, std::string>>;

/// A module with the answers that are its own.
struct PortRow
{
    std::string name;
    std::unique_ptr<OpenModule> (*open)() = nullptr;
    std::string id = {};
    std::string module = {};
    std::string portName = {};
    std::string version = {};
    std::set<int> events = {};
    std::string file = {};
    std::string (*text)() = nullptr;
    RegisterMapRows map = {};
    PortValues values = {}; ///< what the registers read at first
    std::size_t denied = 0; ///< how many addresses refuse a write
};

inline void PrintTo(const PortRow& row, std::ostream* out)
{
    *out << row.name;
}

template <typename Open>
std::unique_ptr<OpenModule> Make()
{
    return std::make_unique<Open>();
}

inline const PortValues kSystemValues = {{0x50000, "Nerquil Optic"},
                                         {0x50100, "GEVRDMATL"},
                                         {0x50200, "NQGenTLGevRDMA"},
                                         {0x50300, "2.5.5"},
                                         {0x50504, 1UL},
                                         {0x50508, 5UL},
                                         {0x5050C, 0UL},
                                         {0x50510, 0UL},
                                         {0x50514, "one"},
                                         {0x50614, 2UL},
                                         {0x50618, 0x020A0B010203UL},
                                         {0x50620, 0x0A010203UL},
                                         {0x50624, 0xFFFF0000UL},
                                         {0x50628, 0xFFFF0000UL}};

inline const PortRow kSystemPort = {.name = "System",
                                    .open = Make<OpenSystem>,
                                    .id = "NQGenTLGevRDMA",
                                    .module = "TLSystem",
                                    .portName = "TLPort",
                                    .version = "2.5.5",
                                    .events = {},
                                    .file = "NQGenTLGev_TL_1_0_0.xml",
                                    .text = CreateXmlFileSystem,
                                    .map = kSystemRows,
                                    .values = kSystemValues,
                                    .denied = 14};

inline const PortValues kInterfaceValues = {{0x60000, "Linux Socket:02-00-00-00-00-01"},
                                            {0x60104, 0UL},
                                            {0x60108, 0UL},
                                            {0x6010C, "one"},
                                            {0x6020C, "vendor"},
                                            {0x6030C, "model of one"},
                                            {0x6040C, 0UL},
                                            {0x60410, 2UL},
                                            {0x60414, 0UL},
                                            {0x60418, 1UL},
                                            {0x6041C, 0UL},
                                            {0x60420, 0x020A0B010203UL},
                                            {0x60428, 0UL},
                                            {0x60430, 1UL},
                                            {0x60434, 0UL},
                                            {0x60438, 0UL},
                                            {0x6043C, 0x0A090005UL},
                                            {0x60440, 0xFFFFFF00UL},
                                            {0x60444, 0x020A0B010203UL}};

inline const PortRow kInterfacePort = {.name = "Interface",
                                       .open = Make<OpenInterface>,
                                       .id = "Linux Socket:02-00-00-00-00-01",
                                       .module = "TLInterface",
                                       .portName = "InterfacePort",
                                       .version = "2.5.5",
                                       .events = {0},
                                       .file = "NQGenTLGev_IF_1_0_0.xml",
                                       .text = CreateXmlFileInterface,
                                       .map = kInterfaceRows,
                                       .values = kInterfaceValues,
                                       .denied = 16};

inline const PortValues kDeviceValues = {{0x70000, "Model:02-00-00-00-00-01"},
                                         {0x70100, "Vendor"},
                                         {0x70200, "Model"},
                                         {0x70300, 5UL},
                                         {0x70304, 0UL},
                                         {0x70308, "Stream:0"},
                                         {0x70408, 1UL},
                                         {0x7040C, 0x020000000001UL},
                                         {0x70410, 0x7F000001UL},
                                         {0x70414, 0xFF000000UL},
                                         {0x70418, 0x7F0000FEUL},
                                         {0x7041C, ""},
                                         {0x7052C, 0UL},
                                         {0x70530, 1UL}};

inline const PortRow kDevicePort = {.name = "Device",
                                    .open = Make<OpenDevice>,
                                    .id = "Model:02-00-00-00-00-01",
                                    .module = "TLDevice",
                                    .portName = "DevicePort",
                                    .version = "2.5.4",
                                    .events = {4, 5, 4000},
                                    .file = "NQGenTLGev_DEV_1_0_0.xml",
                                    .text = CreateXmlFileDevice,
                                    .map = kDeviceRows,
                                    .values = kDeviceValues,
                                    .denied = 12};

inline const PortValues kStreamValues = {{0x80000, "2"}, {0x80100, 3UL},   {0x80104, 0UL}, {0x80108, 1UL},
                                         {0x8010C, 0UL}, {0x80110, 0UL},   {0x80114, 0UL}, {0x8042C, 0UL},
                                         {0x80430, 0UL}, {0x80434, 1000UL}};

inline const PortRow kStreamPort = {.name = "Stream",
                                    .open = Make<OpenStream>,
                                    .id = "Stream:2",
                                    .module = "TLDataStream",
                                    .portName = "StreamPort",
                                    .version = "2.5.5",
                                    .events = {1, 5},
                                    .file = "NQGenTLGev_DS_1_0_0.xml",
                                    .text = CreateXmlFileDataStream,
                                    .map = kDataStreamRows,
                                    .values = kStreamValues,
                                    .denied = 16};

/// The camera's own port has no map: it takes every address.
inline const PortRow kRemotePort = {.name = "RemoteDevice",
                                    .open = Make<OpenRemoteDevice>,
                                    .map = {.registers = {{0xA000, PortForm::Number, PortWriting::Stored, ""}}}};

} // namespace nq::test
