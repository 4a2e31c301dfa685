// SPDX-License-Identifier: Apache-2.0
// What the library file shows to the outside, against the reviewed list, in both directions.
#include "support/command_output.h"

#include "GenTL/GenTLFunctions.h"

#include <gmock/gmock.h>

#include <cxxabi.h>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>

using namespace nq::test;

namespace
{

std::string Readable(const std::string& symbol)
{
    int status = 0;
    const std::unique_ptr<char, void (*)(void*)> name(abi::__cxa_demangle(symbol.c_str(), nullptr, nullptr, &status),
                                                      std::free);
    std::string text = status == 0 ? name.get() : symbol;
    text = std::regex_replace(text, std::regex(R"(\[abi:cxx11\])"), "");
    return std::regex_replace(
        text, std::regex(R"(std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> ?>)"),
        "std::string");
}

/// Lines "<kind> <readable name>". The two variants of a constructor or destructor give one line.
std::set<std::string> Exported()
{
    std::set<std::string> exported;
    std::istringstream lines(OutputOf({"/usr/bin/nm", "-D", "--defined-only", NQ_CTI_PATH}));
    std::string address;
    std::string kind;
    std::string symbol;
    while (lines >> address >> kind >> symbol)
    {
        kind = kind == "V" ? "u" : kind == "D" ? "B" : kind;
        exported.insert(kind + " " + Readable(symbol));
    }
    return exported;
}

std::set<std::string> Reviewed()
{
    std::set<std::string> reviewed;
    std::ifstream file(NQ_SOURCE_DIR "/tests/compile/exports.txt");
    for (std::string line; std::getline(file, line);)
    {
        if (!line.empty() && line[0] != '#')
        {
            reviewed.insert(line);
        }
    }
#define NQ_ADD(name) reviewed.insert("T " #name);
    GENTL_FUNCTIONS(NQ_ADD)
#undef NQ_ADD
    return reviewed;
}

std::vector<std::string> Without(const std::set<std::string>& all, const std::set<std::string>& without)
{
    std::vector<std::string> rest;
    std::set_difference(all.begin(), all.end(), without.begin(), without.end(), std::back_inserter(rest));
    return rest;
}

TEST(Exports, NothingIsExportedThatIsNotReviewed)
{
    EXPECT_THAT(Without(Exported(), Reviewed()), testing::IsEmpty());
}

TEST(Exports, EverythingReviewedIsExported)
{
    EXPECT_THAT(Without(Reviewed(), Exported()), testing::IsEmpty());
}

TEST(Exports, TheInterfaceHas57Functions)
{
    std::set<std::string> names;
#define NQ_ADD(name) names.insert(#name);
    GENTL_FUNCTIONS(NQ_ADD)
#undef NQ_ADD
    EXPECT_EQ(names.size(), 57U);
}

TEST(Exports, TheLoggerAndItsGuardAreUniqueInTheProcess)
{
    const std::string symbols = OutputOf({"/usr/bin/nm", "-D", "--defined-only", NQ_CTI_PATH});
#if defined(__clang__)
    GTEST_SKIP() << "this compiler has no unique symbols; weak ones merge in the global scope";
#else
    EXPECT_THAT(symbols, testing::HasSubstr(" u _ZZN8NQLogger11getInstanceEvE8instance\n"));
    EXPECT_THAT(symbols, testing::HasSubstr(" u _ZGVZN8NQLogger11getInstanceEvE8instance\n"));
#endif
}

TEST(LibraryFile, HasItsSoname)
{
    EXPECT_THAT(OutputOf({"/usr/bin/readelf", "-dW", NQ_CTI_PATH}),
                testing::HasSubstr("Library soname: [libnq_gev_rdma_tl.cti.2]"));
}

TEST(LibraryFile, NeedsNothingBeyondRdmaAndTheRunTime)
{
    const std::string dynamic = OutputOf({"/usr/bin/readelf", "-dW", NQ_CTI_PATH});
    const std::regex needed(R"(Shared library: \[([^\]]+)\])");
    std::set<std::string> libraries;
    for (std::sregex_iterator match(dynamic.begin(), dynamic.end(), needed); match != std::sregex_iterator(); ++match)
    {
        libraries.insert((*match)[1]);
    }
    for (const std::string& library : libraries)
    {
        EXPECT_TRUE(std::regex_match(
            library,
            std::regex(
                R"((libibverbs|librdmacm|libstdc\+\+|libm|libgcc_s|libc|lib(a|t|ub)san|ld-linux.*)\.so\.\d+|libclang_rt\.asan-x86_64\.so)")))
            << library;
    }
    EXPECT_TRUE(libraries.contains("libibverbs.so.1"));
    EXPECT_TRUE(libraries.contains("librdmacm.so.1"));
}

TEST(LibraryFile, BindsNowAndIsNeverUnmapped)
{
    const std::string dynamic = OutputOf({"/usr/bin/readelf", "-dW", NQ_CTI_PATH});
    EXPECT_THAT(dynamic, testing::ContainsRegex("FLAGS_1.*NOW"));
    EXPECT_THAT(dynamic, testing::ContainsRegex("FLAGS_1.*NODELETE"));
}

} // namespace
