// SPDX-License-Identifier: Apache-2.0
// The controller on modules of the test: states, handles, ports, events and last errors.
#include "gentl/nq_gentl_controller.h"
#include "gentl/nq_gentl_module_base.h"
#include "gentl/nq_gentl_system.h"
#include "gev/nq_gev_controller.h"
#include "gige/nq_gev_tl_linux.h"
#include "support/asleep.h"
#include "support/gate.h"
#include "support/noted_controller.h"
#include "support/trace_capture.h"

#include <gmock/gmock.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace GigERDMA;
using nq::test::Controller;
using nq::test::Log;
using nq::test::Module;
using nq::test::System;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

TEST(Controller, InitMakesTheSystemAndASecondInitIsRefused)
{
    Controller controller;
    EXPECT_FALSE(controller.IsInitialized());
    EXPECT_EQ(controller.Init(), 0);
    EXPECT_TRUE(controller.IsInitialized());
    EXPECT_EQ(controller.Init(), -1004);
    EXPECT_TRUE(controller.IsInitialized());
    ASSERT_EQ(controller.systems.size(), 1U);
    delete controller.systems[0];
}

/// A controller whose first DoInit and first DoClose take until the gates open.
class SlowController : public Controller
{
  public:
    int DoInit() override
    {
        initGate.Pass();
        return Controller::DoInit();
    }
    int DoClose() override
    {
        closeGate.Pass();
        return Controller::DoClose();
    }

    nq::test::Gate initGate;
    nq::test::Gate closeGate;
};

TEST(Controller, OfTwoSimultaneousInitsTheSecondIsRefused)
{
    SlowController controller;
    int firstResult = 1;
    int secondResult = 1;
    nq::test::CallingThread first([&] { firstResult = controller.Init(); });
    controller.initGate.AwaitCaller();
    nq::test::CallingThread second([&] { secondResult = controller.Init(); });
    second.AwaitAsleep();
    controller.initGate.Open();
    first.Join();
    second.Join();
    EXPECT_EQ(firstResult, 0);
    EXPECT_EQ(secondResult, -1004);
    EXPECT_EQ(controller.systems.size(), 1U);
    for (const NQGenTLSystem* const system : controller.systems)
    {
        delete system;
    }
}

TEST(Controller, OfTwoSimultaneousClosesTheSecondFindsTheLibraryClosed)
{
    SlowController controller;
    controller.initGate.Open();
    ASSERT_EQ(controller.Init(), 0);
    controller.RegisterModule(static_cast<NQGenTLModuleBase*>(controller.systems[0]));
    int firstResult = 1;
    int secondResult = 1;
    nq::test::CallingThread first([&] { firstResult = controller.Close(); });
    controller.closeGate.AwaitCaller();
    nq::test::CallingThread second([&] { secondResult = controller.Close(); });
    second.AwaitAsleep();
    controller.closeGate.Open();
    first.Join();
    second.Join();
    EXPECT_EQ(firstResult, 0);
    EXPECT_EQ(secondResult, -1002);
    EXPECT_THAT(controller.log, ElementsAre("delete TLSystem", "DoClose"));
}

TEST(Controller, AFailingDoInitIsTracedAndReturned)
{
    nq::test::TraceCapture trace;
    Controller controller;
    controller.initResult = -1010;
    EXPECT_EQ(controller.Init(), -1010);
    EXPECT_FALSE(controller.IsInitialized());
    EXPECT_THAT(trace.At(2), ElementsAre("Init ret"));
    EXPECT_THAT(controller.systems, IsEmpty());
}

TEST(Controller, AnInitWithoutASystemIsTracedAndGivesError)
{
    nq::test::TraceCapture trace;
    Controller controller;
    controller.makeSystem = false;
    EXPECT_EQ(controller.Init(), -1001);
    EXPECT_FALSE(controller.IsInitialized());
    EXPECT_THAT(trace.At(2), ElementsAre("Init GC_ERR_ERROR"));
}

TEST(Controller, ARefusedSecondInitIsNotTraced)
{
    nq::test::TraceCapture trace;
    Controller controller;
    controller.Init();
    controller.Init();
    EXPECT_THAT(trace.At(2), IsEmpty());
    delete controller.systems[0];
}

TEST(Controller, CloseBeforeInitIsNotInitialized)
{
    Controller controller;
    EXPECT_EQ(controller.Close(), -1002);
    EXPECT_THAT(controller.log, IsEmpty());
}

