// SPDX-License-Identifier: Apache-2.0
// The rules of the modules' ports, each for all of them against their rows, and where one module differs from its rows.
#include "support/module_queries.h"
#include "support/port_rows.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <map>
#include <set>
#include <thread>

using namespace nq::test;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

std::string NameOf(const testing::TestParamInfo<PortRow>& info)
{
    return info.param.name;
}

/// Names the failing row of a case that goes through all of them.
std::string At(unsigned long address)
{
    char text[40];
    std::snprintf(text, sizeof text, "address 0x%lX", address);
    return text;
}

/// All five modules.
class AnyPort : public testing::TestWithParam<PortRow>
{
  protected:
    std::unique_ptr<OpenModule> open = GetParam().open();
    GigERDMA::NQGenTLModuleBase& module = open->Module();
};

/// The four that serve a register map of their own.
class Port : public AnyPort
{
  protected:
    /// Every address from the first of the module's registers to far behind the last, and some elsewhere.
    static std::vector<unsigned long> Addresses()
    {
        std::vector<unsigned long> addresses = {0x0,         0x4,         0xFFFF,      0x4FFFF, 0x5FFFF, 0x6FFFF,
                                                0x7FFFF,     0x10000,     0x10001,     0x10100, 0x10104, 0x100050000,
                                                0x100060000, 0x100070000, 0x100080000, ~0UL};
        for (const unsigned long first : {0x50000UL, 0x60000UL, 0x70000UL, 0x80000UL})
        {
            addresses.push_back(first);
            addresses.push_back(first + 1);
        }
        const unsigned long first = GetParam().values.begin()->first;
        for (unsigned long address = first + 2; address < first + 0x700; ++address)
        {
            addresses.push_back(address);
        }
        return addresses;
    }
};

