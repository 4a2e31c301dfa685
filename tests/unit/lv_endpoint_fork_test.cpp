// SPDX-License-Identifier: Apache-2.0
// A connection of the parent in a forked child: no call of the RDMA libraries, and no descriptor left.
#include "support/asleep.h"
#include "support/endpoint_flow_fixture.h"
#include "support/forked.h"

#include <gmock/gmock.h>

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
    nq::test::AwaitOthersAsleep(); // they hold nothing of the recorder then
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
