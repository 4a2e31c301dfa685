// SPDX-License-Identifier: Apache-2.0
// States of the library through its exported functions: initialisation, system module, last errors, port calls.
#include "support/producer.h"
#include "support/producer_calls.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <map>
#include <string>
#include <thread>

using namespace nq::test;

namespace
{

constexpr int kNotInitialized = -1002;

TEST(LibraryBeforeInit, EveryFunctionAnswersNotInitialized)
{
    const Producer producer;
    int wild = 0;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(&wild)})
    {
        for (const NamedCall& one : CallsOn(producer, handle))
        {
            EXPECT_EQ(one.call(), kNotInitialized) << one.name;
        }
        EXPECT_EQ(producer.GCCloseLib(), kNotInitialized);
    }
}

TEST(LibraryBeforeInit, TheUnimplementedPartQueryAnswersAtOnceAndTheOtherDoesNot)
{
    const Producer producer;
    EXPECT_EQ(producer.DSGetBufferPartInfo(nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr), -1003);
    EXPECT_EQ(producer.DSGetNumBufferParts(nullptr, nullptr, nullptr), kNotInitialized);
    EXPECT_EQ(producer.DSGetBufferChunkData(nullptr, nullptr, nullptr, nullptr), kNotInitialized);
}

TEST(LibraryBeforeInit, SettingAnAddressIsNotImplementedAndSetsNoError)
{
    const Producer producer;
    auto* const setIPConfig = reinterpret_cast<int (*)(void*, bool, bool, unsigned, unsigned, unsigned)>(
        producer.Find("_ZN5GenTL13NQSetIPConfigEPvbbjjj"));
    ASSERT_NE(setIPConfig, nullptr);
    EXPECT_EQ(setIPConfig(nullptr, true, false, 1, 2, 3), -1003);
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.LastErrorCode(), 0);
}

TEST(LibraryBeforeInit, AFailedInfoQueryIsReadableOnceTheLibraryIsInitialized)
{
    const Producer producer;
    EXPECT_EQ(producer.GCGetInfo(0, nullptr, nullptr, nullptr), kNotInitialized);
    int code = 0;
    size_t size = 0;
    EXPECT_EQ(producer.GCGetLastError(&code, nullptr, &size), kNotInitialized);
    EXPECT_EQ(code, 0);
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.LastErrorCode(), kNotInitialized);
    EXPECT_EQ(producer.LastErrorText(), "GC_ERR_NOT_INITIALIZED");
}

TEST(LibraryInit, TwoInitsAndOneCloseLeaveTheLibraryClosed)
{
    const Producer producer;
    EXPECT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.GCInitLib(), -1004);
    EXPECT_EQ(producer.LastErrorText(), "GC_ERR_RESOURCE_IN_USE");
    EXPECT_EQ(producer.GCCloseLib(), 0);
    EXPECT_EQ(producer.GCCloseLib(), kNotInitialized);
    EXPECT_EQ(producer.GCGetInfo(0, nullptr, nullptr, nullptr), kNotInitialized);
}

TEST(LibraryInit, AFailedInitRecordsTheError)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ASSERT_EQ(producer.GCInitLib(), -1004);
    EXPECT_EQ(producer.LastErrorCode(), -1004);
}

TEST(LibraryInit, MayFollowACloseManyTimes)
{
    const Producer producer;
    for (int round = 0; round < 5; ++round)
    {
        void* system = nullptr;
        ASSERT_EQ(producer.GCInitLib(), 0);
        ASSERT_EQ(producer.TLOpen(&system), 0);
        ASSERT_EQ(producer.GCCloseLib(), 0);
    }
}

TEST(LibraryInit, LastErrorsOutliveAClose)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.TLClose(nullptr), -1006);
    ASSERT_EQ(producer.GCCloseLib(), 0);
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST(LibraryInfo, WorksAfterInitWithoutAnOpenSystem)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    int type = 0;
    char text[64];
    size_t size = sizeof(text);
    EXPECT_EQ(producer.GCGetInfo(GenTL::TL_INFO_ID, &type, text, &size), 0);
    EXPECT_EQ(type, 1);
    EXPECT_STREQ(text, "NQGenTLGevRDMA");
    EXPECT_EQ(size, sizeof("NQGenTLGevRDMA"));
}

