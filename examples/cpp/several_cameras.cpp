// SPDX-License-Identifier: Apache-2.0
// So many frames of every camera at once, a thread for each: several_cameras PRODUCER.cti [FRAMES]
// One that is refused or lost leaves the others; the exit code is then 1.
#include "gentl_raii.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <thread>

namespace
{

/// What became of one camera. Its thread alone writes to it.
struct Outcome
{
    std::string camera;
    unsigned long frames = 0;
    unsigned long incomplete = 0;
    std::string problem;
};

void Acquire(const gentl::Camera& camera, unsigned long frames, Outcome& outcome)
{
    try
    {
        gentl::Stream stream(camera);
        while (outcome.frames < frames)
        {
            const std::optional<gentl::Frame> frame = stream.Next(10000);
            if (!frame)
            {
                throw std::runtime_error("no frame in 10 s");
            }
            ++outcome.frames;
            outcome.incomplete += frame->incomplete ? 1 : 0;
        }
    }
    catch (const std::exception& problem)
    {
        outcome.problem = problem.what();
    }
}

std::vector<Outcome> AcquireFromAll(const std::string& producer, unsigned long frames)
{
    const gentl::Producer library(producer);
    gentl::System system(library);
    const std::vector<gentl::CameraId> found = system.Find(1000);
    std::vector<Outcome> outcomes(found.size());
    // Each stays where it is: its thread holds a reference to it.
    std::vector<std::unique_ptr<gentl::Camera>> cameras;
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < found.size(); ++index)
    {
        outcomes[index].camera = found[index].device;
        try
        {
            cameras.push_back(std::make_unique<gentl::Camera>(system, found[index]));
            threads.emplace_back(Acquire, std::cref(*cameras.back()), frames, std::ref(outcomes[index]));
        }
        catch (const std::exception& problem)
        {
            outcomes[index].problem = problem.what();
        }
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    return outcomes;
}

int Report(const std::vector<Outcome>& outcomes)
{
    bool good = !outcomes.empty();
    for (const Outcome& outcome : outcomes)
    {
        std::cout << outcome.camera << ": " << outcome.frames << " frames, " << outcome.incomplete << " incomplete"
                  << (outcome.problem.empty() ? "" : "; ") << outcome.problem << "\n";
        good = good && outcome.problem.empty();
    }
    std::cout << outcomes.size() << " cameras\n";
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned long frames = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 100;
    if (argc < 2 || argc > 3 || frames == 0)
    {
        std::cerr << "usage: " << argv[0] << " PRODUCER.cti [FRAMES]\n";
        return 2;
    }
    try
    {
        return Report(AcquireFromAll(argv[1], frames));
    }
    catch (const std::exception& problem)
    {
        std::cerr << problem.what() << "\n";
        return 1;
    }
}
