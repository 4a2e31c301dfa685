// SPDX-License-Identifier: Apache-2.0
// The numbers of the wire stand in two tables, the registers of a module in one, and none elsewhere in src/.
#include "support/source_text.h"

#include <gmock/gmock.h>

#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

using nq::test::Sources;
using nq::test::Statement;
using nq::test::StatementsOf;
using nq::test::TextOf;
using nq::test::TextOfFile;
using testing::ContainsRegex;

namespace
{

constexpr const char* kTables[] = {"src/gige/gvcp_wire.h", "src/rdma/gendc_wire.h"};

bool IsTable(const std::filesystem::path& file)
{
    return file.string().ends_with("/gige/gvcp_wire.h") || file.string().ends_with("/rdma/gendc_wire.h");
}

/// The integers of a statement as they are written, texts left out.
std::vector<std::string> IntegersOf(const Statement& statement)
{
    static const std::regex integer(R"(\b(0[xX][0-9A-Fa-f']+|[0-9][0-9']*))");
    std::vector<std::string> integers;
    std::sregex_iterator match(statement.code.begin(), statement.code.end(), integer);
    for (; match != std::sregex_iterator(); ++match)
    {
        integers.push_back((*match)[1]);
        std::erase(integers.back(), '\'');
    }
    return integers;
}

void ForEachStatement(const std::function<void(const std::string&, const Statement&)>& look)
{
    int files = 0;
    for (const auto& file : Sources())
    {
        if (!IsTable(file))
        {
            ++files;
            for (const Statement& one : StatementsOf(TextOf(file)))
            {
                look(file.string(), one);
            }
        }
    }
    ASSERT_GT(files, 100);
}

// Values of the wire that mean nothing else in a program like this; the others cannot be told from plain numbers.
TEST(WireTables, NoNumberOfTheWireStandsElsewhere)
{
    const std::set<unsigned long> wire = {
        3956,   4791,   3456,       3520,   3500,   3564,                                           // ports
        0x42,   0x11,   0x80,       0x81,   0x82,   0x83,   0x84,   0x85,   0x86,   0x87,           // key, flags, codes
        0x89,   0xC0,   548,        612,    520,                                                    // and sizes of GVCP
        44,     60,     76,         112,    144,    176,    224,    240,                            // discovery
        0x00E8, 0x064C, 0x065C,     0x066C, 0x0900, 0x0904, 0x092C, 0x0934, 0x0938, 0x093C, 0x0940, // registers
        0x0954, 0x0A00, 0x0B00,     0x0B10, 0x0B1C, 0x0D00, 0x0D04, 0x0D18, 0x0D3C, 0xE030, 0xE034, //
        0xE038, 0xE600, 0x04000000,                                                                 //
        56,     88,     130,        160,    164, // frame and settings
    };
    const std::regex spelling("0[xX](0[0-9A-Fa-f]{3}|[Ee][0-9A-Fa-f]{3})");
    ForEachStatement([&](const std::string& file, const Statement& one) {
        if (one.code.find("static_assert") != std::string::npos)
        {
            return; // of the layout in memory
        }
        for (const std::string& integer : IntegersOf(one))
        {
            EXPECT_FALSE(wire.contains(std::stoul(integer, nullptr, 0)) || std::regex_match(integer, spelling))
                << file << ": " << integer << " in " << one.code;
        }
        for (const std::string& text : one.literals)
        {
            EXPECT_FALSE(text == "3956" || text == "4791") << file << ": \"" << text << "\"";
        }
    });
}

TEST(WireTables, EachCameraRegisterStandsOnce)
{
    const std::string text = TextOfFile("src/gige/gvcp_wire.h");
    const std::regex reg(R"(\bkReg(\w+) = (0x[0-9A-F]{4});)");
    std::map<std::string, std::string> names;
    for (std::sregex_iterator match(text.begin(), text.end(), reg); match != std::sregex_iterator(); ++match)
    {
        EXPECT_TRUE(names.emplace((*match)[2], (*match)[1]).second) << (*match)[0];
    }
    EXPECT_GE(names.size(), 26U);
    EXPECT_EQ(names["0x0A00"], "ControlPrivilege");
    EXPECT_EQ(names["0xE600"], "RdmaSettings");
}

TEST(WireTables, EachGroupNamesItsSource)
{
    for (const char* const table : kTables)
    {
        const std::string text = TextOfFile(table);
        const std::regex heading("\n// ---- (.*)\n");
        int groups = 0;
        for (std::sregex_iterator match(text.begin(), text.end(), heading); match != std::sregex_iterator(); ++match)
        {
            ++groups;
            EXPECT_THAT(std::string((*match)[1]),
                        ContainsRegex(R"(GigE Vision, |EMVA GenDC|RoCE v2|Our own choice|[Tt]his product)"))
                << table;
        }
        EXPECT_GE(groups, 6) << table;
        // Nothing stands in front of the first group.
        EXPECT_GT(text.find("constexpr"), text.find("\n// ---- ")) << table;
    }
}

// The virtual registers of the modules lie from 0x50000 on, those of two events behind the description at 0x10000.
// Where one lies with the standard's answers, if that is elsewhere, is told in its row.
TEST(RegisterTables, EachAddressStandsOnceAndInATable)
{
    const std::regex address("0x([5-8][0-9A-Fa-f]{4}|10[01]0[04])");
    std::map<std::string, int> times;
    std::map<std::string, int> timesOfStandard;
    ForEachStatement([&](const std::string& file, const Statement& one) {
        std::vector<std::string> numbers = IntegersOf(one);
        numbers.insert(numbers.end(), one.literals.begin(), one.literals.end());
        for (const std::string& number : numbers)
        {
            if (std::regex_match(number, address))
            {
                // The name of a row is in the same braces as its address.
                int& count = one.literals.empty() ? timesOfStandard[number] : times[number];
                EXPECT_EQ(++count, 1) << number << " again in " << file;
                EXPECT_TRUE(file.ends_with("_registers.h") || number == "0x10000") << number << " in " << file;
            }
        }
    });
    EXPECT_GE(times.size(), 70U);
}

} // namespace
