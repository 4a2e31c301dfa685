// SPDX-License-Identifier: Apache-2.0
// The port of the interface module: its description and its register map, row by row.
#include "support/interface_module.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>
#include <thread>

using namespace nq::test;
using testing::ElementsAre;

TEST(InterfacePort, EveryRegisterReadsWhatItsRowSays)
{
    InterfaceModule module;
    module.Merge({Device("one"), Device("two", "Nerquil")});
    EXPECT_EQ(ReadText(module, 0x60000), "Linux Socket:02-00-00-00-00-01");
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60104), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60108), 0u);
    EXPECT_EQ(ReadText(module, 0x6010C), "one");
    EXPECT_EQ(ReadText(module, 0x6020C), "vendor");
    EXPECT_EQ(ReadText(module, 0x6030C), "model of one");
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6040C), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60410), 2u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60414), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60418), 1u);
    EXPECT_EQ(ReadNumber<unsigned long>(module, 0x60420), 0x020A0B010203u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60428), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60430), 1u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6043C), 0x0A090005u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60440), 0xFFFFFF00u);
    EXPECT_EQ(ReadNumber<unsigned long>(module, 0x60444), 0x020A0B010203u);
    module.Select(1);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60108), 1u);
    EXPECT_EQ(ReadText(module, 0x6010C), "two");
    EXPECT_EQ(ReadText(module, 0x6020C), "Nerquil");
}

// Deliberate(MaskReadsTheGateway)
TEST(InterfacePort, DeliberateGatewaySubnetAddressAndMaskReadTheUnknownGateway)
{
    InterfaceModule module;
    for (const unsigned long address : {0x6041Cul, 0x60434ul, 0x60438ul})
    {
        EXPECT_EQ(ReadNumber<unsigned int>(module, address), 0u) << std::hex << address;
    }
    _NQ_GEV_INTERFACE_INFO info = Adapter();
    info.gateway = "10.9.0.254";
    InterfaceModule withGateway(info);
    for (const unsigned long address : {0x6041Cul, 0x60434ul, 0x60438ul})
    {
        EXPECT_EQ(ReadNumber<unsigned int>(withGateway, address), 0x0A0900FEu) << std::hex << address;
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
        EXPECT_EQ(ReadText(module, address), "") << std::hex << address;
    }
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6040C), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x6043C), 0u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60440), 0u);
    EXPECT_EQ(ReadNumber<unsigned long>(module, 0x60444), 0u);
}

TEST(InterfacePort, TheMergeLeavesTheSelectorAlone)
{
    InterfaceModule module;
    module.Merge({Device("one"), Device("two")});
    module.Select(1);
    module.Merge({Device("two")});
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60108), 1u);
    EXPECT_EQ(ReadText(module, 0x6010C), "");
}

TEST(InterfacePort, TheDescriptionIsReadInFullOrInPartAndTheSizeStays)
{
    InterfaceModule module;
    const std::string xml = CreateXmlFileInterface();
    std::vector<char> buffer(xml.size() + 100, '#');
    unsigned long size = buffer.size();
    EXPECT_EQ(module.ReadPort(0x10000, buffer.data(), &size), 0);
    EXPECT_EQ(size, buffer.size());
    EXPECT_EQ(std::string(buffer.data()), xml);
    EXPECT_EQ(buffer[xml.size() + 1], '#');
    std::fill(buffer.begin(), buffer.end(), '#');
    size = 10;
    EXPECT_EQ(module.ReadPort(0x10000, buffer.data(), &size), 0);
    EXPECT_EQ(std::string(buffer.data(), 11), xml.substr(0, 10) + "#");
}

