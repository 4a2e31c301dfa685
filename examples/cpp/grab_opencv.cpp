// SPDX-License-Identifier: Apache-2.0
// Frames of the first camera as cv::Mat in the buffers that they came in, without a copy: grab_opencv PRODUCER.cti
#include "gentl_raii.h"

#include <exception>
#include <iostream>
#include <opencv2/core.hpp>

namespace
{

constexpr std::uint64_t kMono8 = 0x01080001;

/// The picture of a frame, in the frame's own memory: to be used while the frame is there, or cloned.
cv::Mat Picture(const gentl::Frame& frame)
{
    if (frame.pixelFormat != kMono8 || frame.size < (frame.width + frame.padding) * frame.height)
    {
        throw std::runtime_error("only whole pictures in Mono8 are shown here");
    }
    return {static_cast<int>(frame.height), static_cast<int>(frame.width), CV_8UC1, frame.data,
            frame.width + frame.padding};
}

void Grab(const std::string& producer)
{
    const gentl::Producer library(producer);
    gentl::System system(library);
    const std::vector<gentl::CameraId> cameras = system.Find(1000);
    if (cameras.empty())
    {
        throw std::runtime_error("no camera answers");
    }
    const gentl::Camera camera(system, cameras.front());
    gentl::Stream stream(camera);
    for (int count = 0; count < 10; ++count)
    {
        const std::optional<gentl::Frame> frame = stream.Next(10000);
        if (!frame)
        {
            throw std::runtime_error("no frame in 10 s");
        }
        const cv::Mat picture = Picture(*frame);
        double darkest = 0;
        double brightest = 0;
        cv::minMaxLoc(picture, &darkest, &brightest);
        std::cout << "frame " << frame->id << ": " << picture.cols << " x " << picture.rows << ", mean "
                  << cv::mean(picture)[0] << ", from " << darkest << " to " << brightest
                  << (picture.data == frame->data ? "" : ", copied") << "\n";
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::cerr << "usage: " << argv[0] << " PRODUCER.cti\n";
        return 2;
    }
    try
    {
        Grab(argv[1]);
        return 0;
    }
    catch (const std::exception& problem)
    {
        std::cerr << problem.what() << "\n";
        return 1;
    }
}
