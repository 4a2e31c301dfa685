// SPDX-License-Identifier: Apache-2.0
// Entry of every test program: moves the process into a private network namespace, then runs its cases. Only with
// NQ_RDMA_TEST_ADDRESS, which names the address of a real RDMA device, does it stay where that device is.
#include "support/network.h"

#include <cstdlib>
#include <gmock/gmock.h>
#include <thread>

/// ThreadSanitizer asks for this. It does not see the lock under which the dynamic loader keeps its own lists.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "race:_dl_close_worker\n";
}

int main(int argc, char** argv)
{
    // A sanitizer's run-time starts a thread of its own with the first one of the program: here, so that cases can
    // count.
    std::thread([] {}).join();
    testing::InitGoogleMock(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && std::getenv("NQ_RDMA_TEST_ADDRESS") == nullptr)
    {
        nq::test::EnterPrivateNetwork();
    }
    return RUN_ALL_TESTS();
}
