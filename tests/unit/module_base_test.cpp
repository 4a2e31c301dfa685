// SPDX-License-Identifier: Apache-2.0
// What all modules share: opening and closing, port information, URLs, stacked access and registered events.
#include "gentl/nq_gentl_module_base.h"

#include "gentl/nq_gentl_event.h"
#include "gentl/nq_gentl_event_error.h"
#include "support/fake_module.h"
#include "support/trace_capture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <thread>

using nq::test::FakeModule;
using nq::test::TraceCapture;

namespace
{

GigERDMA::_NQ_GENTL_PORT_INFO FullPortInfo()
{
    GigERDMA::_NQ_GENTL_PORT_INFO info;
    info.id = "the id";
    info.vendor = "the vendor";
    info.model = "the model";
    info.tlType = "GEV";
    info.module = "TLSystem";
    info.littleEndian = true;
    info.accessRead = true;
    info.version = "2.5.5";
    info.portName = "TLPort";
    return info;
}

struct PortInfoRow
{
    int command;
    int type;
    std::string bytes;
};

class PortInfoTable : public testing::TestWithParam<PortInfoRow>
{
};

std::string Text(const char* text)
{
    return std::string(text, std::strlen(text) + 1);
}

} // namespace

TEST_P(PortInfoTable, AnswersFromTheRecord)
{
    FakeModule module;
    module.portInfo = FullPortInfo();
    const PortInfoRow& row = GetParam();
    char buffer[64];
    std::memset(buffer, 0x55, sizeof buffer);
    int type = -1;
    unsigned long size = sizeof buffer;
    EXPECT_EQ(module.GetPortInfo(row.command, &type, buffer, &size), 0);
    EXPECT_EQ(type, row.type);
    EXPECT_EQ(size, row.bytes.size());
    EXPECT_EQ(std::string(buffer, row.bytes.size()), row.bytes);
}

INSTANTIATE_TEST_SUITE_P(ModuleBase, PortInfoTable,
                         testing::Values(PortInfoRow{0, 1, Text("the id")}, PortInfoRow{1, 1, Text("the vendor")},
                                         PortInfoRow{2, 1, Text("the model")}, PortInfoRow{3, 1, Text("GEV")},
                                         PortInfoRow{4, 1, Text("TLSystem")}, PortInfoRow{5, 11, std::string("\1", 1)},
                                         PortInfoRow{6, 11, std::string("\0", 1)},
                                         PortInfoRow{7, 11, std::string("\1", 1)},
                                         PortInfoRow{8, 11, std::string("\0", 1)},
                                         PortInfoRow{9, 11, std::string("\0", 1)},
                                         PortInfoRow{10, 11, std::string("\0", 1)}, PortInfoRow{11, 1, Text("2.5.5")},
                                         PortInfoRow{12, 1, Text("TLPort")}),
                         [](const auto& row) { return "Command" + std::to_string(row.param.command); });

TEST(ModuleBase, EachBooleanPortInfoCommandHasItsOwnField)
{
    FakeModule module;
    bool* const fields[] = {&module.portInfo.littleEndian, &module.portInfo.bigEndian, &module.portInfo.accessRead,
                            &module.portInfo.accessWrite,  &module.portInfo.accessNA,  &module.portInfo.accessNI};
    for (int set = 0; set < 6; ++set)
    {
        module.portInfo = {};
        *fields[set] = true;
        for (int command = 0; command < 6; ++command)
        {
            int type = 0;
            unsigned char value = 9;
            unsigned long size = 1;
            EXPECT_EQ(module.GetPortInfo(5 + command, &type, &value, &size), 0);
            EXPECT_EQ(value, command == set ? 1 : 0);
        }
    }
}

TEST(ModuleBase, PortInfoCommand13IsRefusedAfterClearingTheBuffer)
{
    FakeModule module;
    for (const int command : {13, -1, 1000})
    {
        char buffer[4] = {1, 2, 3, 4};
        int type = 77;
        unsigned long size = sizeof buffer;
        EXPECT_EQ(module.GetPortInfo(command, &type, buffer, &size), -1003);
        EXPECT_EQ(std::string(buffer, 4), std::string(4, '\0'));
        EXPECT_EQ(type, 77);
        EXPECT_EQ(size, 4U);
    }
}

TEST(ModuleBase, AStringPortInfoWithANullBufferGivesTheNeededSize)
{
    FakeModule module;
    module.portInfo = FullPortInfo();
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(module.GetPortInfo(0, &type, nullptr, &size), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 7U);
}