TEST_P(AnyPort, NeedsBufferAndSizeForEveryAccess)
{
    std::vector<std::string> expected;
    const TraceCapture trace;
    for (const RegisterRow& row : GetParam().map.registers)
    {
        SCOPED_TRACE(At(row.address));
        unsigned int value = 0;
        unsigned long size = 4;
        EXPECT_EQ(module.ReadPort(row.address, nullptr, &size), -1009);
        EXPECT_EQ(module.ReadPort(row.address, &value, nullptr), -1009);
        EXPECT_EQ(module.WritePort(row.address, nullptr, &size), -1009);
        EXPECT_EQ(module.WritePort(row.address, &value, nullptr), -1009);
        for (const char* const operation : {"ReadPort", "ReadPort", "WritePort", "WritePort"})
        {
            expected.push_back(std::string(operation) + " failed! GC_ERR_INVALID_PARAMETER");
        }
    }
    EXPECT_EQ(TraceCapture::At(2), expected);
    EXPECT_THAT(open->CameraAccesses(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Modules, AnyPort,
                         testing::Values(kSystemPort, kInterfacePort, kDevicePort, kStreamPort, kRemotePort), NameOf);

// Deliberate(PortVersionOfItsOwn)
TEST_P(Port, TellsItsIdentityOfWhichOnlyTheDeviceHasAVersionOfItsOwn)
{
    EXPECT_TRUE(module.IsPortImplemented());
    EXPECT_EQ(module.GetId(), GetParam().id);
    EXPECT_EQ(module.GetName(), GetParam().module);
    for (int event = -1; event <= 5000; ++event)
    {
        EXPECT_EQ(module.IsEventImplemented(event), GetParam().events.count(event) == 1) << event;
    }
    const GigERDMA::_NQ_GENTL_PORT_INFO info = module.GetPortInfo();
    EXPECT_EQ(info.id, "NQGenTLGevRDMA");
    EXPECT_EQ(info.vendor, "Nerquil Optic");
    EXPECT_EQ(info.model, "GEVRDMATL");
    EXPECT_EQ(info.tlType, "GEV");
    EXPECT_EQ(info.module, GetParam().module);
    EXPECT_EQ(info.portName, GetParam().portName);
    EXPECT_EQ(info.version, GetParam().version);
    EXPECT_TRUE(info.littleEndian && info.accessRead && info.accessWrite);
    EXPECT_FALSE(info.bigEndian || info.accessNA || info.accessNI);
}

TEST_P(Port, OffersItsDescriptionUnderOneLocalUrlTheSameAtEachCall)
{
    const GigERDMA::_NQ_GENTL_XML_INFO info = module.GetXMLInfo();
    EXPECT_EQ(info.fileName, GetParam().file);
    EXPECT_EQ(info.xml, GetParam().text());
    EXPECT_EQ(info.size, info.xml.size() + 1);
    EXPECT_EQ(module.GetXMLInfo().xml, info.xml);
    char length[32];
    std::snprintf(length, sizeof length, "%zx", info.xml.size());
    EXPECT_THAT(module.GetURLList(), ElementsAre("local:" + GetParam().file + ";10000;" + length));
}

TEST_P(Port, TheDescriptionIsReadInFullOrInPartAndTheSizeStays)
{
    const std::string xml = GetParam().text();
    std::vector<char> buffer(xml.size() + 100, '#');
    unsigned long size = buffer.size();
    EXPECT_EQ(module.ReadPort(0x10000, buffer.data(), &size), 0);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(std::string(buffer.data()), xml);
    EXPECT_EQ(buffer[xml.size() + 1], '#') << "nothing behind the terminator";
    for (const unsigned long part : {0UL, 5UL, 10UL})
    {
        std::fill(buffer.begin(), buffer.end(), '#');
        size = part;
        EXPECT_EQ(module.ReadPort(0x10000, buffer.data(), &size), 0);
        EXPECT_EQ(size, part);
        EXPECT_EQ(std::string(buffer.data(), part + 1), xml.substr(0, part) + "#");
    }
}

TEST_P(Port, EveryRegisterReadsItsFirstValueInItsForm)
{
    PortValues read;
    for (const RegisterRow& row : GetParam().map.registers)
    {
        if (row.form == PortForm::Text)
        {
            read[row.address] = ReadText(module, row.address);
        }
        else if (row.form == PortForm::Number)
        {
            read[row.address] = static_cast<unsigned long>(ReadNumber<unsigned int>(module, row.address));
        }
        else if (row.form == PortForm::Long)
        {
            read[row.address] = ReadNumber<unsigned long>(module, row.address);
            unsigned long value = 0;
            unsigned long size = 4;
            EXPECT_EQ(module.ReadPort(row.address, &value, &size), -1016) << At(row.address);
            EXPECT_EQ(size, 8U) << At(row.address);
        }
    }
    read.erase(0x50400); // the path of the library, which depends on where the test runs
    EXPECT_EQ(read, GetParam().values);
}

// Deliberate(EventRegistersAreNotServed)
// Deliberate(UpdateStatusIsDenied)
TEST_P(Port, ARowWithoutAReadAndEveryAddressWhereNoneBeginsCannotBeRead)
{
    std::set<unsigned long> served;
    for (const RegisterRow& row : GetParam().map.registers)
    {
        if (row.form != PortForm::None)
        {
            served.insert(row.address);
        }
    }
    std::size_t found = 0;
    for (const unsigned long address : Addresses())
    {
        EXPECT_EQ(ReadResult(module, address), served.count(address) == 1 ? 0 : -1015) << At(address);
        found += served.count(address);
    }
    EXPECT_EQ(found, served.size()) << "the addresses take in all rows";
}

TEST_P(Port, AWriteIsDeniedByAReadOnlyRowAndInvalidWhereNoneBegins)
{
    std::map<unsigned long, PortWriting> writing;
    for (const RegisterRow& row : GetParam().map.registers)
    {
        writing[row.address] = row.writing;
    }
    std::size_t denied = 0;
    for (const unsigned long address : Addresses())
    {
        const auto row = writing.find(address);
        if (row == writing.end() || row->second == PortWriting::None)
        {
            EXPECT_EQ(WriteResult(module, address, 1), -1015) << At(address);
        }
        else if (row->second == PortWriting::Denied)
        {
            EXPECT_EQ(WriteResult(module, address, 1), -1005) << At(address);
            ++denied;
        }
    }
    EXPECT_EQ(denied, GetParam().denied) << "the addresses take in all rows";
}

// Deliberate(RegisterTakesAWord)
TEST_P(Port, DeliberatelyAStoredNumberTakesTheFirstFourBytesWhateverTheSizeSays)
{
    std::size_t stored = 0;
    for (const RegisterRow& row : GetParam().map.registers)
    {
        if (row.writing == PortWriting::Stored)
        {
            SCOPED_TRACE(At(row.address));
            ExpectWritesOfAnySizeStoreFourBytes(module, row.address);
            ++stored;
        }
    }
    EXPECT_GE(stored, 1U);
}

INSTANTIATE_TEST_SUITE_P(Modules, Port, testing::Values(kSystemPort, kInterfacePort, kDevicePort, kStreamPort), NameOf);

// ---- the system's own

TEST(SystemPort, ThePathIsThatOfItsInfo)
{
    OpenSystem open;
    EXPECT_EQ(ReadText(open.system, 0x50400), open.system.OwnInfo(6).text);
    EXPECT_EQ(open.system.GetParent(), nullptr);
}

TEST(SystemPort, TheSelectorChoosesTheInterfaceAndAMergeLeavesItAlone)
{
    OpenSystem open;
    open.system.Select(1);
    EXPECT_EQ(ReadNumber<unsigned int>(open.system, 0x50510), 1u);
    EXPECT_EQ(ReadText(open.system, 0x50514), "two");
    EXPECT_EQ(ReadNumber<unsigned int>(open.system, 0x50620), 0x0A040506u);
    open.system.Merge({Entry("two")});
    EXPECT_EQ(ReadNumber<unsigned int>(open.system, 0x50510), 1u);
    EXPECT_EQ(ReadText(open.system, 0x50514), "");
}

// Deliberate(GatewayReadsTheMask)
TEST(SystemPort, DeliberateTheGatewayRegisterReadsTheSubnetMask)
{
    OpenSystem open;
    EXPECT_EQ(ReadNumber<unsigned int>(open.system, 0x50628), 0xFFFF0000u);
}

// Deliberate(PastTheEndIsEmpty)
TEST(SystemPort, DeliberatePastTheEndTheSelectionReadsEmptyWithSuccess)
{
    SystemModule system;
    system.Merge({Entry("one")});
    system.Select(1);
    EXPECT_EQ(ReadText(system, 0x50514), "");
    EXPECT_EQ(ReadNumber<unsigned long>(system, 0x50618), 0u);
    for (const unsigned long address : {0x50620ul, 0x50624ul, 0x50628ul})
    {
        EXPECT_EQ(ReadNumber<unsigned int>(system, address), 0u) << At(address);
    }
}

TEST(SystemPort, WritingTheUpdateRegisterScansWhateverTheValue)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    EXPECT_EQ(WriteResult(system, 0x5050C, 0), 0);
    EXPECT_THAT(system.Ids(), ElementsAre("Linux Socket:02-00-00-00-00-01"));
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x5050C), 0u);
}

