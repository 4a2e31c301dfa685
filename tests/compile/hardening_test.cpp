// SPDX-License-Identifier: Apache-2.0
// What the built library carries against the exploitation of memory errors.
#include "support/command_output.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

using namespace nq::test;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace
{

/// A built file and the folder of its objects in the build.
struct Built
{
    std::string folder;
    std::string file;

    bool IsLibrary() const { return folder == "src" || folder == "loopback"; }
};

void PrintTo(const Built& built, std::ostream* out)
{
    *out << built.file;
}

const Built kFiles[] = {NQ_HARDENED_FILES};

std::string Readelf(const std::string& option, const std::string& file)
{
    return OutputOf({"/usr/bin/readelf", "-W", option, file});
}

std::string Imports(const Built& built)
{
    return OutputOf({"/usr/bin/nm", "-D", "--undefined-only", built.file});
}

std::vector<std::string> ObjectsOf(const Built& built)
{
    std::vector<std::string> objects;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(NQ_BINARY_DIR "/" + built.folder))
    {
        if (entry.path().extension() == ".o")
        {
            objects.push_back(entry.path());
        }
    }
    return objects;
}

class Hardening : public testing::TestWithParam<Built>
{
};

// Sanitizer builds check more than these measures do, and their run-times replace the functions concerned.
class HardeningWithoutSanitizer : public testing::TestWithParam<Built>
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

TEST_P(Hardening, RelocatedDataIsReadOnlyOnceTheFileIsLoaded)
{
    EXPECT_THAT(Readelf("-l", GetParam().file), HasSubstr("GNU_RELRO"));
    EXPECT_THAT(Readelf("-d", GetParam().file), ContainsRegex("FLAGS_1.*NOW"));
}

TEST_P(Hardening, NoMemoryIsWritableAndExecutable)
{
    const std::string headers = Readelf("-l", GetParam().file);
    EXPECT_THAT(headers, ContainsRegex("GNU_STACK .* RW +0"));
    EXPECT_THAT(headers, Not(ContainsRegex("(LOAD|GNU_STACK) .* R?WE ")));
    EXPECT_THAT(Readelf("-d", GetParam().file), Not(HasSubstr("TEXTREL")));
}

TEST_P(Hardening, TheFileIsLoadedAnywhere)
{
    EXPECT_THAT(Readelf("-h", GetParam().file), ContainsRegex("Type: +DYN"));
}

TEST_P(Hardening, TheFileNamesNoFolderToSearchLibrariesIn)
{
    std::string dynamic = Readelf("-d", GetParam().file);
    if (NQ_SANITIZED) // The run-time of clang's has a folder of its own.
    {
        dynamic =
            std::regex_replace(dynamic, std::regex(R"(\(RUNPATH\) +Library runpath: \[/usr/lib/llvm-[^:\]]*\])"), "");
    }
    EXPECT_THAT(dynamic, Not(ContainsRegex("RPATH|RUNPATH")));
}

TEST_P(HardeningWithoutSanitizer, FunctionsWithArraysCheckTheirStackFrame)
{
    EXPECT_THAT(Imports(GetParam()), HasSubstr("U __stack_chk_fail@"));
}

TEST_P(HardeningWithoutSanitizer, CopiesIntoArraysOfKnownSizeAreBounded)
{
    if (!NQ_OPTIMISED)
    {
        GTEST_SKIP() << "built without optimisation, which fortified calls need";
    }
    EXPECT_THAT(Imports(GetParam()), ContainsRegex("U __[a-z]+_chk@"));
    EXPECT_THAT(Imports(GetParam()), Not(ContainsRegex("U (snprintf|sprintf|strcpy|strcat|strncpy)@")));
    if (GetParam().IsLibrary())
    {
        // In the programs the C++ library's numbers as texts call it, with a size that they know.
        EXPECT_THAT(Imports(GetParam()), Not(HasSubstr("U vsnprintf@")));
    }
}

TEST_P(HardeningWithoutSanitizer, ALibraryTakesPartInControlFlowProtection)
{
    // Programs do not, as the C library's start files may have been built without.
    EXPECT_EQ(std::regex_search(Readelf("-n", GetParam().file), std::regex("x86 feature: IBT, SHSTK")),
              GetParam().IsLibrary());
    // What the start files bring along need not have been built for it, so nothing of a library calls it.
    EXPECT_NE(std::regex_search(Readelf("-d", GetParam().file), std::regex("\\((INIT|FINI)\\)")),
              GetParam().IsLibrary());
}

TEST_P(HardeningWithoutSanitizer, EveryObjectIsBuiltForControlFlowProtection)
{
    const std::vector<std::string> objects = ObjectsOf(GetParam());
    ASSERT_GE(objects.size(), GetParam().folder == "src" ? 12U : 4U);
    for (const std::string& object : objects)
    {
        EXPECT_THAT(Readelf("-n", object), ContainsRegex("x86 feature: IBT, SHSTK")) << object;
    }
}

// Most measures show in the file as soon as one object has them, and some nowhere else than in large stack frames.
TEST_P(HardeningWithoutSanitizer, EveryObjectIsCompiledWithEachMeasure)
{
    std::ifstream commands(NQ_BINARY_DIR "/compile_commands.json");
    const std::string output = " -o " + GetParam().folder + "/CMakeFiles/";
    long compiled = 0;
    for (std::string line; std::getline(commands, line);)
    {
        if (line.find(output) == std::string::npos)
        {
            continue;
        }
        ++compiled;
        for (const char* flag : {" -fstack-protector-strong ", " -fstack-clash-protection ", " -fcf-protection=full "})
        {
            EXPECT_THAT(line, HasSubstr(flag));
        }
        if (NQ_OPTIMISED)
        {
            EXPECT_THAT(line, ContainsRegex(" -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=[23] "));
        }
    }
    EXPECT_GE(compiled, GetParam().folder == "src" ? 12 : 4);
}

std::string NameOf(const testing::TestParamInfo<Built>& built)
{
    return built.param.folder;
}

INSTANTIATE_TEST_SUITE_P(Of, Hardening, testing::ValuesIn(kFiles), NameOf);
INSTANTIATE_TEST_SUITE_P(Of, HardeningWithoutSanitizer, testing::ValuesIn(kFiles), NameOf);

} // namespace
