// SPDX-License-Identifier: Apache-2.0
// What looks odd in src/ and is meant has a name, a reason and a test of that name, and no test names what is not
// there. CONTRIBUTING.md has the rule.
#include "support/source_text.h"

#include <gmock/gmock.h>

#include <iterator>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

using nq::test::Names;
using nq::test::TextOf;
using nq::test::Without;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

struct Marks
{
    Names names;
    Names faults; ///< What stands where a mark should, or a name with a reason that is none.
};

std::vector<std::string> LinesOf(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
    {
        const std::size_t start = line.find_first_not_of(" \t");
        lines.push_back(start == std::string::npos ? std::string() : line.substr(start));
    }
    return lines;
}

/// Whether a comment of the line speaks of something deliberate.
bool Speaks(const std::string& line)
{
    static const std::regex comment(R"(//[/<! ]*Deliberate\b)");
    return line.find("Deliberate") != std::string::npos && std::regex_search(line, comment);
}

/// Something that was so before is no reason, nor are a few words.
bool IsReason(const std::string& text)
{
    static const std::regex habit(R"(\b(?:always (?:was|has|had)|has always|as (?:it was|before|ever)|historical))");
    std::istringstream words(text);
    const auto count = std::distance(std::istream_iterator<std::string>(words), {});
    return count >= 6 && !std::regex_search(text, habit);
}

void CollectCode(const std::string& text, Marks& marks)
{
    static const std::regex form(R"(// Deliberate\(([A-Z][A-Za-z0-9]+)\): (.+))");
    const std::vector<std::string> lines = LinesOf(text);
    for (std::size_t at = 0; at < lines.size(); ++at)
    {
        if (!Speaks(lines[at]))
        {
            continue;
        }
        std::string comment = lines[at];
        for (; at + 1 < lines.size() && lines[at + 1].starts_with("// ") && !Speaks(lines[at + 1]); ++at)
        {
            comment += lines[at + 1].substr(2);
        }
        std::smatch parts;
        const bool isMark = std::regex_match(comment, parts, form) && IsReason(parts[2]);
        (isMark ? marks.names : marks.faults).insert(isMark ? parts[1].str() : comment);
    }
}

void CollectTests(const std::string& text, Marks& marks)
{
    static const std::regex form(R"(// Deliberate\(([A-Z][A-Za-z0-9]+)\)(?:: .+)?)");
    Names above; // the marks of the comment that the line goes on with or ends
    for (const std::string& line : LinesOf(text))
    {
        std::smatch parts;
        if (std::regex_match(line, parts, form))
        {
            above.insert(parts[1]);
        }
        else if (Speaks(line))
        {
            marks.faults.insert(line);
        }
        else if (!line.starts_with("//"))
        {
            (line.starts_with("TEST") ? marks.names : marks.faults).merge(above);
            above.clear();
        }
    }
}

Marks OfTheCode()
{
    Marks marks;
    for (const auto& file : nq::test::Sources("src"))
    {
        CollectCode(TextOf(file), marks);
    }
    return marks;
}

Marks OfTheTests()
{
    Marks marks;
    for (const auto& file : nq::test::Sources("tests"))
    {
        if (file.filename() != "deliberate_test.cpp")
        {
            CollectTests(TextOf(file), marks);
        }
    }
    return marks;
}

TEST(Deliberate, EveryOddityOfTheCodeHasANameAndAReason)
{
    EXPECT_THAT(OfTheCode().faults, IsEmpty()) << "write // Deliberate(Name): reason";
}

TEST(Deliberate, EveryOddityOfTheCodeHasATestOfItsName)
{
    const Marks code = OfTheCode();
    EXPECT_GT(code.names.size(), 80U);
    EXPECT_THAT(Without(code.names, OfTheTests().names), IsEmpty()) << "write // Deliberate(Name) right above its test";
}

TEST(Deliberate, EveryTestThatNamesAnOddityHasOneInTheCode)
{
    const Marks tests = OfTheTests();
    EXPECT_THAT(tests.faults, IsEmpty()) << "write // Deliberate(Name) right above a test";
    EXPECT_THAT(Without(tests.names, OfTheCode().names), IsEmpty());
}

TEST(Deliberate, AMarkWithoutANameOrAReasonIsFound)
{
    Marks marks;
    CollectCode(R"code(
    // Deliberate(First): the reason of the first
    // goes on in a second line.
    // Deliberate(Second): the reason of this one stands right below.
    code();
    int member; ///< Deliberate: behind the code, without a name, though for a reason.
    // Deliberate: a reason of many words, and still no name.
    // Deliberate(third): a name that begins with a small letter here.
    // Deliberate(Fourth):
    // Deliberate(Fifth): few words only.
    // Deliberate(Sixth): one number is used up here, as it always was.)code",
                marks);
    EXPECT_THAT(marks.names, ElementsAre("First", "Second"));
    EXPECT_EQ(marks.faults.size(), 6U);
}

TEST(Deliberate, AMarkThatStandsOverNoTestIsFound)
{
    Marks marks;
    CollectTests(R"code(
// Deliberate(First)
TEST(One, Case)
{
    // Deliberate(Inside)
}

// Deliberate(Second): with words
// over two lines.
// Deliberate(Third)
TEST_F(Two, Case)

// Deliberate(Alone)

TEST(Three, Case)

// Deliberate: nothing
TEST_P(Four, Case))code",
                 marks);
    EXPECT_THAT(marks.names, ElementsAre("First", "Second", "Third"));
    EXPECT_EQ(marks.faults.size(), 3U);
}

} // namespace