// Deliberate(AddressPredicateIsShort)
TEST(SystemPort, DeliberateTheAddressPredicateMissesTheLastFourRegisters)
{
    std::vector<unsigned long> valid;
    for (unsigned long address = 0; address < 0x60000; ++address)
    {
        if (NQGevSystem::_isAddressValid(address))
        {
            valid.push_back(address);
        }
    }
    EXPECT_THAT(valid, ElementsAre(0x10000, 0x50000, 0x50100, 0x50200, 0x50300, 0x50400, 0x50504, 0x50508, 0x5050C,
                                   0x50510, 0x50514, 0x50614));
}

// ---- the interface's own

TEST(InterfacePort, TheSelectorChoosesTheDeviceAndAMergeLeavesItAlone)
{
    OpenInterface open;
    open.interface.Select(1);
    EXPECT_EQ(ReadNumber<unsigned int>(open.interface, 0x60108), 1u);
    EXPECT_EQ(ReadText(open.interface, 0x6010C), "two");
    EXPECT_EQ(ReadText(open.interface, 0x6020C), "Nerquil");
    open.interface.Merge({Device("two")});
    EXPECT_EQ(ReadNumber<unsigned int>(open.interface, 0x60108), 1u);
    EXPECT_EQ(ReadText(open.interface, 0x6010C), "");
}

