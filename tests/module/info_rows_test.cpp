// SPDX-License-Identifier: Apache-2.0
// Every command of every info function on a whole tree of modules: value, type code and size, and what is written when
// the arguments do not fit.
#include "support/info_rows.h"
#include "support/open_tree.h"

#include <climits>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <set>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

using namespace nq::test;

namespace
{

constexpr char kDeviceName[] = "Model:02-00-00-00-00-09";

/// Commands around and behind every table.
std::set<int> AllCommands()
{
    std::set<int> commands = {INT_MIN, -1000, INT_MAX, 5000, 10000};
    const auto add = [&](int first, int last) {
        for (int command = first; command <= last; ++command)
        {
            commands.insert(command);
        }
    };
    add(-2, 40);
    add(998, 1040);
    add(0x9FFE, 0xA008);
    add(0xAFFE, 0xB00C);
    return commands;
}

/// Six hexadecimal pairs joined with "-".
std::string MacOf(const char* adapter)
{
    const int any = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, adapter, sizeof(request.ifr_name) - 1);
    EXPECT_EQ(ioctl(any, SIOCGIFHWADDR, &request), 0);
    close(any);
    unsigned char mac[6];
    std::memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    char text[18];
    std::snprintf(text, sizeof text, "%02x-%02x-%02x-%02x-%02x-%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

class InfoRows : public testing::Test
{
  protected:
    InfoRows()
    {
        tree.camera.SetMemory(0x00E8, "Left");
        tree.camera.SetRegister(0x0940, 0x3B9ACA00);
        tree.camera.SetRegister(0x093C, 0x00000001);
        tree.camera.SetRegister(0x064C, 0x0A090003);
        tree.camera.SetRegister(0x065C, 0xFFFF0000);
        tree.camera.SetRegister(0x066C, 0x0A0900FE);
        tree.camera.SetRegister(0x0A00, 2); // controlled
    }
    ~InfoRows() override { p.GCCloseLib(); }

    /// `rows` are the commands with an answer, all others give `otherwise`.
    static void ExpectTable(const std::string& name, const InfoQuery& ask, const std::vector<InfoRow>& rows,
                            int otherwise, Before before = Before::Clears)
    {
        SCOPED_TRACE(name);
        std::set<int> others = AllCommands();
        for (const InfoRow& row : rows)
        {
            ExpectRow(ask, row, before);
            others.erase(row.command);
        }
        for (const int command : others)
        {
            ExpectNoAnswer(ask, command, otherwise, before);
        }
    }

    std::vector<InfoRow> SystemRows() const
    {
        char path[PATH_MAX];
        EXPECT_NE(realpath(NQ_CTI_PATH, path), nullptr);
        return {TextRow(0, "NQGenTLGevRDMA"),
                TextRow(1, "Nerquil Optic"),
                TextRow(2, "GEVRDMATL"),
                TextRow(3, "2.5.5"),
                TextRow(4, "GEV"),
                TextRow(5, "nq_gev_tl_rdma.cti"),
                TextRow(6, path),
                TextRow(7, "NQO GigE RDMA TL Beta"),
                NumberRow(8, 5, 0),
                NumberRow(9, 6, 1U),
                NumberRow(10, 6, 5U)};
    }

    static std::vector<InfoRow> InterfaceRows()
    {
        const std::string mac = MacOf("cam0");
        return {TextRow(0, "Linux Socket:" + mac),
                TextRow(1, "cam0:10.9.0.1"),
                TextRow(2, "GEV"),
                TextRow(0xA000, mac),
                TextRow(0xA001, "10.9.0.1"),
                TextRow(0xA002, "255.255.255.0"),
                TextRow(0xA003, "")};
    }

    static std::vector<InfoRow> DeviceRows()
    {
        std::vector<InfoRow> rows = {
            TextRow(0, kDeviceName),
            TextRow(1, "Vendor"),
            TextRow(2, "Model"),
            TextRow(3, "GEV"),
            TextRow(4, "Model"),
            NumberRow(5, 5, 5),
            TextRow(6, "Left"),
            TextRow(7, "S1"),
            TextRow(8, "3.0.0"),
            NumberRow(9, 8, 0x0100000000CA9A3BUL), // each half in the order of the wire
            NumberRow(0xB006, 6, 0x0A090003U),
            NumberRow(0xB007, 6, 0xFFFF0000U),
            NumberRow(0xB008, 6, 0x0A0900FEU),
        };
        rows.push_back({0xB000, 8, {}, 8});
        for (int command = 0xB001; command <= 0xB005; ++command)
        {
            rows.push_back({command, 6, {}, 4});
        }
        return rows;
    }

    Producer p;
    OpenTree tree{p};
};

TEST_F(InfoRows, OfTheSystem)
{
    ExpectTable(
        "GCGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.GCGetInfo(c, t, b, s); }, SystemRows(), -1003);
    ExpectTable(
        "TLGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.TLGetInfo(tree.system, c, t, b, s); },
        SystemRows(), -1003);
}

TEST_F(InfoRows, OfAnOpenInterface)
{
    ExpectTable(
        "IFGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.IFGetInfo(tree.interface, c, t, b, s); },
        InterfaceRows(), -1003);
    ExpectTable(
        "TLGetInterfaceInfo",
        [&](int c, int* t, void* b, size_t* s) {
            return p.TLGetInterfaceInfo(tree.system, tree.interfaceId.c_str(), c, t, b, s);
        },
        InterfaceRows(), -1003);
}

TEST_F(InfoRows, OfAClosedInterface)
{
    ASSERT_EQ(p.IFClose(tree.interface), 0);
    ExpectTable(
        "TLGetInterfaceInfo",
        [&](int c, int* t, void* b, size_t* s) {
            return p.TLGetInterfaceInfo(tree.system, tree.interfaceId.c_str(), c, t, b, s);
        },
        InterfaceRows(), -1014);
}

TEST_F(InfoRows, OfAnOpenDevice)
{
    ExpectTable(
        "DevGetInfo", [&](int c, int* t, void* b, size_t* s) { return p.DevGetInfo(tree.device, c, t, b, s); },
        DeviceRows(), -1003);
    ExpectTable(
        "IFGetDeviceInfo",
        [&](int c, int* t, void* b, size_t* s) {
            return p.IFGetDeviceInfo(tree.interface, tree.deviceId.c_str(), c, t, b, s);
        },
        DeviceRows(), -1003);
}

TEST_F(InfoRows, OfAClosedDevice)
{
    ASSERT_EQ(p.DevClose(tree.device), 0);
    ExpectTable(
        "IFGetDeviceInfo",
        [&](int c, int* t, void* b, size_t* s) {
            return p.IFGetDeviceInfo(tree.interface, tree.deviceId.c_str(), c, t, b, s);
        },
        {TextRow(0, kDeviceName), TextRow(1, "Vendor"), TextRow(2, "Model"), TextRow(3, "GEV"), TextRow(4, "Model"),
         NumberRow(5, 5, 1), TextRow(6, ""), TextRow(7, "S1"), TextRow(8, "3.0.0"),
         NumberRow(0xB000, 8, 0x020000000009UL), NumberRow(0xB001, 6, 0x0A090002U), NumberRow(0xB002, 6, 0xFFFFFF00U),
         NumberRow(0xB003, 6, 0U), NumberRow(0xB004, 6, 0U), NumberRow(0xB005, 6, 0U)},
        -1003);
}

TEST_F(InfoRows, OfADataStream)
{
    // The payload size stands in the camera's settings, in the order of the host.
    tree.camera.SetMemory(0xE620, nq::test::Bytes{0x21, 0x43, 0x65, 0x87, 0x09, 0, 0, 0});
    const InfoQuery ask = [&](int c, int* t, void* b, size_t* s) { return p.DSGetInfo(tree.stream, c, t, b, s); };
    for (const int command : {6, 11, 13})
    {
        ExpectNoAnswer(ask, command, -1003, Before::Clears);
    }
    const std::vector<InfoRow> rows = {
        TextRow(0, "0"),        NumberRow(1, 8, 0UL),  NumberRow(2, 8, 0UL),          NumberRow(3, 12, 0UL),
        NumberRow(4, 12, 0UL),  NumberRow(5, 12, 0UL), NumberRow(7, 7, 0x987654321L), NumberRow(8, 11, false),
        NumberRow(9, 11, true), TextRow(10, "GEV"),    NumberRow(12, 12, 1UL)};
    for (const InfoRow& row : rows)
    {
        ExpectRow(ask, row, Before::Clears);
    }
    std::set<int> others = AllCommands();
    std::erase_if(others, [](int command) { return command >= 0 && command <= 13; });
    for (const int command : others)
    {
        ExpectNoAnswer(ask, command, -1001, Before::Clears);
    }
}

TEST_F(InfoRows, OfABufferWithoutAFrame)
{
    unsigned char memory[48];
    int user = 0;
    void* buffer = nullptr;
    ASSERT_EQ(p.DSAnnounceBuffer(tree.stream, memory, sizeof memory, &user, &buffer), 0);
    ASSERT_EQ(p.DSQueueBuffer(tree.stream, buffer), 0);
    const InfoQuery ask = [&](int c, int* t, void* b, size_t* s) {
        return p.DSGetBufferInfo(tree.stream, buffer, c, t, b, s);
    };
    const std::set<int> ofTheFrame = {3, 9, 10, 11, 16, 20};
    for (const int command : ofTheFrame)
    {
        ExpectNoAnswer(ask, command, -1014, Before::Clears);
    }
    std::set<int> others = AllCommands();
    for (const InfoRow& row :
         {NumberRow(0, 10, &memory[0]), NumberRow(1, 12, 48UL), NumberRow(2, 10, &user), NumberRow(4, 11, false),
          NumberRow(5, 11, true), NumberRow(6, 11, false), NumberRow(7, 11, false), TextRow(8, "GEV"),
          NumberRow(17, 11, false), NumberRow(19, 12, 1UL), NumberRow(30, 11, false)})
    {
        ExpectRow(ask, row, Before::Clears);
        others.erase(row.command);
    }
    for (const int command : others)
    {
        if (!ofTheFrame.contains(command))
        {
            ExpectNoAnswer(ask, command, -1003, Before::Clears);
        }
    }
}

TEST_F(InfoRows, OfEachKindOfEvent)
{
    struct Kind
    {
        void* source;
        int id;
        unsigned long eventSizeMax;
        unsigned long infoDataSizeMax;
    };
    for (const Kind& kind :
         {Kind{tree.interface, 0, 1028, 1024}, Kind{tree.stream, 1, 16, 8}, Kind{tree.device, 4, 546, 540},
          Kind{tree.device, 5, 548, 540}, Kind{tree.stream, 5, 548, 540}, Kind{tree.device, 4000, 260, 256}})
    {
        void* event = nullptr;
        ASSERT_EQ(p.GCRegisterEvent(kind.source, kind.id, &event), 0);
        ExpectTable(
            "EventGetInfo of event " + std::to_string(kind.id),
            [&](int c, int* t, void* b, size_t* s) { return p.EventGetInfo(event, c, t, b, s); },
            {NumberRow(0, 5, kind.id), NumberRow(1, 12, 0UL), NumberRow(3, 12, kind.eventSizeMax),
             NumberRow(4, 12, kind.infoDataSizeMax)},
            -1003);
    }
}

TEST_F(InfoRows, ABufferForAnEventOfEachKindIsTooSmallByAByteOrEnough)
{
    struct Kind
    {
        void* source;
        int id;
        size_t record;
    };
    for (const Kind& kind : {Kind{tree.interface, 0, 1028}, Kind{tree.stream, 1, 16}, Kind{tree.device, 4, 546},
                             Kind{tree.device, 5, 548}, Kind{tree.device, 4000, 260}})
    {
        SCOPED_TRACE(kind.id);
        void* event = nullptr;
        ASSERT_EQ(p.GCRegisterEvent(kind.source, kind.id, &event), 0);
        for (const size_t space : {size_t{0}, kind.record - 1})
        {
            Guarded buffer(space);
            size_t size = space;
            EXPECT_EQ(p.EventGetData(event, buffer.Data(), &size, UINT64_MAX), -1016) << "before any wait";
            EXPECT_EQ(size, kind.record);
            EXPECT_EQ(buffer.Bytes(), std::string(space, '\xA5'));
            EXPECT_TRUE(buffer.IsIntact());
        }
        Guarded buffer(kind.record);
        size_t size = kind.record;
        EXPECT_EQ(p.EventGetData(event, buffer.Data(), &size, 0), -1011);
        EXPECT_EQ(size, kind.record);
        EXPECT_TRUE(buffer.IsIntact());
    }
}

TEST_F(InfoRows, OfTheRecordOfEachKindOfEvent)
{
    unsigned char record[1028];
    std::memset(record, 0, sizeof record);
    std::memcpy(record, "\x08\x07\x06\x05\x04\x03\x02\x01text", 12);
    void* handle = nullptr;
    std::memcpy(&handle, record, sizeof handle);
    void* user = nullptr;
    std::memcpy(&user, record + 8, sizeof user);
    const std::string bytes(reinterpret_cast<const char*>(record), sizeof record);

    struct Kind
    {
        void* source;
        int id;
        std::vector<InfoRow> rows;
    };
    const std::string behindCode = std::string("\x04\x03\x02\x01text");
    const std::vector<Kind> kinds = {
        {tree.interface, 0, {NumberRow(0, 5, 0x05060708), TextRow(1, behindCode), NumberRow(2, 5, 0x05060708)}},
        {tree.stream, 1, {NumberRow(0, 10, handle), NumberRow(1, 10, user), NumberRow(2, 12, &record[0])}},
        {tree.device, 4, {TextRow(0, "05060708"), {1, 13, bytes.substr(6, 540)}, NumberRow(2, 6, 0x05060708U)}},
        {tree.device,
         5,
         {NumberRow(0, 8, 0x0102030405060708UL), NumberRow(1, 10, &record[8]), NumberRow(2, 8, 0x0102030405060708UL)}},
        {tree.device, 4000, {NumberRow(0, 5, 0x05060708), TextRow(1, behindCode), NumberRow(2, 5, 0x05060708)}},
    };
    for (const Kind& kind : kinds)
    {
        void* event = nullptr;
        ASSERT_EQ(p.GCRegisterEvent(kind.source, kind.id, &event), 0);
        ExpectTable(
            "EventGetDataInfo of event " + std::to_string(kind.id),
            [&](int c, int* t, void* b, size_t* s) {
                return p.EventGetDataInfo(event, record, sizeof record, c, t, b, s);
            },
            kind.rows, -1003);
    }
}

TEST_F(InfoRows, OfEachPort)
{
    void* remote = nullptr;
    ASSERT_EQ(p.DevGetPort(tree.device, &remote), 0);
    struct Port
    {
        void* handle;
        const char* module;
        const char* version;
        const char* name;
        bool littleEndian;
    };
    for (const Port& port : {Port{tree.system, "TLSystem", "2.5.5", "TLPort", true},
                             Port{tree.interface, "TLInterface", "2.5.5", "InterfacePort", true},
                             Port{tree.device, "TLDevice", "2.5.4", "DevicePort", true},
                             Port{tree.stream, "TLDataStream", "2.5.5", "StreamPort", true},
                             Port{remote, "Device", "2.5.5", "Device", false}})
    {
        ExpectTable(
            std::string("GCGetPortInfo of ") + port.name,
            [&](int c, int* t, void* b, size_t* s) { return p.GCGetPortInfo(port.handle, c, t, b, s); },
            {TextRow(0, "NQGenTLGevRDMA"), TextRow(1, "Nerquil Optic"), TextRow(2, "GEVRDMATL"), TextRow(3, "GEV"),
             TextRow(4, port.module), NumberRow(5, 11, port.littleEndian), NumberRow(6, 11, !port.littleEndian),
             NumberRow(7, 11, true), NumberRow(8, 11, true), NumberRow(9, 11, false), NumberRow(10, 11, false),
             TextRow(11, port.version), TextRow(12, port.name)},
            -1003);
    }
}

TEST_F(InfoRows, OfEachUrl)
{
    const std::vector<std::pair<void*, std::string>> ports = {{tree.system, "NQGenTLGev_TL_1_0_0.xml"},
                                                              {tree.interface, "NQGenTLGev_IF_1_0_0.xml"},
                                                              {tree.device, "NQGenTLGev_DEV_1_0_0.xml"},
                                                              {tree.stream, "NQGenTLGev_DS_1_0_0.xml"}};
    for (const auto& [port, file] : ports)
    {
        std::string text(1 << 20, '\0');
        size_t size = text.size();
        ASSERT_EQ(p.GCReadPort(port, 0x10000, text.data(), &size), 0);
        char url[128];
        std::snprintf(url, sizeof url, "local:%s;10000;%zx", file.c_str(), std::strlen(text.c_str()));
        const InfoQuery ask = [&, port = port](int c, int* t, void* b, size_t* s) {
            return p.GCGetPortURLInfo(port, 0, c, t, b, s);
        };
        ExpectTable("GCGetPortURLInfo of " + file, ask, {TextRow(0, url)}, -1003, Before::LeavesAlone);
    }
}

} // namespace
