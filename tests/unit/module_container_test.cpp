// SPDX-License-Identifier: Apache-2.0
// The list of modules: order, searches, removal, and what makes a handle valid.
#include "gentl/nq_gentl_module_container.h"

#include "gentl/nq_gentl_event.h"
#include "support/fake_module.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

using GigERDMA::NQGenTLModuleContainer;
using nq::test::FakeModule;

namespace
{

class ModuleContainer : public testing::Test
{
  protected:
    void AddThree()
    {
        list.Add(&a);
        list.Add(&b);
        list.Add(&c);
    }

    FakeModule a{"a", "TLSystem"};
    FakeModule b{"b", "TLInterface"};
    FakeModule c{"c", "TLDevice"};
    NQGenTLModuleContainer list;
};

/// Another thread can use the list, so its mutex is free.
void ExpectMutexFree(NQGenTLModuleContainer& list)
{
    std::thread([&] { list.GetCount(); }).join();
}

} // namespace

TEST_F(ModuleContainer, StartsEmpty)
{
    EXPECT_EQ(list.GetCount(), 0U);
}

TEST_F(ModuleContainer, SearchesOnAnEmptyListGiveNullAndLeaveTheMutexFree)
{
    EXPECT_EQ(list.FindById("a", true), nullptr);
    EXPECT_EQ(list.FindByIndex(0, true), nullptr);
    EXPECT_EQ(list.FindByHandle(&a, true), nullptr);
    EXPECT_EQ(list.FindByHandleAndName(&a, "TLSystem", true), nullptr);
    EXPECT_EQ(list.FindEventByHandle(&a), nullptr);
    ExpectMutexFree(list);
}

TEST_F(ModuleContainer, AddOfNullIsRefusedAndLeavesTheCount)
{
    AddThree();
    EXPECT_FALSE(list.Add(nullptr));
    EXPECT_EQ(list.GetCount(), 3U);
}

TEST_F(ModuleContainer, TheSameModuleAddedTwiceIsStoredTwice)
{
    EXPECT_TRUE(list.Add(&a));
    EXPECT_TRUE(list.Add(&a));
    EXPECT_EQ(list.GetCount(), 2U);
    EXPECT_EQ(list.FindByHandle(&a, true), &a);
    EXPECT_EQ(list.GetCount(), 1U);
}

TEST_F(ModuleContainer, FindByIndexFollowsTheOrderOfAdding)
{
    AddThree();
    EXPECT_EQ(list.FindByIndex(0, false), &a);
    EXPECT_EQ(list.FindByIndex(1, false), &b);
    EXPECT_EQ(list.FindByIndex(2, false), &c);
    EXPECT_EQ(list.GetCount(), 3U);
}

TEST_F(ModuleContainer, FindByIndexAtTheCountGivesNull)
{
    AddThree();
    EXPECT_EQ(list.FindByIndex(list.GetCount(), false), nullptr);
    EXPECT_EQ(list.FindByIndex(0xFFFFFFFF, true), nullptr);
}

TEST_F(ModuleContainer, RemovingIndexZeroOfThreeLeavesTheSecondAtIndexZero)
{
    AddThree();
    EXPECT_EQ(list.FindByIndex(0, true), &a);
    EXPECT_EQ(list.FindByIndex(0, false), &b);
    EXPECT_EQ(list.FindByIndex(1, false), &c);
}

TEST_F(ModuleContainer, RemovingFromTheMiddleKeepsTheOrderOfTheRest)
{
    AddThree();
    EXPECT_EQ(list.FindByHandle(&b, true), &b);
    EXPECT_EQ(list.FindByIndex(0, false), &a);
    EXPECT_EQ(list.FindByIndex(1, false), &c);
}

TEST_F(ModuleContainer, FindByIdComparesExactly)
{
    FakeModule name("Device:1");
    list.Add(&name);
    EXPECT_EQ(list.FindById("Device:1", false), &name);
    EXPECT_EQ(list.FindById("device:1", false), nullptr);
    EXPECT_EQ(list.FindById("Device:", false), nullptr);
    EXPECT_EQ(list.FindById("Device:11", false), nullptr);
    EXPECT_EQ(list.FindById(nullptr, false), nullptr);
}

TEST_F(ModuleContainer, AnIdEndsAtItsFirstZero)
{
    FakeModule name(std::string("ab\0c", 4), std::string("TLSystem\0x", 10));
    list.Add(&name);
    EXPECT_EQ(list.FindById("ab", false), &name);
    EXPECT_EQ(list.FindByHandleAndName(&name, "TLSystem", false), &name);
}

TEST_F(ModuleContainer, FindByIdOfAnEmptyTextFindsAModuleWithoutId)
{
    FakeModule nameless("");
    AddThree();
    list.Add(&nameless);
    EXPECT_EQ(list.FindById("", false), &nameless);
}

TEST_F(ModuleContainer, FindByIdTakesTheFirstOfTwoEqualIds)
{
    FakeModule again("a");
    AddThree();
    list.Add(&again);
    EXPECT_EQ(list.FindById("a", true), &a);
    EXPECT_EQ(list.FindById("a", true), &again);
    EXPECT_EQ(list.FindById("a", true), nullptr);
}

