// SPDX-License-Identifier: Apache-2.0
// The records of discovered cameras, however many answer.
#include "gige/gige_camera_map.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{

TEST(CameraMap, KeepsTheFirst65536AddressesAndGoesOnReplacingThem)
{
    GigETL::CameraMap map;
    const auto camera = std::make_unique<NQGigE_CAMERA>();
    for (unsigned int ip = 1; ip <= 65536 + 100; ++ip)
    {
        camera->ipAddress = ip;
        map.store(*camera);
    }
    EXPECT_NE(map.find(1), nullptr);
    EXPECT_NE(map.find(65536), nullptr);
    EXPECT_EQ(map.find(65537), nullptr);

    camera->ipAddress = 1;
    camera->subnetMask = 0xFFFFFF00;
    map.store(*camera);
    EXPECT_EQ(map.find(1)->subnetMask, 0xFFFFFF00U);

    map.clear();
    camera->ipAddress = 65537;
    map.store(*camera);
    EXPECT_NE(map.find(65537), nullptr);
}

} // namespace
