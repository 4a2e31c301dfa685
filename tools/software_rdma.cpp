// SPDX-License-Identifier: Apache-2.0
// Running nq-gev on the software RDMA of this project.
#include "software_rdma.h"

#include "exit_codes.h"

#include <algorithm>
#include <cerrno>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace nq::tool
{

namespace fs = std::filesystem;

void StartAgainOnSoftwareRdma(int argc, char** argv)
{
    const auto isOption = [](const char* argument) { return std::string_view(argument) == "--software-rdma"; };
    if (std::none_of(argv + 1, argv + argc, isOption))
    {
        return;
    }
    std::error_code ignored;
    std::string self = fs::read_symlink("/proc/self/exe", ignored);
    std::string launcher = fs::path(self).replace_filename("nq-software-rdma");
    std::vector<char*> command = {launcher.data(), self.data()};
    std::remove_copy_if(argv + 1, argv + argc, std::back_inserter(command), isOption);
    command.push_back(nullptr);
    execv(launcher.c_str(), command.data());
    throw ToolFailure(ExitCode::Failure, fmt::format("--software-rdma: cannot start {}: {}", launcher,
                                                     std::generic_category().message(errno)));
}

bool RunsOnSoftwareRdma()
{
    return dlsym(RTLD_DEFAULT, "nq_loopback_count") != nullptr;
}

bool MachineHasRdmaDevice()
{
    std::error_code ignored;
    const fs::directory_iterator devices("/sys/class/infiniband", ignored);
    return !ignored && devices != fs::directory_iterator();
}

std::string SoftwareRdmaAdvice()
{
    if (RunsOnSoftwareRdma() || MachineHasRdmaDevice())
    {
        return {};
    }
    return " This machine shows no RDMA device (`rdma link`); for a camera on this machine none is needed: give both "
           "nq-gev-camera and nq-gev the option --software-rdma";
}

} // namespace nq::tool
