// SPDX-License-Identifier: Apache-2.0
// What the built library carries against the exploitation of memory errors.
#include "support/command_output.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace
{

std::string Readelf(const std::string& option, const std::string& file = NQ_CTI_PATH)
{
    return OutputOf({"/usr/bin/readelf", "-W", option, file});
}

std::string Imports()
{
    return OutputOf({"/usr/bin/nm", "-D", "--undefined-only", NQ_CTI_PATH});
}

std::vector<std::string> ObjectsOfTheLibrary()
{
    std::vector<std::string> objects;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(NQ_BINARY_DIR "/src"))
    {
        if (entry.path().extension() == ".o")
        {
            objects.push_back(entry.path());
        }
    }
    return objects;
}

class Hardening : public testing::Test
{
};

// Sanitizer builds check more than these measures do, and their run-times replace the functions concerned.
class HardeningWithoutSanitizer : public testing::Test
{
  protected:
    void SetUp() override
    {
        if (NQ_SANITIZED)
        {
            GTEST_SKIP() << "built with sanitizers, which take the place of this measure";
        }
    }
};

TEST_F(Hardening, RelocatedDataIsReadOnlyOnceTheLibraryIsLoaded)
{
    EXPECT_THAT(Readelf("-l"), HasSubstr("GNU_RELRO"));
    const std::string dynamic = Readelf("-d");
    EXPECT_THAT(dynamic, HasSubstr("BIND_NOW"));
    EXPECT_THAT(dynamic, ContainsRegex("FLAGS_1.*NOW"));
}

TEST_F(Hardening, NoMemoryIsWritableAndExecutable)
{
    const std::string headers = Readelf("-l");
    EXPECT_THAT(headers, ContainsRegex("GNU_STACK .* RW +0"));
    EXPECT_THAT(headers, Not(ContainsRegex("(LOAD|GNU_STACK) .* R?WE ")));
    EXPECT_THAT(Readelf("-d"), Not(HasSubstr("TEXTREL")));
}

TEST_F(Hardening, TheLibraryNamesNoFolderToSearchOtherLibrariesIn)
{
    EXPECT_THAT(Readelf("-d"), Not(ContainsRegex("RPATH|RUNPATH")));
}

TEST_F(HardeningWithoutSanitizer, FunctionsWithArraysCheckTheirStackFrame)
{
    EXPECT_THAT(Imports(), HasSubstr("U __stack_chk_fail@"));
}

TEST_F(HardeningWithoutSanitizer, CopiesIntoArraysOfKnownSizeAreBounded)
{
    if (!NQ_OPTIMISED)
    {
        GTEST_SKIP() << "built without optimisation, which fortified calls need";
    }
    EXPECT_THAT(Imports(), HasSubstr("U __vsnprintf_chk@"));
    EXPECT_THAT(Imports(), HasSubstr("U __snprintf_chk@"));
    EXPECT_THAT(Imports(), Not(ContainsRegex("U (vsnprintf|snprintf|sprintf|strcpy|strcat|strncpy)@")));
}

TEST_F(HardeningWithoutSanitizer, TheLibraryTakesPartInControlFlowProtection)
{
    EXPECT_THAT(Readelf("-n"), ContainsRegex("x86 feature: IBT, SHSTK"));
    // What the start files bring along need not have been built for it, so nothing calls it.
    EXPECT_THAT(Readelf("-d"), Not(ContainsRegex("\\((INIT|FINI)\\)")));
}

TEST_F(HardeningWithoutSanitizer, EveryObjectOfTheLibraryIsBuiltForControlFlowProtection)
{
    const std::vector<std::string> objects = ObjectsOfTheLibrary();
    ASSERT_GT(objects.size(), 50U);
    for (const std::string& object : objects)
    {
        EXPECT_THAT(Readelf("-n", object), ContainsRegex("x86 feature: IBT, SHSTK")) << object;
    }
}

} // namespace