// Deliberate(SelectorsReadZero)
TEST(InterfacePort, AWriteToASelectorSucceedsAndAReadStillGivesZero)
{
    InterfaceModule module;
    for (const unsigned long selector : {0x60414ul, 0x60428ul})
    {
        EXPECT_EQ(WriteResult(module, selector, 5), 0) << std::hex << selector;
        EXPECT_EQ(ReadNumber<unsigned int>(module, selector), 0u) << std::hex << selector;
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

TEST(InterfacePort, AddressesMatchExactly)
{
    InterfaceModule module;
    module.Merge({Device("one")});
    for (const unsigned long address :
         {0x10001ul, 0x60001ul, 0x60100ul, 0x60105ul, 0x6010Dul, 0x60424ul, 0x6042Cul, 0x60445ul, 0x50000ul, ~0ul})
    {
        EXPECT_EQ(ReadResult(module, address), -1015) << std::hex << address;
        EXPECT_EQ(WriteResult(module, address), -1015) << std::hex << address;
    }
}

TEST(InterfacePort, WritesToReadOnlyRegistersAreDenied)
{
    InterfaceModule module;
    for (const unsigned long address :
         {0x10000ul, 0x60000ul, 0x6010Cul, 0x6020Cul, 0x6030Cul, 0x6040Cul, 0x60410ul, 0x60418ul, 0x6041Cul, 0x60420ul,
          0x60430ul, 0x60434ul, 0x60438ul, 0x6043Cul, 0x60440ul, 0x60444ul})
    {
        EXPECT_EQ(WriteResult(module, address), -1005) << std::hex << address;
    }
}

TEST(InterfacePort, PortCallsNeedBufferAndSize)
{
    const TraceCapture trace;
    InterfaceModule module;
    unsigned int value = 0;
    unsigned long size = 4;
    EXPECT_EQ(module.ReadPort(0x60108, nullptr, &size), -1009);
    EXPECT_EQ(module.ReadPort(0x60108, &value, nullptr), -1009);
    EXPECT_EQ(module.WritePort(0x60108, nullptr, &size), -1009);
    EXPECT_EQ(module.WritePort(0x60108, &value, nullptr), -1009);
    EXPECT_THAT(trace.At(2),
                ElementsAre("ReadPort failed! GC_ERR_INVALID_PARAMETER", "ReadPort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER",
                            "WritePort failed! GC_ERR_INVALID_PARAMETER"));
}

// Deliberate(RegisterTakesAWord)
TEST(InterfacePort, DeliberatelyTheSelectorTakesTheFirstFourBytesWhateverTheSizeSays)
{
    InterfaceModule module;
    ExpectWritesOfAnySizeStoreFourBytes(module, 0x60108);
}

TEST(InterfacePort, TheUpdateRegisterScansForFiveSecondsAndReadsOneMeanwhile)
{
    class Watched : public InterfaceModule
    {
      public:
        int UpdateDeviceList(bool* changed, unsigned long timeout) override
        {
            // On another thread, since the module mutex would let its own thread through.
            std::thread([this] { during = ReadNumber<unsigned int>(*this, 0x60104); }).join();
            changedGiven = changed != nullptr;
            timeoutGiven = timeout;
            return -1;
        }
        unsigned int during = 0;
        bool changedGiven = true;
        unsigned long timeoutGiven = 0;
    };
    Watched module;
    EXPECT_EQ(WriteResult(module, 0x60104, 0), 0);
    EXPECT_EQ(module.during, 1u);
    EXPECT_FALSE(module.changedGiven);
    EXPECT_EQ(module.timeoutGiven, 5000u);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60104), 0u);
}

TEST(InterfacePort, TheUpdateRegisterReadsZeroAfterAScanThatThrew)
{
    class Throwing : public InterfaceModule
    {
      public:
        int UpdateDeviceList(bool*, unsigned long) override { throw std::bad_alloc(); }
    };
    Throwing module;
    EXPECT_THROW(WriteResult(module, 0x60104, 1), std::bad_alloc);
    EXPECT_EQ(ReadNumber<unsigned int>(module, 0x60104), 0u);
}
