// SPDX-License-Identifier: Apache-2.0
// The names of the cameras that were listed last, for the completion of shells, which looks for none by itself.
#pragma once

#include "producers.h"

#include <vector>

namespace nq::tool
{

/// Writes what --camera takes of each camera to nq-gev/cameras in the user's folder for caches: a name and, behind a
/// tabulator, model and serial number, a line each. Names with other characters than letters, digits, spaces and .:_-
/// are left out, since cameras say them. A cache that cannot be written is none.
void NoteCameras(const std::vector<FoundCamera>& cameras);

} // namespace nq::tool