// Deliberate(MaskReadsTheGateway)
TEST(InterfacePort, DeliberateGatewaySubnetAddressAndMaskReadTheUnknownGateway)
{
    InterfaceModule module;
    _NQ_GEV_INTERFACE_INFO info = Adapter();
    info.gateway = "10.9.0.254";
    InterfaceModule withGateway(info);
    for (const unsigned long address : {0x6041Cul, 0x60434ul, 0x60438ul})
    {
        EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0u) << At(address);
        EXPECT_EQ(ReadNumber<unsigned int>(withGateway, address), 0x0A0900FEu) << At(address);
    }
}

// Deliberate(PastTheEndIsEmpty)
TEST(InterfacePort, DeliberatePastTheEndTheSelectionReadsEmptyWithSuccess)
{
    InterfaceModule module;
    module.Merge({Device("one")});
    module.Select(1);
    for (const unsigned long address : {0x6010Cul, 0x6020Cul, 0x6030Cul})
    {
        EXPECT_EQ(ReadText(module, address), "") << At(address);
    }
    for (const unsigned long address : {0x6040Cul, 0x6043Cul, 0x60440ul})
    {
        EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0u) << At(address);
    }
    EXPECT_EQ(ReadNumber<unsigned long>(module, 0x60444), 0u);
}

// Deliberate(SelectorsReadZero)
TEST(InterfacePort, AWriteToASelectorSucceedsAndAReadStillGivesZero)
{
    InterfaceModule module;
    for (const unsigned long selector : {0x60414ul, 0x60428ul})
    {
        EXPECT_EQ(WriteResult(module, selector, 5), 0) << At(selector);
        EXPECT_EQ(ReadNumber<unsigned int>(module, selector), 0u) << At(selector);
    }
}

// Deliberate(WriteWithoutARegister)
TEST(InterfacePort, DeliberateAWriteWhereNoRegisterLiesSucceedsAt60448Alone)
{
    InterfaceModule module;
    EXPECT_EQ(WriteResult(module, 0x60448), 0);
    EXPECT_EQ(ReadResult(module, 0x60448), -1015);
    EXPECT_EQ(WriteResult(module, 0x6044C), -1015);
    EXPECT_EQ(WriteResult(module, 0x60424), -1015);
}

// ---- the update registers of system and interface

/// A module whose scan looks at its own update register.
template <typename Base, unsigned long Register>
struct Watched : Base
{
    int Scan(bool* changed, unsigned long timeout)
    {
        // On another thread, since the module mutex would let its own thread through.
        std::thread([this] { during = ReadNumber<unsigned int>(*this, Register); }).join();
        changedGiven = changed != nullptr;
        timeoutGiven = timeout;
        return throws ? throw std::bad_alloc() : -1;
    }

    bool throws = false;
    unsigned int during = 0;
    bool changedGiven = true;
    unsigned long timeoutGiven = 0;
};

struct WatchedSystem : Watched<SystemModule, 0x5050C>
{
    int UpdateInterfaceList(bool* changed, unsigned long timeout) override { return Scan(changed, timeout); }
};

struct WatchedInterface : Watched<InterfaceModule, 0x60104>
{
    int UpdateDeviceList(bool* changed, unsigned long timeout) override { return Scan(changed, timeout); }
};

