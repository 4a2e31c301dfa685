// SPDX-License-Identifier: Apache-2.0
// What every verb that takes frames is told of the camera's stream.
#pragma once

#include "grab_options.h"

namespace CLI
{
class App;
} // namespace CLI

namespace nq::tool
{

/// Adds --duration, --wait, --buffers, --allow-loss, --announce, --verify, --frame-timeout and the settings, which the
/// camera gets before the start.
void AddStreamOptions(CLI::App& verb, GrabOptions& options);

} // namespace nq::tool
