// SPDX-License-Identifier: Apache-2.0
// What distinguishes one virtual camera from another when it is switched on.
#pragma once

#include "local_interface.h"
#include "pixel_format.h"
#include "rgb_picture.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace nq::camera
{

/// The state of a camera at power on.
struct CameraOptions
{
    LocalInterface network;
    /// 48-bit MAC address in the lower bits.
    std::uint64_t mac = 0;

    std::string vendor = "NQ Virtual";
    std::string model = "NQ-GEV-Camera";
    std::string deviceVersion = "3.0.0";
    std::string manufacturerInfo = "Virtual GigE Vision camera with RDMA stream";
    std::string serial = "NQ000001";
    std::string userName;

    std::uint32_t width = 640;
    std::uint32_t height = 480;
    /// Width and horizontal offset go in steps of so many pixels; the width is a multiple of it.
    std::uint32_t widthStep = 1;
    PixelFormat pixelFormat = kPixelFormats[0];
    /// Value of the TestPattern feature.
    std::uint32_t pattern = 0;
    /// What the pattern Scene shows; null for the drawn one.
    std::shared_ptr<const std::vector<RgbPicture>> images = {};
    /// Frames per second; 0 sends as fast as the host grants credits.
    double frameRate = 0;
    /// Exposure time at power on, in microseconds; the light is such that pictures are right at it.
    double exposure = 10;
    /// Total number of frames to send, after which the camera falls quiet; 0 is no limit.
    std::uint64_t frameLimit = 0;
    /// Enabling the stream starts the acquisition without AcquisitionStart.
    bool freeRun = true;
    /// Frames that may be in flight at once.
    std::uint32_t sendBuffers = 4;
    /// Heartbeat timeout at power on, in milliseconds.
    std::uint32_t heartbeat = 3000;
    /// File that keeps user sets and the user's name over a restart; empty for none.
    std::string stateFile;
};

} // namespace nq::camera
