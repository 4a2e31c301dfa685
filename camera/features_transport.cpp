// SPDX-License-Identifier: Apache-2.0
// Features of the link: the GigE Vision bootstrap registers by name.
#include "bootstrap.h"
#include "feature_groups.h"
#include "feature_registers.h"

#include <array>

namespace nq::camera
{

namespace
{

using namespace bootstrap;
using namespace feature;

constexpr std::array kTransport{
    Feature{.name = "PayloadSize",
            .address = kPayloadSize,
            .tip = "Bytes of a picture",
            .access = Access::ReadOnly,
            .visibility = "Expert",
            .unit = "B",
            .changedBy = "Width Height PixelFormat"},
    Feature{.name = "GevHeartbeatTimeout",
            .address = kHeartbeatTimeout,
            .tip = "Silence of the host after which it loses control",
            .visibility = "Guru",
            .min = 500,
            .unit = "ms"},
    Feature{.name = "GevSCPSPacketSize",
            .address = kStreamPacketSize,
            .tip = "Size of test packets; pictures come by RDMA",
            .visibility = "Expert",
            .min = 576,
            .max = 9000,
            .step = 4,
            .unit = "B",
            .lock = Lock::Streaming,
            .firstBit = 16},
};

} // namespace

std::span<const Feature> TransportFeatures()
{
    return kTransport;
}

} // namespace nq::camera