TEST(Controller, CloseClosesAndDeletesARegisteredSystemBeforeDoClose)
{
    Controller controller;
    controller.Init();
    void* handle = nullptr;
    ASSERT_EQ(controller.OpenSystemModule(&handle), 0);
    controller.RegisterModule(handle);
    EXPECT_EQ(controller.Close(), 0);
    EXPECT_FALSE(controller.IsInitialized());
    EXPECT_THAT(controller.log, ElementsAre("close TLSystem", "delete TLSystem", "DoClose"));
}

// Deliberate(ClosedSystemStays)
TEST(Controller, CloseLeavesASystemThatIsNotOpenAllocatedForEverAndEachInitMakesAFreshOne)
{
    Controller controller;
    for (int round = 0; round < 3; ++round)
    {
        ASSERT_EQ(controller.Init(), 0);
        EXPECT_EQ(controller.Close(), 0);
    }
    EXPECT_THAT(controller.log, ElementsAre("abandon TLSystem", "DoClose", "abandon TLSystem", "DoClose",
                                            "abandon TLSystem", "DoClose"));
    ASSERT_EQ(controller.systems.size(), 3U);
    EXPECT_EQ(std::set(controller.systems.begin(), controller.systems.end()).size(), 3U);
    for (const NQGenTLSystem* const system : controller.systems)
    {
        delete system;
    }
}

TEST(Controller, AFailingDoCloseIsTracedAndReturnedAndTheTeardownGoesOn)
{
    nq::test::TraceCapture trace;
    Controller controller;
    Module module(controller.log, "Device");
    controller.Init();
    controller.RegisterModule(&module);
    controller.closeResult = -1010;
    EXPECT_EQ(controller.Close(), -1010);
    EXPECT_FALSE(controller.IsInitialized());
    EXPECT_EQ(controller.GetRemoteDeviceModule(&module), nullptr);
    EXPECT_THAT(trace.At(2), ElementsAre("Close ret"));
    delete controller.systems[0];
}

TEST(Controller, CloseEmptiesTheListWithoutDeletingOrClosing)
{
    Controller controller;
    controller.Init();
    Module module(controller.log, "TLInterface");
    controller.RegisterModule(&module);
    EXPECT_EQ(controller.Close(), 0);
    EXPECT_THAT(controller.log, ElementsAre("abandon TLSystem", "DoClose"));
    EXPECT_EQ(controller.GetInterfaceModule(&module), nullptr);
    delete controller.systems[0];
}

