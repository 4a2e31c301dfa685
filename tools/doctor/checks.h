// SPDX-License-Identifier: Apache-2.0
// The groups of findings. Each judges what was gathered; those of cameras also ask the cameras.
#pragma once

#include "doctor/findings.h"
#include "doctor/scene.h"

namespace nq::tool::doctor
{

void CheckProducers(const Scene& scene, const CommonOptions& common, Findings& findings);
void CheckAdapters(const Scene& scene, Findings& findings);
void CheckCounters(const Scene& scene, Findings& findings);
void CheckDiscovery(const Scene& scene, Findings& findings);
void CheckCameras(const Scene& scene, Findings& findings);
void CheckRdma(const Scene& scene, Findings& findings);
void CheckRdmaRights(const Scene& scene, Findings& findings);
void CheckMemory(const Scene& scene, Findings& findings);

/// No other host fits on it: /32, and /31, which cameras do not know.
bool IsAlone(const Ipv4Network& network);

/// An address that a host could take on the subnet of a camera: one that neither the camera nor an adapter has, nor a
/// host that answers for it on `adapter`, if that is named. Takes a second then.
Ipv4Network FreeAddress(const Scene& scene, const Ipv4Network& camera, const std::string& adapter = {});

} // namespace nq::tool::doctor
