// SPDX-License-Identifier: Apache-2.0
// nq-gev-camera: virtual cameras from the command line.
#include "control_socket.h"
#include "program_options.h"
#include "udp_socket.h"
#include "virtual_camera.h"

#include <csignal>
#include <iostream>
#include <memory>
#include <pthread.h>
#include <vector>

namespace
{

using namespace nq::camera;

void SwitchOn(const ProgramOptions& options, std::vector<std::unique_ptr<VirtualCamera>>& cameras)
{
    for (const CameraOptions& camera : options.cameras)
    {
        cameras.push_back(std::make_unique<VirtualCamera>(camera));
        for (const std::string& fault : options.faults)
        {
            cameras.back()->Arm(fault);
        }
    }
    if (!cameras.front()->StreamProblem().empty())
    {
        std::cerr << "nq-gev-camera: no RDMA here (" << cameras.front()->StreamProblem() << "), serving control only\n";
    }
}

void Announce(const ProgramOptions& options)
{
    for (const CameraOptions& camera : options.cameras)
    {
        if (!options.quiet)
        {
            std::cout << camera.model << " " << camera.serial << " on " << camera.network.name << ", " << camera.width
                      << "x" << camera.height << " " << camera.pixelFormat.name << "\n";
        }
        std::cout << "ready " << AddressText(camera.network.address) << std::endl;
    }
}

} // namespace

int main(int argc, char** argv)
{
    int exitCode = 0;
    const auto options = ReadCommandLine(argc, argv, exitCode);
    if (!options)
    {
        return exitCode;
    }
    // Blocked before any thread starts, so that only sigwait below sees them.
    sigset_t endSignals;
    sigemptyset(&endSignals);
    sigaddset(&endSignals, SIGINT);
    sigaddset(&endSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &endSignals, nullptr);
    try
    {
        std::vector<std::unique_ptr<VirtualCamera>> cameras;
        SwitchOn(*options, cameras);
        std::unique_ptr<ControlSocket> control;
        if (!options->control.empty())
        {
            control = std::make_unique<ControlSocket>(options->control, cameras);
        }
        Announce(*options);
        int number = 0;
        sigwait(&endSignals, &number);
    }
    catch (const std::exception& error)
    {
        std::cerr << "nq-gev-camera: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