TEST(LibraryInfo, TellsThePathOfTheLibraryFile)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    int type = 0;
    char text[4097];
    size_t size = sizeof(text);
    ASSERT_EQ(producer.GCGetInfo(GenTL::TL_INFO_PATHNAME, &type, text, &size), 0);
    EXPECT_EQ(std::string(text), std::filesystem::canonical(NQ_CTI_PATH).string());
}

TEST(LibraryLastError, AThreadThatNeverFailedGetsNoErrorOfSizeNine)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    int code = 1;
    char text[16];
    size_t size = sizeof(text);
    EXPECT_EQ(producer.GCGetLastError(&code, text, &size), 0);
    EXPECT_EQ(code, 0);
    EXPECT_STREQ(text, "No Error");
    EXPECT_EQ(size, 9U);
}

TEST(LibraryLastError, ASmallBufferLeavesTheSizeAloneAndANullTextTellsIt)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ASSERT_EQ(producer.TLClose(nullptr), -1006);
    int code = 1;
    char text[5];
    size_t size = sizeof(text);
    EXPECT_EQ(producer.GCGetLastError(&code, text, &size), -1016);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(producer.GCGetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(size, 22U);
    EXPECT_EQ(code, -1006);
}

TEST(LibraryLastError, AFailingQueryOfTheLastErrorDoesNotOverwriteIt)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ASSERT_EQ(producer.TLClose(nullptr), -1006);
    EXPECT_EQ(producer.GCGetLastError(nullptr, nullptr, nullptr), -1009);
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST(LibraryLastError, SurvivesLaterSuccesses)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ASSERT_EQ(producer.TLClose(nullptr), -1006);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST(LibraryLastError, BelongsToItsThread)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    ASSERT_EQ(producer.TLClose(nullptr), -1006);
    std::thread([&producer] {
        EXPECT_EQ(producer.LastErrorCode(), 0);
        EXPECT_EQ(producer.TLOpen(nullptr), -1009);
        EXPECT_EQ(producer.LastErrorCode(), -1009);
    }).join();
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST(LibrarySystem, OpenWithoutAPointerIsRefused)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.TLOpen(nullptr), -1009);
    EXPECT_EQ(producer.LastErrorText(), "GC_ERR_INVALID_PARAMETER");
}

TEST(LibrarySystem, OpensOnceAndReopensUnderTheSameHandle)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* first = nullptr;
    void* second = nullptr;
    EXPECT_EQ(producer.TLOpen(&first), 0);
    EXPECT_NE(first, nullptr);
    EXPECT_EQ(producer.TLOpen(&second), -1004);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(producer.TLClose(first), 0);
    EXPECT_EQ(producer.TLOpen(&second), 0);
    EXPECT_EQ(second, first);
}

TEST(LibrarySystem, CloseOfAnyOtherHandleIsRefused)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    int other = 0;
    EXPECT_EQ(producer.TLClose(&other), -1006);
    EXPECT_EQ(producer.TLClose(nullptr), -1006);
    EXPECT_EQ(producer.TLClose(system), 0);
    EXPECT_EQ(producer.TLClose(system), -1001);
}

TEST(LibrarySystem, ItsHandleIsValidOnlyWhileItIsOpen)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    uint32_t count = 9;
    EXPECT_EQ(producer.TLGetNumInterfaces(system, &count), 0);
    ASSERT_EQ(producer.TLClose(system), 0);
    EXPECT_EQ(producer.TLGetNumInterfaces(system, &count), -1006);
    size_t size = 0;
    EXPECT_EQ(producer.GCReadPort(system, 0x10000, &count, &size), -1006);
}

TEST(LibrarySystem, CloseLibEndsTheHandleOfAnOpenSystem)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    ASSERT_EQ(producer.GCCloseLib(), 0);
    ASSERT_EQ(producer.GCInitLib(), 0);
    uint32_t count = 9;
    EXPECT_EQ(producer.TLGetNumInterfaces(system, &count), -1006);
}

TEST(LibraryHandles, ANullOrUnknownHandleIsInvalidEverywhere)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    // These take no handle, answer before they look at it, or have none of their own.
    const std::map<std::string, int> others = {{"GCGetInfo", -1009},
                                               {"GCGetLastError", -1009},
                                               {"TLOpen", -1009},
                                               {"IFGetParentTL", -1009},
                                               {"DevGetParentIF", -1009},
                                               {"DSGetParentDev", -1009},
                                               {"DSGetBufferChunkData", -1003},
                                               {"DSGetNumBufferParts", -1003}};
    for (void* const handle : {static_cast<void*>(nullptr), reinterpret_cast<void*>(0x10), reinterpret_cast<void*>(-1)})
    {
        for (const NamedCall& one : CallsOn(producer, handle))
        {
            const auto other = others.find(one.name);
            const int expected = other != others.end() ? other->second : -1006;
            EXPECT_EQ(one.call(), expected) << one.name;
            if (one.name != "GCGetLastError")
            {
                EXPECT_EQ(producer.LastErrorCode(), expected) << one.name;
            }
        }
    }
}