TEST_F(ModuleContainer, FindByHandleOfNullGivesNull)
{
    AddThree();
    EXPECT_EQ(list.FindByHandle(nullptr, true), nullptr);
    EXPECT_EQ(list.GetCount(), 3U);
}

TEST_F(ModuleContainer, AnUnknownHandleIsNeverDereferenced)
{
    AddThree();
    void* const wild = reinterpret_cast<void*>(0x10);
    EXPECT_EQ(list.FindByHandle(wild, true), nullptr);
    EXPECT_EQ(list.FindByHandleAndName(wild, "TLSystem", true), nullptr);
    EXPECT_EQ(list.FindEventByHandle(wild), nullptr);
}

TEST_F(ModuleContainer, HandleAndNameMustBothMatch)
{
    AddThree();
    EXPECT_EQ(list.FindByHandleAndName(&b, "TLInterface", false), &b);
    EXPECT_EQ(list.FindByHandleAndName(&b, "TLSystem", false), nullptr);
    EXPECT_EQ(list.FindByHandleAndName(&b, "tlinterface", false), nullptr);
    EXPECT_EQ(list.FindByHandleAndName(nullptr, "TLInterface", false), nullptr);
}

TEST_F(ModuleContainer, AKnownHandleWithTheWrongNameIsNotRemoved)
{
    AddThree();
    EXPECT_EQ(list.FindByHandleAndName(&b, "TLDevice", true), nullptr);
    EXPECT_EQ(list.GetCount(), 3U);
    EXPECT_EQ(list.FindByHandleAndName(&b, "TLInterface", true), &b);
    EXPECT_EQ(list.GetCount(), 2U);
}

TEST_F(ModuleContainer, ClearWithoutDestroyLeavesTheModulesAlive)
{
    bool deleted = false;
    {
        FakeModule module;
        module.onDelete = [&] { deleted = true; };
        list.Add(&module);
        list.Clear(false);
        EXPECT_EQ(list.GetCount(), 0U);
        EXPECT_FALSE(deleted);
    }
}

TEST_F(ModuleContainer, ClearWithDestroyDeletesWithoutClosingInOrder)
{
    std::vector<std::string> log;
    for (const char* id : {"first", "second"})
    {
        auto* module = new FakeModule(id);
        module->Open();
        module->onDelete = [&log, module] {
            for (const std::string& call : module->calls)
            {
                log.push_back(call);
            }
            log.push_back("delete " + module->id);
        };
        list.Add(module);
    }
    list.Clear(true);
    EXPECT_EQ(list.GetCount(), 0U);
    EXPECT_EQ(log, (std::vector<std::string>{"DoOpen", "delete first", "DoOpen", "delete second"}));
}

TEST_F(ModuleContainer, ClearWithDestroyDeletesAModuleAddedTwiceOnce)
{
    int deleted = 0;
    auto* module = new FakeModule;
    module->onDelete = [&] { ++deleted; };
    list.Add(module);
    list.Add(module);
    list.Clear(true);
    EXPECT_EQ(deleted, 1);
}

TEST_F(ModuleContainer, TheDestructorTouchesNoModule)
{
    auto container = std::make_unique<NQGenTLModuleContainer>();
    bool deleted = false;
    a.onDelete = [&] { deleted = true; };
    container->Add(&a);
    container.reset();
    EXPECT_FALSE(deleted);
    a.onDelete = nullptr;
}

TEST_F(ModuleContainer, AModuleMayComeBackToTheSameListWhileItIsAsked)
{
    struct Curious : FakeModule
    {
        explicit Curious(NQGenTLModuleContainer& owner) : FakeModule("curious"), list(owner) {}
        std::string GetId() override
        {
            EXPECT_EQ(list.FindByIndex(0, false), this);
            return id;
        }
        NQGenTLModuleContainer& list;
    } curious(list);
    list.Add(&curious);
    EXPECT_EQ(list.FindById("curious", false), &curious);
}

TEST_F(ModuleContainer, FindEventByHandleAsksEveryModule)
{
    AddThree();
    c.events = {1};
    void* handle = nullptr;
    ASSERT_EQ(c.RegisterEvent(1, &handle), 0);
    EXPECT_EQ(list.FindEventByHandle(handle), handle);
    list.FindByHandle(&c, true);
    EXPECT_EQ(list.FindEventByHandle(handle), nullptr);
}

TEST_F(ModuleContainer, AModuleRemovedBeforeItIsDeletedNeverVanishesUnderASearchForAnEvent)
{
    AddThree();
    a.events = {1};
    void* handle = nullptr;
    ASSERT_EQ(a.RegisterEvent(1, &handle), 0);
    std::thread comingAndGoing([&] {
        for (int i = 0; i < 2000; ++i)
        {
            auto module = std::make_unique<FakeModule>("x");
            list.Add(module.get());
            list.FindByHandle(module.get(), true);
        }
    });
    for (int i = 0; i < 2000; ++i)
    {
        EXPECT_EQ(list.FindEventByHandle(handle), handle);
        EXPECT_EQ(list.FindEventByHandle(&list), nullptr);
        EXPECT_EQ(list.FindById("c", false), &c);
    }
    comingAndGoing.join();
}
