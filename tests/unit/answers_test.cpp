// SPDX-License-Identifier: Apache-2.0
// The switch between the library's own answers and the standard's: what switches it, when it is read, how it reaches
// the modules, and the table of it in the documentation.
#include "base/nq_answers.h"
#include "gev/nq_gev_controller.h"
#include "gev/nq_gev_system.h"
#include "support/fake_data_stream.h"
#include "support/fake_module.h"
#include "support/forked.h"
#include "support/noted_controller.h"
#include "support/source_text.h"
#include "support/standard_answers.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>

using namespace nq::test;

namespace
{

constexpr bool NQAnswers::*kFlags[] = {
#define NQ_TEST_FLAG(flag, subject, stated, standard) &NQAnswers::flag,
    NQ_ANSWER_ROWS(NQ_TEST_FLAG)
#undef NQ_TEST_FLAG
};

/// Whether all flags of `answers` are `standard`.
testing::AssertionResult All(const NQAnswers& answers, bool standard)
{
    for (std::size_t row = 0; row < std::size(kFlags); ++row)
    {
        if (answers.*kFlags[row] != standard)
        {
            return testing::AssertionFailure() << "row " << row;
        }
    }
    return testing::AssertionSuccess();
}

bool AskedWith(const char* value)
{
    setenv("NQ_GEV_TL_STANDARD", value, 1);
    const bool standard = All(AnswersAskedFor(), true);
    EXPECT_TRUE(All(AnswersAskedFor(), standard)) << value;
    unsetenv("NQ_GEV_TL_STANDARD");
    return standard;
}

TEST(Answers, EveryFlagHasARow)
{
    EXPECT_EQ(sizeof(NQAnswers), std::size(kFlags)); // a byte each
}

TEST(Answers, AreTheLibrarysOwnUnlessTheSwitchIsExactlyOne)
{
    unsetenv("NQ_GEV_TL_STANDARD");
    EXPECT_TRUE(All(AnswersAskedFor(), false));
    EXPECT_TRUE(AskedWith("1"));
    for (const char* value : {"", "0", "2", "01", "1 ", " 1", "11", "true", "yes", "on", "1\n"})
    {
        EXPECT_FALSE(AskedWith(value)) << '"' << value << '"';
    }
}

TEST(Answers, AreReadInEachInitThatSucceedsAndOnlyThere)
{
    Controller controller;
    EXPECT_TRUE(All(controller.Answers(), false)) << "before the first";
    {
        const StandardAnswers asked;
        ASSERT_EQ(controller.Init(), 0);
    }
    EXPECT_TRUE(All(controller.Answers(), true)) << "what the environment says later does not count";
    EXPECT_EQ(controller.Init(), -1004);
    EXPECT_TRUE(All(controller.Answers(), true)) << "a refused one does not read";
    ASSERT_EQ(controller.Close(), 0);
    ASSERT_EQ(controller.Init(), 0);
    EXPECT_TRUE(All(controller.Answers(), false));
    ASSERT_EQ(controller.Close(), 0);
    {
        const StandardAnswers asked;
        controller.initResult = -1001;
        ASSERT_EQ(controller.Init(), -1001);
    }
    EXPECT_TRUE(All(controller.Answers(), false)) << "a failed one does not read";
    for (GigERDMA::NQGenTLSystem* const system : controller.systems)
    {
        delete system;
    }
}

TEST(Answers, OfAForkedChildAreTheParentsUntilItInitialisesAnew)
{
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer takes the list of all locks, which is made anew in a child, for one still held";
#endif
    Controller controller;
    {
        const StandardAnswers asked;
        ASSERT_EQ(controller.Init(), 0);
    }
    Forked child([&] {
        EXPECT_TRUE(All(controller.Answers(), true));
        EXPECT_EQ(controller.Close(), 0);
        EXPECT_EQ(controller.Init(), 0);
        EXPECT_TRUE(All(controller.Answers(), false));
    });
    child.Join();
    EXPECT_TRUE(All(controller.Answers(), true));
    delete controller.systems[0];
}

TEST(Answers, OfAModuleAreThoseOfItsParent)
{
    const FakeModule root;
    EXPECT_TRUE(All(root.Answers(), false));
    NQGevSystem system(kStandardAnswers);
    EXPECT_TRUE(All(system.Answers(), true));
    FakeModule child("", "Fake", &system);
    EXPECT_TRUE(All(child.Answers(), true));
    const FakeDataStream grandchild(0, &child);
    EXPECT_TRUE(All(grandchild.Answers(), true));
}

TEST(Answers, OfTheSystemModuleAreThoseOfTheSession)
{
    NQGevController controller;
    const StandardAnswers asked;
    ASSERT_EQ(controller.Init(), 0);
    const std::unique_ptr<GigERDMA::NQGenTLSystem> system(controller.CreateSystem());
    EXPECT_TRUE(All(system->Answers(), true));
    ASSERT_EQ(controller.Close(), 0);
}

TEST(Answers, AreTheTableOfTheDocumentation)
{
    std::string table = "| Flag | What | As stated (default) | With the switch |\n|---|---|---|---|\n";
#define NQ_TEST_ROW(flag, subject, stated, standard)                                                                   \
    table += "| `" #flag "` | " subject " | " stated " | " standard " |\n";
    NQ_ANSWER_ROWS(NQ_TEST_ROW)
#undef NQ_TEST_ROW
    const std::string text = TextOfFile("docs/standard-answers.md");
    const std::size_t start = text.find("| Flag |");
    ASSERT_NE(start, std::string::npos) << table;
    EXPECT_EQ(text.substr(start, text.find("\n\n", start) + 1 - start), table);
}

} // namespace
