// SPDX-License-Identifier: Apache-2.0
// What a process of our own says in a time that has an end.
#pragma once

#include <chrono>
#include <functional>
#include <string>

namespace nq::tool::doctor
{

/// Forks, has the child run `body`, which writes into the pipe that it is given, and gives what it wrote until its end
/// or that of the patience, at most 1 MiB. The child is ended then. Empty when there can be no child.
std::string HearChild(const std::function<void(int pipe)>& body, std::chrono::milliseconds patience);

} // namespace nq::tool::doctor
