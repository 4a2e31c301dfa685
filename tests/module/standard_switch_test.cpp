// SPDX-License-Identifier: Apache-2.0
// Who switches the standard's answers on: the environment of an ordinary program, nq-gev-standard, and nobody in a
// program with more rights than its user.
#include "support/command_output.h"
#include "support/forked.h"
#include "support/producer.h"
#include "support/standard_answers.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

using namespace nq::test;

namespace
{

constexpr char kTool[] = NQ_BINARY_DIR "/nq-gev-standard";

/// Whose answers the session gives: an info call that clears what it is given is the library's own.
std::string AnswersOf(const Producer& p)
{
    char text[64];
    std::memset(text, 'x', sizeof text);
    int type = 0;
    std::size_t size = sizeof text;
    EXPECT_EQ(p.GCGetInfo(GenTL::TL_INFO_ID, &type, text, &size), 0);
    return text[sizeof text - 1] == 'x' ? "standard" : "stated";
}

TEST(StandardSwitch, IsReadInEachInit)
{
    const Producer p;
    ASSERT_EQ(p.GCInitLib(), 0);
    {
        const StandardAnswers asked;
        EXPECT_EQ(AnswersOf(p), "stated") << "too late";
        EXPECT_EQ(p.GCInitLib(), -1004);
        EXPECT_EQ(AnswersOf(p), "stated") << "a refused init";
        ASSERT_EQ(p.GCCloseLib(), 0);
        ASSERT_EQ(p.GCInitLib(), 0);
        EXPECT_EQ(AnswersOf(p), "standard");
    }
    EXPECT_EQ(AnswersOf(p), "standard") << "until the close";
    ASSERT_EQ(p.GCCloseLib(), 0);
    ASSERT_EQ(p.GCInitLib(), 0);
    EXPECT_EQ(AnswersOf(p), "stated");
    ASSERT_EQ(p.GCCloseLib(), 0);
}

TEST(StandardSwitch, StaysAsItIsInAForkedChild)
{
    const Producer p;
    {
        const StandardAnswers asked;
        ASSERT_EQ(p.GCInitLib(), 0);
    }
    Forked([&] { EXPECT_EQ(AnswersOf(p), "standard"); }).Join();
    EXPECT_EQ(AnswersOf(p), "standard");
    ASSERT_EQ(p.GCCloseLib(), 0);
}

TEST(StandardSwitch, IsOffInAProgramWithMoreRightsThanItsUser)
{
    if (std::string(NQ_BINARY_DIR).find(':') != std::string::npos)
    {
        GTEST_SKIP() << "the loader finds no library below a path with a colon for such a program";
    }
    const StandardAnswers asked;
    EXPECT_EQ(OutputOf({NQ_LINKED_PROGRAM_PATH, "answers"}), "standard\n");
    EXPECT_EQ(OutputOf({"/usr/bin/setpriv", "--ruid=65534", NQ_LINKED_PROGRAM_PATH, "answers"}), "stated\n");
}

TEST(StandardSwitch, IsSetForOneProgramByNqGevStandard)
{
    EXPECT_EQ(OutputOf({NQ_LINKED_PROGRAM_PATH, "answers"}), "stated\n");
    EXPECT_EQ(OutputOf({kTool, NQ_LINKED_PROGRAM_PATH, "answers"}), "standard\n");
    EXPECT_EQ(OutputOf({kTool, "/bin/echo", "a b", "*", ""}), "a b * \n") << "arguments come as they are";
}

TEST(StandardSwitch, NqGevStandardEndsAsTheProgramDoes)
{
    ChildProcess seven({kTool, "/bin/sh", "-c", "exit 7"});
    EXPECT_EQ(seven.WaitForExit(std::chrono::seconds(20)), 7);
    ChildProcess none({kTool});
    EXPECT_EQ(none.WaitForExit(std::chrono::seconds(20)), 2);
    EXPECT_NE(none.Output().find("usage: nq-gev-standard COMMAND..."), std::string::npos) << none.Output();
}

} // namespace