template <typename Module>
void ExpectAScanOfFiveSecondsMeanwhileOne(unsigned long address, unsigned int written)
{
    Module module;
    EXPECT_EQ(WriteResult(module, address, written), 0);
    EXPECT_EQ(module.during, 1u);
    EXPECT_FALSE(module.changedGiven);
    EXPECT_EQ(module.timeoutGiven, 5000u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0u);
}

template <typename Module>
void ExpectZeroAfterAScanThatThrew(unsigned long address)
{
    Module module;
    module.throws = true;
    EXPECT_THROW(WriteResult(module, address, 1), std::bad_alloc);
    EXPECT_EQ(module.during, 1u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0u);
}

TEST(UpdateRegister, ScansForFiveSecondsAndReadsOneMeanwhile)
{
    ExpectAScanOfFiveSecondsMeanwhileOne<WatchedSystem>(0x5050C, 7);
    ExpectAScanOfFiveSecondsMeanwhileOne<WatchedInterface>(0x60104, 0);
}

TEST(UpdateRegister, ReadsZeroAfterAScanThatThrew)
{
    ExpectZeroAfterAScanThatThrew<WatchedSystem>(0x5050C);
    ExpectZeroAfterAScanThatThrew<WatchedInterface>(0x60104);
}

// ---- the device's own

TEST(DevicePort, EventNotificationIsStored)
{
    OpenDevice open;
    EXPECT_EQ(WriteResult(open.device, 0x70530, 0), 0);
    EXPECT_EQ(ReadNumber<unsigned int>(open.device, 0x70530), 0U);
}

TEST(DevicePort, ASelectorPastTheStreamsReadsAnEmptyIdWithSuccess)
{
    OpenDevice open;
    EXPECT_EQ(WriteResult(open.device, 0x70304, 3), 0);
    EXPECT_EQ(ReadNumber<unsigned int>(open.device, 0x70304), 3U);
    EXPECT_EQ(ReadText(open.device, 0x70308), "");
}

TEST(DevicePort, TheUpdateFileTextIsStoredWithoutATerminator)
{
    OpenDevice open;
    const auto write = [&open](const std::string& text) {
        unsigned long size = text.size();
        return open.device.WritePort(0x7041C, text.data(), &size);
    };
    EXPECT_EQ(write("camera.xml"), 0);
    EXPECT_EQ(ReadText(open.device, 0x7041C), "camera.xml");
    EXPECT_EQ(write("ab"), 0);
    EXPECT_EQ(ReadText(open.device, 0x7041C), "abmera.xml");
    EXPECT_EQ(write(std::string(600, 'z')), 0);
    EXPECT_EQ(ReadText(open.device, 0x7041C), std::string(512, 'z'));
}

TEST(DevicePort, TheUpdateCommandIsAcceptedWithoutEffect)
{
    OpenDevice open;
    EXPECT_EQ(WriteResult(open.device, 0x7052C, 1), 0);
    EXPECT_EQ(ReadNumber<unsigned int>(open.device, 0x7052C), 0U);
}

// ---- the data stream's own

// Deliberate(CountersHaveEightBytes)
TEST(StreamPort, ACounterReadWithTheFourBytesOfTheMapFailsWithTheSizeNeeded)
{
    OpenStream open;
    for (const unsigned long address : {0x80110UL, 0x80114UL})
    {
        std::uint64_t value = 0;
        unsigned long size = 4;
        EXPECT_EQ(open.stream->ReadPort(address, &value, &size), -1016);
        EXPECT_EQ(size, 8U);
        EXPECT_EQ(open.Read64(address), 0U);
    }
}

// Deliberate(HandlingModeIsDropped)
TEST(StreamPort, TheBufferHandlingModeTakesAnyWriteAndStaysOldestFirst)
{
    OpenStream open;
    EXPECT_EQ(open.Write(0x80104, std::uint32_t{2}), 0);
    EXPECT_EQ(open.Write(0x80104, std::uint8_t{1}), 0);
    EXPECT_EQ(open.Read32(0x80104), 0U);
}

} // namespace
