// SPDX-License-Identifier: Apache-2.0
// The language of the control socket.
#pragma once

#include "virtual_camera.h"

#include <memory>
#include <string>
#include <vector>

namespace nq::camera
{

/// Executes one line, a JSON object as README.md describes it, and gives the line that answers it, without its end. The
/// line may hold any bytes; the answer is always UTF-8. Any thread.
std::string AnswerControlLine(const std::vector<std::unique_ptr<VirtualCamera>>& cameras, const std::string& line);

} // namespace nq::camera
