// SPDX-License-Identifier: Apache-2.0
// Ten pictures of the first camera, the last one as a PGM file: grab PRODUCER.cti [FILE.pgm]
#include "gentl_raii.h"

#include <exception>
#include <fstream>
#include <iostream>

namespace
{

constexpr std::uint64_t kMono8 = 0x01080001;

void Save(const gentl::Frame& frame, const std::string& path)
{
    const std::size_t bytes = frame.width * frame.height;
    if (frame.pixelFormat != kMono8 || frame.padding != 0 || frame.size < bytes)
    {
        throw std::runtime_error(path + ": only whole pictures in Mono8 without padding are written");
    }
    std::ofstream file(path, std::ios::binary);
    file << "P5\n" << frame.width << " " << frame.height << "\n255\n";
    file.write(static_cast<const char*>(frame.data), static_cast<std::streamsize>(bytes));
    if (!file.flush())
    {
        throw std::runtime_error(path + ": cannot be written");
    }
}

void Grab(const std::string& producer, const std::string& path)
{
    const gentl::Producer library(producer);
    gentl::System system(library);
    const std::vector<gentl::CameraId> cameras = system.Find(1000);
    if (cameras.empty())
    {
        throw std::runtime_error("no camera answers");
    }
    std::cout << "camera " << cameras.front().device << std::endl;
    const gentl::Camera camera(system, cameras.front());
    gentl::Stream stream(camera);
    for (int picture = 1; picture <= 10; ++picture)
    {
        const std::optional<gentl::Frame> frame = stream.Next(10000);
        if (!frame)
        {
            throw std::runtime_error("no frame in 10 s");
        }
        std::cout << "frame " << frame->id << ": " << frame->width << " x " << frame->height << ", " << frame->size
                  << " bytes" << (frame->incomplete ? ", incomplete" : "") << std::endl;
        if (picture == 10 && !path.empty())
        {
            Save(*frame, path);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        std::cerr << "usage: " << argv[0] << " PRODUCER.cti [FILE.pgm]\n";
        return 2;
    }
    try
    {
        Grab(argv[1], argc > 2 ? argv[2] : "");
        return 0;
    }
    catch (const std::exception& problem)
    {
        std::cerr << problem.what() << "\n";
        return 1;
    }
}
