// SPDX-License-Identifier: Apache-2.0
// URLs, paths, URIs, text, the clock and the path of the library.
#include "gentl/nq_gentl_util.h"

#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

namespace
{

TEST(BuildLocalUrl, NamesFileAddressAndLengthInLowerCaseHexadecimal)
{
    EXPECT_EQ(NQGenTLUtil::BuildLocalURL("NQGenTLGev_TL_1_0_0.xml", std::string(0x3F2C, 'x'), 0x10000),
              "local:NQGenTLGev_TL_1_0_0.xml;10000;3f2c");
}

TEST(BuildLocalUrl, OfAnEmptyTextEndsInZero)
{
    EXPECT_EQ(NQGenTLUtil::BuildLocalURL("a.xml", "", 0x10000), "local:a.xml;10000;0");
}

TEST(BuildLocalUrl, TakesA64BitAddress)
{
    EXPECT_EQ(NQGenTLUtil::BuildLocalURL("a.xml", "abc", 0xFEDCBA9876543210), "local:a.xml;fedcba9876543210;3");
}

TEST(BuildLocalUrl, CountsBytesBehindAZero)
{
    EXPECT_EQ(NQGenTLUtil::BuildLocalURL("a", std::string("a\0b", 3), 0), "local:a;0;3");
}

TEST(Printf, FormatsAsPrintfDoes)
{
    EXPECT_EQ(NQGenTLUtil::Printf("%02x-%s-%d", 10, "text", -1), "0a-text--1");
    EXPECT_EQ(NQGenTLUtil::Printf(""), "");
}

TEST(Printf, TakesAResultOf4095Characters)
{
    EXPECT_EQ(NQGenTLUtil::Printf("%4095d", 7), std::string(4094, ' ') + "7");
}

TEST(PrintfDeathTest, AResultThatDoesNotFitEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(NQGenTLUtil::Printf("%4096d", 7), testing::KilledBySignal(SIGABRT), "");
}

TEST(QueryCounterMs, IsTheMonotonicClockInMilliseconds)
{
    const auto now = [] {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<unsigned long>(time.tv_sec) * 1000 + static_cast<unsigned long>(time.tv_nsec) / 1000000;
    };
    const unsigned long before = now();
    const unsigned long counter = NQGenTLUtil::QueryCounterMS();
    EXPECT_GE(counter, before);
    EXPECT_LE(counter, now());
}

TEST(IsLittleEndian, IsTrue)
{
    EXPECT_TRUE(NQGenTLUtil::IsLittleEndian());
}

TEST(FilenameFromPath, FollowsTheLastSeparatorOfEitherKind)
{
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("C:\\dir\\file.xml"), "file.xml");
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("/dir/file.xml"), "file.xml");
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("/dir\\file.xml"), "file.xml");
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("C:\\dir/file.xml"), "file.xml");
}

TEST(FilenameFromPath, IsEmptyBehindATrailingSeparator)
{
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("/dir/"), "");
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("dir\\"), "");
}

TEST(FilenameFromPath, IsTheWholePathWithoutASeparator)
{
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath("file.xml"), "file.xml");
    EXPECT_EQ(NQGenTLUtil::FilenameFromPath(""), "");
}

TEST(DirectoryFromPath, PrecedesTheLastSeparator)
{
    EXPECT_EQ(NQGenTLUtil::DirectoryFromPath("/dir/file.xml"), "/dir");
    EXPECT_EQ(NQGenTLUtil::DirectoryFromPath("C:\\dir\\file.xml"), "C:\\dir");
    EXPECT_EQ(NQGenTLUtil::DirectoryFromPath("/dir/"), "/dir");
    EXPECT_EQ(NQGenTLUtil::DirectoryFromPath("/file.xml"), "");
}

TEST(DirectoryFromPath, IsEmptyWithoutASeparator)
{
    EXPECT_EQ(NQGenTLUtil::DirectoryFromPath("file.xml"), "");
}

TEST(UriDecode, TurnsEscapesIntoBytes)
{
    EXPECT_EQ(NQGenTLUtil::UriDecode("a%20b"), "a b");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%41%4a%4A"), "AJJ");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%ff%00x"), std::string("\xff\0x", 3));
    EXPECT_EQ(NQGenTLUtil::UriDecode("%2541"), "%41");
}

TEST(UriDecode, KeepsWhatIsNoEscape)
{
    EXPECT_EQ(NQGenTLUtil::UriDecode("100%"), "100%");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%G1"), "%G1");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%1G"), "%1G");
    EXPECT_EQ(NQGenTLUtil::UriDecode("x%4"), "x%4");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%%20"), "% ");
    EXPECT_EQ(NQGenTLUtil::UriDecode(""), "");
    EXPECT_EQ(NQGenTLUtil::UriDecode("%"), "%");
}

// Deliberate(OnlyTheSpaceIsEncoded)
TEST(UriEncode, EncodesOnlyTheSpace)
{
    EXPECT_EQ(NQGenTLUtil::UriEncode("a b/c"), "a%20b/c");
    EXPECT_EQ(NQGenTLUtil::UriEncode("?&#%\xe4\t"), "?&#%\xe4\t");
    EXPECT_EQ(NQGenTLUtil::UriEncode("  "), "%20%20");
    EXPECT_EQ(NQGenTLUtil::UriEncode(""), "");
}

TEST(GetCtiPath, IsTheAbsolutePathOfTheFileTheCodeIsIn)
{
    char self[PATH_MAX];
    ASSERT_NE(realpath("/proc/self/exe", self), nullptr);
    EXPECT_EQ(NQGenTLUtil::GetCtiPath(), self);
}

} // namespace
