// SPDX-License-Identifier: Apache-2.0
// docs/interface.md tells what the library answers: every function, every event, and every info with its type or its
// refusal, by its own answers and by the standard's. Compared with the library while it streams.
#include "support/source_text.h"
#include "support/stream_in_both_modes.h"

#include <functional>
#include <map>
#include <sstream>

namespace
{

using namespace nq::test;

using InfoQuery = std::function<int(int command, int* type, void* buffer, std::size_t* size)>;

/// Numbers by name, as the headers give them.
std::map<std::string, int> Constants()
{
    const std::string headers = TextOfFile("include/GenTL/GenTL.h") + TextOfFile("include/nq_gev_gentl.h");
    const std::regex regex(R"(\b([A-Z][A-Z0-9_]+) = (-?[0-9]+|0x[0-9A-F]+)\b)");
    std::map<std::string, int> found;
    for (std::sregex_iterator match(headers.begin(), headers.end(), regex); match != std::sregex_iterator(); ++match)
    {
        found[(*match)[1]] = static_cast<int>(std::stol((*match)[2], nullptr, 0));
    }
    return found;
}

std::string NameOf(const std::map<std::string, int>& constants, const std::string& beginning, int number)
{
    for (const auto& [name, value] : constants)
    {
        if (value == number && name.starts_with(beginning))
        {
            return name;
        }
    }
    return std::to_string(number);
}

/// The cells of a row of a table.
std::vector<std::string> Cells(const std::string& row)
{
    std::vector<std::string> cells;
    std::istringstream text(row.substr(1));
    for (std::string cell; std::getline(text, cell, '|');)
    {
        const std::size_t first = cell.find_first_not_of(' ');
        cells.push_back(first == std::string::npos ? "" : cell.substr(first, cell.find_last_not_of(' ') + 1 - first));
    }
    return cells;
}

/// The rows of constants below each heading of the page, by the functions that the heading names.
std::map<std::string, std::vector<std::vector<std::string>>> RowsByFunction()
{
    std::map<std::string, std::vector<std::vector<std::string>>> rows;
    Names functions;
    std::istringstream page(TextOfFile("docs/interface.md"));
    for (std::string line; std::getline(page, line);)
    {
        if (line.starts_with('#'))
        {
            functions = All(line, "`([A-Za-z]+)`");
        }
        else if (line.starts_with("| `"))
        {
            for (const std::string& function : functions)
            {
                rows[function].push_back(Cells(line));
            }
        }
    }
    return rows;
}

class InterfacePage : public StreamInBothModes
{
  protected:
    void SetUp() override
    {
        AnnounceAndQueue();
        Acquire();
        char text[256];
        std::size_t size = sizeof text;
        ASSERT_EQ(c.gentl.IFGetDeviceID(c.interface, 0, text, &size), 0);
        m_device = text;
        size = sizeof text;
        int type = 0;
        ASSERT_EQ(c.gentl.IFGetInfo(c.interface, GenTL::INTERFACE_INFO_ID, &type, text, &size), 0);
        m_interface = text;
    }

    /// Starts, and has a whole frame of the running acquisition in hand.
    void Acquire()
    {
        ASSERT_EQ(c.Start(), 0);
        m_frame = c.Next();
        ASSERT_NE(m_frame, nullptr);
    }

    void TearDown() override { EXPECT_EQ(c.Stop(), 0); }

    /// Each info function and the beginnings of its commands.
    struct Function
    {
        std::string name;
        std::vector<std::string> commands;
        InfoQuery ask;
    };