TEST(ModuleBase, PortInfoClearsTheBufferEvenWhenItIsTooSmall)
{
    FakeModule module;
    module.portInfo = FullPortInfo();
    char buffer[3] = {1, 2, 3};
    int type = 0;
    unsigned long size = sizeof buffer;
    EXPECT_EQ(module.GetPortInfo(0, &type, buffer, &size), -1016);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(std::string(buffer, 3), std::string(3, '\0'));
}

TEST(ModuleBase, PortInfoNeedsTypeAndSize)
{
    FakeModule module;
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(module.GetPortInfo(0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(module.GetPortInfo(0, &type, nullptr, nullptr), -1009);
}

TEST(ModuleBase, NumberOfPortUrls)
{
    FakeModule module;
    unsigned int count = 9;
    EXPECT_EQ(module.GetNumPortURLs(&count), 0);
    EXPECT_EQ(count, 0U);
    module.urls = {"one", "", "three"};
    EXPECT_EQ(module.GetNumPortURLs(&count), 0);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(module.GetNumPortURLs(nullptr), -1009);
}

TEST(ModuleBase, PortUrlInfoGivesTheUrlAtTheIndex)
{
    FakeModule module;
    module.urls = {"local:a.xml;10000;1", "file:b"};
    char buffer[32];
    int type = 0;
    unsigned long size = sizeof buffer;
    EXPECT_EQ(module.GetPortURLInfo(1, 0, &type, buffer, &size), 0);
    EXPECT_EQ(type, 1);
    EXPECT_EQ(size, 7U);
    EXPECT_STREQ(buffer, "file:b");
}

TEST(ModuleBase, PortUrlInfoWithTheIndexEqualToTheCountIsRefused)
{
    FakeModule module;
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(module.GetPortURLInfo(0, 0, &type, nullptr, &size), -1017);
    module.urls = {"one", "two"};
    EXPECT_EQ(module.GetPortURLInfo(2, 0, &type, nullptr, &size), -1017);
    EXPECT_EQ(module.GetPortURLInfo(0xFFFFFFFF, 0, &type, nullptr, &size), -1017);
}

TEST(ModuleBase, PortUrlInfoRefusesOtherCommandsAndNullPointers)
{
    FakeModule module;
    module.urls = {"one"};
    int type = 0;
    unsigned long size = 0;
    EXPECT_EQ(module.GetPortURLInfo(0, 1, &type, nullptr, &size), -1003);
    EXPECT_EQ(module.GetPortURLInfo(7, -1, &type, nullptr, &size), -1003);
    EXPECT_EQ(module.GetPortURLInfo(0, 0, nullptr, nullptr, &size), -1009);
    EXPECT_EQ(module.GetPortURLInfo(0, 0, &type, nullptr, nullptr), -1009);
}

TEST(ModuleBase, PortUrlOfASingleUrlHasTwoBytesMoreThanTheUrl)
{
    FakeModule module;
    module.urls = {"abc"};
    char buffer[8];
    unsigned long size = sizeof buffer;
    EXPECT_EQ(module.GetPortURL(buffer, &size), 0);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(std::string(buffer, 5), std::string("abc\0\0", 5));
}

TEST(ModuleBase, PortUrlOfNoUrlHasSizeOne)
{
    FakeModule module;
    char buffer[2] = {7, 7};
    unsigned long size = sizeof buffer;
    EXPECT_EQ(module.GetPortURL(buffer, &size), 0);
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(buffer[0], 0);
}

TEST(ModuleBase, PortUrlListsAllUrlsEachWithItsNul)
{
    FakeModule module;
    module.urls = {"ab", "", "c"};
    unsigned long size = 0;
    EXPECT_EQ(module.GetPortURL(nullptr, &size), 0);
    EXPECT_EQ(size, 7U);
    char buffer[7];
    EXPECT_EQ(module.GetPortURL(buffer, &size), 0);
    EXPECT_EQ(std::string(buffer, 7), std::string("ab\0\0c\0\0", 7));
    size = 6;
    EXPECT_EQ(module.GetPortURL(buffer, &size), -1016);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(module.GetPortURL(buffer, nullptr), -1009);
}

TEST(ModuleBase, AStackedReadStopsAtTheFirstFailure)
{
    FakeModule module;
    std::vector<unsigned long> addresses;
    module.onRead = [&](unsigned long address, void*, unsigned long*) {
        addresses.push_back(address);
        return address == 2 ? -1015 : 0;
    };
    char data[4];
    GenTL::S_PORT_REGISTER_STACK_ENTRY entries[] = {{1, data, 4}, {2, data, 4}, {3, data, 4}};
    unsigned long count = 3;
    EXPECT_EQ(module.ReadPortStacked(entries, &count), -1015);
    EXPECT_EQ(addresses, (std::vector<unsigned long>{1, 2}));
    EXPECT_EQ(count, 3U);
}

TEST(ModuleBase, AStackedWriteStopsAtTheFirstFailure)
{
    FakeModule module;
    std::vector<unsigned long> addresses;
    module.onWrite = [&](unsigned long address, const void*, unsigned long*) {
        addresses.push_back(address);
        return address == 2 ? -1005 : 0;
    };
    char data[4];
    GenTL::S_PORT_REGISTER_STACK_ENTRY entries[] = {{1, data, 4}, {2, data, 4}, {3, data, 4}};
    unsigned long count = 3;
    EXPECT_EQ(module.WritePortStacked(entries, &count), -1005);
    EXPECT_EQ(addresses, (std::vector<unsigned long>{1, 2}));
    EXPECT_EQ(count, 3U);
}

// Deliberate(StackedSizesStay): a size that the port changes does not reach the entry.
TEST(ModuleBase, AStackedAccessDoesNotHandChangedSizesBack)
{
    FakeModule module;
    char data[8];
    module.onRead = [&](unsigned long, void* buffer, unsigned long* size) {
        EXPECT_EQ(buffer, data);
        EXPECT_EQ(*size, 8U);
        *size = 2;
        return 0;
    };
    module.onWrite = [](unsigned long, const void*, unsigned long* size) {
        *size = 3;
        return 0;
    };
    GenTL::S_PORT_REGISTER_STACK_ENTRY entry{1, data, 8};
    unsigned long count = 1;
    EXPECT_EQ(module.ReadPortStacked(&entry, &count), 0);
    EXPECT_EQ(module.WritePortStacked(&entry, &count), 0);
    EXPECT_EQ(entry.Size, 8U);
}

TEST(ModuleBase, AStackedAccessChecksItsArguments)
{
    FakeModule module;
    GenTL::S_PORT_REGISTER_STACK_ENTRY entry{};
    unsigned long none = 0;
    EXPECT_EQ(module.ReadPortStacked(nullptr, &none), -1009);
    EXPECT_EQ(module.ReadPortStacked(&entry, nullptr), -1009);
    EXPECT_EQ(module.ReadPortStacked(&entry, &none), 0);
    EXPECT_EQ(module.WritePortStacked(nullptr, &none), -1009);
    EXPECT_EQ(module.WritePortStacked(&entry, nullptr), -1009);
    EXPECT_EQ(module.WritePortStacked(&entry, &none), 0);
}

TEST(ModuleBase, KeepsItsParent)
{
    FakeModule parent;
    FakeModule child("", "", &parent);
    EXPECT_EQ(parent.GetParent(), nullptr);
    EXPECT_EQ(child.GetParent(), &parent);
}

TEST(ModuleBase, CanBeOpenedAgainAfterClosing)
{
    FakeModule module;
    EXPECT_FALSE(module.IsOpen());
    EXPECT_EQ(module.Open(), 0);
    EXPECT_TRUE(module.IsOpen());
    EXPECT_EQ(module.Close(), 0);
    EXPECT_FALSE(module.IsOpen());
    EXPECT_EQ(module.Open(), 0);
    EXPECT_EQ(module.calls, (std::vector<std::string>{"DoOpen", "DoClose", "DoOpen"}));
}

TEST(ModuleBase, OpenOnAnOpenModuleIsRefused)
{
    FakeModule module;
    module.Open();
    TraceCapture trace;
    EXPECT_EQ(module.Open(), -1004);
    EXPECT_EQ(trace.At(2), std::vector<std::string>{"Open GC_ERR_RESOURCE_IN_USE"});
    EXPECT_EQ(module.calls.size(), 1U);
}

TEST(ModuleBase, CloseOnAClosedModuleIsRefused)
{
    FakeModule module;
    TraceCapture trace;
    EXPECT_EQ(module.Close(), -1001);
    EXPECT_EQ(trace.At(2), std::vector<std::string>{"Close GC_ERR_ERROR"});
    EXPECT_TRUE(module.calls.empty());
}

TEST(ModuleBase, AFailingDoOpenLeavesTheModuleClosed)
{
    FakeModule module;
    module.openResult = -1010;
    TraceCapture trace;
    EXPECT_EQ(module.Open(), -1010);
    EXPECT_EQ(trace.At(2), std::vector<std::string>{"Open ret"});
    EXPECT_EQ(module.Close(), -1001);
}

TEST(ModuleBase, AFailingDoCloseLeavesTheModuleOpen)
{
    FakeModule module;
    module.Open();
    module.closeResult = -1010;
    TraceCapture trace;
    EXPECT_EQ(module.Close(), -1010);
    EXPECT_EQ(trace.At(2), std::vector<std::string>{"Close ret"});
    EXPECT_EQ(module.Open(), -1004);
}

TEST(ModuleBase, NoLockIsHeldWhileTheSubclassOpensAndCloses)
{
    struct Module : FakeModule
    {
        int DoOpen() override { return Ask(); }
        int DoClose() override { return Ask(); }
        int Ask()
        {
            std::thread([this] { FindEventById(1, false); }).join();
            return 0;
        }
    } module;
    EXPECT_EQ(module.Open(), 0);
    EXPECT_EQ(module.Close(), 0);
}

struct EventRow
{
    int id;
    unsigned long sizeMax;
    unsigned long infoDataSizeMax;
};

class EventsTable : public testing::TestWithParam<EventRow>
{
};

TEST_P(EventsTable, RegistersTheEventWithItsSizes)
{
    FakeModule module;
    module.events = {GetParam().id};
    void* handle = nullptr;
    ASSERT_EQ(module.RegisterEvent(GetParam().id, &handle), 0);
    GigERDMA::NQGenTLEvent* const event = module.FindEventByHandle(handle);
    ASSERT_EQ(event, handle);
    EXPECT_EQ(module.FindEventById(GetParam().id, false), event);

    int type = 0;
    int id = -1;
    unsigned long size = sizeof id;
    EXPECT_EQ(event->GetInfo(0, &type, &id, &size), 0);
    EXPECT_EQ(type, 5);
    EXPECT_EQ(id, GetParam().id);
    unsigned long value = 0;
    size = sizeof value;
    EXPECT_EQ(event->GetInfo(3, &type, &value, &size), 0);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(value, GetParam().sizeMax);
    EXPECT_EQ(event->GetInfo(4, &type, &value, &size), 0);
    EXPECT_EQ(type, 12);
    EXPECT_EQ(value, GetParam().infoDataSizeMax);
}

INSTANTIATE_TEST_SUITE_P(ModuleBase, EventsTable,
                         testing::Values(EventRow{0, 1028, 1024}, EventRow{1, 16, 8}, EventRow{4, 546, 540},
                                         EventRow{5, 548, 540}, EventRow{4000, 260, 256}),
                         [](const auto& row) { return "Id" + std::to_string(row.param.id); });

TEST(ModuleBase, AnEventTheModuleDoesNotOfferIsNotRegistered)
{
    FakeModule module;
    module.events = {5};
    void* handle = nullptr;
    EXPECT_EQ(module.RegisterEvent(1, &handle), -1003);
    EXPECT_EQ(handle, nullptr);
}

TEST(ModuleBase, AnEventWithoutAClassIsNotRegistered)
{
    FakeModule module;
    module.events = {2, 3, 5000};
    void* handle = nullptr;
    for (const int id : {2, 3, 5000})
    {
        EXPECT_EQ(module.RegisterEvent(id, &handle), -1003);
    }
    EXPECT_EQ(handle, nullptr);
}

TEST(ModuleBase, RegisteringTwiceIsRefusedAndLeavesTheFirstEventValid)
{
    FakeModule module;
    module.events = {5};
    void* first = nullptr;
    void* second = nullptr;
    ASSERT_EQ(module.RegisterEvent(5, &first), 0);
    EXPECT_EQ(module.RegisterEvent(5, &second), -1004);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(module.FindEventByHandle(first), first);
    EXPECT_EQ(module.FindEventById(5, false), first);
}

TEST(ModuleBase, RegisteringWithNowhereToStoreTheHandleRegistersNothing)
{
    FakeModule module;
    module.events = {5};
    EXPECT_EQ(module.RegisterEvent(5, nullptr), -1009);
    EXPECT_EQ(module.FindEventById(5, false), nullptr);
}

// Deliberate(UnregisteredIsNotInitialized): the code is that of something not initialised.
TEST(ModuleBase, UnregisteringAnOfferedEventThatIsNotRegisteredGivesNotInitialized)
{
    FakeModule module;
    module.events = {5};
    EXPECT_EQ(module.UnregisterEvent(5), -1002);
    EXPECT_EQ(module.UnregisterEvent(1), -1003);
}

TEST(ModuleBase, UnregisteringEndsTheHandle)
{
    FakeModule module;
    module.events = {4, 5};
    void* four = nullptr;
    void* five = nullptr;
    module.RegisterEvent(4, &four);
    module.RegisterEvent(5, &five);
    EXPECT_EQ(module.UnregisterEvent(4), 0);
    EXPECT_EQ(module.FindEventByHandle(four), nullptr);
    EXPECT_EQ(module.FindEventByHandle(five), five);
    EXPECT_EQ(module.UnregisterEvent(4), -1002);
    EXPECT_EQ(module.RegisterEvent(4, &four), 0);
}

TEST(ModuleBase, EventsSurviveClosingAndReopening)
{
    FakeModule module;
    module.events = {5};
    void* handle = nullptr;
    module.Open();
    module.RegisterEvent(5, &handle);
    module.Close();
    EXPECT_EQ(module.FindEventByHandle(handle), handle);
    module.Open();
    EXPECT_EQ(module.FindEventByHandle(handle), handle);
}

TEST(ModuleBase, AnEventTakenOutBelongsToTheCaller)
{
    FakeModule module;
    module.events = {0, 4, 5};
    void* handles[3];
    module.RegisterEvent(0, &handles[0]);
    module.RegisterEvent(4, &handles[1]);
    module.RegisterEvent(5, &handles[2]);
    const std::unique_ptr<GigERDMA::NQGenTLEvent> taken(module.FindEventById(4, true));
    EXPECT_EQ(taken.get(), handles[1]);
    EXPECT_EQ(module.FindEventByHandle(handles[1]), nullptr);
    EXPECT_EQ(module.FindEventByHandle(handles[0]), handles[0]);
    EXPECT_EQ(module.FindEventByHandle(handles[2]), handles[2]);
    EXPECT_EQ(module.FindEventById(4, true), nullptr);
}

TEST(ModuleBase, SignalEventReachesOnlyARegisteredEvent)
{
    FakeModule module;
    module.events = {0};
    auto record = std::make_unique<GigERDMA::NQGenTLEventErrorRecord>();
    EXPECT_FALSE(module.SignalEvent(0, record.get()));
    void* handle = nullptr;
    module.RegisterEvent(0, &handle);
    EXPECT_TRUE(module.SignalEvent(0, record.get()));
    record.release();
    EXPECT_EQ(module.FindEventById(0, false)->GetNumInQueue(), 1U);
    unsigned long size = 0;
    EXPECT_EQ(module.FindEventById(0, false)->GetData(nullptr, &size, 0), 0);
}

TEST(ModuleBase, OnlyOneOfManyRegistrationsAtOnceSucceeds)
{
    FakeModule module;
    module.events = {5};
    for (int round = 0; round < 200; ++round)
    {
        std::atomic<int> succeeded = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
        {
            threads.emplace_back([&] {
                void* handle = nullptr;
                const int result = module.RegisterEvent(5, &handle);
                EXPECT_TRUE(result == 0 || result == -1004);
                succeeded += result == 0;
            });
        }
        for (std::thread& thread : threads)
        {
            thread.join();
        }
        EXPECT_EQ(succeeded, 1);
        EXPECT_EQ(module.UnregisterEvent(5), 0);
    }
}

TEST(ModuleBase, AnEventMayBeUnregisteredWhileProducersSignalIt)
{
    FakeModule module;
    module.events = {5};
    std::atomic<bool> stop = false;
    std::thread producer([&] {
        static int entry = 0; // not a record of the event: nothing takes it out
        while (!stop)
        {
            module.SignalEvent(5, &entry);
        }
    });
    for (int i = 0; i < 500; ++i)
    {
        void* handle = nullptr;
        EXPECT_EQ(module.RegisterEvent(5, &handle), 0);
        EXPECT_EQ(module.UnregisterEvent(5), 0);
    }
    stop = true;
    producer.join();
}
