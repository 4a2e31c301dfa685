// SPDX-License-Identifier: Apache-2.0
// The port of the system module: its description and its register map, row by row.
#include "support/system_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <thread>

using namespace nq::test;
using testing::ElementsAre;

TEST(SystemPort, ItsPortAnswersAreFixed)
{
    SystemModule system;
    EXPECT_TRUE(system.IsPortImplemented());
    EXPECT_EQ(system.GetName(), "TLSystem");
    EXPECT_EQ(system.GetId(), "NQGenTLGevRDMA");
    EXPECT_EQ(system.GetParent(), nullptr);
    for (int event = -1; event < 4001; ++event)
    {
        EXPECT_FALSE(system.IsEventImplemented(event));
    }
    const GigERDMA::_NQ_GENTL_PORT_INFO info = system.GetPortInfo();
    EXPECT_EQ(info.id, "NQGenTLGevRDMA");
    EXPECT_EQ(info.vendor, "Nerquil Optic");
    EXPECT_EQ(info.model, "GEVRDMATL");
    EXPECT_EQ(info.tlType, "GEV");
    EXPECT_EQ(info.module, "TLSystem");
    EXPECT_EQ(info.portName, "TLPort");
    EXPECT_EQ(info.version, "2.5.5");
    EXPECT_TRUE(info.littleEndian && info.accessRead && info.accessWrite);
    EXPECT_FALSE(info.bigEndian || info.accessNA || info.accessNI);
}

TEST(SystemPort, XmlInfoIsTheSameAtEachCallAndOneLongerThanItsText)
{
    SystemModule system;
    const GigERDMA::_NQ_GENTL_XML_INFO info = system.GetXMLInfo();
    EXPECT_EQ(info.fileName, "NQGenTLGev_TL_1_0_0.xml");
    EXPECT_EQ(info.xml, CreateXmlFileSystem());
    EXPECT_EQ(info.size, info.xml.size() + 1);
    EXPECT_EQ(system.GetXMLInfo().xml, info.xml);
}

TEST(SystemPort, TheUrlNamesFileAddressAndLength)
{
    SystemModule system;
    char length[32];
    std::snprintf(length, sizeof length, "%zx", CreateXmlFileSystem().size());
    EXPECT_THAT(system.GetURLList(), ElementsAre("local:NQGenTLGev_TL_1_0_0.xml;10000;" + std::string(length)));
}

TEST(SystemPort, InterfaceIdIsRefusedWithoutASizeAndPastTheEnd)
{
    const TraceCapture trace;
    SystemModule system;
    char id[8] = "before";
    unsigned long size = sizeof id;
    EXPECT_EQ(system.GetInterfaceID(0, id, nullptr), -1009);
    EXPECT_EQ(system.GetInterfaceID(0, id, &size), -1017);
    EXPECT_STREQ(id, "before");
    EXPECT_EQ(size, sizeof id);
    EXPECT_THAT(trace.At(2),
                ElementsAre("GetInterfaceID GC_ERR_INVALID_PARAMETER", "GetInterfaceID GC_ERR_INVALID_INDEX"));
}

TEST(SystemPort, EveryRegisterReadsWhatItsRowSays)
{
    SystemModule system;
    system.Merge({Entry("one", "10.1.2.3"), Entry("two", "10.4.5.6")});
    EXPECT_EQ(ReadText(system, 0x50000), "Nerquil Optic");
    EXPECT_EQ(ReadText(system, 0x50100), "GEVRDMATL");
    EXPECT_EQ(ReadText(system, 0x50200), "NQGenTLGevRDMA");
    EXPECT_EQ(ReadText(system, 0x50300), "2.5.5");
    EXPECT_EQ(ReadText(system, 0x50400), system.OwnInfo(6).text);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50504), 1u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50508), 5u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x5050C), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50510), 0u);
    EXPECT_EQ(ReadText(system, 0x50514), "one");
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50614), 2u);
    EXPECT_EQ(ReadNumber<unsigned long>(system, 0x50618), 0x020A0B010203u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50620), 0x0A010203u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50624), 0xFFFF0000u);
    system.Select(1);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50510), 1u);
    EXPECT_EQ(ReadText(system, 0x50514), "two");
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50620), 0x0A040506u);
}

// Deliberate(GatewayReadsTheMask)
TEST(SystemPort, DeliberateTheGatewayRegisterReadsTheSubnetMask)
{
    SystemModule system;
    system.Merge({Entry("one")});
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50628), 0xFFFF0000u);
}

// Deliberate(PastTheEndIsEmpty)
TEST(SystemPort, DeliberatePastTheEndTheSelectionReadsEmptyWithSuccess)
{
    SystemModule system;
    system.Merge({Entry("one")});
    system.Select(1);
    EXPECT_EQ(ReadText(system, 0x50514), "");
    EXPECT_EQ(ReadNumber<unsigned long>(system, 0x50618), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50620), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50624), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50628), 0u);
}

