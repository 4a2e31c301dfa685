// SPDX-License-Identifier: Apache-2.0
// The last error of each thread.
#include "gentl/nq_gentl_error_container.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

using GigERDMA::NQGenTLErrorContainer;

namespace
{

std::pair<int, std::string> ErrorOf(NQGenTLErrorContainer& errors)
{
    int code = 1;
    std::string text = "untouched";
    errors.GetError(&code, text);
    return {code, text};
}

TEST(ErrorContainer, AThreadThatNeverFailedHasNoError)
{
    NQGenTLErrorContainer errors;
    EXPECT_EQ(ErrorOf(errors), std::pair(0, std::string("No Error")));
}

TEST(ErrorContainer, KeepsTheLastOfSeveralErrors)
{
    NQGenTLErrorContainer errors;
    errors.SetError(-1006, "GC_ERR_INVALID_HANDLE");
    errors.SetError(-1009, "GC_ERR_INVALID_PARAMETER");
    EXPECT_EQ(ErrorOf(errors), std::pair(-1009, std::string("GC_ERR_INVALID_PARAMETER")));
    errors.SetError(0, "No Error");
    EXPECT_EQ(ErrorOf(errors), std::pair(0, std::string("No Error")));
}

TEST(ErrorContainer, KeepsOneRecordForEachThread)
{
    NQGenTLErrorContainer errors;
    errors.SetError(-1001, "mine");
    std::thread([&errors] {
        EXPECT_EQ(ErrorOf(errors), std::pair(0, std::string("No Error")));
        errors.SetError(-1002, "its own");
        EXPECT_EQ(ErrorOf(errors), std::pair(-1002, std::string("its own")));
    }).join();
    EXPECT_EQ(ErrorOf(errors), std::pair(-1001, std::string("mine")));
}

TEST(ErrorContainer, ANewThreadWithARecycledIdInheritsTheRecord)
{
    NQGenTLErrorContainer errors;
    pthread_t first{};
    std::thread([&] {
        first = pthread_self();
        errors.SetError(-1005, "GC_ERR_ACCESS_DENIED");
    }).join();
    for (int attempt = 0; attempt < 100; ++attempt)
    {
        bool recycled = false;
        std::pair<int, std::string> inherited;
        std::thread([&] {
            recycled = pthread_equal(first, pthread_self()) != 0;
            inherited = ErrorOf(errors);
        }).join();
        if (recycled)
        {
            EXPECT_EQ(inherited, std::pair(-1005, std::string("GC_ERR_ACCESS_DENIED")));
            return;
        }
        EXPECT_EQ(inherited, std::pair(0, std::string("No Error")));
    }
    GTEST_SKIP() << "the system did not use a thread's id twice";
}

TEST(ErrorContainer, ManyThreadsFailAtOnceAndEachReadsItsOwn)
{
    NQGenTLErrorContainer errors;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 8; ++thread)
    {
        threads.emplace_back([&errors, thread] {
            for (int round = 0; round < 200; ++round)
            {
                const int code = -(thread * 1000 + round);
                errors.SetError(code, std::to_string(code));
                ASSERT_EQ(ErrorOf(errors), std::pair(code, std::to_string(code)));
            }
        });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
}

} // namespace
