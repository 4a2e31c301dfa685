// SPDX-License-Identifier: Apache-2.0
// The contract of the copy functions in which every info query ends.
#include "gentl/nq_gentl_util.h"

#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace
{

struct Case
{
    const char* name;
    int type;
    std::string bytes; ///< what has to arrive in the buffer
    std::function<int(int*, void*, unsigned long*)> copy;
};

template <class Value>
std::string Bytes(Value value)
{
    return {reinterpret_cast<const char*>(&value), sizeof(value)};
}

std::vector<Case> AllCases()
{
    using namespace NQGenTLUtil;
    static int object = 0;
    static char raw[] = {1, 0, 2, 0, 3};
    return {
        {"String", 1, std::string("abc\0", 4),
         [](int* t, void* b, unsigned long* s) { return CopyInfoString("abc", t, b, s); }},
        {"Int16", 3, std::string("\xfe\xff", 2),
         [](int* t, void* b, unsigned long* s) { return CopyInfoInt16(-2, t, b, s); }},
        {"Uint16", 4, std::string("\x02\x01", 2),
         [](int* t, void* b, unsigned long* s) { return CopyInfoUint16(0x0102, t, b, s); }},
        {"Int32", 5, std::string("\xfe\xff\xff\xff", 4),
         [](int* t, void* b, unsigned long* s) { return CopyInfoInt32(-2, t, b, s); }},
        {"Uint32", 6, std::string("\x04\x03\x02\x01", 4),
         [](int* t, void* b, unsigned long* s) { return CopyInfoUint32(0x01020304, t, b, s); }},
        {"Int64", 7, std::string("\xfe\xff\xff\xff\xff\xff\xff\xff", 8),
         [](int* t, void* b, unsigned long* s) { return CopyInfoInt64(-2, t, b, s); }},
        {"Uint64", 8, std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8),
         [](int* t, void* b, unsigned long* s) { return CopyInfoUint64(0x0102030405060708, t, b, s); }},
        {"Float64", 9, std::string("\0\0\0\0\0\0\xf8\x3f", 8),
         [](int* t, void* b, unsigned long* s) { return CopyInfoFloat64(1.5, t, b, s); }},
        {"Ptr", 10, Bytes(&object), [](int* t, void* b, unsigned long* s) { return CopyInfoPtr(&object, t, b, s); }},
        {"Bool", 11, std::string("\x01", 1),
         [](int* t, void* b, unsigned long* s) { return CopyInfoBool(true, t, b, s); }},
        {"SizeT", 12, std::string("\x08\x07\x06\x05\x04\x03\x02\x01", 8),
         [](int* t, void* b, unsigned long* s) { return CopyInfoSizeT(0x0102030405060708, t, b, s); }},
        {"Buffer", 13, std::string("\x01\0\x02\0\x03", 5),
         [](int* t, void* b, unsigned long* s) { return CopyInfoBuffer(raw, sizeof(raw), t, b, s); }},
    };
}

TEST(CopyInfo, AllTwelveCopyTheValueAndTellTypeAndSize)
{
    const std::vector<Case> cases = AllCases();
    ASSERT_EQ(cases.size(), 12U);
    for (const Case& one : cases)
    {
        SCOPED_TRACE(one.name);
        std::string buffer(16, '\x5a');
        int type = -1;
        unsigned long size = one.bytes.size();
        EXPECT_EQ(one.copy(&type, buffer.data(), &size), 0);
        EXPECT_EQ(type, one.type);
        EXPECT_EQ(size, one.bytes.size());
        EXPECT_EQ(buffer, one.bytes + std::string(16 - one.bytes.size(), '\x5a'));
    }
}

TEST(CopyInfo, ANullBufferAsksForTheSizeOnly)
{
    for (const Case& one : AllCases())
    {
        SCOPED_TRACE(one.name);
        int type = -1;
        unsigned long size = 0;
        EXPECT_EQ(one.copy(&type, nullptr, &size), 0);
        EXPECT_EQ(type, one.type);
        EXPECT_EQ(size, one.bytes.size());
    }
}

TEST(CopyInfo, ANullSizeIsRefusedAndNothingIsWritten)
{
    for (const Case& one : AllCases())
    {
        SCOPED_TRACE(one.name);
        std::string buffer(16, '\x5a');
        int type = -1;
        EXPECT_EQ(one.copy(&type, buffer.data(), nullptr), -1009);
        EXPECT_EQ(type, -1);
        EXPECT_EQ(buffer, std::string(16, '\x5a'));
    }
}

