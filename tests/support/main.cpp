// SPDX-License-Identifier: Apache-2.0
// Entry of every test program: moves the process into a private network namespace, then runs its cases.
#include "support/network.h"

#include <gmock/gmock.h>

int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests))
    {
        nq::test::EnterPrivateNetwork();
    }
    return RUN_ALL_TESTS();
}
