// SPDX-License-Identifier: Apache-2.0
// What the library can say about a failure and what docs/diagnostics.md explains are the same lines: there they stand
// in the first cells of the tables, in backticks, with the operation's name and the %d of src/.
#include "support/source_text.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <regex>
#include <string>

using nq::test::All;
using nq::test::Names;
using nq::test::Statement;
using nq::test::StatementsOf;
using nq::test::TextOf;
using nq::test::TextOfFile;
using nq::test::Without;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

struct Lines
{
    Names whole;   ///< with the operation's name where the statement has it, and what is thrown or goes to the console
    Names unnamed; ///< what follows the name where the statement has none
    Names words;   ///< every name that could stand there
};

/// What the statements of `text` say about failures: the formats that begin with "%s ", but for those of the call flow,
/// and the first text of what is thrown or printed.
void Collect(const std::string& text, Lines& lines)
{
    static const std::regex name(R"(\w+)");
    static const std::regex callFlow(R"(\bTrace(?:Entry|Exit)\()");
    static const std::regex other(R"(\b(?:puts|perror|Fail|\w+_error)\()");
    for (const Statement& one : StatementsOf(text))
    {
        std::string format;
        Names operations;
        for (const std::string& literal : one.literals)
        {
            if (literal.starts_with("%s "))
            {
                format = literal.substr(2);
            }
            else if (literal != "NQGenTL" && std::regex_match(literal, name))
            {
                operations.insert(literal);
            }
        }
        if (format.empty() && !one.literals.empty() && std::regex_search(one.code, other))
        {
            lines.whole.insert(one.literals.front());
        }
        else if (!format.empty() && !std::regex_search(one.code, callFlow))
        {
            (operations.size() == 1 ? lines.whole : lines.unnamed)
                .insert(operations.size() == 1 ? *operations.begin() + format : format);
        }
    }
    lines.words.merge(All(text, R"((\w+))"));
}

Lines LinesOfTheLibrary()
{
    Lines lines;
    for (const auto& file : nq::test::Sources())
    {
        Collect(TextOf(file), lines);
    }
    return lines;
}

Names DocumentedIn(const std::string& text)
{
    Names lines;
    for (const std::string& cell : All(text, R"((?:^|\n)\| ((?:`[^`\n]+`(?:<br>)?)+) \|)"))
    {
        lines.merge(All(cell, "`([^`]+)`"));
    }
    return lines;
}

/// Without the name before it.
std::string Unnamed(const std::string& line)
{
    const std::size_t space = line.find(' ');
    return space == std::string::npos ? std::string() : line.substr(space);
}

TEST(Diagnostics, EveryFailureTextOfTheLibraryIsExplained)
{
    const Lines lines = LinesOfTheLibrary();
    EXPECT_GT(lines.whole.size(), 80U);
    EXPECT_GT(lines.unnamed.size(), 10U);
    const Names documented = DocumentedIn(TextOfFile("docs/diagnostics.md"));
    Names unnamed;
    for (const std::string& line : documented)
    {
        unnamed.insert(Unnamed(line));
    }
    EXPECT_THAT(Without(lines.whole, documented), IsEmpty()) << "add them to docs/diagnostics.md";
    EXPECT_THAT(Without(lines.unnamed, unnamed), IsEmpty()) << "add them to docs/diagnostics.md, with a name in front";
}

TEST(Diagnostics, EveryExplainedTextIsOneOfTheLibrary)
{
    const Lines lines = LinesOfTheLibrary();
    Names unknown;
    for (const std::string& line : Without(DocumentedIn(TextOfFile("docs/diagnostics.md")), lines.whole))
    {
        const std::string unnamed = Unnamed(line);
        if (!lines.unnamed.contains(unnamed) || !lines.words.contains(line.substr(0, line.size() - unnamed.size())))
        {
            unknown.insert(line);
        }
    }
    EXPECT_THAT(unknown, IsEmpty());
}

TEST(Diagnostics, OnlyTheGroundNamesTheModuleAndTheLogger)
{
    Names others;
    for (const auto& file : nq::test::Sources())
    {
        const bool isGround = file.parent_path().filename() == "base";
        for (const Statement& one : StatementsOf(TextOf(file)))
        {
            const bool namesModule = std::ranges::count(one.literals, "NQGenTL") != 0;
            if (!isGround && (namesModule || one.code.find("TraceA(") != std::string::npos))
            {
                others.insert(file.filename().string());
            }
        }
    }
    EXPECT_THAT(others, IsEmpty()) << "use base/nq_trace.h";
}

TEST(Diagnostics, TextsAreFoundHoweverTheyAreWritten)
{
    Lines lines;
    Collect(R"code(
        NQLogger::getInstance().TraceA("NQGenTL", 2, "%s failed; so what :%d",
                                       "Open", code);
        return NQFailed(-1, "%s GC_ERR_ERROR", operation); // "%s in words"
        frame.TraceEntry("%s Entry");
        std::perror("ioctl()");
    throw std::runtime_error("no \"worker\": [" + text + "]");
    name = "%02x";)code",
            lines);
    EXPECT_THAT(lines.whole, ElementsAre("Open failed; so what :%d", "ioctl()", R"(no \"worker\": [)"));
    EXPECT_THAT(lines.unnamed, ElementsAre(" GC_ERR_ERROR"));
    EXPECT_THAT(DocumentedIn("| `A b`<br>`C d ` | `E` |\n|---|\n| `F g` | h |\n| I | `K` |\ntext `L`"),
                ElementsAre("A b", "C d ", "F g"));
}

} // namespace
