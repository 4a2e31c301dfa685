// SPDX-License-Identifier: Apache-2.0
// What ./run check --matrix fails on, with a made-up gentl-check of two rules.
#include "support/temporary_folder.h"
#include "support/tool.h"

#include <gtest/gtest.h>

using namespace nq::test;

namespace
{

constexpr const char* kTwoRules = R"(#!/bin/sh
[ "$1" != --list ] || exec printf 'family\n  AA-001  must\n  AA-002  must\n'
one=passed two=passed
case "$NQ_FAULTS" in
breaks_one) one=failed ;;
breaks_two) two=warned ;;
breaks_both) one=failed two=failed ;;
esac
exec printf '{"findings": [{"id": "AA-001", "outcome": "%s"}, {"id": "AA-002", "outcome": "%s"}]}' $one $two
)";

/// The rules by faults of a producer whose code has these, in its list with the rules that find them.
Outcome Matrix(const std::string& code, const std::string& list, std::string program = kTwoRules)
{
    const TemporaryFolder folder;
    const std::string build = folder / "build";
    std::filesystem::create_directories(build + "/tests/support/faulty_producer");
    std::ofstream(build + "/tests/support/faulty_producer/nq_faulty_whole.cti") << "";
    std::ofstream(build + "/gentl-check") << program;
    std::filesystem::permissions(build + "/gentl-check", std::filesystem::perms::owner_all);
    std::ofstream(folder / "code.cpp") << code;
    std::ofstream(folder / "faults.txt") << list;
    return RunProgram({"python3", NQ_SOURCE_DIR "/scripts/check_matrix.py", build, folder / "faults.txt"});
}

void ExpectFails(const Outcome& matrix, const std::string& why)
{
    EXPECT_EQ(matrix.exitCode, 1) << matrix.output;
    EXPECT_TRUE(matrix.output.ends_with(" 2 rules\n" + why + "\n")) << matrix.output;
}

const std::string kCode = R"(Fault("breaks_one"), Fault("breaks_two"))";

TEST(CheckMatrix, PassesWhenAllIsAsListed)
{
    const Outcome matrix = Matrix(kCode, "# by name\nbreaks_one AA-001\nbreaks_two AA-002 # warned\n");
    EXPECT_EQ(matrix.exitCode, 0) << matrix.output;
    EXPECT_NE(matrix.output.find("2 faults, 2 rules\n"), std::string::npos) << matrix.output;
}

TEST(CheckMatrix, FailsOnARuleThatNoFaultTrips)
{
    ExpectFails(Matrix(R"(Fault("breaks_one"))", "breaks_one AA-001\n"), "AA-002: no fault trips it");
}

TEST(CheckMatrix, FailsOnAFaultThatNoRuleFinds)
{
    ExpectFails(Matrix(kCode + R"( Fault("breaks_none"))", "breaks_one AA-001\nbreaks_two AA-002\nbreaks_none\n"),
                "breaks_none: no rule finds it");
}

TEST(CheckMatrix, FailsOnAFaultThatTripsMoreThanIsListed)
{
    ExpectFails(
        Matrix(kCode + R"( Fault("breaks_both"))", "breaks_one AA-001\nbreaks_two AA-002\nbreaks_both AA-001\n"),
        "breaks_both: found by ['AA-001', 'AA-002'] instead of ['AA-001']");
}

TEST(CheckMatrix, FailsOnAFaultOfTheCodeThatIsNotListed)
{
    ExpectFails(Matrix(kCode + R"( Fault("breaks_none"))", "breaks_one AA-001\nbreaks_two AA-002\n"),
                "breaks_none: in the code of the producer or in the list, not in both");
}

TEST(CheckMatrix, FailsWhenTheProducerWithoutFaultsBreaksARule)
{
    std::string program = kTwoRules;
    program.replace(program.find("one=passed"), 10, "one=failed");
    ExpectFails(Matrix(kCode, "breaks_one AA-001\nbreaks_two AA-001 AA-002\n", program),
                "without a fault: AA-001 is broken");
}

} // namespace
