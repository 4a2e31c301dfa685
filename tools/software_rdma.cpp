// SPDX-License-Identifier: Apache-2.0
// Running nq-gev on the software RDMA of this project.
#include "software_rdma.h"

#include "exit_codes.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fmt/format.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace nq::tool
{

namespace fs = std::filesystem;

namespace
{

/// Where the software RDMA looks.
std::string Folder()
{
    const char* const named = std::getenv("NQ_RDMA_LOOPBACK_DIR");
    std::string folder =
        named == nullptr || *named == '\0' ? "/tmp/nq-rdma-loopback-" + std::to_string(geteuid()) : named;
    while (folder.size() > 1 && folder.back() == '/')
    {
        folder.pop_back(); // a link with a slash behind it looks like a folder
    }
    return folder;
}

bool IsOwnFolder(const struct stat& there)
{
    return S_ISDIR(there.st_mode) && there.st_uid == geteuid();
}

/// What nobody else has called so.
std::string FreeName(const std::string& folder)
{
    struct stat there
    {
    };
    std::string name;
    for (int number = 1; name.empty() || (lstat(name.c_str(), &there) == 0 && !IsOwnFolder(there)); ++number)
    {
        name = fmt::format("{}-{}", folder, number);
    }
    return name;
}

} // namespace

void StartAgainOnSoftwareRdma(int argc, char** argv)
{
    const auto isOption = [](const std::string_view argument) {
        return argument == "--software-rdma" || argument == "--software-rdma=true";
    };
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
    const int error = errno;
    // Debian's packages have the tools apart from what stands in for the hardware.
    throw ToolFailure(ExitCode::Failure, fmt::format("--software-rdma: cannot start {}: {}{}", launcher,
                                                     std::generic_category().message(error),
                                                     error == ENOENT ? "; the package nq-gev-camera has it" : ""));
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

std::optional<FolderProblem> SoftwareRdmaFolderProblem()
{
    const std::string folder = Folder();
    struct stat there
    {
    };
    std::error_code ignored;
    if (lstat(folder.c_str(), &there) != 0)
    {
        const bool canBeMade = errno == ENOENT && fs::is_directory(fs::absolute(folder).parent_path(), ignored);
        return canBeMade ? std::nullopt : std::optional(FolderProblem{folder, "it cannot be made", folder});
    }
    if (!S_ISDIR(there.st_mode))
    {
        return FolderProblem{folder, "it is no folder", FreeName(folder)};
    }
    if (there.st_uid != geteuid())
    {
        return FolderProblem{folder, fmt::format("it belongs to the user {}", there.st_uid), FreeName(folder)};
    }
    if ((there.st_mode & (S_IRWXG | S_IRWXO)) != 0)
    {
        return FolderProblem{folder, fmt::format("its mode {:04o} lets others in", there.st_mode & 07777), folder};
    }
    return std::nullopt;
}

} // namespace nq::tool