TEST(CopyInfo, ANullTypeIsAllowed)
{
    for (const Case& one : AllCases())
    {
        SCOPED_TRACE(one.name);
        std::string buffer(one.bytes.size(), '\x5a');
        unsigned long size = buffer.size();
        EXPECT_EQ(one.copy(nullptr, buffer.data(), &size), 0);
        EXPECT_EQ(buffer, one.bytes);
    }
}

TEST(CopyInfo, TooLittleSpaceTellsTheNeededSizeAndTheTypeAndLeavesTheBufferAlone)
{
    for (const Case& one : AllCases())
    {
        if (one.type == 4)
        {
            continue; // CopyInfoUint16 has a test of its own
        }
        SCOPED_TRACE(one.name);
        std::string buffer(16, '\x5a');
        int type = -1;
        unsigned long size = one.bytes.size() - 1;
        EXPECT_EQ(one.copy(&type, buffer.data(), &size), -1016);
        EXPECT_EQ(type, one.type);
        EXPECT_EQ(size, one.bytes.size());
        EXPECT_EQ(buffer, std::string(16, '\x5a'));
    }
}

TEST(CopyInfo, MoreSpaceThanNeededReportsTheNeededSize)
{
    unsigned int value = 0;
    unsigned long size = 100;
    EXPECT_EQ(NQGenTLUtil::CopyInfoUint32(7, nullptr, &value, &size), 0);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(value, 7U);
}

TEST(CopyInfoString, OfAnEmptyStringIntoOneByteStoresASingleNul)
{
    char buffer[2] = {'x', 'y'};
    int type = -1;
    unsigned long size = 1;
    EXPECT_EQ(NQGenTLUtil::CopyInfoString("", &type, buffer, &size), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(buffer[0], '\0');
    EXPECT_EQ(buffer[1], 'y');
}

TEST(CopyInfoString, OfAbcIntoThreeBytesIsTooSmallAndNeedsFour)
{
    char buffer[3] = {'x', 'y', 'z'};
    unsigned long size = 3;
    EXPECT_EQ(NQGenTLUtil::CopyInfoString("abc", nullptr, buffer, &size), -1016);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(std::string(buffer, 3), "xyz");
}

TEST(CopyInfoString, KeepsBytesBehindAZero)
{
    char buffer[8];
    std::memset(buffer, 'x', sizeof(buffer));
    unsigned long size = sizeof(buffer);
    EXPECT_EQ(NQGenTLUtil::CopyInfoString(std::string("a\0b\0", 4), nullptr, buffer, &size), 0);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(std::string(buffer, 8), std::string("a\0b\0\0xxx", 8));
}

TEST(CopyInfoUint32, WithANullBufferGivesSizeFourAndTypeSix)
{
    int type = -1;
    unsigned long size = 99;
    EXPECT_EQ(NQGenTLUtil::CopyInfoUint32(5, &type, nullptr, &size), 0);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(type, 6);
}

TEST(CopyInfoBool, WithZeroSizeAndABufferIsTooSmall)
{
    bool value = false;
    unsigned long size = 0;
    EXPECT_EQ(NQGenTLUtil::CopyInfoBool(true, nullptr, &value, &size), -1016);
    EXPECT_EQ(size, 1U);
    EXPECT_FALSE(value);
}

// Deliberate(NumberStoredBeforeTheSpace)
TEST(CopyInfoUint16, StoresTheValueBeforeTheSpaceIsCompared)
{
    unsigned char buffer[3] = {0x5a, 0x5a, 0x5a};
    int type = -1;
    unsigned long size = 1;
    EXPECT_EQ(NQGenTLUtil::CopyInfoUint16(0x1234, &type, buffer, &size), -1016);
    EXPECT_EQ(type, 4);
    EXPECT_EQ(size, 2U);
    EXPECT_EQ(buffer[0], 0x34);
    EXPECT_EQ(buffer[1], 0x12);
    EXPECT_EQ(buffer[2], 0x5a);
}

TEST(CopyInfoInt64, WithANullTypeAndAGoodBufferSucceeds)
{
    long value = 0;
    unsigned long size = 8;
    EXPECT_EQ(NQGenTLUtil::CopyInfoInt64(-5, nullptr, &value, &size), 0);
    EXPECT_EQ(value, -5);
}

TEST(CopyInfoBuffer, OfNoBytesSucceedsAndWritesNothing)
{
    char buffer = 'x';
    int type = -1;
    unsigned long size = 1;
    EXPECT_EQ(NQGenTLUtil::CopyInfoBuffer(nullptr, 0, &type, &buffer, &size), 0);
    EXPECT_EQ(type, 13);
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(buffer, 'x');
}

} // namespace
