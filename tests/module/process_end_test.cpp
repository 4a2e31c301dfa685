// SPDX-License-Identifier: Apache-2.0
// A process that ends without closing the library, while its threads still call in.
#include "support/open_tree.h"
#include "support/producer.h"

#include <array>
#include <atomic>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using nq::test::OpenTree;
using nq::test::Producer;

namespace
{

const Producer* kProducer = nullptr;
void* g_system = nullptr;

/// Calls that go through the controller, its module list, the last errors and the network. The number that failed.
int WrongAnswers(const Producer& gentl, void* system)
{
    std::array<char, 64> text{};
    std::size_t size = text.size();
    GenTL::INFO_DATATYPE type = 0;
    GenTL::GC_ERROR code = 0;
    std::uint32_t count = 0;
    int wrong = 0;
    wrong += gentl.GCGetInfo(GenTL::TL_INFO_ID, &type, text.data(), &size) != 0 ? 1 : 0;
    wrong += gentl.TLGetNumInterfaces(system, &count) != 0 ? 1 : 0;
    wrong += gentl.TLGetNumInterfaces(&count, &count) != -1006 ? 1 : 0;
    size = text.size();
    wrong += gentl.GCGetLastError(&code, text.data(), &size) != 0 || code != -1006 ? 1 : 0;
    wrong += gentl.TLUpdateInterfaceList(system, nullptr, 0) != 0 ? 1 : 0;
    return wrong;
}

class ProcessEnd : public testing::Test
{
  protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(ProcessEnd, CallsAfterTheLibrarysStaticObjectsAreGoneAnswerAsBefore)
{
    EXPECT_EXIT(
        {
            // Registered before the library is loaded, so it runs after the library's own destructors.
            std::atexit([] { std::_Exit(WrongAnswers(*kProducer, g_system)); });
            kProducer = new Producer;
            if (kProducer->GCInitLib() != 0 || kProducer->TLOpen(&g_system) != 0)
            {
                std::_Exit(100);
            }
            std::exit(101);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ProcessEnd, ThreadsThatCallInWhileTheProcessExitsDoNotBringItDown)
{
    EXPECT_EXIT(
        {
            kProducer = new Producer;
            if (kProducer->GCInitLib() != 0 || kProducer->TLOpen(&g_system) != 0)
            {
                std::_Exit(100);
            }
            std::atomic<int> calling = 0;
            for (int index = 0; index < 4; ++index)
            {
                std::thread([&calling] {
                    ++calling;
                    while (true)
                    {
                        WrongAnswers(*kProducer, g_system);
                    }
                }).detach();
            }
            while (calling < 4)
            {
                std::this_thread::yield();
            }
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ProcessEnd, AnOpenCameraWithItsHeartbeatMayBeLeftBehind)
{
    EXPECT_EXIT(
        {
            kProducer = new Producer;
            new OpenTree(*kProducer, 0);
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
