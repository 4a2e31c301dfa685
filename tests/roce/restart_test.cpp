// SPDX-License-Identifier: Apache-2.0
// One consumer that starts and stops the stream of one camera many times, on whatever RDMA device there is.
#include "roce/roce_consumer.h"

#include <iostream>

TEST(Restart, EachOfTwentyAcquisitionsBringsFramesAndNothingIsLeftOpen)
{
    nq::test::RoceConsumer consumer;
    ASSERT_NE(consumer.stream, nullptr) << "no camera answered";
    const long threads = nq::test::CountOf("task");
    long descriptors = 0;
    for (int acquisition = 1; acquisition <= 20; ++acquisition)
    {
        ASSERT_EQ(consumer.Start(), 0) << "acquisition " << acquisition;
        for (int frame = 0; frame < 5; ++frame)
        {
            ASSERT_TRUE(consumer.TakeFrame(30000)) << "acquisition " << acquisition << ", frame " << frame;
        }
        ASSERT_EQ(consumer.Stop(), 0);
        std::cout << "acquisition " << acquisition << std::endl;
        if (acquisition == 1)
        {
            descriptors = nq::test::DescriptorsAtRest(threads);
        }
    }
    EXPECT_EQ(nq::test::DescriptorsAtRest(threads), descriptors);
}
