// SPDX-License-Identifier: Apache-2.0
// Starts a test program again with the software RDMA in front of the real libraries.
#pragma once

#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace nq::test
{

/// Replaces this process by the same command on the software RDMA; returns in one that runs on it. The launcher gets
/// along with a path at which LD_PRELOAD would be split. `arguments` end with a null pointer.
inline void StartAgainOnLoopback(char** arguments)
{
    if (dlsym(RTLD_DEFAULT, "nq_loopback_count") != nullptr)
    {
        return;
    }
    std::error_code ignored;
    std::string launcher = NQ_BINARY_DIR "/nq-software-rdma";
    std::string self = std::filesystem::read_symlink("/proc/self/exe", ignored);
    std::vector<char*> command = {launcher.data(), self.data()};
    do
    {
        command.push_back(*++arguments);
    } while (*arguments != nullptr);
    execv(launcher.c_str(), command.data());
    throw std::runtime_error("cannot start " + launcher);
}

} // namespace nq::test