TEST(SystemPort, TheMergeLeavesTheSelectorAlone)
{
    SystemModule system;
    system.Merge({Entry("a"), Entry("b")});
    system.Select(1);
    system.Merge({Entry("b")});
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x50510), 1u);
    EXPECT_EQ(ReadText(system, 0x50514), "");
}

TEST(SystemPort, TheDescriptionIsReadInFullOrInPartAndTheSizeStays)
{
    SystemModule system;
    const std::string xml = CreateXmlFileSystem();
    std::vector<char> buffer(xml.size() + 100, '#');
    unsigned long size = buffer.size();
    EXPECT_EQ(system.ReadPort(0x10000, buffer.data(), &size), 0);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(std::string(buffer.data()), xml);
    EXPECT_EQ(buffer[xml.size() + 1], '#') << "nothing behind the terminator";
    std::fill(buffer.begin(), buffer.end(), '#');
    size = 10;
    EXPECT_EQ(system.ReadPort(0x10000, buffer.data(), &size), 0);
    EXPECT_EQ(std::string(buffer.data(), 11), xml.substr(0, 10) + "#");
}

TEST(SystemPort, AddressesMatchExactly)
{
    SystemModule system;
    system.Merge({Entry("one")});
    for (const unsigned long address : {0x10001ul, 0x0FFFFul, 0x50001ul, 0x50500ul, 0x50505ul, 0x5050Dul, 0x50515ul,
                                        0x5061Cul, 0x50629ul, 0x5062Cul, 0ul, ~0ul})
    {
        EXPECT_EQ(ReadResult(system, address), -1015) << std::hex << address;
        EXPECT_EQ(WriteResult(system, address), -1015) << std::hex << address;
    }
}

TEST(SystemPort, WritesToReadOnlyRegistersAreDenied)
{
    SystemModule system;
    for (const unsigned long address : {0x10000ul, 0x50000ul, 0x50100ul, 0x50200ul, 0x50300ul, 0x50400ul, 0x50504ul,
                                        0x50508ul, 0x50514ul, 0x50614ul, 0x50618ul, 0x50620ul, 0x50624ul, 0x50628ul})
    {
        EXPECT_EQ(WriteResult(system, address), -1005) << std::hex << address;
    }
}

TEST(SystemPort, PortCallsNeedBufferAndSize)
{
    const TraceCapture trace;
    SystemModule system;
    unsigned int value = 0;
    unsigned long size = 4;
    EXPECT_EQ(system.ReadPort(0x50510, nullptr, &size), -1009);
    EXPECT_EQ(system.ReadPort(0x50510, &value, nullptr), -1009);
    EXPECT_EQ(system.WritePort(0x50510, nullptr, &size), -1009);
    EXPECT_EQ(system.WritePort(0x50510, &value, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("ReadPort failed! GC_ERR_INVALID_PARAMETER", "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER"));
}

// Deliberate(RegisterTakesAWord)
TEST(SystemPort, DeliberatelyTheSelectorTakesTheFirstFourBytesWhateverTheSizeSays)
{
    SystemModule system;
    ExpectWritesOfAnySizeStoreFourBytes(system, 0x50510);
}

TEST(SystemPort, WritingTheUpdateRegisterScansWhateverTheValue)
{
    AddAdapter("cam0", "02:00:00:00:00:01", "10.9.0.1/24");
    SystemModule system;
    EXPECT_EQ(WriteResult(system, 0x5050C, 0), 0);
    EXPECT_THAT(system.Ids(), ElementsAre("Linux Socket:02-00-00-00-00-01"));
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x5050C), 0u);
}

TEST(SystemPort, TheUpdateRegisterReadsOneWhileItsScanRuns)
{
    class Watched : public SystemModule
    {
      public:
        int UpdateInterfaceList(bool* changed, unsigned long timeout) override
        {
            // On another thread, since the module mutex would let its own thread through.
            std::thread([this] { during = ReadNumber<unsigned int>(*this, 0x5050C); }).join();
            changedGiven = changed != nullptr;
            timeoutGiven = timeout;
            return -1;
        }
        unsigned int during = 0;
        bool changedGiven = true;
        unsigned long timeoutGiven = 0;
    };
    Watched system;
    EXPECT_EQ(WriteResult(system, 0x5050C, 7), 0);
    EXPECT_EQ(system.during, 1u);
    EXPECT_FALSE(system.changedGiven);
    EXPECT_EQ(system.timeoutGiven, 5000u);
    EXPECT_EQ(ReadNumber<unsigned int>(system, 0x5050C), 0u);
}

TEST(SystemPort, TheUpdateRegisterReadsZeroAfterAScanThatThrew)
{
    class Throwing : public SystemModule
    {
      public:
        int UpdateInterfaceList(bool*, unsigned long) override { throw std::bad_alloc(); }
    };
    Throwing system;
    EXPECT_THROW(WriteResult(system, 0x5050C, 1), std::bad_alloc);
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