    std::vector<Function> Functions()
    {
        Producer& p = c.gentl;
        const std::vector<std::string> ofInterfaces = {"INTERFACE_INFO_", "NQ_INTERFACE_INFO_"};
        const std::vector<std::string> ofDevices = {"DEVICE_INFO_", "NQ_DEVICE_INFO_"};
        return {
            {"GCGetInfo", {"TL_INFO_"}, [&](int n, int* t, void* b, size_t* s) { return p.GCGetInfo(n, t, b, s); }},
            {"TLGetInfo",
             {"TL_INFO_"},
             [&](int n, int* t, void* b, size_t* s) { return p.TLGetInfo(c.system, n, t, b, s); }},
            {"IFGetInfo", ofInterfaces,
             [&](int n, int* t, void* b, size_t* s) { return p.IFGetInfo(c.interface, n, t, b, s); }},
            {"TLGetInterfaceInfo", ofInterfaces,
             [&](int n, int* t, void* b, size_t* s) {
                 return p.TLGetInterfaceInfo(c.system, m_interface.c_str(), n, t, b, s);
             }},
            {"DevGetInfo", ofDevices,
             [&](int n, int* t, void* b, size_t* s) { return p.DevGetInfo(c.device, n, t, b, s); }},
            {"IFGetDeviceInfo", ofDevices,
             [&](int n, int* t, void* b, size_t* s) {
                 return p.IFGetDeviceInfo(c.interface, m_device.c_str(), n, t, b, s);
             }},
            {"DSGetInfo",
             {"STREAM_INFO_"},
             [&](int n, int* t, void* b, size_t* s) { return p.DSGetInfo(c.stream, n, t, b, s); }},
            {"DSGetBufferInfo",
             {"BUFFER_INFO_"},
             [&](int n, int* t, void* b, size_t* s) { return p.DSGetBufferInfo(c.stream, m_frame, n, t, b, s); }},
            {"GCGetPortInfo",
             {"PORT_INFO_"},
             [&](int n, int* t, void* b, size_t* s) { return p.GCGetPortInfo(c.stream, n, t, b, s); }},
            {"GCGetPortURLInfo",
             {"URL_INFO_"},
             [&](int n, int* t, void* b, size_t* s) { return p.GCGetPortURLInfo(c.stream, 0, n, t, b, s); }},
            {"EventGetInfo",
             {"EVENT_INFO_", "EVENT_NUM_", "EVENT_SIZE_", "EVENT_EVENT_"},
             [&](int n, int* t, void* b, size_t* s) { return p.EventGetInfo(c.event, n, t, b, s); }},
            {"EventGetDataInfo",
             {"EVENT_DATA_"},
             [&](int n, int* t, void* b, size_t* s) {
                 return p.EventGetDataInfo(c.event, &m_record, sizeof m_record, n, t, b, s);
             }},
        };
    }

    /// The type of an answer, or the name of the refusal.
    std::string AnswerOf(const Function& function, int command) const
    {
        char value[1024];
        std::size_t size = sizeof value;
        int type = -77;
        const int code = function.ask(command, &type, value, &size);
        return code == 0 ? NameOf(m_constants, "INFO_DATATYPE_", type).substr(14)
                         : NameOf(m_constants, "GC_ERR_", code);
    }

    /// What the library answers to every info of the function, in the words of the page.
    Names Answers(const Function& function) const
    {
        Names answers;
        for (const auto& [name, number] : m_constants)
        {
            const bool isOfIt = std::any_of(function.commands.begin(), function.commands.end(),
                                            [&, &name = name](const auto& start) { return name.starts_with(start); });
            if (isOfIt && number != 1000) // where producers' own begin
            {
                answers.insert("`" + name + "` " + std::to_string(number) + ": " + AnswerOf(function, number));
            }
        }
        return answers;
    }

    /// What the page and the library say of the infos where they do not say the same.
    std::string Differences()
    {
        std::map<std::string, std::vector<std::vector<std::string>>> page = RowsByFunction();
        std::string differences;
        for (const Function& function : Functions())
        {
            Names written;
            for (const std::vector<std::string>& cells : page[function.name])
            {
                written.insert(cells.at(0) + " " + cells.at(1) + ": " + By(cells.at(2), cells.at(3)));
            }
            const Names answers = Answers(function);
            for (const std::string& name : written)
            {
                differences += answers.contains(name) ? "" : function.name + ", page: " + name + "\n";
            }
            for (const std::string& name : answers)
            {
                differences += written.contains(name) ? "" : function.name + ", library: " + name + "\n";
            }
        }
        return differences;
    }

