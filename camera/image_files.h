// SPDX-License-Identifier: Apache-2.0
// Pictures of the user's own for the camera to send.
#pragma once

#include "rgb_picture.h"

#include <string>
#include <vector>

namespace nq::camera
{

/// The PNG files of a folder in the order of their names, decoded. Throws std::runtime_error when there is none, one
/// cannot be read, or all together take more than 4 GiB.
std::vector<RgbPicture> ReadImages(const std::string& folder);

} // namespace nq::camera
