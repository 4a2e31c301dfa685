// SPDX-License-Identifier: Apache-2.0
// The camera's register description for GenICam.
#pragma once

#include "camera_options.h"

#include <cstdint>
#include <string>
#include <vector>

namespace nq::camera
{

/// The name of the description's file, without extension: another text has another name, since hosts keep files by
/// name.
std::string DescriptionName(const std::string& xml);

/// The XML text: GenApi schema 1.1, feature names of the Standard Features Naming Convention.
std::string MakeGenicamXml(const CameraOptions& options);

/// A ZIP archive that holds `content` as its one file `name`.
std::vector<std::uint8_t> ZipOneFile(const std::string& name, const std::string& content);

} // namespace nq::camera
