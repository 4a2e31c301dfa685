// SPDX-License-Identifier: Apache-2.0
// Running nq-gev on the software RDMA of this project.
#pragma once

#include <optional>
#include <string>

namespace nq::tool
{

/// Replaces this process by the same command without --software-rdma, started by nq-software-rdma. Returns when the
/// option is not among the arguments; throws ToolFailure when nq-software-rdma cannot be started.
void StartAgainOnSoftwareRdma(int argc, char** argv);

/// True in a process that runs on the software RDMA.
bool RunsOnSoftwareRdma();

/// True where the kernel shows an RDMA device.
bool MachineHasRdmaDevice();

/// What a machine without an RDMA device can do, a sentence with a space before it; empty where it would not help.
std::string SoftwareRdmaAdvice();

/// What is wrong with the folder through which programs meet on the software RDMA.
struct FolderProblem
{
    std::string folder;
    std::string why;
    std::string usable; ///< a folder that this user can have for it: this one, once it is mended, or another
};

/// Nothing when the folder is this user's alone, or is made when it is needed.
std::optional<FolderProblem> SoftwareRdmaFolderProblem();

} // namespace nq::tool