TEST(LibraryHandles, ASystemHandleIsNoInterfaceDeviceOrStream)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    int type = 0;
    size_t size = 0;
    EXPECT_EQ(producer.IFGetInfo(system, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(producer.DevGetInfo(system, 0, &type, nullptr, &size), -1006);
    EXPECT_EQ(producer.DSGetInfo(system, 0, &type, nullptr, &size), -1006);
    uint64_t word = 0;
    EXPECT_EQ(producer.EventGetData(system, &word, &size, 0), -1006);
}

TEST(LibraryHandles, ParentQueriesTestTheOutputBeforeTheHandle)
{
    const Producer producer;
    void* parent = nullptr;
    EXPECT_EQ(producer.IFGetParentTL(nullptr, nullptr), kNotInitialized);
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.IFGetParentTL(nullptr, nullptr), -1009);
    EXPECT_EQ(producer.IFGetParentTL(nullptr, &parent), -1006);
    EXPECT_EQ(producer.DevGetParentIF(nullptr, nullptr), -1009);
    EXPECT_EQ(producer.DevGetParentIF(nullptr, &parent), -1006);
    EXPECT_EQ(producer.DSGetParentDev(nullptr, nullptr), -1009);
    EXPECT_EQ(producer.DSGetParentDev(nullptr, &parent), -1006);
    EXPECT_EQ(producer.LastErrorCode(), -1006);
}

TEST(LibraryUnimplemented, ChunkAndPartQueriesAreNotImplemented)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    EXPECT_EQ(producer.DSGetBufferPartInfo(nullptr, nullptr, 0, 0, nullptr, nullptr, nullptr), -1003);
    EXPECT_EQ(producer.LastErrorCode(), 0);
    EXPECT_EQ(producer.DSGetBufferChunkData(nullptr, nullptr, nullptr, nullptr), -1003);
    EXPECT_EQ(producer.LastErrorCode(), -1003);
    EXPECT_EQ(producer.DSGetNumBufferParts(nullptr, nullptr, nullptr), -1003);
}

TEST(LibraryPort, TheSystemsPortDescribesItself)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    const std::map<int, std::string> texts = {{0, "NQGenTLGevRDMA"}, {1, "Nerquil Optic"}, {2, "GEVRDMATL"}, {3, "GEV"},
                                              {4, "TLSystem"},       {11, "2.5.5"},        {12, "TLPort"}};
    for (const auto& [command, expected] : texts)
    {
        int type = 0;
        char text[64];
        size_t size = sizeof(text);
        EXPECT_EQ(producer.GCGetPortInfo(system, command, &type, text, &size), 0);
        EXPECT_EQ(type, 1);
        EXPECT_EQ(std::string(text), expected);
    }
    EXPECT_EQ(producer.GCGetPortInfo(system, 0, nullptr, nullptr, nullptr), -1009);
}

TEST(LibraryPort, TheSystemsUrlNamesItsRegisterMap)
{
    const Producer producer;
    ASSERT_EQ(producer.GCInitLib(), 0);
    void* system = nullptr;
    ASSERT_EQ(producer.TLOpen(&system), 0);
    uint32_t count = 0;
    EXPECT_EQ(producer.GCGetNumPortURLs(system, &count), 0);
    EXPECT_EQ(count, 1U);
    char url[256];
    size_t size = sizeof(url);
    EXPECT_EQ(producer.GCGetPortURL(system, url, &size), 0);
    EXPECT_THAT(std::string(url), testing::StartsWith("local:NQGenTLGev_TL_1_0_0.xml;10000;"));
    EXPECT_EQ(size, std::string(url).size() + 2);
    int type = 0;
    char same[256];
    size = sizeof(same);
    EXPECT_EQ(producer.GCGetPortURLInfo(system, 0, 0, &type, same, &size), 0);
    EXPECT_STREQ(same, url);
    EXPECT_EQ(producer.GCGetPortURLInfo(system, 1, 0, &type, same, &size), -1017);
}

} // namespace
