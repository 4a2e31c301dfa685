// SPDX-License-Identifier: Apache-2.0
// A connection of the parent in a forked child: no call of the RDMA libraries, and no descriptor left.
#include "support/endpoint_flow_fixture.h"
#include "support/forked.h"

#include <chrono>
#include <gmock/gmock.h>
#include <thread>

using nq::test::Descriptors;
using testing::IsEmpty;

namespace
{

class LvEndpointFork : public nq::test::EndpointFlowFixture
{
};

TEST_F(LvEndpointFork, InTheChildItIsNothingButDescriptorsToClose)
{
    Stream(2);
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // its threads sleep, and hold nothing of the recorder
    for (const bool destroyOnly : {false, true})
    {
        nq::test::Forked([&] {
            fake.ForgetCalls();
            const long descriptors = Descriptors();
            if (!destroyOnly)
            {
                endpoint->DeInit();
            }
            endpoint.reset();
            EXPECT_EQ(Descriptors(), descriptors - 3);
            EXPECT_THAT(fake.Calls(), IsEmpty());
        });
    }
    endpoint.reset();
    EXPECT_EQ(fake.Count("rdma_disconnect"), 1);
}

} // namespace
