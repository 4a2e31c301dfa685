// SPDX-License-Identifier: Apache-2.0
// Takes frames of a camera whenever it is there, until a signal: hot_plug PRODUCER.cti [CAMERA]
// Says when the camera comes, what becomes of it, and when it is gone. CAMERA is its id; without, any will do.
#include "gentl_raii.h"
#include "nq_gev_gentl.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <thread>

namespace
{

volatile std::sig_atomic_t g_stopped = 0;

void Stop(int)
{
    g_stopped = 1;
}

constexpr std::uint64_t kSliceMs = 200; // how soon a signal is noticed
constexpr int kSilentSlices = 50; // without a frame so long the camera counts as gone; more for one with a trigger

/// The event that tells of changes of a camera's access, by producers that have it.
class AccessEvent
{
  public:
    explicit AccessEvent(const gentl::Camera& camera)
    {
        try
        {
            m_event.emplace(camera.Library(), camera.Module(), GenTL::NQ_EVENT_DEVICE_CONNECTION);
        }
        catch (const gentl::Error&)
        {
            std::cout << "this producer tells of no changes of access" << std::endl;
        }
    }

    /// Whether this program has lost the camera, as far as was told.
    bool Lost()
    {
        GenTL::S_NQ_EVENT_DEVICE_CONNECTION change{};
        bool lost = false;
        while (m_event && m_event->Wait(&change, sizeof change, 0))
        {
            std::cout << "access status " << change.Status << " of " << change.sDeviceID << std::endl;
            lost = change.Status == GenTL::DEVICE_ACCESS_STATUS_NOACCESS;
        }
        return lost;
    }

  private:
    std::optional<gentl::Event> m_event;
};

std::optional<gentl::CameraId> Look(gentl::System& system, const std::string& wanted)
{
    const std::vector<gentl::CameraId> cameras = system.Find(1000);
    const auto found = std::find_if(cameras.begin(), cameras.end(), [&](const gentl::CameraId& camera) {
        return wanted.empty() || camera.device == wanted;
    });
    return found == cameras.end() ? std::nullopt : std::optional(*found);
}

/// Takes frames until the camera is gone or a signal came.
void TakeFrames(const gentl::System& system, const gentl::CameraId& id)
{
    const gentl::Camera camera(system, id);
    AccessEvent access(camera);
    gentl::Stream stream(camera);
    std::cout << "opened " << id.device << std::endl;
    unsigned long frames = 0;
    for (int silent = 0; g_stopped == 0 && silent < kSilentSlices && !access.Lost(); ++silent)
    {
        if (const std::optional<gentl::Frame> frame = stream.Next(kSliceMs))
        {
            if (frames++ == 0)
            {
                std::cout << "frame " << frame->id << std::endl;
            }
            silent = 0;
        }
    }
    std::cout << "after " << frames << " frames" << std::endl;
}

void Watch(const std::string& producer, const std::string& wanted)
{
    const gentl::Producer library(producer);
    gentl::System system(library);
    bool told = false;
    while (g_stopped == 0)
    {
        const std::optional<gentl::CameraId> id = Look(system, wanted);
        if (!id)
        {
            std::cout << (told ? "" : "no camera\n") << std::flush;
            told = true;
            std::this_thread::sleep_for(std::chrono::milliseconds(kSliceMs)); // without an interface no look takes time
            continue;
        }
        told = false;
        try
        {
            TakeFrames(system, *id);
        }
        catch (const gentl::Error& error)
        {
            // It went while it was opened, another program has it, or GC_ERR_ABORT: it went while a frame was awaited.
            std::cout << error.what() << std::endl;
        }
        std::cout << "closed " << id->device << std::endl;
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        std::cerr << "usage: " << argv[0] << " PRODUCER.cti [CAMERA]\n";
        return 2;
    }
    std::signal(SIGINT, Stop);
    std::signal(SIGTERM, Stop);
    try
    {
        Watch(argv[1], argc > 2 ? argv[2] : "");
        return 0;
    }
    catch (const std::exception& problem)
    {
        std::cerr << problem.what() << "\n";
        return 1;
    }
}