TEST(Controller, CloseKeepsTheLastErrors)
{
    Controller controller;
    controller.Init();
    controller.SetLastError(-1006);
    controller.Close();
    int code = 0;
    unsigned long size = 0;
    EXPECT_EQ(controller.GetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(code, -1006);
    delete controller.systems[0];
}

TEST(Controller, GetInfoGoesToTheSystemModuleBeforeItIsOpened)
{
    Controller controller;
    controller.Init();
    EXPECT_EQ(controller.GetInfo(4, nullptr, nullptr, nullptr), 104);
    delete controller.systems[0];
}

TEST(Controller, OpenSystemModuleWithoutAPointerIsRefused)
{
    nq::test::TraceCapture trace;
    Controller controller;
    controller.Init();
    EXPECT_EQ(controller.OpenSystemModule(nullptr), -1009);
    EXPECT_THAT(trace.At(2), ElementsAre("OpenSystemModule Failed: GC_ERR_INVALID_PARAMETER"));
    delete controller.systems[0];
}

TEST(Controller, TheSystemOpensOnceAndReopensAsTheSameObject)
{
    Controller controller;
    controller.Init();
    void* handle = nullptr;
    EXPECT_EQ(controller.OpenSystemModule(&handle), 0);
    EXPECT_EQ(handle, static_cast<NQGenTLModuleBase*>(controller.systems[0]));
    void* second = nullptr;
    EXPECT_EQ(controller.OpenSystemModule(&second), -1004);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(controller.CloseSystemModule(handle), 0);
    EXPECT_EQ(controller.CloseSystemModule(handle), -1001);
    EXPECT_EQ(controller.OpenSystemModule(&second), 0);
    EXPECT_EQ(second, handle);
    delete controller.systems[0];
}

TEST(Controller, CloseSystemModuleOfAnyOtherHandleIsRefused)
{
    nq::test::TraceCapture trace;
    Controller controller;
    controller.Init();
    int other = 0;
    EXPECT_EQ(controller.CloseSystemModule(&other), -1006);
    EXPECT_EQ(controller.CloseSystemModule(nullptr), -1006);
    EXPECT_THAT(trace.At(2), ElementsAre("CloseSystemModule Failed: GC_ERR_INVALID_HANDLE",
                                         "CloseSystemModule Failed: GC_ERR_INVALID_HANDLE"));
    delete controller.systems[0];
}

TEST(Controller, RegisterModuleListsAModuleOnce)
{
    Controller controller;
    Module module(controller.log, "TLDevice");
    EXPECT_TRUE(controller.RegisterModule(&module));
    EXPECT_FALSE(controller.RegisterModule(&module));
    EXPECT_FALSE(controller.RegisterModule(nullptr));
    EXPECT_TRUE(controller.UnregisterModule(&module, false));
    EXPECT_EQ(controller.GetDeviceModule(&module), nullptr);
    EXPECT_FALSE(controller.UnregisterModule(&module, false));
}

TEST(Controller, UnregisterModuleWithDestroyClosesAndDeletes)
{
    Controller controller;
    auto* const module = new Module(controller.log, "TLDevice");
    module->Open();
    controller.RegisterModule(module);
    EXPECT_TRUE(controller.UnregisterModule(module, true));
    EXPECT_THAT(controller.log, ElementsAre("close TLDevice", "delete TLDevice"));
}

TEST(Controller, UnregisterModuleDeletesAModuleWhoseCloseFailsToo)
{
    Controller controller;
    auto* const module = new Module(controller.log, "TLDevice"); // never opened: Close gives -1001
    controller.RegisterModule(module);
    EXPECT_TRUE(controller.UnregisterModule(module, true));
    EXPECT_THAT(controller.log, ElementsAre("delete TLDevice"));
}

TEST(Controller, UnregisterModuleLeavesAModuleThatIsNotListedAlone)
{
    Controller controller;
    Module module(controller.log, "TLDevice");
    EXPECT_FALSE(controller.UnregisterModule(&module, true));
    EXPECT_THAT(controller.log, IsEmpty());
}

TEST(Controller, EachKindOfModuleIsFoundUnderItsOwnNameOnly)
{
    Controller controller;
    const std::vector<std::string> names = {"TLSystem", "TLInterface", "TLDevice", "TLDataStream", "Device"};
    for (const std::string& name : names)
    {
        SCOPED_TRACE(name);
        Module module(controller.log, name);
        controller.RegisterModule(&module);
        EXPECT_EQ(controller.GetSystemModule(&module) == &module, name == "TLSystem");
        EXPECT_EQ(controller.GetInterfaceModule(&module) == &module, name == "TLInterface");
        EXPECT_EQ(controller.GetDeviceModule(&module) == &module, name == "TLDevice");
        EXPECT_EQ(controller.GetDataStreamModule(&module) == &module, name == "TLDataStream");
        EXPECT_EQ(controller.GetRemoteDeviceModule(&module) == &module, name == "Device");
        controller.UnregisterModule(&module, false);
    }
}

TEST(Controller, ANullOrUnknownHandleFindsNoModuleAndIsNeverFollowed)
{
    Controller controller;
    void* const wild = reinterpret_cast<void*>(0x1234);
    for (void* const handle : {static_cast<void*>(nullptr), wild})
    {
        EXPECT_EQ(controller.GetSystemModule(handle), nullptr);
        EXPECT_EQ(controller.GetInterfaceModule(handle), nullptr);
        EXPECT_EQ(controller.GetDeviceModule(handle), nullptr);
        EXPECT_EQ(controller.GetDataStreamModule(handle), nullptr);
        EXPECT_EQ(controller.GetRemoteDeviceModule(handle), nullptr);
        EXPECT_EQ(controller.FindEventModule(handle), nullptr);
        EXPECT_EQ(controller.RegisterEvent(handle, 5, nullptr), -1006);
        EXPECT_EQ(controller.UnregisterEvent(handle, 5), -1006);
    }
}

// All eight port operations, each with one telling argument.
std::map<std::string, int> PortResults(Controller& controller, void* handle)
{
    unsigned long size = 3;
    unsigned int count = 4;
    return {{"ReadPort", controller.ReadPort(handle, 1, nullptr, &size)},
            {"WritePort", controller.WritePort(handle, 2, nullptr, &size)},
            {"ReadPortStacked", controller.ReadPortStacked(handle, nullptr, &size)},
            {"WritePortStacked", controller.WritePortStacked(handle, nullptr, &size)},
            {"GetPortURL", controller.GetPortURL(handle, nullptr, &size)},
            {"GetPortInfo", controller.GetPortInfo(handle, 5, nullptr, nullptr, &size)},
            {"GetNumPortURLs", controller.GetNumPortURLs(handle, &count)},
            {"GetPortURLInfo", controller.GetPortURLInfo(handle, 6, 0, nullptr, nullptr, &size)}};
}

TEST(ControllerPort, EveryOperationReachesAListedModuleOfAnyKind)
{
    Controller controller;
    for (const char* const name : {"TLInterface", "anything"})
    {
        Module module(controller.log, name);
        controller.log.clear();
        controller.RegisterModule(&module);
        for (const auto& [operation, result] : PortResults(controller, &module))
        {
            EXPECT_EQ(result, 7) << operation;
        }
        EXPECT_THAT(controller.log, testing::UnorderedElementsAre("ReadPort 1", "WritePort 2", "ReadPortStacked 3",
                                                                  "WritePortStacked 3", "GetPortURL 3", "GetPortInfo 5",
                                                                  "GetNumPortURLs 4", "GetPortURLInfo 6"));
        controller.UnregisterModule(&module, false);
    }
}

TEST(ControllerPort, AModuleWithoutAPortIsNotImplemented)
{
    Controller controller;
    Module module(controller.log, "TLBuffer", false);
    controller.RegisterModule(&module);
    for (const auto& [operation, result] : PortResults(controller, &module))
    {
        EXPECT_EQ(result, -1003) << operation;
    }
    EXPECT_THAT(controller.log, IsEmpty());
}

TEST(ControllerPort, AnUnknownHandleIsInvalid)
{
    Controller controller;
    int wild = 0;
    for (void* const handle : {static_cast<void*>(nullptr), static_cast<void*>(&wild)})
    {
        for (const auto& [operation, result] : PortResults(controller, handle))
        {
            EXPECT_EQ(result, -1006) << operation;
        }
    }
}

TEST(ControllerEvent, RegistersOnAListedModuleAndFindsItsEventAmongAll)
{
    Controller controller;
    Module first(controller.log, "TLSystem");
    Module second(controller.log, "TLDevice");
    controller.RegisterModule(&first);
    controller.RegisterModule(&second);
    void* event = nullptr;
    EXPECT_EQ(controller.RegisterEvent(&second, 5, &event), 0);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(controller.FindEventModule(event), event);
    EXPECT_EQ(controller.RegisterEvent(&second, 5, &event), -1004);
    EXPECT_EQ(controller.RegisterEvent(&second, 1, &event), -1003);
    EXPECT_EQ(controller.UnregisterEvent(&first, 5), -1002);
    EXPECT_EQ(controller.UnregisterEvent(&second, 5), 0);
    EXPECT_EQ(controller.FindEventModule(event), nullptr);
}

TEST(ControllerEvent, AnEventOfAModuleThatIsNoLongerListedIsNotFound)
{
    Controller controller;
    Module module(controller.log, "TLDevice");
    controller.RegisterModule(&module);
    void* event = nullptr;
    ASSERT_EQ(controller.RegisterEvent(&module, 5, &event), 0);
    controller.UnregisterModule(&module, false);
    EXPECT_EQ(controller.FindEventModule(event), nullptr);
}

TEST(ControllerLastError, EveryCodeHasItsText)
{
    const std::map<int, std::string> texts = {{0, "No Error"},
                                              {-1001, "GC_ERR_ERROR"},
                                              {-1002, "GC_ERR_NOT_INITIALIZED"},
                                              {-1003, "GC_ERR_NOT_IMPLEMENTED"},
                                              {-1004, "GC_ERR_RESOURCE_IN_USE"},
                                              {-1005, "GC_ERR_ACCESS_DENIED"},
                                              {-1006, "GC_ERR_INVALID_HANDLE"},
                                              {-1007, "GC_ERR_INVALID_ID"},
                                              {-1008, "GC_ERR_NO_DATA"},
                                              {-1009, "GC_ERR_INVALID_PARAMETER"},
                                              {-1010, "GC_ERR_IO"},
                                              {-1011, "GC_ERR_TIMEOUT"},
                                              {-1012, "GC_ERR_ABORT"},
                                              {-1013, "GC_ERR_INVALID_BUFFER"},
                                              {-1014, "GC_ERR_NOT_AVAILABLE"},
                                              {-1015, "GC_ERR_INVALID_ADDRESS"},
                                              {-1016, "GC_ERR_BUFFER_TOO_SMALL"},
                                              {-1017, "GC_ERR_INVALID_INDEX"},
                                              {-1018, "GC_ERR_PARSING_CHUNK_DATA"},
                                              {-1019, "GC_ERR_INVALID_VALUE"},
                                              {-1020, "GC_ERR_RESOURCE_EXHAUSTED"},
                                              {-1021, "GC_ERR_OUT_OF_MEMORY"},
                                              {-1022, "GC_ERR_BUSY"},
                                              {-10000, "GC_ERR_CUSTOM_ID"}};
    Controller controller;
    for (const auto& [code, text] : texts)
    {
        controller.SetLastError(code);
        int read = 1;
        char buffer[64];
        unsigned long size = sizeof(buffer);
        EXPECT_EQ(controller.GetLastError(&read, buffer, &size), 0);
        EXPECT_EQ(read, code);
        EXPECT_EQ(std::string(buffer), text);
        EXPECT_EQ(size, text.size() + 1);
    }
}

TEST(ControllerLastError, ACodeOutsideTheTableKeepsItsNumberWithAnEmptyText)
{
    Controller controller;
    for (const int code : {-1023, -1000, -10001, 1, 12345})
    {
        controller.SetLastError(code);
        int read = 0;
        char text[4] = "xyz";
        unsigned long size = sizeof(text);
        EXPECT_EQ(controller.GetLastError(&read, text, &size), 0);
        EXPECT_EQ(read, code);
        EXPECT_EQ(size, 1U);
        EXPECT_STREQ(text, "");
    }
}

TEST(ControllerLastError, AThreadThatNeverFailedGetsNoErrorOfSizeNine)
{
    Controller controller;
    int code = 1;
    unsigned long size = 0;
    EXPECT_EQ(controller.GetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(size, 9U);
}

// Deliberate(ErrorTextSizeStays)
TEST(ControllerLastError, ABufferTooSmallLeavesSizeAndCodeUntouched)
{
    Controller controller;
    controller.SetLastError(-1006);
    int code = 1;
    char text[5] = {'u', 'n', 't', 'o', 'u'};
    unsigned long size = 5;
    EXPECT_EQ(controller.GetLastError(&code, text, &size), -1016);
    EXPECT_EQ(size, 5U);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(std::string(text, 5), "untou");
    EXPECT_EQ(controller.GetLastError(&code, nullptr, &size), 0);
    EXPECT_EQ(size, 22U);
    EXPECT_EQ(code, -1006);
}

TEST(ControllerLastError, ABufferOfExactlyTheSizeIsEnough)
{
    Controller controller;
    controller.SetLastError(-1006);
    int code = 0;
    char text[22];
    unsigned long size = sizeof(text);
    EXPECT_EQ(controller.GetLastError(&code, text, &size), 0);
    EXPECT_STREQ(text, "GC_ERR_INVALID_HANDLE");
    size = 21;
    EXPECT_EQ(controller.GetLastError(&code, text, &size), -1016);
}

TEST(ControllerLastError, NullPointersAreRefused)
{
    Controller controller;
    int code = 1;
    unsigned long size = 1;
    EXPECT_EQ(controller.GetLastError(nullptr, nullptr, &size), -1009);
    EXPECT_EQ(controller.GetLastError(&code, nullptr, nullptr), -1009);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(size, 1U);
}

TEST(ControllerList, ModulesComeAndGoWhileOtherThreadsSearch)
{
    Controller controller;
    Module stable(controller.log, "TLDevice");
    controller.RegisterModule(&stable);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread)
    {
        threads.emplace_back([&controller, &stable] {
            Log log;
            for (int round = 0; round < 500; ++round)
            {
                Module module(log, "TLInterface");
                controller.RegisterModule(&module);
                ASSERT_EQ(controller.GetInterfaceModule(&module), &module);
                ASSERT_EQ(controller.GetDeviceModule(&stable), &stable);
                ASSERT_EQ(controller.FindEventModule(&log), nullptr);
                controller.UnregisterModule(&module, false);
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

TEST(GevController, OwnsACameraAccessObjectOfTypeZero)
{
    NQGevController controller;
    ASSERT_NE(controller.GetTL(), nullptr);
    EXPECT_EQ(controller.GetTL()->TLGetType(), 0);
    EXPECT_EQ(controller.GetTLType(), 0);
    EXPECT_EQ(controller.DoInit(), 0);
    EXPECT_EQ(controller.DoClose(), 0);
}

TEST(GevController, MakesTheSystemModule)
{
    NQGevController controller;
    const std::unique_ptr<NQGenTLSystem> system(controller.CreateSystem());
    ASSERT_NE(system, nullptr);
    EXPECT_EQ(system->GetName(), "TLSystem");
    EXPECT_EQ(system->GetId(), "NQGenTLGevRDMA");
    EXPECT_EQ(system->GetParent(), nullptr);
}

} // namespace