    const std::map<std::string, int> m_constants = Constants();
    GenTL::BUFFER_HANDLE m_frame = nullptr;
    GenTL::S_EVENT_NEW_BUFFER m_record{};
    std::string m_interface;
    std::string m_device;
};

TEST_P(InterfacePage, TellsWhatEveryInfoGives)
{
    std::string differences = Differences();
    // On a machine under load a register of the camera may be read too late; some are read at a start.
    for (int attempt = 0; attempt < 4 && !differences.empty(); ++attempt)
    {
        ASSERT_EQ(c.Stop(), 0);
        c.QueueAll();
        Acquire();
        differences = Differences();
    }
    EXPECT_EQ(differences, "");
}

NQ_IN_BOTH_MODES(InterfacePage);

/// The rows of the page's table of events: number, module and bytes of a record, a line for each module.
Names EventsOfThePage(const std::map<std::string, int>& constants)
{
    Names events;
    const std::string page = TextOfFile("docs/interface.md");
    const std::regex row(R"(\n\| `([A-Z_]*EVENT_[A-Z_]+)`, (\d+) \| ([a-z, ]+) \| (\d+) \|)");
    for (std::sregex_iterator match(page.begin(), page.end(), row); match != std::sregex_iterator(); ++match)
    {
        EXPECT_EQ(std::to_string(constants.at((*match)[1])), (*match)[2]) << (*match)[1];
        for (const std::string& module : All((*match)[3], "([a-z]+)"))
        {
            events.insert((*match)[2].str() + " " + module + " " + (*match)[4].str());
        }
    }
    return events;
}

class InterfacePageEvents : public StreamInBothModes
{
};

TEST_P(InterfacePageEvents, AreThoseThatTheModulesTakeWithTheSizesOfTheirRecords)
{
    GenTL::PORT_HANDLE port = nullptr;
    ASSERT_EQ(c.gentl.DevGetPort(c.device, &port), 0);
    const std::map<std::string, void*> modules = {
        {"system", c.system}, {"interface", c.interface}, {"device", c.device}, {"stream", c.stream}, {"port", port}};
    std::vector<int> numbers(30);
    std::iota(numbers.begin(), numbers.end(), 0);
    numbers.insert(numbers.end(), {999, 1000, 3999, 4000, 4001});
    Names taken;
    for (const auto& [name, module] : modules)
    {
        for (const int number : numbers)
        {
            GenTL::EVENT_HANDLE event = nullptr;
            const int code = c.gentl.GCRegisterEvent(module, number, &event);
            if (code != 0)
            {
                EXPECT_EQ(code, -1003) << name << " " << number;
                continue;
            }
            std::size_t bytes = 0;
            std::size_t size = sizeof bytes;
            int type = 0;
            EXPECT_EQ(c.gentl.EventGetInfo(event, GenTL::EVENT_SIZE_MAX, &type, &bytes, &size), 0);
            taken.insert(std::to_string(number) + " " + name + " " + std::to_string(bytes));
            EXPECT_EQ(c.gentl.GCUnregisterEvent(module, number), 0);
        }
    }
    EXPECT_EQ(EventsOfThePage(Constants()), taken);
}

NQ_IN_BOTH_MODES(InterfacePageEvents);

TEST(InterfacePageExports, HaveEveryNameThatTheLibraryExportsBesideGenTL)
{
    const Names exported =
        All(TextOfFile("tests/compile/exports.txt"), R"(\n[TBu] (?:guard variable for |GenTL::)?(\w+))");
    ASSERT_GT(exported.size(), 30U);
    const std::string page = TextOfFile("docs/interface.md");
    Names told;
    for (const std::string& cell : All(page.substr(page.find("\n## Beside GenTL\n")), R"(\n\| (`[^|]*`) \|)"))
    {
        told.merge(All(cell, R"(`(\w+)`)"));
    }
    EXPECT_EQ(told, exported);
}

TEST(InterfacePageFunctions, AreAllThatTheLibraryExports)
{
    const Names exported = All(TextOfFile("include/GenTL/GenTLFunctions.h"), R"(X\(([A-Z][A-Za-z]+)\))");
    ASSERT_EQ(exported.size(), 57U + 1U) << "with the X(Name) of the comment";
    const std::string page = TextOfFile("docs/interface.md");
    Names told = All(page.substr(0, page.find("\n## Beside GenTL\n")), R"(\n\| `([A-Z][A-Za-z]+)` \|)");
    told.insert("Name");
    EXPECT_EQ(told, exported);
}

} // namespace
