// SPDX-License-Identifier: Apache-2.0
// The doctor: walks the chain from the library to the memory for frames.
#include "doctor/doctor.h"

#include "doctor/checks.h"

namespace nq::tool::doctor
{

std::vector<Finding> Examine(const CommonOptions& common, const DoctorOptions& options)
{
    const Scene scene = Gather(common, options);
    Findings findings;
    CheckProducers(scene, common, findings);
    CheckAdapters(scene, findings);
    CheckCounters(scene, findings);
    CheckDiscovery(scene, findings);
    CheckCameras(scene, findings);
    CheckRdma(scene, findings);
    CheckRdmaRights(scene, findings);
    CheckMemory(scene, findings);
    return findings.Sorted();
}

} // namespace nq::tool::doctor
