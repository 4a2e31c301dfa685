// SPDX-License-Identifier: Apache-2.0
// nq-gev-camera: virtual cameras from the command line.
#include "control_socket.h"
#include "program_options.h"
#include "udp_socket.h"
#include "virtual_camera.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <iostream>
#include <memory>
#include <pthread.h>
#include <string_view>
#include <system_error>
#include <unistd.h>
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
        std::cerr << "nq-gev-camera: no RDMA here (" << cameras.front()->StreamProblem()
                  << "), serving control only; for a host on this machine none is needed: give both nq-gev-camera and "
                     "nq-gev the option --software-rdma\n";
    }
}

void Announce(const std::vector<std::unique_ptr<VirtualCamera>>& cameras, bool quiet)
{
    for (const auto& camera : cameras)
    {
        const CameraOptions& options = camera->Options();
        const LocalInterface network = camera->Network();
        if (!quiet)
        {
            std::cout << options.model << " " << options.serial << " on " << network.name << ", " << options.width
                      << "x" << options.height << " " << options.pixelFormat.name << "\n";
        }
        std::cout << "ready " << AddressText(network.address) << std::endl;
    }
}

/// Hosts leave 127.0.0.1 out when they look for cameras.
void WarnOfUnseen(const ProgramOptions& options)
{
    if (AddressText(options.cameras.front().network.address) == "127.0.0.1")
    {
        std::cerr << "nq-gev-camera: no host looks for cameras at 127.0.0.1; take another address of this machine "
                     "(`ip addr`)\n";
    }
}

/// Replaces this process by the same command without --software-rdma, on the software RDMA. Returns when it cannot.
void StartAgainOnSoftwareRdma(int argc, char** argv)
{
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    std::vector<std::string> words = {self.parent_path() / "nq-software-rdma", self};
    for (int i = 1; i < argc; ++i)
    {
        const std::string_view word = argv[i];
        if (word != "--software-rdma" && !word.starts_with("--software-rdma=")) // or it would start again for ever
        {
            words.emplace_back(word);
        }
    }
    std::vector<char*> command;
    command.reserve(words.size() + 1);
    for (std::string& word : words)
    {
        command.push_back(word.data());
    }
    command.push_back(nullptr);
    execv(command[0], command.data());
    std::cerr << "nq-gev-camera: --software-rdma: cannot start " << words[0] << ": "
              << std::generic_category().message(errno) << "\n";
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
    if (options->softwareRdma)
    {
        StartAgainOnSoftwareRdma(argc, argv);
        return 1;
    }
    WarnOfUnseen(*options);
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
        Announce(cameras, options->quiet);
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
